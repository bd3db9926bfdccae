// Character and number checks: the class table, the limits random text does
// not reach, and random text against a reference built from the number
// grammars (regular expressions over character classes); the place of a
// fault is the first character at which the text stops being the beginning
// of any valid text.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

// The answers of lschkAlphaNumeric, lschkAlpha, lschkNumeric, lschkDBCSString
// and lschkANK, in that order.
TEST(LschkClass, WholeTextOfOneClass) {
    static int (*const kChecks[5])(const char*) = {lschkAlphaNumeric, lschkAlpha, lschkNumeric, lschkDBCSString,
                                                   lschkANK};
    const std::pair<const char*, const char*> rows[] = {
        {"", "00000"},    {"abc", "11001"}, {"a1", "10001"},         {"123", "10101"},
        {"a b", "00001"}, {"\xB1\xB2", "00001"},                       // half-width kana
        {"\x95\x5C\x93\xFA", "00010"}, {"\x95\x5C" "a", "00000"},       // 表日, 表a
        {"\x82\x61", "00010"},  // Ｂ: its trail is 'a', but it is no letter
        {"\x81", "00000"},       // a lead byte with no trail
    };
    for (auto [text, want] : rows) {
        for (int i = 0; i < 5; ++i) EXPECT_EQ(kChecks[i](text), want[i] - '0') << "'" << text << "' check " << i;
    }
}

enum Check { kDigit, kFdigit, kEdigit, kGdigit, kHex };

// Runs a check with the position pre-filled; position -1 is null, -2 untouched.
std::pair<int, long> RunCheck(Check check, const char* text, DWORD limit = 0) {
    char* const untouched = reinterpret_cast<char*>(0xCC);
    char* position = untouched;
    static int (*const kChecks[])(const char*, char**) = {lschkDigit, lschkFdigit, lschkEdigit, lschkGdigit};
    const int result = check == kHex ? lschkHex(text, limit, &position) : kChecks[check](text, &position);
    if (position == untouched) return {result, -2};
    return {result, position == nullptr ? -1L : static_cast<long>(position - text)};
}

// Random text stays under nine pieces, short of the default hex limit.
TEST(LschkNumber, HexDigitLimit) {
    EXPECT_EQ(RunCheck(kHex, "12345678"), std::make_pair(1, 0L));
    EXPECT_EQ(RunCheck(kHex, "  123456789"), std::make_pair(0, 10L));
    EXPECT_EQ(RunCheck(kHex, "123456789", 9), std::make_pair(1, 0L));
}

TEST(LschkNumber, ExponentTextIsBoundedTo256Bytes) {
    std::string text = "1e" + std::string(254, '0');
    EXPECT_EQ(RunCheck(kEdigit, text.c_str()), std::make_pair(1, 0L));
    text += "0";
    SetLastError(0);
    EXPECT_EQ(RunCheck(kEdigit, text.c_str()), std::make_pair(0, -2L)) << "the position is not set";
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    // lschkGdigit then reports lschkFdigit's place, the 'e'.
    SetLastError(0);
    EXPECT_EQ(RunCheck(kGdigit, text.c_str()), std::make_pair(0, 1L));
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
}

// ---- reference ----------------------------------------------------------------------------

// One symbol per character: w white space, 0, d other digits, e the letter
// e, f other hexadecimal letters, h, x, s sign, p point, o anything else.
std::string Symbols(const std::string& text, std::vector<size_t>* starts) {
    static const std::string kFrom = "0123456789eEabcdfABCDFhHxX+-. \t", kTo = "0dddddddddeeffffffffffhhxxsspww";
    std::string symbols;
    const auto kinds = cp932model::Kinds(text);
    for (size_t i = 0; i < text.size(); i += cp932model::WidthAt(kinds, i)) {
        starts->push_back(i);
        const size_t at = kFrom.find(text[i]);
        if (cp932model::WidthAt(kinds, i) == 2) {
            symbols += text.compare(i, 2, "\x81\x40") == 0 ? 'w' : 'o';
        } else {
            symbols += at == std::string::npos ? 'o' : kTo[at];
        }
    }
    starts->push_back(text.size());
    return symbols;
}

const std::regex& Grammar(Check check, DWORD limit) {
    static const std::regex digit("w*(sw*)?[0d]+w*");
    static const std::regex fixed("w*(sw*)?([0d]+|[0d]*p[0d]*)w*");
    static std::vector<std::regex> hex;  // by limit
    if (check != kHex) return check == kDigit ? digit : fixed;
    while (hex.size() <= limit) {
        const std::string n = "{1," + std::to_string(hex.empty() ? 8 : hex.size()) + "}";
        hex.emplace_back("w*([0def]" + n + "h?|0xw*([0def]" + n + "h?|h)|hw*[0def]" + n + ")w*");
    }
    return hex[limit];
}

// The answer the grammar gives for lschkDigit, lschkFdigit and lschkHex.
std::pair<int, long> Reference(Check check, const std::string& text, DWORD limit) {
    if (text.empty()) return {0, 0};
    std::vector<size_t> starts;
    const std::string sym = Symbols(text, &starts);
    auto valid = [&](const std::string& s) { return std::regex_match(s, Grammar(check, limit)); };
    auto viable = [&](const std::string& s) { return valid(s) || valid(s + "d"); };
    const size_t firstSolid = sym.find_first_not_of('w');
    if (valid(sym)) return {1, static_cast<long>(starts[firstSolid])};
    if (firstSolid == std::string::npos) return {0, -1};
    if (viable(sym)) return {0, static_cast<long>(starts[firstSolid])};  // a sign or prefix alone
    size_t i = 1;
    while (viable(sym.substr(0, i))) ++i;
    return {0, static_cast<long>(starts[i - 1])};
}

// lschkEdigit from the same pieces: mantissa and exponent at the first
// exponent letter that is a character of its own.
std::pair<int, long> ReferenceExponent(const std::string& text) {
    std::vector<size_t> starts;
    const std::string sym = Symbols(text, &starts);
    const size_t letter = sym.find('e');
    if (letter == 0 || letter == std::string::npos) return {0, 0};
    const long at = static_cast<long>(starts[letter]);
    auto mantissa = Reference(kFdigit, text.substr(0, at), 0);
    if (!mantissa.first) return {0, mantissa.second < 0 ? at : mantissa.second};
    auto exponent = Reference(kDigit, text.substr(at + 1), 0);
    if (!exponent.first) return {0, exponent.second < 0 ? at : at + 1 + exponent.second};
    return {1, static_cast<long>(starts[sym.find_first_not_of('w')])};
}

std::pair<int, long> ReferenceGeneral(const std::string& text) {
    auto fixed = Reference(kFdigit, text, 0), exponent = ReferenceExponent(text);
    if (fixed.first || exponent.first) return fixed.first ? fixed : exponent;
    if (fixed.second < 0 || exponent.second < 0) return {0, -1};
    return {0, std::min(fixed.second, exponent.second)};
}

TEST(LschkNumber, AgreesWithTheGrammarsOnRandomText) {
    const std::vector<std::string> pieces = {" ", "\t", "\x81\x40", "0", "1", "9", "a", "F", "e", "E", "h",
                                             "H", "x", "X", "+", "-", ".", ",", "\x89\x45", "\x8B\x81", "\xB1"};
    cp932model::TextGen gen(1729);
    for (int round = 0; round < 8000; ++round) {
        std::string text;
        for (size_t i = 0, n = gen.Below(9); i < n; ++i) text += pieces[gen.Below(pieces.size())];
        const DWORD limit = static_cast<DWORD>(gen.Below(4));
        const char* t = text.c_str();
        ASSERT_EQ(RunCheck(kDigit, t), Reference(kDigit, text, 0)) << "digit '" << text << "'";
        ASSERT_EQ(RunCheck(kFdigit, t), Reference(kFdigit, text, 0)) << "fdigit '" << text << "'";
        ASSERT_EQ(RunCheck(kHex, t, limit), Reference(kHex, text, limit)) << "hex '" << text << "' " << limit;
        ASSERT_EQ(RunCheck(kEdigit, t), ReferenceExponent(text)) << "edigit '" << text << "'";
        ASSERT_EQ(RunCheck(kGdigit, t), ReferenceGeneral(text)) << "gdigit '" << text << "'";
    }
}

}  // namespace
