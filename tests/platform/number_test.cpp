// Decimal digits of doubles (_ecvt, _fcvt), _itoa and strtod of the runtime
// subset. The digit functions are checked against a reference built here
// from the C library's exact expansion ("%.800e", "%.1100f"), rounded by
// hand with ties away from zero, on values at and near decimal half-way
// points and on random doubles.
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
    bool operator==(const Digits& o) const { return text == o.text && point == o.point; }
};

std::ostream& operator<<(std::ostream& os, const Digits& d) { return os << '"' << d.text << "\" point " << d.point; }

// Adds one at the last digit; true when it carried out of the first.
bool Increment(std::string& s) {
    for (size_t i = s.size(); i-- > 0;) {
        if (s[i] != '9') {
            ++s[i];
            return false;
        }
        s[i] = '0';
    }
    return true;
}

Digits ReferenceE(double a, int count) {
    static char buffer[2000];
    std::snprintf(buffer, sizeof buffer, "%.800e", a);
    std::string all = std::string(1, buffer[0]) + std::string(buffer + 2, 800);
    int point = std::atoi(std::strchr(buffer, 'e') + 1) + 1;
    std::string kept = all.substr(0, count);
    if (all[count] >= '5' && Increment(kept)) {
        kept = "1" + kept.substr(1);
        ++point;
    }
    return {kept, point};
}

Digits ReferenceF(double a, int places) {
    static char buffer[2000];
    std::snprintf(buffer, sizeof buffer, "%.1100f", a);
    std::string text(buffer);
    size_t dot = text.find('.');
    std::string kept = text.substr(0, dot) + text.substr(dot + 1, places);
    if (text[dot + 1 + places] >= '5' && Increment(kept)) kept = "1" + kept;
    size_t first = kept.find_first_not_of('0');
    if (first == std::string::npos) {
        std::snprintf(buffer, sizeof buffer, "%.800e", a);
        return {"", std::atoi(std::strchr(buffer, 'e') + 1) + 1};
    }
    kept = kept.substr(first);
    return {kept, static_cast<int>(kept.size()) - places};
}

using Cvt = char* (*)(double, int, int*, int*);

Digits Run(Cvt cvt, double v, int n, int* negative) {
    int point = 12345;
    const char* s = cvt(v, n, &point, negative);
    return {s, point};
}
Digits Ecvt(double v, int count, int* negative) { return Run(orvacrt::_ecvt, v, count, negative); }
Digits Fcvt(double v, int places, int* negative) { return Run(orvacrt::_fcvt, v, places, negative); }

void ExpectBoth(double v) {
    for (int count = 1; count <= 20; ++count) {
        int negative = -1;
        ASSERT_EQ(Ecvt(v, count, &negative), ReferenceE(std::fabs(v), count)) << v << " count " << count;
        ASSERT_EQ(negative, std::signbit(v) ? 1 : 0);
    }
    for (int places = 0; places <= 20; ++places) {
        int negative = -1;
        ASSERT_EQ(Fcvt(v, places, &negative), ReferenceF(std::fabs(v), places)) << v << " places " << places;
        ASSERT_EQ(negative, std::signbit(v) ? 1 : 0);
    }
}

// What the reference below does not cover: no digits at all, signs of zero,
// values held just off a half-way point, and values with no digits.
TEST(CvtTest, WorkedCases) {
    int negative;
    EXPECT_EQ(Ecvt(0.0, 4, &negative), (Digits{"0000", 1}));
    EXPECT_EQ(Ecvt(7.0, 0, &negative), (Digits{"1", 2}));
    EXPECT_EQ(Ecvt(4.9, 0, &negative), (Digits{"", 1}));
    EXPECT_EQ(Ecvt(-0.125, 2, &negative), (Digits{"13", 0}));
    EXPECT_EQ(negative, 1);
    EXPECT_EQ(Fcvt(99.995, 2, &negative), (Digits{"10000", 3}));  // held above the half-way point
    EXPECT_EQ(Fcvt(9.995, 2, &negative), (Digits{"999", 1}));     // held below it
    EXPECT_EQ(Fcvt(-0.0, 3, &negative), (Digits{"", 0}));
    EXPECT_EQ(negative, 1);
    EXPECT_EQ(Ecvt(HUGE_VAL, 5, &negative), (Digits{"", 0}));
    EXPECT_EQ(Fcvt(std::nan(""), 5, &negative), (Digits{"", 0}));
}

TEST(CvtTest, HalfWayPointsAndTheirNeighbours) {
    // k / 2^j has an exact expansion that ends in 5: a tie at some place.
    for (int j = 1; j <= 12; ++j) {
        for (int k = 1; k < 300; k += 2) {
            double tie = std::ldexp(k, -j);
            for (double v : {tie, std::nextafter(tie, 0.0), std::nextafter(tie, 1e9), -tie}) ExpectBoth(v);
        }
    }
    // Integers that are ties at the tens, hundreds ...; and decimals held
    // just off their half-way points.
    for (double v : {5.0, 15.0, 25.0, 125.0, 250.0, 3500.0, 9995.0, 1.5e15, 2.5e21, 1.005, 2.675, 1.115, 0.045,
                     1e-5, 5e-324, DBL_MAX, DBL_MIN, 0.1, 0.7, 1e23}) {
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
        for (int count : {1, 2, 7, 17, 25}) {
            int negative;
            ASSERT_EQ(Ecvt(v, count, &negative), ReferenceE(std::fabs(v), count)) << v << " count " << count;
        }
        // Moderate values, which take the integer road for short counts,
        // including integers and values with fewer digits kept than their
        // integer part has.
        double moderate = std::pow(10.0, static_cast<double>(random() % 3000) / 100.0 - 10.0);
        if (i % 3 == 0) moderate = std::floor(moderate);
        if (i % 5 == 0) moderate = std::ldexp(std::floor(moderate), 1 + static_cast<int>(random() % 9));
        for (int count = 1; count <= 20; ++count) {
            int negative;
            ASSERT_EQ(Ecvt(moderate, count, &negative), ReferenceE(moderate, count)) << moderate << " count " << count;
        }
        double scaled = std::ldexp(static_cast<double>(random() >> 11), -static_cast<int>(random() % 80));
        for (int places : {0, 1, 2, 6, 15}) {
            int negative;
            ASSERT_EQ(Fcvt(scaled, places, &negative), ReferenceF(scaled, places)) << scaled << " " << places;
        }
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
    char buffer[40];
    EXPECT_STREQ(orvacrt::_itoa(255, buffer, 16), "ff");
    EXPECT_STREQ(orvacrt::_itoa(-1, buffer, 16), "ffffffff");
    EXPECT_STREQ(orvacrt::_itoa(-1, buffer, 10), "-1");
    EXPECT_STREQ(orvacrt::_itoa(INT32_MIN, buffer, 10), "-2147483648");
    EXPECT_STREQ(orvacrt::_itoa(INT32_MIN, buffer, 2), ("1" + std::string(31, '0')).c_str());
    EXPECT_STREQ(orvacrt::_itoa(0, buffer, 8), "0");
    EXPECT_STREQ(orvacrt::_itoa(35, buffer, 36), "z");
}

TEST(StrtodTest, ReadsDecimalTextWithEitherExponentLetter) {
    struct Case {
        const char* text;
        double value;
        int consumed;
    } cases[] = {
        {"1d3", 1000, 3},     {"1D+3", 1000, 4},  {"2.5e-1", 0.25, 6}, {" \t-7.", -7, 5},  {".5x", 0.5, 2},
        {"2e", 2, 1},         {"2e+", 2, 1},      {"1.2.3", 1.2, 3},   {".", 0, 0},        {"", 0, 0},
        {"-", 0, 0},          {"0x10", 0, 1},     {"inf", 0, 0},       {"nan", 0, 0},      {"1e999", HUGE_VAL, 5},
        {"1e-999", 0, 6},     {"000123", 123, 6}, {"0.000", 0, 5},     {"4d-2d", 0.04, 4},
    };
    for (const Case& c : cases) {
        char* end = nullptr;
        double v = orvacrt::strtod(c.text, &end);
        EXPECT_EQ(v, c.value) << c.text;
        EXPECT_EQ(end - c.text, c.consumed) << c.text;
    }
    EXPECT_EQ(orvacrt::atof("3.25d1"), 32.5);
    EXPECT_TRUE(std::signbit(orvacrt::strtod("-0", nullptr)));
}

// The number's own reading against the C library's, on both of its roads:
// short mantissas with small exponents, and long or far ones.
TEST(StrtodTest, AgreesWithTheCLibrary) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 50000; ++i) {
        char text[80];
        unsigned digits = 1 + random() % 25;
        std::string mantissa;
        for (unsigned d = 0; d < digits; ++d) mantissa += static_cast<char>('0' + random() % 10);
        size_t dot = random() % (mantissa.size() + 1);
        mantissa.insert(dot, ".");
        int exponent = static_cast<int>(random() % 700) - 350;
        if (random() % 2) exponent %= 25;
        std::snprintf(text, sizeof text, "%s%s%c%d", random() % 2 ? "-" : "", mantissa.c_str(), "eEdD"[random() % 4],
                      exponent);
        std::string forC = text;
        for (char& c : forC) {
            if (c == 'd' || c == 'D') c = 'e';
        }
        char* end;
        double got = orvacrt::strtod(text, &end);
        double expected = std::strtod(forC.c_str(), nullptr);
        ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << text;
        ASSERT_EQ(*end, '\0') << text;
    }
}

}  // namespace
