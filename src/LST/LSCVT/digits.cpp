// Number text of the lscvt family, first part: a double as decimal text in
// the E, F and G forms, which the library's printf also uses for its
// floating conversions. Source .\LST\LSCVT; nothing here marks.
//
// One engine serves the three forms: the runtime's _ecvt or _fcvt gives the
// digits and the place of the point, the form builds its number text from
// them, and one layout step adds sign, blank and padding by the flags. G
// builds both other forms and keeps the shorter.
//
// F rounds after adding a small bias (5e-6, or 5 x 10^-(precision + 3) for
// more than three decimals), so that a value held just below a decimal
// half-way point, as 2.675 is, rounds up as its text suggests.
#include <cstring>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCVT

namespace {

constexpr int kMaxPrecision = orvacrt::_CVTDIGITS_MAX;
// The longest number text: 309 integer digits, the point and every decimal.
constexpr int kNumberSize = 309 + 1 + kMaxPrecision + 16;
// The bias of the F form; its bits are what the library has always used.
constexpr uint64_t kBiasBits = 0x3ED4F8B588E368F0;  // 4.9999999999999996e-06
// G writes its E form aside; this holds any E text short of a huge width.
constexpr int kAsideSize = kMaxPrecision + 256;

// Finite, told by the exponent bits as lsysIsDoubleFinite tells it. Reading
// bits raises nothing, so the mask scope that lsysIsDoubleFinite puts
// around its test, which costs more than the whole conversion, is not
// needed here.
bool IsFinite(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & 0x7FF0000000000000ull) != 0x7FF0000000000000ull;
}

int Clamp(DWORD precision) { return precision > kMaxPrecision ? kMaxPrecision : static_cast<int>(precision); }

char* Fill(char* p, char c, DWORD n) {
    std::memset(p, c, n);
    return p + n;
}

// Lays the number text (length bytes, the digits ending at digitsEnd) out
// in destination: blank, padding, sign, zeros, number, padding, terminator.
// First, with LSCVT_TAILBLANK, the run of '0' that ends the digits is
// removed when a left-justified field has room to fill, or else blanked.
int Emit(char* destination, char* number, int length, int digitsEnd, bool negative, DWORD width, DWORD flags) {
    const bool plus = (flags & LSCVT_PLUS) != 0;
    const bool blank = (flags & LSCVT_BLANK) != 0 && !negative && !plus;
    const bool left = (flags & LSCVT_LEFT) != 0;
    const bool zeros = (flags & LSCVT_ZEROPAD) != 0;
    DWORD used = static_cast<DWORD>(length) + (negative || plus ? 1 : 0) + (blank ? 1 : 0);

    if (flags & LSCVT_TAILBLANK) {
        int start = digitsEnd;
        while (start > 0 && number[start - 1] == '0') --start;
        int run = digitsEnd - start;
        if (left && width > used) {
            std::memmove(number + start, number + digitsEnd, length - digitsEnd);
            length -= run;
            used -= run;
        } else {
            std::memset(number + start, ' ', run);
        }
    }

    const DWORD pad = width > used ? width - used : 0;
    char* p = destination;
    if (blank) *p++ = ' ';
    if (!left && !zeros) p = Fill(p, ' ', pad);
    if (negative) *p++ = '-';
    else if (plus) *p++ = '+';
    if (!left && zeros) p = Fill(p, '0', pad);
    std::memcpy(p, number, length);
    p += length;
    if (left) p = Fill(p, ' ', pad);
    *p = '\0';
    return static_cast<int>(p - destination);
}

double Bias(double value, int precision) {
    double bias;
    std::memcpy(&bias, &kBiasBits, sizeof bias);
    if (value < 0.0) bias = -bias;
    // One multiplication per place above 3, each rounded on its own; once
    // the bias has vanished, further places change nothing.
    for (int i = 3; i < precision && bias != 0.0; ++i) bias *= 0.1;
    return bias;
}

}  // namespace

int lscvtEdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags) {
    if (!IsFinite(value)) return -1;
    const int count = Clamp(precision) + 1;
    int point, negative;
    const char* digits = orvacrt::_ecvt(value, count, &point, &negative);

    char number[kNumberSize];
    int n = 0;
    number[n++] = digits[0];
    if (count > 1 || (flags & LSCVT_ALT)) number[n++] = '.';
    int rest = count - 1;
    if (flags & LSCVT_STRIP) {
        // Unlike F, the point stays: 1.0 is "1.e+000".
        while (rest > 0 && digits[rest] == '0') --rest;
    }
    std::memcpy(number + n, digits + 1, rest);
    n += rest;
    const int digitsEnd = n;

    int exponent = point - 1;
    number[n++] = (flags & LSCVT_UPPER) ? 'E' : 'e';
    number[n++] = point <= 0 ? '-' : '+';
    if (exponent < 0) exponent = -exponent;
    number[n++] = static_cast<char>('0' + exponent / 100);
    number[n++] = static_cast<char>('0' + exponent / 10 % 10);
    number[n++] = static_cast<char>('0' + exponent % 10);
    return Emit(destination, number, n, digitsEnd, negative != 0, width, flags);
}

int lscvtFdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags) {
    if (!IsFinite(value)) return -1;
    const int places = Clamp(precision);
    int point, negative;
    const char* digits = orvacrt::_fcvt(value + Bias(value, places), places, &point, &negative);
    // The runtime gives point + places digits when that is positive, and
    // an empty string otherwise.
    const int count = digits[0] != '\0' ? point + places : 0;

    char number[kNumberSize];
    int n = 0;
    if (count == 0) {
        // Nothing survives the rounding: no point, no fraction, whatever the
        // precision and LSCVT_ALT say.
        number[n++] = '0';
    } else {
        const int integerDigits = point > 0 ? point : 0;
        if (integerDigits > 0) {
            std::memcpy(number, digits, integerDigits);
            n = integerDigits;
        } else {
            number[n++] = '0';
        }
        if (places != 0 || (flags & LSCVT_ALT)) number[n++] = '.';
        if (point < 0) {
            std::memset(number + n, '0', -point);
            n += -point;
        }
        int rest = count - integerDigits;
        if (flags & LSCVT_STRIP) {
            while (rest > 0 && digits[integerDigits + rest - 1] == '0') --rest;
        }
        std::memcpy(number + n, digits + integerDigits, rest);
        n += rest;
        if ((flags & LSCVT_STRIP) && number[n - 1] == '.') --n;
    }
    return Emit(destination, number, n, n, negative != 0, width, flags);
}

int lscvtGdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags) {
    if (!IsFinite(value)) return -1;
    // The precision counts significant digits only to find d, the number of
    // decimals that both forms then use.
    int point, negative;
    const int count = Clamp(precision);
    const char* digits = orvacrt::_ecvt(value, count, &point, &negative);
    // Exactly count digits, except that a count of 0 gives "" or "1".
    const int length = count > 0 ? count : static_cast<int>(std::strlen(digits));
    const DWORD decimals = length - point > 0 ? static_cast<DWORD>(length - point) : 0;

    const int fLength = lscvtFdigit(value, destination, width, decimals, flags | LSCVT_STRIP);
    // No E text is shorter than its first digit, its point (when a digit may
    // follow it or LSCVT_ALT asks for it), the five characters of the
    // exponent and the sign or blank in front, in a field of the same width.
    // An F text that short stands without E being built: a tie goes to F.
    const bool plus = (flags & LSCVT_PLUS) != 0;
    const DWORD shortestE = 1 + (decimals > 0 || (flags & LSCVT_ALT) ? 1 : 0) + 5 +
                            (negative != 0 || plus || (flags & LSCVT_BLANK) ? 1 : 0);
    if (static_cast<DWORD>(fLength) <= (width > shortestE ? width : shortestE)) return fLength;
    // The E form goes aside; a width too large for the stack buffer gets a
    // block of its own.
    char aside[kAsideSize];
    char* e = aside;
    if (width >= kAsideSize - kMaxPrecision) e = static_cast<char*>(lmemAllocFunc(width + kAsideSize, LDE_POS()));
    const int eLength = lscvtEdigit(value, e, width, decimals, flags | LSCVT_STRIP);
    int result = fLength;
    if (fLength > eLength) {
        std::memcpy(destination, e, eLength + 1);
        result = eLength;
    }
    if (e != aside) lmemFree(e);
    return result;
}
