// Wildcard matching: the matcher's choices, lists, bad arguments, and seeded
// random texts and patterns against a reference written from the rules: '?'
// one byte, '*' any run of bytes ending where a character starts, a run with
// a '*' counts as '*', the whole text consumed, flag 1 upper-cases both.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

// One pattern or a list; the caller's strings are never touched.
int Match(std::string text, std::string pattern, DWORD flag, bool list = false) {
    const std::string before = text + '|' + pattern;
    int result = (list ? lschkIsMatchWildEx : lschkIsMatchWild)(text.data(), pattern.data(), flag);
    EXPECT_EQ(text + '|' + pattern, before) << "the caller's text or pattern changed";
    return result;
}

// Limits and bad arguments (last error set for -2 alone): what random text
// cannot make.
TEST(LschkWild, WorkedCasesListsAndLimits) {
    const std::string a255(255, 'a'), a256(256, 'a');
    const struct {
        std::string text, pattern;
        DWORD flag;
        bool list;
        int result;
    } rows[] = {
        // The two choices, which the reference shares: '?' counts bytes from where it stands, and
        // a literal behind nothing or '?' is not tried further on.
        {"abab", "??ab", 0, 0, 0},                 {"aaxb", "a?b", 0, 0, -1},
        {"A.TXT", "*.doc;*.txt", 1, 1, 0},         {"a.txt", ";;;", 0, 1, -1},
        {a256, "*", 0, 0, -2},                     {a255, "*", 0, 0, 0},
        {"a", std::string(256, '*'), 0, 0, -2},    {"a", std::string(255, '*'), 0, 0, 0},
        {"a", "", 0, 0, -2},                       {"a", "", 0, 1, -2},
        {"a", std::string(256, ';'), 0, 1, -2},    {a256, "x;*", 0, 1, -2},
        {"a", "x;" + std::string(253, '*'), 0, 1, 0},
    };
    for (const auto& r : rows) {
        SetLastError(7);
        EXPECT_EQ(Match(r.text, r.pattern, r.flag, r.list), r.result) << "'" << r.text << "' ~ '" << r.pattern << "'";
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

// a-z, and the full-width ａ-ｚ (0x82 0x81-0x9A), to upper case.
std::string ReferenceUpper(std::string s) {
    const auto kinds = cp932model::Kinds(s);
    for (size_t i = 0; i < s.size(); ++i) {
        const unsigned char c = s[i], t = i + 1 < s.size() ? s[i + 1] : 0;
        if (kinds[i] == cp932model::kSingle && c >= 'a' && c <= 'z') s[i] = static_cast<char>(c - 32);
        if (kinds[i] == cp932model::kLead && c == 0x82 && t >= 0x81 && t <= 0x9A) s[i + 1] = static_cast<char>(t - 0x21);
    }
    return s;
}

bool ReferenceMatch(const std::string& t, size_t ti, const std::string& p, size_t pi) {
    if (pi == p.size()) return ti == t.size();
    const size_t end = std::min(p.find_first_not_of("*?", pi), p.size());
    if (end == pi) return ti < t.size() && t[ti] == p[pi] && ReferenceMatch(t, ti + 1, p, pi + 1);
    if (p.find('*', pi) >= end) return t.size() - ti >= end - pi && ReferenceMatch(t, ti + end - pi, p, end);
    const auto kinds = cp932model::Kinds(t.substr(ti));
    for (size_t j = 0; ti + j <= t.size(); j += cp932model::WidthAt(kinds, j)) {
        if (ReferenceMatch(t, ti + j, p, end)) return true;
    }
    return false;
}

int Reference(const std::string& text, const std::string& pattern, DWORD flag) {
    if (text.empty()) return -1;
    const bool fold = flag == 1;
    return ReferenceMatch(fold ? ReferenceUpper(text) : text, 0, fold ? ReferenceUpper(pattern) : pattern, 0) ? 0 : -1;
}

// Random texts and patterns from the given pieces, alone and in lists.
void AgreeOnRandom(unsigned seed, const std::vector<std::string>& textPieces,
                   const std::vector<std::string>& patternPieces, bool leadAtEnd) {
    cp932model::TextGen gen(seed);
    auto join = [&](const std::vector<std::string>& pieces, size_t n) {
        std::string s;
        while (n-- > 0) s += pieces[gen.Below(pieces.size())];
        return s;
    };
    int matches = 0;
    for (int round = 0; round < 30000; ++round) {
        std::string text = join(textPieces, gen.Below(10));
        if (leadAtEnd && gen.Below(8) == 0 && !text.empty()) text += static_cast<char>(0x81);
        const std::string pattern = join(patternPieces, 1 + gen.Below(7));
        const DWORD flag = static_cast<DWORD>(gen.Below(3));
        const int want = Reference(text, pattern, flag);
        ASSERT_EQ(Match(text, pattern, flag), want) << "'" << text << "' ~ '" << pattern << "' flag " << flag;
        matches += want == 0;
        const std::string other = join(patternPieces, 1 + gen.Below(4));
        const int wantList = (want == 0 || Reference(text, other, flag) == 0) ? 0 : -1;
        const std::string list = (gen.Below(2) ? ";" : "") + other + ";;" + pattern + (gen.Below(2) ? ";" : "");
        ASSERT_EQ(Match(text, list, flag, true), wantList) << "'" << text << "' ~ '" << list << "' flag " << flag;
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
