// Number text: the E, F and G forms with every flag, hexadecimal text of
// words and doubles both ways, the trimming of six-decimal text.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <orvanest/ORVANEST.h>

namespace {

using Digit = int (*)(double, char*, DWORD, DWORD, DWORD);

constexpr DWORD L = LSCVT_LEFT, P = LSCVT_PLUS, Z = LSCVT_ZEROPAD, A = LSCVT_ALT, B = LSCVT_BLANK,
                S = LSCVT_STRIP, T = LSCVT_TAILBLANK, U = LSCVT_UPPER;

// Every flag in each form, the rounding bias of F, and the choice of G.
TEST(LscvtDigits, WorkedTable) {
    const struct {
        char form;
        double value;
        DWORD width, precision, flags;
        const char* text;
    } cases[] = {
        {'F', 3.14159, 0, 2, 0, "3.14"},          {'F', 3.14159, 10, 2, L, "3.14      "},
        {'F', -3.14159, 10, 2, Z, "-000003.14"},  {'F', 3.14159, 10, 2, P, "     +3.14"},
        {'F', 3.14159, 10, 2, B | Z, " 000003.14"}, {'F', 3.14159, 10, 2, B | P, "     +3.14"},
        {'F', 2.675, 0, 2, 0, "2.68"},            {'F', -1.005, 0, 2, 0, "-1.01"},
        {'F', 2.499996, 0, 0, 0, "3"},            {'F', 1e-7, 0, 9, 0, "0.000000100"},
        {'F', 1.000048, 0, 4, 0, "1.0000"},       {'F', 1.0000496, 0, 4, 0, "1.0001"},  // bias 5e-7
        {'F', 3.0, 0, 0, A, "3."},                {'F', 0.0, 0, 2, A, "0"},
        {'F', -0.001, 0, 2, 0, "-0"},             {'F', -0.0, 0, 2, 0, "0"},
        {'F', 0.05, 0, 3, S, "0.05"},             {'F', 100.0, 0, 2, S, "100"},
        {'F', 1.5, 8, 3, T, "   1.5  "},          {'F', 1.5, 8, 3, T | L, "1.5     "},
        {'F', 100.0, 0, 0, T, "1  "},             {'F', 99.9999999, 0, 2, 0, "100.00"},
        {'F', 1e20, 0, 1, 0, "100000000000000000000.0"}, {'F', 1.0, 3, 2, L | Z, "1.00"},
        {'E', 1234.5678, 0, 6, 0, "1.234568e+003"}, {'E', 1500.0, 0, 2, U, "1.50E+003"},
        {'E', 1500.0, 14, 2, Z, "000001.50e+003"}, {'E', -1500.0, 14, 2, 0, "    -1.50e+003"},
        {'E', 1.5, 0, 0, 0, "2e+000"},            {'E', 1.5, 0, 0, A, "2.e+000"},
        {'E', 1.0, 0, 3, S, "1.e+000"},           {'E', 1.0203, 0, 4, S, "1.0203e+000"},
        {'E', 1.5, 0, 3, T, "1.5  e+000"},        {'E', 1.5, 14, 3, T | L, "1.5e+000      "},
        {'E', 1e-10, 0, 6, 0, "1.000000e-010"},   {'E', 1.5e123, 0, 6, 0, "1.500000e+123"},
        {'E', 9.9999, 0, 2, 0, "1.00e+001"},      {'E', 5e-324, 0, 1, 0, "4.9e-324"},
        {'E', 1.0, 0, 1, P, "+1.0e+000"},         {'G', 0.0, 0, 6, 0, "0"},
        {'G', 1234.5678, 0, 6, 0, "1234.57"},     {'G', 1234567.0, 0, 6, 0, "1e+006"},
        {'G', 0.000012345, 0, 6, 0, "0.000012345"}, {'G', 1e-10, 0, 6, 0, "1.e-010"},
        {'G', 1234567.0, 8, 6, U | L, "1234567 "}, {'G', 1234567.0, 6, 6, U | L, "1E+006"},
    };
    for (const auto& c : cases) {
        const Digit f = c.form == 'F' ? lscvtFdigit : c.form == 'E' ? lscvtEdigit : lscvtGdigit;
        char buffer[512];
        std::memset(buffer, 0xCC, sizeof buffer);
        const int n = f(c.value, buffer, c.width, c.precision, c.flags);
        EXPECT_STREQ(buffer, c.text) << c.form << "(" << c.value << ", " << c.width << ", " << c.precision
                                     << ", 0x" << std::hex << c.flags << ")";
        EXPECT_EQ(n, static_cast<int>(std::strlen(c.text))) << c.form << " " << c.value;
    }
}

TEST(LscvtDigits, NotFiniteWritesNothing) {
    char buffer[16] = "untouched";
    for (Digit f : {lscvtEdigit, lscvtFdigit, lscvtGdigit}) {
        for (double v : {HUGE_VAL, -HUGE_VAL, std::nan("")}) EXPECT_EQ(f(v, buffer, 5, 2, 0), -1) << v;
    }
    EXPECT_STREQ(buffer, "untouched");
}

// G keeps the F text it built in the destination when it is no longer than
// E: a tiny value's exact E text has 306 digits, F only the six that count.
// A wide field goes through a block of its own for E.
TEST(LscvtDigits, GOfTinyValuesAndWideFields) {
    std::string big(4000, 'x');
    int n = lscvtGdigit(1.2345678901234567e-300, big.data(), 0, 6, 0);
    EXPECT_EQ(n, 307);
    EXPECT_EQ(std::string(big.c_str()), "0." + std::string(299, '0') + "123457");
    n = lscvtGdigit(1e300, big.data(), 300, 6, LSCVT_LEFT);  // F is 301 digits, E fits the field
    EXPECT_EQ(n, 300);
    EXPECT_EQ(std::string(big.c_str()), "1e+300" + std::string(294, ' '));
}

// G is the shorter of F and E at d decimals, d from the digits _ecvt gives at
// the precision; a tie goes to F. Random values, widths, precisions, flags.
TEST(LscvtDigits, GIsTheShorterOfBothForms) {
    std::mt19937_64 random(31);
    std::uniform_real_distribution<double> exponent(-12.0, 12.0);
    for (int i = 0; i < 20000; ++i) {
        double v = std::pow(10.0, exponent(random)) * (random() % 2 ? -1.0 : 1.0);
        if (i % 7 == 0) v = std::round(v);
        DWORD width = random() % 3 == 0 ? static_cast<DWORD>(random() % 20) : 0;
        DWORD precision = static_cast<DWORD>(random() % 12);
        DWORD flags = static_cast<DWORD>(random() % 0x80) | (random() % 2 ? LSCVT_UPPER : 0);
        int point, negative;
        int length = static_cast<int>(std::strlen(orvacrt::_ecvt(v, static_cast<int>(precision), &point, &negative)));
        DWORD d = length - point > 0 ? static_cast<DWORD>(length - point) : 0;
        char f[512], e[512], g[512];
        int fn = lscvtFdigit(v, f, width, d, flags | LSCVT_STRIP);
        int en = lscvtEdigit(v, e, width, d, flags | LSCVT_STRIP);
        int gn = lscvtGdigit(v, g, width, precision, flags);
        ASSERT_STREQ(g, fn <= en ? f : e) << v << " w" << width << " p" << precision << " f" << flags;
        ASSERT_EQ(gn, fn <= en ? fn : en);
    }
}

// F at half-way points and their neighbours, at several precisions: never
// below what the C library writes, at most one unit above, and half-way up.
TEST(LscvtDigits, FRoundsHalfWayPointsUp) {
    for (int precision = 0; precision <= 6; ++precision) {
        double scale = std::pow(10.0, precision);
        for (int k = 0; k < 2000; ++k) {
            double half = (k + 0.5) / scale;
            for (double v : {half, std::nextafter(half, 0.0), std::nextafter(half, 1e9), half - 4e-6 / scale}) {
                char buffer[64];
                lscvtFdigit(v, buffer, 0, precision, 0);
                char expected[64];
                std::snprintf(expected, sizeof expected, "%.*f", precision, v);
                double parsed = std::strtod(buffer, nullptr);
                double unit = 1.0 / scale;
                EXPECT_GE(parsed + unit / 4, std::strtod(expected, nullptr)) << v << " " << precision;
                EXPECT_LE(parsed - unit / 4, std::strtod(expected, nullptr) + unit) << v << " " << precision;
                if (v == half && precision <= 3) {
                    EXPECT_GE(parsed, v) << "half-way " << v << " " << precision << " gave " << buffer;
                }
            }
        }
    }
}

// The readers validate nothing: any byte adds its share ('G' is worth 16),
// and only the last 8 (or first 16) digits count.
TEST(LscvtHex, WordsAndDoubles) {
    char buffer[20];
    EXPECT_EQ(lscvtDwordToHex(buffer, 255), buffer);
    EXPECT_STREQ(buffer, "000000FF");
    EXPECT_STREQ(lscvtDwordToHex(buffer, 0x0ABCDEF1), "0ABCDEF1");
    EXPECT_STREQ(lscvtDblToHex(buffer, -2.0), "C000000000000000");
    const std::pair<const char*, DWORD> words[] = {
        {"ff", 255}, {"0XfF", 255}, {"hFF", 255}, {"FFh", 255}, {"FF zz", 255}, {"FF\tq", 255}, {"FF\x81\x40", 255},
        {"", 0},     {"0x", 0},     {"H", 0},     {" FF", 0},   {"G", 0x10},    {"123456789", 0x23456789},
        {"0x12345678h", 0x12345678},
    };
    for (auto [text, value] : words) EXPECT_EQ(lscvtHexToDword(text), value) << text;
    for (const char* t : {"3FF", "0X3ff", "h3FF", "3FF0000000000000h", "3ff0000000000000 tail", "3FF00000000000001234"}) {
        EXPECT_EQ(lscvtHexToDbl(t), 1.0) << t;
    }
    EXPECT_EQ(lscvtHexToDbl(""), 0.0);
    for (auto write : {+[](char* d) { return lscvtDwordToHex(d, 1); }, +[](char* d) { return lscvtDblToHex(d, 1.0); }}) {
        SetLastError(0);
        EXPECT_EQ(write(nullptr), nullptr);
        EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    }
    // Random doubles go through the text and back bit for bit.
    std::mt19937_64 random(99);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t bits = random();
        double v;
        std::memcpy(&v, &bits, sizeof v);
        if (!std::isfinite(v)) continue;
        const double back = lscvtHexToDbl(lscvtDblToHex(buffer, v));
        ASSERT_EQ(std::memcmp(&back, &v, sizeof v), 0) << buffer;
    }
}

TEST(LscvtRoundDecLevel, TrimsTrailingZeros) {
    const struct {
        double value;
        int level;
        const char* text;
    } cases[] = {
        {1.5, 0, "1.5"},       {1.0, 0, "1"},          {100.0, 0, "100"}, {1.0, 2, "1.00"},
        {1.23456789, 3, "1.234568"}, {1.5, 6, "1.500000"}, {1.5, 10, "1.500000"}, {-2.5, 1, "-2.5"},
        {0.0, 0, "0"},         {1.25, 1, "1.25"},      {-0.5, -3, "-0.5"},
    };
    for (const auto& c : cases) EXPECT_STREQ(lscvtRoundDecLevel(c.value, c.level), c.text) << c.value << " " << c.level;
}

}  // namespace
