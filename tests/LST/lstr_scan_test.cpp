// String scanning: joining, white space, words, quoted runs, array look-up,
// cutting at a byte count. Texts mix in two-byte characters whose trail
// bytes look like what is scanned for.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

TEST(LstrScan, CatExCopiesThenAppends) {
    char buffer[32];
    std::strcpy(buffer, "old content");
    lstrCatEx(buffer, "ab", "", "cd", "\x95\x5C", nullptr);
    EXPECT_STREQ(buffer, "abcd\x95\x5C");
    lstrCatEx(buffer, "x", nullptr);
    EXPECT_STREQ(buffer, "x");
}

TEST(LstrScan, SkipAndFindSpace) {
    const char* text = " \t\x81\x40" "a b";  // blank, tab, full-width space, "a b"
    EXPECT_EQ(lstrSkipSpace(text), text + 4);
    EXPECT_EQ(lstrSkipSpace(" \t\x81\x40"), nullptr);
    EXPECT_EQ(lstrSkipSpace(""), nullptr);
    const char* letter = "a ";
    EXPECT_EQ(lstrSkipSpace(letter), letter);
    const char* word = "ab\x81\x40";
    EXPECT_EQ(lstrFindSpace(word), word + 2);
    EXPECT_EQ(lstrFindSpace("abc"), nullptr);
    const char* tab = "a\tb";
    EXPECT_EQ(lstrFindSpace(tab), tab + 1);
    // 求@ : the bytes 0x81 0x40 here are a trail byte and an '@'. The byte
    // walk reports them as a space, on purpose.
    const char* kanji = "\x8B\x81@";
    EXPECT_EQ(lstrFindSpace(kanji), kanji + 1);
    EXPECT_EQ(lstrSkipSpace(kanji), kanji);
}

TEST(LstrScan, FindWordAroundAPosition) {
    const struct {
        const char* text;
        int position, found, start, length;
    } cases[] = {
        {"  ab", 0, 1, 2, 2}, {"abc def", 5, 1, 4, 3}, {"abc def", 1, 1, 0, 3}, {"a_1 x", 2, 1, 0, 3},
        {"abc def", 3, 1, 4, 3},         // a blank: the next word
        {"ab, cd", 2, 0, 0, 0},          // punctuation finds nothing
        {"ab   ", 3, 0, 0, 0},           // blanks to the end
        {"ab  ,", 2, 0, 0, 0},           // blanks, then no word character
        {"\x93\xFA" "abc", 3, 1, 2, 3},  // 日abc: the word starts behind 日
        {"\x82\x61" "bc", 3, 1, 2, 2},   // Ｂbc: the trail 'a' of Ｂ is not part of the word
        {"\x93\xFA" "abc", 0, 0, 0, 0},  // on a lead byte
        {"x\x81\x40" "yz", 1, 1, 3, 2},  // on a full-width space
    };
    for (const auto& c : cases) {
        char* start = reinterpret_cast<char*>(0xCC);
        int length = 0xCC;
        int found = lstrFindWord(c.text, c.text + c.position, &start, &length);
        EXPECT_EQ(found, c.found) << c.text << " @" << c.position;
        if (c.found) {
            EXPECT_EQ(start, c.text + c.start) << c.text << " @" << c.position;
            EXPECT_EQ(length, c.length) << c.text << " @" << c.position;
        } else {
            EXPECT_EQ(start, reinterpret_cast<char*>(0xCC)) << "outs untouched";
            EXPECT_EQ(length, 0xCC);
        }
    }
}

TEST(LstrScan, FindEncloseEndSkipsDoubledQuotes) {
    const struct {
        const char* text;
        unsigned short quote;
        int end;  // -1: null
    } cases[] = {
        {"ab''c'd", '\'', 5}, {"ab''", '\'', -1}, {"abc'", '\'', 3}, {"", '\'', -1}, {"'", '\'', 0}, {"''", '\'', -1},
        {"a\"\"\"", '"', 3},
        {"\x83\x40@x", '@', 2},  // ァ@: the trail 0x40 of ァ is no quote
        {"\x83\x40\x83\x40", '@', -1},
        // 」 (0x81 0x76) as the quote: a doubled one, then the end; its trail byte alone is not it.
        {"ab\x81\x76\x81\x76" "c\x81\x76", 0x8176, 7}, {"a\x81\x76", 0x8176, 1}, {"a\x76", 0x8176, -1},
        {"ab\xA3", 0xA3, 2},  // a half-width kana bracket as a one-byte quote
    };
    for (const auto& c : cases) {
        char* got = lstrFindEncloseEnd(c.text, c.quote);
        EXPECT_EQ(got, c.end < 0 ? nullptr : const_cast<char*>(c.text) + c.end) << c.text;
    }
    EXPECT_EQ(lstrFindEncloseEnd(nullptr, '\''), nullptr);
}

TEST(LstrScan, FindInPtrArrayByMode) {
    const char* entries[] = {"a", "abc", "abd", "", nullptr};
    const char* pick[] = {"abc", "abd", "ab", nullptr};
    EXPECT_EQ(lstrFindInPtrArray("abcd", entries, 2), entries[1]);
    EXPECT_EQ(lstrFindInPtrArray("ab", pick, 3), pick[0]) << "the first of the two longest";
    EXPECT_EQ(lstrFindInPtrArray("ab", pick, 0), pick[2]);
    EXPECT_EQ(lstrFindInPtrArray("ab", pick, 7), pick[2]);
    EXPECT_EQ(lstrFindInPtrArray("x", entries, 2), entries[3]) << "the empty entry matches with length 0";
    EXPECT_EQ(lstrFindInPtrArray("", pick, 3), pick[0]) << "an empty key matches every entry";
    EXPECT_EQ(lstrFindInPtrArray("x", pick, 2), nullptr);
    EXPECT_EQ(lstrFindInPtrArray("abcd", pick, 3), nullptr);
    EXPECT_EQ(lstrFindInPtrArray("Abc", pick, 0), nullptr) << "case matters";
    const char* none[] = {nullptr};
    EXPECT_EQ(lstrFindInPtrArray("a", none, 2), nullptr);
}

TEST(LstrScan, CutOffNeverSplitsACharacter) {
    const char* text = "a\x82\xA0" "b";  // aあb
    EXPECT_EQ(lstrCutOff(text, 0), nullptr);
    EXPECT_EQ(lstrCutOff(nullptr, 3), nullptr);
    const char* empty = "";
    EXPECT_EQ(lstrCutOff(empty, 3), empty);
    const char* kanji = "\x95\x5C" "a";
    EXPECT_EQ(lstrCutOff(kanji, 1), kanji) << "the first character's start, though it does not fit";

    // Random text: the answer starts the last character ending within the count, else the first.
    cp932model::TextGen gen(3);
    for (int round = 0; round < 300; ++round) {
        const std::string s = gen.Text(1 + gen.Below(20));
        const auto kinds = cp932model::Kinds(s);
        DWORD limit = static_cast<DWORD>(1 + gen.Below(s.size() + 3));
        size_t want = 0;
        for (size_t i = 0; i < s.size(); i += cp932model::WidthAt(kinds, i)) {
            if (i + cp932model::WidthAt(kinds, i) > limit) break;
            want = i;
        }
        ASSERT_EQ(lstrCutOff(s.c_str(), limit), s.c_str() + want) << round << " limit " << limit;
    }
}

TEST(LstrScan, TrimLeftKeepsWholeCharacters) {
    const char* text = "ab\x95\x5C" "c";  // ab表c
    EXPECT_STREQ(lstrTrimLeft(text, 3), "ab") << "the count falls on a lead byte";
    EXPECT_STREQ(lstrTrimLeft(text, 4), "ab\x95\x5C");
    EXPECT_STREQ(lstrTrimLeft(text, 5), text);
    EXPECT_STREQ(lstrTrimLeft(text, 50), text);
    EXPECT_STREQ(lstrTrimLeft(text, 0), "");
    EXPECT_STREQ(lstrTrimLeft(nullptr, 3), "");
}

TEST(LstrScan, LeadAndTrailBytesByPlace) {
    const char* text = "a\x95\x5C\\\x8B\x81";  // a表\求
    const bool lead[] = {false, true, false, false, true, false};
    const bool trail[] = {false, false, true, false, false, true};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(lstrIsLeadByte(text, i), lead[i]) << i;
        EXPECT_EQ(lstrIsTrailByte(text, i), trail[i]) << i;
    }
}

}  // namespace
