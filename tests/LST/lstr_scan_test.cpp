// String scanning: joining, white space, words, quoted runs, array look-up,
// cutting at a byte count. Texts mix in two-byte characters whose trail
// bytes look like what is scanned for.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

// The place p points to in text, -1 for null.
long Offset(const char* text, const char* p) { return p == nullptr ? -1 : static_cast<long>(p - text); }

TEST(LstrScan, CatExCopiesThenAppends) {
    char buffer[32];
    std::strcpy(buffer, "old content");
    lstrCatEx(buffer, "ab", "", "cd", "\x95\x5C", nullptr);
    EXPECT_STREQ(buffer, "abcd\x95\x5C");
    lstrCatEx(buffer, "x", nullptr);
    EXPECT_STREQ(buffer, "x");
}

// Offsets of lstrSkipSpace and lstrFindSpace, -1 for null. In 求@ (0x8B
// 0x81 '@') the bytes 0x81 0x40 are a trail byte and an '@': the byte walk
// of lstrFindSpace reports them as a space, on purpose.
TEST(LstrScan, SkipAndFindSpace) {
    const struct {
        const char* text;
        long skip, find;
    } cases[] = {
        {" \t\x81\x40" "a b", 4, 0}, {" \t\x81\x40", -1, 0}, {"", -1, -1}, {"a ", 0, 1},
        {"ab\x81\x40", 0, 2},        {"abc", 0, -1},        {"a\tb", 0, 1}, {"\x8B\x81@", 0, 1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Offset(c.text, lstrSkipSpace(c.text)), c.skip) << c.text;
        EXPECT_EQ(Offset(c.text, lstrFindSpace(c.text)), c.find) << c.text;
    }
}

TEST(LstrScan, FindWordAroundAPosition) {
    const struct {
        const char* text;
        int position, found;
        long start;
        int length;  // -1 -1: both outs untouched
    } cases[] = {
        // Blanks lead to the next word; punctuation, or blanks up to no word character, find nothing.
        {"  ab", 0, 1, 2, 2},    {"abc def", 5, 1, 4, 3}, {"abc def", 1, 1, 0, 3}, {"a_1 x", 2, 1, 0, 3},
        {"abc def", 3, 1, 4, 3}, {"ab, cd", 2, 0, -1, -1}, {"ab   ", 3, 0, -1, -1}, {"ab  ,", 2, 0, -1, -1},
        {"\x93\xFA" "abc", 3, 1, 2, 3},  // 日abc: the word starts behind 日
        {"\x82\x61" "bc", 3, 1, 2, 2},   // Ｂbc: the trail 'a' of Ｂ is not part of the word
        {"\x93\xFA" "abc", 0, 0, -1, -1}, // on a lead byte
        {"x\x81\x40" "yz", 1, 1, 3, 2},  // on a full-width space
    };
    for (const auto& c : cases) {
        char* start = nullptr;
        int length = -1;
        const int found = lstrFindWord(c.text, c.text + c.position, &start, &length);
        EXPECT_EQ(std::make_tuple(found, Offset(c.text, start), length), std::make_tuple(c.found, c.start, c.length))
            << c.text << " @" << c.position;
    }
}

TEST(LstrScan, FindEncloseEndSkipsDoubledQuotes) {
    const struct {
        const char* text;
        unsigned short quote;
        long end;
    } cases[] = {
        {"ab''c'd", '\'', 5}, {"ab''", '\'', -1}, {"abc'", '\'', 3}, {"", '\'', -1}, {"'", '\'', 0}, {"''", '\'', -1},
        {"a\"\"\"", '"', 3},
        {"\x83\x40@x", '@', 2},  // ァ@: the trail 0x40 of ァ is no quote
        {"\x83\x40\x83\x40", '@', -1},
        // 」 (0x81 0x76) as the quote: a doubled one, then the end; its trail byte alone is not it.
        {"ab\x81\x76\x81\x76" "c\x81\x76", 0x8176, 7}, {"a\x81\x76", 0x8176, 1}, {"a\x76", 0x8176, -1},
        {"ab\xA3", 0xA3, 2},  // a half-width kana bracket as a one-byte quote
    };
    for (const auto& c : cases) EXPECT_EQ(Offset(c.text, lstrFindEncloseEnd(c.text, c.quote)), c.end) << c.text;
    EXPECT_EQ(lstrFindEncloseEnd(nullptr, '\''), nullptr);
}

// Mode 2: the longest entry that starts the key; mode 3: the longest that
// the key starts (the first of equals); any other: the equal one.
TEST(LstrScan, FindInPtrArrayByMode) {
    const char* entries[] = {"a", "abc", "abd", "", nullptr};
    const char* pick[] = {"abc", "abd", "ab", nullptr};
    const char* none[] = {nullptr};
    const struct {
        const char* key;
        const char** array;
        DWORD mode;
        const char* found;
    } cases[] = {
        {"abcd", entries, 2, entries[1]}, {"x", entries, 2, entries[3]}, {"ab", pick, 3, pick[0]},
        {"", pick, 3, pick[0]},           {"ab", pick, 0, pick[2]},      {"ab", pick, 7, pick[2]},
        {"x", pick, 2, nullptr},          {"abcd", pick, 3, nullptr},    {"Abc", pick, 0, nullptr},
        {"a", none, 2, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(static_cast<const void*>(lstrFindInPtrArray(c.key, c.array, c.mode)), c.found)
            << c.key << " mode " << c.mode;
    }
}

// Random text: the answer starts the last character ending within the count,
// else the first.
TEST(LstrScan, CutOffNeverSplitsACharacter) {
    EXPECT_EQ(lstrCutOff("a", 0), nullptr);
    EXPECT_EQ(lstrCutOff(nullptr, 3), nullptr);
    const char* empty = "";
    EXPECT_EQ(Offset(empty, lstrCutOff(empty, 3)), 0);
    cp932model::TextGen gen(3);
    for (int round = 0; round < 300; ++round) {
        const std::string s = gen.Text(1 + gen.Below(20));
        const auto kinds = cp932model::Kinds(s);
        const DWORD limit = static_cast<DWORD>(1 + gen.Below(s.size() + 3));
        size_t want = 0;
        for (size_t i = 0; i < s.size() && i + cp932model::WidthAt(kinds, i) <= limit; i += cp932model::WidthAt(kinds, i)) {
            want = i;
        }
        ASSERT_EQ(Offset(s.c_str(), lstrCutOff(s.c_str(), limit)), static_cast<long>(want)) << s << " limit " << limit;
    }
}

TEST(LstrScan, TrimLeftKeepsWholeCharacters) {
    const char* text = "ab\x95\x5C" "c";  // ab表c
    const std::pair<DWORD, const char*> cases[] = {{3, "ab"}, {4, "ab\x95\x5C"}, {5, text}, {50, text}, {0, ""}};
    for (auto [count, want] : cases) EXPECT_STREQ(lstrTrimLeft(text, count), want) << count;
    EXPECT_STREQ(lstrTrimLeft(nullptr, 3), "");
}

TEST(LstrScan, LeadAndTrailBytesByPlace) {
    const char* text = "a\x95\x5C\\\x8B\x81";  // a表\求
    const bool lead[] = {false, true, false, false, true, false};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(lstrIsLeadByte(text, i), lead[i]) << i;
        EXPECT_EQ(lstrIsTrailByte(text, i), i > 0 && lead[i - 1]) << i;
    }
}

}  // namespace
