// Wildcard matching: the worked table, lists, bad arguments with their error,
// the choices on the two open points of the matcher, and seeded random texts
// and patterns against a reference matcher written from the pattern rules:
// '?' one byte, '*' any run of bytes ending where a character starts (as a
// walk from the run's start sees it), a run with a '*' counts as '*', the
// whole text consumed, flag 1 upper-casing both sides first.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

int Match(std::string text, std::string pattern, DWORD flag = 0) {
    const std::string textBefore = text;
    const std::string patternBefore = pattern;
    int result = lschkIsMatchWild(text.data(), pattern.data(), flag);
    EXPECT_EQ(text, textBefore) << "the caller's text is not touched";
    EXPECT_EQ(pattern, patternBefore) << "the caller's pattern is not touched";
    return result;
}

int MatchList(std::string text, std::string list, DWORD flag = 0) {
    const std::string listBefore = list;
    int result = lschkIsMatchWildEx(text.data(), list.data(), flag);
    EXPECT_EQ(list, listBefore) << "the caller's list is not touched";
    return result;
}

TEST(LschkWild, WorkedTable) {
    const struct {
        const char* text;
        const char* pattern;
        DWORD flag;
        int result;
    } rows[] = {
        {"abc", "abc", 0, 0},         {"abcd", "abc", 0, -1},      {"xabc", "abc", 0, -1},
        {"abc", "ABC", 0, -1},        {"abc", "ABC", 1, 0},        {"A.TXT", "*.txt", 1, 0},
        {"A.TXT", "*.txt", 2, -1},    {"anything", "*", 0, 0},     {"a", "?", 0, 0},
        {"ab", "?", 0, -1},           {"abc", "???", 0, 0},        {"abc", "a?c", 0, 0},
        {"ac", "a?c", 0, -1},         {"x.txt", "*.txt", 0, 0},    {"x.txt.txt", "*.txt", 0, 0},
        {"x.txt.bak", "*.txt", 0, -1}, {"aXbYc", "a*b*c", 0, 0},   {"abab", "*ab", 0, 0},
        {"a", "a*", 0, 0},            {"ba", "a*", 0, -1},         {"a", "a?*", 0, 0},
        {"a", "a?", 0, -1},           {"b", "*?b", 0, 0},          {"ab", "ab*ab", 0, -1},
        {"abab", "ab*ab", 0, 0},      {"", "*", 0, -1},
        // '?' counts bytes from where it stands; a literal behind nothing or '?' is not tried further on.
        {"abab", "??ab", 0, 0},       {"aaxb", "a?b", 0, -1},      {"aXbXb", "a?b", 0, -1},
        // The same through the records (a two-byte character leaves the plain path).
        {"abab\x95\x5C", "??ab\x95\x5C", 0, 0}, {"aaxb\x95\x5C", "a?b*", 0, -1}, {"\x95\x5C" "abab", "*??ab", 0, 0},
        // 表 (0x95 0x5C) is two bytes for '?'; a literal behind '*' never starts on its trail.
        {"\x95\x5C", "??", 0, 0},     {"\x95\x5C", "?", 0, -1},    {"a\x95\x5C", "*\\", 0, -1},
        {"a\x95\x5C", "??\\", 0, 0},  {"a\x95\x5C\\", "*\\", 0, 0}, {"\x95\x5C.txt", "*.TXT", 1, 0},
        // Full-width letters fold too; Ｂ (0x82 0x61) keeps its trail 'a'.
        {"\x82\x81.txt", "\x82\x60.TXT", 1, 0}, {"\x82\x61", "\x82\x41", 1, -1},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(Match(r.text, r.pattern, r.flag), r.result) << "'" << r.text << "' ~ '" << r.pattern << "'";
    }
}

// Lists, and bad arguments with their error; no match sets no error.
TEST(LschkWild, ListsAndBadArguments) {
    const std::string longText(256, 'a');
    const std::string longest(255, 'a');
    struct Row {
        std::string text, pattern;
        bool list;
        int result;
        DWORD flag;
    } rows[] = {
        {"a.txt", "*.doc;*.txt", true, 0, 0},  {"a.txt", ";;*.txt;;", true, 0, 0},   {"a.bmp", "*.doc;*.txt", true, -1, 0},
        {"A.TXT", "*.doc;*.txt", true, 0, 1},  {"", "*;?", true, -1, 0},              {"a.txt", ";;;", true, -1, 0},
        {longText, "*", false, -2, 0},          {longest, "*", false, 0, 0},           {"a", "", false, -2, 0},
        {"a", std::string(256, '*'), false, -2, 0}, {"a", std::string(255, '*'), false, 0, 0},
        {"", "", false, -1, 0},  // the empty text is looked at first
        {"a", "", true, -2, 0},                 {"a", std::string(256, ';'), true, -2, 0},
        {longText, "x;*", true, -2, 0},         {"a", "x;" + std::string(253, '*'), true, 0, 0},
    };
    for (const Row& r : rows) {
        SetLastError(7);
        int got = r.list ? MatchList(r.text, r.pattern, r.flag) : Match(r.text, r.pattern, r.flag);
        EXPECT_EQ(got, r.result) << r.text.size() << " / " << r.pattern;
        EXPECT_EQ(GetLastError(), r.result == -2 ? LERR_INVALIDARG : 7u) << r.text.size() << " / " << r.pattern;
    }
    SetLastError(0);
    EXPECT_EQ(lschkIsMatchWild(nullptr, const_cast<char*>("*"), 0), -2);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
}

// The matcher on records built by hand: the array may start anywhere.
TEST(LschkWild, MatchSubWalksTheRecords) {
    char ab[] = "ab";
    char text[] = "abab";
    tagLST_MatchWild star[] = {{-1, ab, 2}, {-2, nullptr, 0}};
    EXPECT_EQ(lschkMatchSub(text, star), 0);
    tagLST_MatchWild fixed[] = {{0, ab, 2}, {-2, nullptr, 0}};
    EXPECT_EQ(lschkMatchSub(text, fixed), -1);
    EXPECT_EQ(lschkMatchSub(text + 2, fixed), 0);
    tagLST_MatchWild two[] = {{2, nullptr, 0}};
    EXPECT_EQ(lschkMatchSub(text + 2, two), 0);
    EXPECT_EQ(lschkMatchSub(text, two), -1);
}

// ---- reference --------------------------------------------------------------------------

std::string ReferenceUpper(const std::string& s) {
    std::string out = s;
    const auto kinds = cp932model::Kinds(s);
    for (size_t i = 0; i < s.size(); i += cp932model::WidthAt(kinds, i)) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (cp932model::WidthAt(kinds, i) == 1) {
            if (c >= 'a' && c <= 'z') out[i] = static_cast<char>(c - 32);
        } else if (c == 0x82) {
            unsigned char t = static_cast<unsigned char>(s[i + 1]);
            if (t >= 0x81 && t <= 0x9A) out[i + 1] = static_cast<char>(t - 0x21);  // ａ-ｚ
        }
    }
    return out;
}

bool ReferenceMatch(const std::string& t, size_t ti, const std::string& p, size_t pi) {
    if (pi == p.size()) return ti == t.size();
    if (p[pi] != '*' && p[pi] != '?') return ti < t.size() && t[ti] == p[pi] && ReferenceMatch(t, ti + 1, p, pi + 1);
    size_t end = pi;
    size_t marks = 0;
    bool star = false;
    for (; end < p.size() && (p[end] == '*' || p[end] == '?'); ++end) {
        star = star || p[end] == '*';
        ++marks;
    }
    if (!star) return t.size() - ti >= marks && ReferenceMatch(t, ti + marks, p, end);
    if (end == p.size()) return true;
    const std::string rest = t.substr(ti);
    const auto kinds = cp932model::Kinds(rest);
    for (size_t j = 0; j < rest.size(); j += cp932model::WidthAt(kinds, j)) {
        if (ReferenceMatch(t, ti + j, p, end)) return true;
    }
    return false;
}

int Reference(const std::string& text, const std::string& pattern, DWORD flag) {
    if (text.empty()) return -1;
    const bool fold = flag == 1;
    return ReferenceMatch(fold ? ReferenceUpper(text) : text, 0, fold ? ReferenceUpper(pattern) : pattern, 0) ? 0 : -1;
}

// Random texts and patterns from the given pieces, single and in lists.
void AgreeOnRandom(unsigned seed, const std::vector<std::string>& textPieces,
                   const std::vector<std::string>& patternPieces, bool leadAtEnd) {
    cp932model::TextGen gen(seed);
    int matches = 0;
    for (int round = 0; round < 30000; ++round) {
        std::string text;
        for (size_t i = 0, n = gen.Below(10); i < n; ++i) text += textPieces[gen.Below(textPieces.size())];
        if (leadAtEnd && gen.Below(8) == 0 && !text.empty()) text += static_cast<char>(0x81);
        std::string pattern;
        for (size_t i = 0, n = 1 + gen.Below(7); i < n; ++i) pattern += patternPieces[gen.Below(patternPieces.size())];
        const DWORD flag = static_cast<DWORD>(gen.Below(3));
        const int want = Reference(text, pattern, flag);
        ASSERT_EQ(Match(text, pattern, flag), want) << "'" << text << "' ~ '" << pattern << "' flag " << flag;
        matches += want == 0;
        // The same pattern among others in a list.
        std::string other;
        for (size_t i = 0, n = 1 + gen.Below(4); i < n; ++i) other += patternPieces[gen.Below(patternPieces.size())];
        const int wantList = (want == 0 || Reference(text, other, flag) == 0) ? 0 : -1;
        const std::string list = (gen.Below(2) ? ";" : "") + other + ";;" + pattern + (gen.Below(2) ? ";" : "");
        ASSERT_EQ(MatchList(text, list, flag), wantList) << "'" << text << "' ~ '" << list << "'";
    }
    EXPECT_GT(matches, 500) << "the generator makes matches at all";
}

TEST(LschkWild, AgreesWithTheReferenceOnRandomMixedText) {
    AgreeOnRandom(4095,
                  {"a", "A", "b", "B", ".", "\\", "@", "\x95\x5C", "\x82\x81", "\x82\x60", "\x82\x61", "\x8B\x81",
                   "\x83\x40", "\xB1"},
                  {"*", "*", "?", "?", "a", "A", "b", ".", "\\", "\x95\x5C", "\x82\x81", "\x82\x60", "\x8B\x81", "@",
                   "\x83\x40"},
                  true);
}

// Text and pattern of bytes below 0x80 alone take the matcher's shortcut.
TEST(LschkWild, AgreesWithTheReferenceOnRandomPlainText) {
    AgreeOnRandom(777, {"a", "A", "b", "B", ".", "x", "@", "ab"},
                  {"*", "*", "?", "?", "a", "A", "b", ".", "x", "@", "*?", "?*"}, false);
}

}  // namespace
