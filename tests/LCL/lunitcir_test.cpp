// The unit circle: exact quarter points, symmetries bit for bit over whole
// grids, the cos road beyond 23040, and the choice of a division.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include <orvanest/ORVANEST.h>

namespace {

class Lunitcir : public ::testing::Test {
protected:
    void SetUp() override { lunitcirInit(); }
    void TearDown() override { lunitcirFree(); }
};

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Exact to the bit; a reflection negates a stored 0.0 (cos 3/4 turn is -0.0).
TEST_F(Lunitcir, QuarterPointsAreExact) {
    const double half = std::sqrt(2.0) * 0.5;
    const struct {
        int index;
        DWORD division;
        double cos, sin;
    } cases[] = {
        {0, 1, 1.0, 0.0}, {0, 7, 1.0, 0.0},     {0, 23040, 1.0, 0.0}, {1, 4, 0.0, 1.0},
        {2, 4, -1.0, 0.0}, {3, 4, -0.0, -1.0},  {1, 8, half, half},   {360, 360, 1.0, 0.0},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(SameBits(lunitcirCos(c.index, c.division), c.cos)) << c.index << "/" << c.division;
        EXPECT_TRUE(SameBits(lunitcirSin(c.index, c.division), c.sin)) << c.index << "/" << c.division;
    }
}

// Values that are equal by symmetry are the same double. Zeros compare by
// value: a reflection may give -0.0 where its mirror gives 0.0.
TEST_F(Lunitcir, SymmetriesOverEveryGridPoint) {
    for (DWORD d : {4u, 8u, 360u, 23040u}) {
        const int n = static_cast<int>(d);
        for (int k = 0; k < n; ++k) {
            double c = lunitcirCos(k, d), s = lunitcirSin(k, d);
            ASSERT_EQ(lunitcirCos(-k, d), c) << d << " " << k;
            ASSERT_EQ(lunitcirSin(-k, d), -s) << d << " " << k;
            ASSERT_EQ(lunitcirCos(k + n, d), c) << d << " " << k;
            ASSERT_EQ(lunitcirSin(k - 3 * n, d), s) << d << " " << k;
            ASSERT_EQ(lunitcirCos(n / 2 - k, d), -c) << d << " " << k;
            ASSERT_EQ(lunitcirSin(n / 2 - k, d), s) << d << " " << k;
            ASSERT_EQ(lunitcirCos(k + n / 4, d), -s) << d << " " << k;
            ASSERT_EQ(lunitcirSin(k + n / 4, d), c) << d << " " << k;
            ASSERT_EQ(lunitcirCos(n / 4 - k, d), s) << d << " " << k;
            // The same point on the finest grid is the same double.
            int fine = k * static_cast<int>(23040 / d);
            ASSERT_TRUE(SameBits(lunitcirCos(fine, 23040), c)) << d << " " << k;
            ASSERT_TRUE(SameBits(lunitcirSin(fine, 23040), s)) << d << " " << k;
            // And it is the cosine and sine, to within a rounding or two.
            long double angle = 2.0L * std::numbers::pi_v<long double> * k / n;
            ASSERT_NEAR(c, static_cast<double>(std::cos(angle)), 5e-16) << d << " " << k;
            ASSERT_NEAR(s, static_cast<double>(std::sin(angle)), 5e-16) << d << " " << k;
        }
    }
}

TEST_F(Lunitcir, FirstOctantRowsComeFromCosAndSin) {
    for (int i = 1; i < 2880; ++i) {
        ASSERT_TRUE(SameBits(lunitcirCos(i, 23040), std::cos(i * 0.000272707695624114))) << i;
        ASSERT_TRUE(SameBits(lunitcirSin(i, 23040), std::sin(i * 0.000272707695624114))) << i;
    }
}

TEST_F(Lunitcir, LargeDivisionsAndOddDivisions) {
    EXPECT_TRUE(SameBits(lunitcirCos(5, 23041), std::cos(6.283185307179586 / 23041 * 5)));
    EXPECT_TRUE(SameBits(lunitcirSin(-5, 100000), std::sin(6.283185307179586 / 100000 * -5)));
    // 7 does not divide 23040: the step is 3291, not 3291.43.
    EXPECT_TRUE(SameBits(lunitcirCos(1, 7), lunitcirCos(3291, 23040)));
    // The position wraps in 32 bits before the remainder is taken.
    int big = 2000000000;
    int wrapped = static_cast<int>(64u * static_cast<unsigned>(big)) % 23040;
    if (wrapped < 0) wrapped += 23040;
    EXPECT_TRUE(SameBits(lunitcirSin(big, 360), lunitcirSin(wrapped, 23040)));
}

TEST_F(Lunitcir, NearestDivision) {
    const struct {
        DWORD least, step;
        int expected;
    } cases[] = {
        {7, 1, 8},        {100, 3, 120},      {23040, 1, 23040}, {23041, 1, 23041}, {100, 7, 105},
        {1, 1, 1},        {0, 5, 5},          {361, 90, 720}, {11521, 2, 23040},
    };
    for (const auto& c : cases) EXPECT_EQ(lunitcirGetNearestDivd(c.least, c.step), c.expected) << c.least << " " << c.step;
}

}  // namespace
