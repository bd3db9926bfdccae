// Numerics: number theory, trigonometry in degrees, integration, decimal
// rounding, and the unit circle whose symmetric values come out identical.
//
// The circle is divided into 23040 steps (1/64 degree each). lunitcirInit
// builds one table of the first octant and one of the 60 divisors of 23040;
// everything that reads them (lunitcirCos and lunitcirSin with a division of
// at most 23040, lunitcirGetNearestDivd, lcalcCos and lcalcSin on the grid)
// needs lunitcirInit first. The host calls it; the library does not.
#pragma once

#include <orvanest/platform/win32.h>

// ---- number theory and calculus ---------------------------------------------------

// A factorisation over the first count primes, from 2 upward.
struct tagLCL_Factors {
    DWORD count;  // how many primes to try, at most 12; the caller sets it
    struct {
        DWORD prime;
        DWORD exponent;  // 0 when the prime does not divide the number
    } entries[12];
};

// A fraction; the sign of a reduced one stands on the numerator.
struct tagFRACT {
    LONG numerator;
    LONG denominator;
};

// 1 when number is prime, else 0. Trial division by every d from 2 to
// number / 2, so the time grows with the number.
ORVANEST_EXPORT int lcalcIsPrime(unsigned int number);
// Fills the first count primes of factors and the exponent of each in number
// (at least 1). 1 when they account for the whole number; 0 with a mark (and
// no last error of its own) when a prime factor lies beyond them, the
// exponents found so far left in place.
ORVANEST_EXPORT int lcalcGetFactors(unsigned int number, struct tagLCL_Factors* factors);
// How many divisors the factorised number has: the product of exponent + 1.
ORVANEST_EXPORT unsigned int lcalcGetDivsNum(struct tagLCL_Factors* factors);
// Writes every divisor in ascending order, then a 0, into divisors, which has
// lcalcGetDivsNum + 1 entries.
ORVANEST_EXPORT void lcalcGetDivs(struct tagLCL_Factors* factors, unsigned int* divisors);
// The fraction reduced by the greatest common divisor of its magnitudes, with
// a denominator that is not negative; 0/0 stays 0/0 and n/0 becomes 1/0.
// Always 1.
ORVANEST_EXPORT int lcalcGetAgFract(struct tagFRACT* const fraction, struct tagFRACT* reduced);
// Cosine and sine of an angle in degrees: from the unit circle's table when
// the angle lies on the grid of 1/64 degree, else from cos and sin.
ORVANEST_EXPORT double lcalcCos(double degrees);
ORVANEST_EXPORT double lcalcSin(double degrees);
// Tangent of an angle in degrees: 0.0 at multiples of 180, positive infinity
// at the other multiples of 90 (whatever their sign), else tan.
ORVANEST_EXPORT double lcalcTan(double degrees);
// The integral of integrand from lower to upper by a five-point
// Gauss-Legendre rule on 8 equal panels: 40 calls, in order of the panels
// and the nodes, each handed value as its second argument.
ORVANEST_EXPORT double lcalcIntegral(double lower, double upper, double (*integrand)(double, ULONG_PTR),
                                     ULONG_PTR value);
// value rounded half up to decimals (0 to 5) places, judged on its "%f"
// text; any other count gives the value back unchanged.
ORVANEST_EXPORT double lcalcRoundDouble(double value, int decimals);

// ---- unit circle ------------------------------------------------------------------

// Builds both tables (the earlier ones, if any, are lost). 1. Raises
// L_CMemoryException when memory runs out.
ORVANEST_EXPORT int lunitcirInit(void);
// Gives both tables back; nothing may read them afterwards.
ORVANEST_EXPORT void lunitcirFree(void);
// Cosine and sine of index / division of a turn; a negative index turns
// clockwise. A division of at most 23040 reads the table by symmetry (a
// division that does not divide 23040 gets the nearest grid step below its
// own); a larger one computes cos or sin.
ORVANEST_EXPORT double lunitcirCos(int index, DWORD division);
ORVANEST_EXPORT double lunitcirSin(int index, DWORD division);
// The least divisor of 23040 that is at least least and a multiple of step;
// when there is none, the least multiple of step at or above least.
ORVANEST_EXPORT int lunitcirGetNearestDivd(DWORD least, DWORD step);
