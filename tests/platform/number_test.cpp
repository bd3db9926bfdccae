// Decimal digits of doubles (_ecvt, _fcvt), _itoa and strtod of the runtime
// subset. The digit functions are checked against the C library's exact
// expansion ("%.800e"), rounded by hand with ties away from zero, on values
// at and near decimal half-way points and on random doubles.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include <orvanest/platform/platform.h>

namespace {

struct Digits {
    std::string text;
    int point;
    int negative;
    bool operator==(const Digits&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Digits& d) {
    return os << '"' << d.text << "\" point " << d.point << (d.negative ? " negative" : "");
}

Digits Cvt(bool e, double v, int n) {
    Digits d{"", 12345, -1};
    d.text = (e ? orvacrt::_ecvt : orvacrt::_fcvt)(v, n, &d.point, &d.negative);
    return d;
}

// The exact expansion of |v|: its significant digits and the place of the point.
struct Exact {
    std::string digits;
    int point;
    int negative;

    explicit Exact(double v) : negative(std::signbit(v)) {
        char buffer[900];
        std::snprintf(buffer, sizeof buffer, "%.800e", std::fabs(v));
        digits = buffer[0] + std::string(buffer + 2, 800);
        point = std::atoi(std::strchr(buffer, 'e') + 1) + 1;
    }
    // n significant digits (e) or n places behind the point, ties away from
    // zero. A zero has n zeros and point 1 (e), or none and point 0.
    Digits Round(bool e, int n) const {
        if (digits[0] == '0') return {e ? std::string(n, '0') : "", e ? 1 : 0, negative};
        const int keep = e ? n : point + n;
        Digits d{keep > 0 ? digits.substr(0, keep) : "", point, negative};
        if (keep < 0 || digits[keep] < '5') return d;
        size_t i = d.text.size();
        while (i > 0 && d.text[i - 1] == '9') d.text[--i] = '0';
        if (i > 0) {
            ++d.text[i - 1];
        } else {  // carried out of the first digit
            d.text = "1" + d.text;
            if (e && n > 0) d.text.pop_back();
            ++d.point;
        }
        return d;
    }
};

void ExpectBoth(double v) {
    const Exact exact(v);
    for (int n = 0; n <= 20; ++n) {
        ASSERT_EQ(Cvt(true, v, n), exact.Round(true, n)) << v << " count " << n;
        ASSERT_EQ(Cvt(false, v, n), exact.Round(false, n)) << v << " places " << n;
    }
}

// What the reference does not cover: infinities and NaNs; and two worked
// values held just off a half-way point.
TEST(CvtTest, WorkedCases) {
    const struct {
        bool e;
        double v;
        int n;
        Digits want;
    } cases[] = {
        {true, -0.125, 2, {"13", 0, 1}}, {true, HUGE_VAL, 5, {"", 0, 0}}, {false, std::nan(""), 5, {"", 0, 0}},
        {false, 99.995, 2, {"10000", 3, 0}},  // held above the half-way point
        {false, 9.995, 2, {"999", 1, 0}},     // held below it
    };
    for (const auto& c : cases) EXPECT_EQ(Cvt(c.e, c.v, c.n), c.want) << c.v << (c.e ? " e" : " f") << c.n;
}

TEST(CvtTest, HalfWayPointsAndTheirNeighbours) {
    // k / 2^j has an exact expansion that ends in 5: a tie at some place.
    for (int j = 1; j <= 12; ++j) {
        for (int k = 1; k < 300; k += 2) {
            double tie = std::ldexp(k, -j);
            for (double v : {tie, std::nextafter(tie, 0.0), std::nextafter(tie, 1e9), -tie}) ExpectBoth(v);
        }
    }
    // Integers that are ties at the tens, hundreds ...; decimals held just
    // off their half-way points; the ends of the range; zeros.
    for (double v : {5.0, 15.0, 25.0, 125.0, 250.0, 3500.0, 9995.0, 1.5e15, 2.5e21, 1.005, 2.675, 1.115, 0.045,
                     1e-5, 5e-324, DBL_MAX, DBL_MIN, 0.1, 0.7, 1e23, 4.9, 7.0, 0.0, -0.0}) {
        ExpectBoth(v);
    }
}

TEST(CvtTest, RandomDoubles) {
    std::mt19937_64 random(42);
    for (int i = 0; i < 3000; ++i) {
        uint64_t bits = random();
        double v;
        std::memcpy(&v, &bits, sizeof v);
        if (!std::isfinite(v)) continue;
        const Exact exact(v);
        for (int count : {1, 2, 7, 17, 25}) ASSERT_EQ(Cvt(true, v, count), exact.Round(true, count)) << v;
        // Moderate values, which take the integer road for short counts:
        // integers among them, and fewer digits than the integer part has.
        double moderate = std::pow(10.0, static_cast<double>(random() % 3000) / 100.0 - 10.0);
        if (i % 3 == 0) moderate = std::floor(moderate);
        if (i % 5 == 0) moderate = std::ldexp(std::floor(moderate), 1 + static_cast<int>(random() % 9));
        ExpectBoth(moderate);
        ExpectBoth(std::ldexp(static_cast<double>(random() >> 11), -static_cast<int>(random() % 80)));
    }
}

TEST(CvtTest, LongCountsAndTheBufferOfTheThread) {
    int point, negative;
    const char* s = orvacrt::_ecvt(0.1, 60, &point, &negative);
    EXPECT_EQ(std::string(s), "100000000000000005551115123125782702118158340454101562500000");
    s = orvacrt::_fcvt(DBL_MAX, 1100, &point, &negative);
    EXPECT_EQ(std::strlen(s), 309u + 1100u);
    EXPECT_EQ(point, 309);
    s = orvacrt::_ecvt(1.0, 5000, &point, &negative);  // taken as the largest count
    EXPECT_EQ(std::strlen(s), static_cast<size_t>(orvacrt::_CVTDIGITS_MAX));
    const char* first = orvacrt::_ecvt(1.5, 3, &point, &negative);
    orvacrt::_fcvt(2.5, 3, &point, &negative);
    EXPECT_STREQ(first, "2500");  // the next call overwrote it
}

TEST(ItoaTest, Radices) {
    const struct {
        int value, radix;
        std::string want;
    } cases[] = {
        {255, 16, "ff"}, {-1, 16, "ffffffff"}, {-1, 10, "-1"}, {INT32_MIN, 10, "-2147483648"},
        {INT32_MIN, 2, "1" + std::string(31, '0')}, {0, 8, "0"}, {35, 36, "z"},
    };
    char buffer[40];
    for (const auto& c : cases) EXPECT_EQ(orvacrt::_itoa(c.value, buffer, c.radix), c.want) << c.value;
}

TEST(StrtodTest, ReadsDecimalTextWithEitherExponentLetter) {
    const struct {
        const char* text;
        double value;
        int consumed;
    } cases[] = {
        {"1d3", 1000, 3},  {"1D+3", 1000, 4},  {"2.5e-1", 0.25, 6}, {" \t-7.", -7, 5}, {".5x", 0.5, 2},
        {"2e", 2, 1},      {"2e+", 2, 1},      {"1.2.3", 1.2, 3},   {".", 0, 0},       {"", 0, 0},
        {"-", 0, 0},       {"0x10", 0, 1},     {"inf", 0, 0},       {"nan", 0, 0},     {"1e999", HUGE_VAL, 5},
        {"1e-999", 0, 6},  {"000123", 123, 6}, {"0.000", 0, 5},     {"4d-2d", 0.04, 4},
    };
    for (const auto& c : cases) {
        char* end = nullptr;
        EXPECT_EQ(orvacrt::strtod(c.text, &end), c.value) << c.text;
        EXPECT_EQ(end - c.text, c.consumed) << c.text;
    }
    EXPECT_EQ(orvacrt::atof("3.25d1"), 32.5);
    EXPECT_TRUE(std::signbit(orvacrt::strtod("-0", nullptr)));
}

// Against the C library's reading, on both roads: short mantissas with
// small exponents, and long or far ones.
TEST(StrtodTest, AgreesWithTheCLibrary) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 50000; ++i) {
        const std::string sign = random() % 2 ? "-" : "";
        std::string mantissa;
        for (unsigned d = 0, digits = 1 + random() % 25; d < digits; ++d) mantissa += char('0' + random() % 10);
        mantissa.insert(random() % (mantissa.size() + 1), ".");
        int exponent = static_cast<int>(random() % 700) - 350;
        if (random() % 2) exponent %= 25;
        const std::string text = sign + mantissa + "eEdD"[random() % 4] + std::to_string(exponent);
        char* end;
        double got = orvacrt::strtod(text.c_str(), &end);
        double expected = std::strtod((sign + mantissa + 'e' + std::to_string(exponent)).c_str(), nullptr);
        ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << text;
        ASSERT_EQ(*end, '\0') << text;
    }
}

}  // namespace
