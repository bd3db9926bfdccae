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
        // The open points, as this matcher settles them: '?' counts bytes
        // from where it stands, and a literal behind nothing or '?' is not
        // tried again further on.
        {"abab", "??ab", 0, 0},       {"aaxb", "a?b", 0, -1},      {"aXbXb", "a?b", 0, -1},
        // Two-byte characters: 表 (0x95 0x5C) is two bytes for '?', and a
        // literal behind '*' never starts on its trail byte.
        {"\x95\x5C", "??", 0, 0},     {"\x95\x5C", "?", 0, -1},    {"a\x95\x5C", "*\\", 0, -1},
        {"a\x95\x5C", "??\\", 0, 0},  {"a\x95\x5C\\", "*\\", 0, 0}, {"\x95\x5C.txt", "*.TXT", 1, 0},
        // ａ.txt against Ａ.TXT: the full-width letters fold too; Ｂ (0x82
        // 0x61) keeps its trail 'a' under upper-casing.
        {"\x82\x81.txt", "\x82\x60.TXT", 1, 0}, {"\x82\x61", "\x82\x41", 1, -1},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(Match(r.text, r.pattern, r.flag), r.result) << "'" << r.text << "' ~ '" << r.pattern << "'";
    }
}

TEST(LschkWild, Lists) {
    EXPECT_EQ(MatchList("a.txt", "*.doc;*.txt"), 0);
    EXPECT_EQ(MatchList("a.txt", ";;*.txt;;"), 0);
    EXPECT_EQ(MatchList("a.bmp", "*.doc;*.txt"), -1);
    EXPECT_EQ(MatchList("A.TXT", "*.doc;*.txt", 1), 0);
    EXPECT_EQ(MatchList("", "*;?"), -1);
    SetLastError(7);
    EXPECT_EQ(MatchList("a.txt", ";;;"), -1);
    EXPECT_EQ(GetLastError(), 7u) << "no match sets no error";
}

TEST(LschkWild, BadArgumentsSetTheError) {
    const std::string longText(256, 'a');
    const std::string longest(255, 'a');
    struct Row {
        std::string text, pattern;
        bool list;
        int result;
    } rows[] = {
        {longText, "*", false, -2},          {longest, "*", false, 0},      {"a", "", false, -2},
        {"a", std::string(256, '*'), false, -2}, {"a", std::string(255, '*'), false, 0},
        {"", "", false, -1},                  // the empty text is looked at first
        {"a", "", true, -2},                 {"a", std::string(256, ';'), true, -2},
        {longText, "x;*", true, -2},         {"a", "x;" + std::string(253, '*'), true, 0},
    };
    for (const Row& r : rows) {
        SetLastError(0);
        int got = r.list ? MatchList(r.text, r.pattern) : Match(r.text, r.pattern);
        EXPECT_EQ(got, r.result) << r.text.size() << " / " << r.pattern.size();
        EXPECT_EQ(GetLastError(), r.result == -2 ? LERR_INVALIDARG : 0u) << r.text.size() << " / " << r.pattern.size();
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
    if (flag == 1) return ReferenceMatch(ReferenceUpper(text), 0, ReferenceUpper(pattern), 0) ? 0 : -1;
    return ReferenceMatch(text, 0, pattern, 0) ? 0 : -1;
}

TEST(LschkWild, AgreesWithTheReferenceOnRandomTextsAndPatterns) {
    cp932model::TextGen gen(4095);
    const std::vector<std::string> patternPieces = {"*", "*", "?", "?", "a", "A", "b", ".", "\\", "\x95\x5C",
                                                    "\x82\x81", "\x82\x60", "\x8B\x81", "@", "\x83\x40"};
    const std::vector<std::string> textPieces = {"a", "A", "b", "B", ".", "\\", "@", "\x95\x5C", "\x82\x81",
                                                 "\x82\x60", "\x82\x61", "\x8B\x81", "\x83\x40", "\xB1"};
    int matches = 0;
    for (int round = 0; round < 30000; ++round) {
        std::string text;
        for (size_t i = 0, n = gen.Below(10); i < n; ++i) text += textPieces[gen.Below(textPieces.size())];
        if (gen.Below(8) == 0 && !text.empty()) text += static_cast<char>(0x81);  // a lead byte at the end
        std::string pattern;
        for (size_t i = 0, n = 1 + gen.Below(7); i < n; ++i) {
            pattern += patternPieces[gen.Below(patternPieces.size())];
        }
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

}  // namespace
