// The unit circle: cosine and sine at equal divisions of a turn, read from
// one table of the first octant by reflection. Source .\LCL\LUNITCIR; it
// marks nothing.
//
// The turn has 23040 steps (1/64 degree). The table holds steps 0 to 2880
// (0 to 45 degrees); every other step is one of eight reflections of these,
// so values that are equal by symmetry are the same double, and the quarter
// points are exactly 0, 1 and -1. Beside it lies the table of the 60
// divisors of 23040, from which lunitcirGetNearestDivd picks a division that
// falls on the grid. Both tables are process-wide and only read after
// lunitcirInit.
#include <cmath>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLUNITCIR

namespace {

constexpr DWORD kSteps = 23040;
constexpr int kOctant = 2880;
constexpr int kQuarter = 2 * kOctant;
constexpr double kStepRadians = 0.000272707695624114;  // the double nearest 2 pi / 23040
constexpr double kTurnRadians = 6.283185307179586;

struct CosSin {
    double cos;
    double sin;
};

CosSin* g_octant = nullptr;
unsigned* g_divisors = nullptr;

// The position of index / division of a turn on the grid, 0 to 23039. A
// division that does not divide 23040 takes the truncated step.
int GridPosition(int index, DWORD division) {
    DWORD step = kSteps / division;
    int position = static_cast<int>(step * static_cast<DWORD>(index));  // 32 bits, wrapping
    position %= static_cast<int>(kSteps);
    return position < 0 ? position + static_cast<int>(kSteps) : position;
}

// Cosine and sine of a grid position, by the octant it lies in.
CosSin Reflect(int p) {
    const CosSin* t = g_octant;
    if (p <= kOctant) return t[p];
    if (p <= 2 * kOctant) return {t[kQuarter - p].sin, t[kQuarter - p].cos};
    if (p <= 3 * kOctant) return {-t[p - kQuarter].sin, t[p - kQuarter].cos};
    if (p <= 4 * kOctant) return {-t[2 * kQuarter - p].cos, t[2 * kQuarter - p].sin};
    if (p <= 5 * kOctant) return {-t[p - 2 * kQuarter].cos, -t[p - 2 * kQuarter].sin};
    if (p <= 6 * kOctant) return {-t[3 * kQuarter - p].sin, -t[3 * kQuarter - p].cos};
    if (p <= 7 * kOctant) return {t[p - 3 * kQuarter].sin, -t[p - 3 * kQuarter].cos};
    return {t[4 * kQuarter - p].cos, -t[4 * kQuarter - p].sin};
}

}  // namespace

int lunitcirInit(void) {
    g_octant = nullptr;
    g_divisors = nullptr;

    tagLCL_Factors factors;
    factors.count = 10;
    lcalcGetFactors(kSteps, &factors);
    unsigned count = lcalcGetDivsNum(&factors);
    g_divisors = static_cast<unsigned*>(lmemAllocFunc(sizeof(unsigned) * count + sizeof(unsigned), LDE_POS()));
    lcalcGetDivs(&factors, g_divisors);

    g_octant = static_cast<CosSin*>(lmemAllocFunc(sizeof(CosSin) * (kOctant + 1), LDE_POS()));
    g_octant[0] = {1.0, 0.0};
    for (int i = 1; i < kOctant; ++i) g_octant[i] = {std::cos(i * kStepRadians), std::sin(i * kStepRadians)};
    double half = std::sqrt(2.0) * 0.5;
    g_octant[kOctant] = {half, half};
    return 1;
}

void lunitcirFree(void) {
    lmemFree(g_divisors);
    lmemFree(g_octant);
}

double lunitcirCos(int index, DWORD division) {
    if (division > kSteps) return std::cos(kTurnRadians / division * index);
    return Reflect(GridPosition(index, division)).cos;
}

double lunitcirSin(int index, DWORD division) {
    if (division > kSteps) return std::sin(kTurnRadians / division * index);
    return Reflect(GridPosition(index, division)).sin;
}

int lunitcirGetNearestDivd(DWORD least, DWORD step) {
    for (const unsigned* d = g_divisors; *d != 0; ++d) {
        if (least <= *d && *d % step == 0) return static_cast<int>(*d);
    }
    return static_cast<int>(((least - 1) / step + 1) * step);
}
