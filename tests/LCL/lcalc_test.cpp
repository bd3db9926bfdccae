// Number theory and calculus: primality, factoring, divisors, fractions,
// trigonometry in degrees, Gauss-Legendre integration, decimal rounding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

TEST(LcalcPrime, SmallNumbersAgainstSieve) {
    std::vector<bool> composite(2001, false);
    for (unsigned i = 2; i * i <= 2000; ++i) {
        for (unsigned j = i * i; j <= 2000; j += i) composite[j] = true;
    }
    for (unsigned n = 0; n <= 2000; ++n) EXPECT_EQ(lcalcIsPrime(n), n >= 2 && !composite[n] ? 1 : 0) << n;
}

tagLCL_Factors Factorise(unsigned number, DWORD count, int* result) {
    tagLCL_Factors f;
    std::memset(&f, 0xCC, sizeof f);
    f.count = count;
    *result = lcalcGetFactors(number, &f);
    return f;
}

// 23040 = 2^9 3^2 5 over the first ten primes; 124 = 4 x 31 needs an
// eleventh: the failure marks only, and what was found stays.
TEST(LcalcFactors, OverTheFirstPrimes) {
    int result;
    tagLCL_Factors f = Factorise(23040, 10, &result);
    EXPECT_EQ(result, 1);
    const DWORD primes[10] = {2, 3, 5, 7, 11, 13, 17, 19, 23, 29}, exponents[10] = {9, 2, 1};
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(f.entries[i].prime, primes[i]) << i;
        EXPECT_EQ(f.entries[i].exponent, exponents[i]) << i;
    }
    EXPECT_EQ(lcalcGetDivsNum(&f), 60u);
    SetLastError(1234);
    f = Factorise(31 * 4, 10, &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(f.entries[0].exponent, 2u);
    EXPECT_EQ(f.entries[9].prime, 29u);
    f = Factorise(31, 11, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(f.entries[10].prime, 31u);
    EXPECT_EQ(f.entries[10].exponent, 1u);
    Factorise(2, 0, &result);
    EXPECT_EQ(result, 0);
}

// Every divisor list against a plain trial division, for all numbers that
// the first six primes factor, up to a bound; and 1 over any count.
TEST(LcalcDivisors, MatchTrialDivision) {
    for (unsigned n = 1; n <= 3000; ++n) {
        int result;
        tagLCL_Factors f = Factorise(n, 6, &result);
        if (result == 0) continue;
        std::vector<unsigned> expected;
        for (unsigned d = 1; d <= n; ++d) {
            if (n % d == 0) expected.push_back(d);
        }
        ASSERT_EQ(lcalcGetDivsNum(&f), expected.size()) << n;
        expected.insert(expected.end(), {0u, 0xCCCCCCCCu});  // the closing 0, and nothing written behind it
        std::vector<unsigned> got(expected.size(), 0xCCCCCCCCu);
        lcalcGetDivs(&f, got.data());
        EXPECT_EQ(got, expected) << n;
    }
    for (DWORD count : {0u, 1u, 5u, 12u}) {
        int result;
        tagLCL_Factors f = Factorise(1, count, &result);
        EXPECT_EQ(result, 1) << count;
        for (DWORD i = 0; i < count; ++i) EXPECT_EQ(f.entries[i].exponent, 0u);
        unsigned got[3] = {7, 7, 7};
        lcalcGetDivs(&f, got);
        EXPECT_EQ(std::vector<unsigned>(got, got + 3), (std::vector<unsigned>{1, 0, 7})) << count;
    }
}

TEST(LcalcFract, ReducesWithTheSignOnTheNumerator) {
    const struct {
        LONG n, d, rn, rd;
    } cases[] = {
        {6, -8, -3, 4}, {-6, -8, 3, 4}, {0, 5, 0, 1},   {5, 0, 1, 0},          {0, 0, 0, 0},
        {7, 3, 7, 3},   {-7, 3, -7, 3}, {12, 18, 2, 3}, {1 << 30, -(1 << 29), -2, 1},
        {static_cast<LONG>(0x80000000u), 2, -(1 << 30), 1},
    };
    for (const auto& c : cases) {
        tagFRACT in{c.n, c.d};
        tagFRACT out{99, 99};
        EXPECT_EQ(lcalcGetAgFract(&in, &out), 1);
        EXPECT_EQ(out.numerator, c.rn) << c.n << "/" << c.d;
        EXPECT_EQ(out.denominator, c.rd) << c.n << "/" << c.d;
        EXPECT_EQ(in.numerator, c.n);  // the input stays
    }
}

class LcalcTrig : public ::testing::Test {
protected:
    void SetUp() override { lunitcirInit(); }
    void TearDown() override { lunitcirFree(); }
};

// On the grid of 1/64 degree the unit circle's table; off it, and beyond 32
// bits, the library's functions of the radians; tan exact at multiples of 90.
TEST_F(LcalcTrig, GridTableOrLibraryFunctions) {
    constexpr double r = 0.017453292519943295;
    const double half = std::sqrt(2.0) * 0.5;
    const struct {
        double (*f)(double);
        double degrees, want;
    } cases[] = {
        {lcalcCos, 45, half}, {lcalcSin, 45, half}, {lcalcCos, 90, 0.0}, {lcalcCos, 180, -1.0}, {lcalcSin, -90, -1.0},
        {lcalcSin, 30, lunitcirSin(30 * 64, 23040)}, {lcalcCos, 1.0 / 64, lunitcirCos(1, 23040)},
        {lcalcCos, 780, lunitcirCos(60, 360)},      {lcalcSin, 0.001, std::sin(0.001 * r)},
        {lcalcCos, 1e12, std::cos(1e12 * r)},       {lcalcTan, 45, std::tan(45 * r)},
        {lcalcTan, 0, 0.0},  {lcalcTan, 180, 0.0},  {lcalcTan, -360, 0.0},  {lcalcTan, 540, 0.0},
        {lcalcTan, 90, HUGE_VAL}, {lcalcTan, 270, HUGE_VAL}, {lcalcTan, -90, HUGE_VAL}, {lcalcTan, -270, HUGE_VAL},
    };
    for (const auto& c : cases) EXPECT_EQ(c.f(c.degrees), c.want) << &c - cases << ": " << c.degrees;
    EXPECT_TRUE(std::isnan(lcalcSin(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_NE(lcalcTan(45.0), 1.0);
}

// The abscissas the integrand is called with.
std::vector<double> g_calls;
double Recorder(double x, ULONG_PTR) { return g_calls.push_back(x), 1.0; }

TEST(LcalcIntegral, FortyCallsInAscendingOrder) {
    double forward = lcalcIntegral(0.0, 1.0, Recorder, 0);
    ASSERT_EQ(g_calls.size(), 40u);
    for (size_t i = 1; i < g_calls.size(); ++i) EXPECT_LT(g_calls[i - 1], g_calls[i]);
    EXPECT_GT(g_calls.front(), 0.0);
    EXPECT_LT(g_calls.back(), 1.0);
    // The weights are held to 15 decimals: 1 to about 14, not exactly.
    EXPECT_NEAR(forward, 1.0, 1e-13);
    EXPECT_NE(forward, 1.0);
    EXPECT_EQ(lcalcIntegral(1.0, 0.0, Recorder, 0), -forward);
}

// A polynomial whose coefficients are handed through the value word.
double Polynomial(double x, ULONG_PTR value) {
    const std::vector<double>& c = *reinterpret_cast<const std::vector<double>*>(value);
    double y = 0.0;
    for (size_t i = c.size(); i-- > 0;) y = y * x + c[i];
    return y;
}

// Five nodes per panel integrate every polynomial up to degree 9 exactly;
// what is left is the rounding of the 15-decimal constants.
TEST(LcalcIntegral, ExactOnPolynomialsUpToDegreeNine) {
    std::mt19937 random(20240305);
    std::uniform_real_distribution<double> coefficient(-3.0, 3.0), bound(-2.0, 2.0);
    for (int degree = 0; degree <= 9; ++degree) {
        for (int round = 0; round < 20; ++round) {
            std::vector<double> c(degree + 1);
            for (double& v : c) v = coefficient(random);
            double a = bound(random), b = bound(random);
            double exact = 0.0, scale = 0.0;
            for (int i = 0; i <= degree; ++i) {
                exact += c[i] * (std::pow(b, i + 1) - std::pow(a, i + 1)) / (i + 1);
                scale += std::fabs(c[i]) * (std::pow(std::fabs(b), i + 1) + std::pow(std::fabs(a), i + 1));
            }
            EXPECT_NEAR(lcalcIntegral(a, b, Polynomial, reinterpret_cast<ULONG_PTR>(&c)), exact, 1e-13 * (scale + 1.0))
                << "degree " << degree;
        }
    }
    // Degree 10 and beyond is no longer exact: a panel's error shows.
    std::vector<double> x20(21, 0.0);
    x20[20] = 1.0;
    EXPECT_GT(std::fabs(lcalcIntegral(0.0, 1.0, Polynomial, reinterpret_cast<ULONG_PTR>(&x20)) - 1.0 / 21), 1e-12);
}

TEST(LcalcRound, HalfUpOnTheSixDecimalText) {
    const struct {
        double value;
        int decimals;
        double expected;
    } cases[] = {
        {2.345, 2, 2.35},   {1.005, 2, 1.01},      {2.675, 2, 2.68}, {0.5, 0, 1.0},      {-2.5, 0, -3.0},
        {1.999, 2, 2.0},    {9.999, 2, 10.0},      {99.96, 1, 100.0}, {0.4, 0, 0.0},     {-0.04, 1, -0.0},
        {1.23449, 4, 1.2345}, {7.0, 5, 7.0},       {123.456789, 5, 123.45679}, {0.0000049, 5, 0.00001},
        {1.2345678, 6, 1.2345678}, {1.5, -1, 1.5}, {1.5, 100, 1.5},
    };
    for (const auto& c : cases) EXPECT_EQ(lcalcRoundDouble(c.value, c.decimals), c.expected) << c.value << " " << c.decimals;
}

}  // namespace
