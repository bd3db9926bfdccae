// Number theory and calculus of the lcalc family: primality by trial
// division, factoring over the first primes, divisor lists, reduced
// fractions, trigonometry in degrees that is exact on the grid of 1/64
// degree, Gauss-Legendre integration and decimal rounding through text.
// Source .\LCL\LCALC; only lcalcGetFactors marks.
//
// All of it is plain arithmetic on purpose: the primality test divides by
// every number up to half of its argument, since it runs only on 23040 and
// the first primes inside the library, and the integration constants are
// the 15-decimal ones the library has always used, so that results stay
// bit for bit what hosts have stored.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLCALC

namespace {

constexpr int kMaxFactors = 12;
constexpr double kRadiansPerDegree = 0.017453292519943295;  // pi / 180
constexpr int kGridPerDegree = 64;
constexpr DWORD kGridDivision = 23040;  // 360 * 64

int CompareUnsigned(const void* a, const void* b) {
    unsigned x = *static_cast<const unsigned*>(a);
    unsigned y = *static_cast<const unsigned*>(b);
    return x < y ? -1 : x > y ? 1 : 0;
}

// The angle's grid index, when degrees * 64 is a whole number that fits 32
// bits.
bool OnGrid(double degrees, int* index) {
    double product = degrees * kGridPerDegree;
    if (!(product >= -2147483648.0 && product <= 2147483647.0)) return false;
    *index = static_cast<int>(product);
    return static_cast<double>(*index) == product;
}

}  // namespace

int lcalcIsPrime(unsigned int number) {
    if (number < 2) return 0;
    if (number < 4) return 1;
    for (unsigned d = 2; d <= number / 2; ++d) {
        if (number % d == 0) return 0;
    }
    return 1;
}

int lcalcGetFactors(unsigned int number, struct tagLCL_Factors* factors) {
    // The record has room for 12 primes; a larger count would write past it.
    DWORD count = factors->count < kMaxFactors ? factors->count : kMaxFactors;
    unsigned candidate = 1;
    for (DWORD i = 0; i < count; ++i) {
        do {
            ++candidate;
        } while (lcalcIsPrime(candidate) == 0);
        factors->entries[i].prime = candidate;
    }
    unsigned rest = number;
    for (DWORD i = 0; i < count; ++i) {
        unsigned prime = factors->entries[i].prime;
        factors->entries[i].exponent = 0;
        while (rest % prime == 0) {
            rest /= prime;
            ++factors->entries[i].exponent;
        }
    }
    if (rest == 1) return 1;
    // A prime factor lies beyond the entries: what was found stays for the
    // caller to see, and no last error of our own is set.
    LDE_MARK();
    return 0;
}

unsigned int lcalcGetDivsNum(struct tagLCL_Factors* factors) {
    unsigned n = 1;
    for (DWORD i = 0; i < factors->count && i < kMaxFactors; ++i) n *= factors->entries[i].exponent + 1;
    return n;
}

void lcalcGetDivs(struct tagLCL_Factors* factors, unsigned int* divisors) {
    unsigned n = lcalcGetDivsNum(factors);
    for (unsigned i = 0; i < n; ++i) divisors[i] = 1;
    // Each prime's powers are laid over the array in blocks of n / b, where
    // b is the product of exponent + 1 so far: the blocks of later primes
    // are finer, so every combination of exponents comes up exactly once.
    unsigned blocks = 1;
    for (DWORD f = 0; f < factors->count && f < kMaxFactors; ++f) {
        unsigned prime = factors->entries[f].prime;
        unsigned powers = factors->entries[f].exponent + 1;
        blocks *= powers;
        unsigned blockLength = n / blocks;
        unsigned multiplier = 1;
        unsigned step = 0;
        for (unsigned i = 0; i < n; ++i) {
            divisors[i] *= multiplier;
            if (i % blockLength == 0) {
                ++step;
                multiplier *= prime;
                if (step == powers) {
                    step = 0;
                    multiplier = 1;
                }
            }
        }
    }
    std::qsort(divisors, n, sizeof(unsigned), CompareUnsigned);
    divisors[n] = 0;
}

int lcalcGetAgFract(struct tagFRACT* const fraction, struct tagFRACT* reduced) {
    // Magnitudes as unsigned, so that the most negative numerator has one.
    auto magnitude = [](LONG v) { return v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v); };
    uint32_t a = magnitude(fraction->numerator);
    uint32_t b = magnitude(fraction->denominator);
    while (b != 0) {
        uint32_t r = a % b;
        a = b;
        b = r;
    }
    LONG numerator = fraction->numerator;
    LONG denominator = fraction->denominator;
    if (a > 1) {
        numerator = static_cast<LONG>(numerator / static_cast<int64_t>(a));
        denominator = static_cast<LONG>(denominator / static_cast<int64_t>(a));
    }
    if (denominator < 0) {
        numerator = static_cast<LONG>(0u - static_cast<uint32_t>(numerator));
        denominator = -denominator;
    }
    reduced->numerator = numerator;
    reduced->denominator = denominator;
    return 1;
}

double lcalcCos(double degrees) {
    int index;
    if (OnGrid(degrees, &index)) return lunitcirCos(index, kGridDivision);
    return std::cos(degrees * kRadiansPerDegree);
}

double lcalcSin(double degrees) {
    int index;
    if (OnGrid(degrees, &index)) return lunitcirSin(index, kGridDivision);
    return std::sin(degrees * kRadiansPerDegree);
}

double lcalcTan(double degrees) {
    if (std::fmod(degrees, 180.0) == 0.0) return 0.0;
    if (std::fmod(degrees, 90.0) == 0.0) return HUGE_VAL;
    return std::tan(degrees * kRadiansPerDegree);
}

double lcalcIntegral(double lower, double upper, double (*integrand)(double, ULONG_PTR), ULONG_PTR value) {
    static const double kNodes[5] = {-0.906179845938664, -0.538469310105683, 0.0, 0.538469310105683,
                                     0.906179845938664};
    static const double kWeights[5] = {0.236926885056189, 0.478628670499366, 0.568888888888889,
                                       0.478628670499366, 0.236926885056189};
    double h = (upper - lower) * 0.125;
    double sum = 0.0;
    double left = lower;
    for (int k = 1; k <= 8; ++k) {
        double right = lower + k * h;
        double middle = 0.5 * (left + right);
        double radius = 0.5 * (right - left);
        for (int row = 0; row < 5; ++row) sum += integrand(middle + kNodes[row] * radius, value) * kWeights[row];
        left = right;
    }
    return sum * (h * 0.5);
}

double lcalcRoundDouble(double value, int decimals) {
    if (static_cast<unsigned>(decimals) > 5) return value;
    double sign = value >= 0.0 ? 1.0 : -1.0;
    value *= sign;

    CString text;
    text.Format("%f", value);
    int dot = text.Find('.');
    // "%f" always writes a point and six decimals for a finite value; the
    // two parts are worked on as plain digit strings.
    char integer[400];
    char fraction[8] = "000000";
    if (dot < 0) {
        std::strcpy(integer, text);
    } else {
        std::memcpy(integer, static_cast<const char*>(text), dot);
        integer[dot] = '\0';
        std::strncpy(fraction, static_cast<const char*>(text) + dot + 1, 6);
    }

    if (decimals == 0) {
        double whole = orvacrt::atof(integer);
        return (fraction[0] >= '5' ? whole + 1.0 : whole) * sign;
    }
    if (fraction[decimals] >= '5') {
        // One up at the last kept digit, carrying left through the fraction
        // and on through the integer part; a carry out of both puts a 1 in
        // front.
        bool carry = true;
        for (int i = decimals - 1; i >= 0 && carry; --i) {
            carry = fraction[i] == '9';
            fraction[i] = carry ? '0' : static_cast<char>(fraction[i] + 1);
        }
        for (int i = static_cast<int>(std::strlen(integer)) - 1; i >= 0 && carry; --i) {
            carry = integer[i] == '9';
            integer[i] = carry ? '0' : static_cast<char>(integer[i] + 1);
        }
        if (carry) {
            std::memmove(integer + 1, integer, std::strlen(integer) + 1);
            integer[0] = '1';
        }
    }
    fraction[decimals] = '\0';
    char joined[420];
    lstrCatEx(joined, integer, ".", fraction, nullptr);
    return orvacrt::atof(joined) * sign;
}
