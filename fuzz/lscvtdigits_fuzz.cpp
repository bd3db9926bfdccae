// The digit functions on arbitrary doubles, widths, precisions and flags.
// Besides memory errors, checks that each result is the length of its text
// (or -1 exactly for an infinity or a NaN) and fills the width, that G is
// the shorter of its F and E forms, and that the runtime's _ecvt digits are
// the exact expansion (from the C library's "%.800e") rounded half up.
#include <orvanest/ORVANEST.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_input.h"

namespace {

std::string ExactRounded(double a, int count, int* point) {
    static char exact[900];
    std::snprintf(exact, sizeof exact, "%.800e", a);
    std::string digits = std::string(1, exact[0]) + std::string(exact + 2, 800);
    *point = std::atoi(std::strchr(exact, 'e') + 1) + 1;
    std::string kept = digits.substr(0, count);
    if (digits[count] >= '5') {
        int i = count - 1;
        for (; i >= 0 && kept[i] == '9'; --i) kept[i] = '0';
        if (i >= 0) {
            ++kept[i];
        } else {
            kept = "1" + kept.substr(0, count - 1);
            ++*point;
        }
    }
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 12) return 0;
    double value;
    std::memcpy(&value, data, sizeof value);
    const DWORD width = data[8] % 64;
    const DWORD precision = data[9] % 40;
    const DWORD flags = data[10] | (data[11] & 1 ? LSCVT_UPPER : 0);

    static char f[4096], e[4096], g[4096];
    const int fn = lscvtFdigit(value, f, width, precision, flags);
    const int en = lscvtEdigit(value, e, width, precision, flags);
    const int gn = lscvtGdigit(value, g, width, precision, flags);
    if (!std::isfinite(value)) {
        ORVAFUZZ_CHECK(fn == -1 && en == -1 && gn == -1);
        return 0;
    }
    ORVAFUZZ_CHECK(fn == static_cast<int>(std::strlen(f)) && fn >= static_cast<int>(width));
    ORVAFUZZ_CHECK(en == static_cast<int>(std::strlen(e)) && en >= static_cast<int>(width));
    ORVAFUZZ_CHECK(gn == static_cast<int>(std::strlen(g)) && gn >= static_cast<int>(width));

    int point, negative;
    const int length = static_cast<int>(std::strlen(orvacrt::_ecvt(value, static_cast<int>(precision), &point, &negative)));
    const DWORD d = length - point > 0 ? static_cast<DWORD>(length - point) : 0;
    const int gf = lscvtFdigit(value, f, width, d, flags | LSCVT_STRIP);
    const int ge = lscvtEdigit(value, e, width, d, flags | LSCVT_STRIP);
    ORVAFUZZ_CHECK(std::strcmp(g, gf <= ge ? f : e) == 0);

    const int count = 1 + static_cast<int>(precision);
    const std::string got = orvacrt::_ecvt(value, count, &point, &negative);
    if (value != 0.0) {
        int expectedPoint;
        ORVAFUZZ_CHECK(got == ExactRounded(std::fabs(value), count, &expectedPoint));
        ORVAFUZZ_CHECK(point == expectedPoint);
    }
    ORVAFUZZ_CHECK(negative == (std::signbit(value) ? 1 : 0));
    return 0;
}
