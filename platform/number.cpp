// Decimal digits of doubles, integer text and the reading of decimal text,
// for the runtime subset (crt_number.h).
//
// _ecvt and _fcvt take their digits from std::to_chars with a precision,
// which rounds the exact binary value correctly, and so needs no locale and
// no allocation. to_chars breaks an exact tie to even; the runtime's
// contract breaks it away from zero. A tie can only happen where the exact
// expansion of the double ends in a 5 just behind the last kept digit, and
// that is told from the double's bits alone (see IsTieAt); the rare tie is
// then redone from the exact digits and rounded up by hand.
//
// strtod reads the number itself when its digits fit 64 bits and its power
// of ten is exact (the usual case, and exact by construction); anything else
// goes to the C library's reader under the "C" locale, after the exponent
// letter 'd' or 'D' has been replaced by 'e' in a copy.
#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include <orvanest/platform/crt_number.h>

namespace orvacrt {
namespace {

// Room for the longest text to_chars writes: 309 integer digits, the point
// and _CVTDIGITS_MAX decimals, or a scientific text of _CVTDIGITS_MAX + 1
// digits; and for the exact expansion of any double (767 significant digits).
constexpr int kBufferSize = 1536;
constexpr int kExactDigits = 780;

thread_local char t_buffer[kBufferSize];

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kExactPow10 = 22;

// A positive finite double as m * 2^e with m odd.
struct Binary {
    uint64_t m;
    int e;
};

Binary Decompose(double a) {
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    int field = static_cast<int>((bits >> 52) & 0x7FF);
    uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);
    Binary b = field == 0 ? Binary{fraction, -1074} : Binary{fraction | (uint64_t{1} << 52), field - 1075};
    int zeros = __builtin_ctzll(b.m);
    b.m >>= zeros;
    b.e += zeros;
    return b;
}

// Whether a = m * 2^e lies exactly half-way between two multiples of 10^r,
// so that rounding to 10^r is a tie. For r <= 0 the exact expansion of a
// non-integer ends at 2^e's place, -e decimals, always in a 5 (m * 5^-e is
// odd and a multiple of 5); so a tie is e == r - 1. For r > 0, a must be
// 5 * 10^(r-1) times an odd number: e == r - 1 and 5^r divides m.
bool IsTieAt(double a, int r) {
    Binary b = Decompose(a);
    if (b.e != r - 1) return false;
    if (r <= 0) return true;
    if (r > 22) return false;  // 5^23 exceeds any 53-bit m
    uint64_t five = 1;
    for (int i = 0; i < r; ++i) five *= 5;
    return b.m % five == 0;
}

// Adds one unit at the last digit of the n digits at text (a '.' among them
// is stepped over). True when it carried out of the first digit, which then
// reads 0 like the rest.
bool IncrementDigits(char* text, int n) {
    for (int i = n - 1; i >= 0; --i) {
        if (text[i] == '.') continue;
        if (text[i] != '9') {
            ++text[i];
            return false;
        }
        text[i] = '0';
    }
    return true;
}

// The place of the point relative to the first digit of a > 0: the P with
// 10^(P-1) <= a < 10^P. The binary exponent narrows it to two candidates;
// the exact powers of ten decide, and only where a product rounds to 1 or
// the power is not exact does the exact expansion decide.
int DecimalPoint(double a, char* buffer) {
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    const int field = static_cast<int>(bits >> 52);
    const int binary = field != 0 ? field - 1023 : std::ilogb(a);
    // floor(binary x log10 2), exact for every binary exponent of a double.
    int guess = ((binary * 78913) >> 18) + 1;
    if (guess >= 0 && guess <= kExactPow10) return a >= kPow10[guess] ? guess + 1 : guess;
    if (guess < 0 && guess >= -kExactPow10) {
        double scaled = a * kPow10[-guess];
        if (scaled != 1.0) return scaled > 1.0 ? guess + 1 : guess;
    }
    auto r = std::to_chars(buffer, buffer + kBufferSize - 1, a, std::chars_format::scientific, kExactDigits);
    *r.ptr = '\0';  // to_chars writes no terminator
    const char* exponent = static_cast<const char*>(std::memchr(buffer, 'e', r.ptr - buffer));
    return std::atoi(exponent + 1) + 1;
}

// Scientific text of a with precision digits behind the point: the digits
// are moved to the front of buffer; gives the decimal exponent.
int ScientificDigits(double a, int precision, char* buffer) {
    auto r = std::to_chars(buffer, buffer + kBufferSize - 1, a, std::chars_format::scientific, precision);
    *r.ptr = '\0';  // to_chars writes no terminator
    char* e = static_cast<char*>(std::memchr(buffer, 'e', r.ptr - buffer));
    int exponent = std::atoi(e + 1);
    if (precision > 0) std::memmove(buffer + 1, buffer + 2, precision);  // drop the '.'
    buffer[precision + 1] = '\0';
    return exponent;
}

int Clamp(int n) { return n < 0 ? 0 : n > _CVTDIGITS_MAX ? _CVTDIGITS_MAX : n; }

// ---- the integer road -------------------------------------------------------------
// Most requests need few digits of a moderate number: then a x 10^places,
// rounded, fits 64 bits and is computed exactly from the double's bits in
// 128-bit arithmetic, with the tie rounded away from zero where it falls.
// That is several times quicker than the general road, which takes the rest.

constexpr int kIntegerPlaces = 19;
constexpr uint64_t kPow10Int[kIntegerPlaces + 1] = {1ull,
                                                    10ull,
                                                    100ull,
                                                    1000ull,
                                                    10000ull,
                                                    100000ull,
                                                    1000000ull,
                                                    10000000ull,
                                                    100000000ull,
                                                    1000000000ull,
                                                    10000000000ull,
                                                    100000000000ull,
                                                    1000000000000ull,
                                                    10000000000000ull,
                                                    100000000000000ull,
                                                    1000000000000000ull,
                                                    10000000000000000ull,
                                                    100000000000000000ull,
                                                    1000000000000000000ull,
                                                    10000000000000000000ull};

using U128 = unsigned __int128;

// a x 10^places (places from -19 to 19) rounded to a whole number, ties
// away from zero; false when a is a denormal or the result needs more than
// 64 bits.
bool ScaledInteger(double a, int places, uint64_t* result) {
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    const int field = static_cast<int>(bits >> 52);
    if (field == 0) return false;
    const uint64_t m = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
    const int e = field - 1075;
    if (places >= 0) {
        if (e >= 0) {
            if (e > 10) return false;
            U128 v = static_cast<U128>(m << e) * kPow10Int[places];
            if (v >> 64) return false;
            *result = static_cast<uint64_t>(v);
            return true;
        }
        const int shift = -e;
        const U128 product = static_cast<U128>(m) * kPow10Int[places];  // below 2^117
        if (shift >= 118) {
            *result = 0;  // below half a unit
            return true;
        }
        U128 q = product >> shift;
        const U128 rest = product - (q << shift);
        if (rest >= (static_cast<U128>(1) << (shift - 1))) ++q;
        if (q >> 64) return false;
        *result = static_cast<uint64_t>(q);
        return true;
    }
    // Fewer digits than the integer part has: a / 10^k, rounded.
    const uint64_t divisor = kPow10Int[-places];
    if (e >= 0) {
        if (e > 10) return false;
        const uint64_t v = m << e;
        const uint64_t rest = v % divisor;
        *result = v / divisor + (rest >= divisor - rest ? 1 : 0);
        return true;
    }
    if (-e > 63) return false;
    const U128 d = static_cast<U128>(divisor) << -e;
    const U128 q = m / d;
    const U128 rest = m - q * d;
    *result = static_cast<uint64_t>(q) + (rest >= d - rest ? 1 : 0);
    return true;
}

// The decimal digits of n > 0 at buffer; gives their count. (Written here
// rather than by the integer to_chars, whose template instances would be
// exported from the shared object.)
int IntegerDigits(uint64_t n, char* buffer) {
    char reversed[20];
    int count = 0;
    do {
        reversed[count++] = static_cast<char>('0' + n % 10);
        n /= 10;
    } while (n != 0);
    for (int i = 0; i < count; ++i) buffer[i] = reversed[count - 1 - i];
    buffer[count] = '\0';
    return count;
}

}  // namespace

char* _ecvt(double value, int count, int* point, int* negative) {
    char* const buffer = t_buffer;  // one look-up of the thread's buffer
    *negative = std::signbit(value) ? 1 : 0;
    count = Clamp(count);
    double a = std::fabs(value);
    if (!std::isfinite(a)) {
        buffer[0] = '\0';
        *point = 0;
        return buffer;
    }
    if (a == 0.0) {
        std::memset(buffer, '0', count);
        buffer[count] = '\0';
        *point = 1;
        return buffer;
    }
    if (count == 0) {
        // Rounding to no digits: up to "1" when the first exact digit is 5
        // or more. The exact expansion tells the first digit without doubt.
        int p = ScientificDigits(a, kExactDigits, buffer) + 1;
        bool up = buffer[0] >= '5';
        buffer[0] = up ? '1' : '\0';
        buffer[1] = '\0';
        *point = up ? p + 1 : p;
        return buffer;
    }
    if (count <= kIntegerPlaces) {
        // count digits are a x 10^(count - P) rounded, or 10^count when the
        // rounding carries into a new first digit.
        const int p = DecimalPoint(a, buffer);
        uint64_t n;
        if (count - p >= -kIntegerPlaces && count - p <= kIntegerPlaces && ScaledInteger(a, count - p, &n)) {
            const int length = IntegerDigits(n, buffer);
            buffer[count] = '\0';
            *point = length > count ? p + 1 : p;
            return buffer;
        }
    }
    int p = ScientificDigits(a, count - 1, buffer) + 1;
    if (IsTieAt(a, p - count)) {
        // The exact value has count + 1 digits ending in 5: take them, drop
        // the 5 and round up. (A tie never follows a carry of to_chars, which
        // would have moved the point and with it the place tested.)
        p = ScientificDigits(a, count, buffer) + 1;
        if (IncrementDigits(buffer, count)) {
            buffer[0] = '1';
            ++p;
        }
        buffer[count] = '\0';
    }
    *point = p;
    return buffer;
}

char* _fcvt(double value, int places, int* point, int* negative) {
    char* const buffer = t_buffer;  // one look-up of the thread's buffer
    *negative = std::signbit(value) ? 1 : 0;
    places = Clamp(places);
    double a = std::fabs(value);
    if (!std::isfinite(a) || a == 0.0) {
        buffer[0] = '\0';
        *point = 0;
        return buffer;
    }
    uint64_t n;
    if (places <= kIntegerPlaces && ScaledInteger(a, places, &n)) {
        if (n == 0) {
            *point = DecimalPoint(a, buffer);
            buffer[0] = '\0';
        } else {
            *point = IntegerDigits(n, buffer) - places;
        }
        return buffer;
    }
    bool tie = IsTieAt(a, -places);
    // With a tie the text is made one decimal longer, which is exact, and
    // that last 5 is dropped and rounded up by hand.
    int precision = tie ? places + 1 : places;
    auto r = std::to_chars(buffer + 1, buffer + kBufferSize, a, std::chars_format::fixed, precision);
    char* text = buffer + 1;
    int length = static_cast<int>(r.ptr - text);
    if (tie) {
        --length;
        if (places == 0) --length;  // the '.' in front of the dropped digit
        if (IncrementDigits(text, length)) {
            *--text = '1';
            ++length;
        }
    }
    // "III.FFF" to digits without leading zeros; the point follows from the
    // integer part, or from the zeros behind the '.' when that part is 0.
    char* end = text + length;
    char* dot = static_cast<char*>(std::memchr(text, '.', length));
    int integerDigits = static_cast<int>((dot != nullptr ? dot : end) - text);
    char* out = buffer;
    if (!(integerDigits == 1 && text[0] == '0')) {
        std::memmove(out, text, integerDigits);
        out += integerDigits;
        *point = integerDigits;
        if (dot != nullptr) {
            std::memmove(out, dot + 1, end - dot - 1);
            out += end - dot - 1;
        }
    } else {
        const char* first = dot != nullptr ? dot + 1 : end;
        while (first < end && *first == '0') ++first;
        if (first == end) {
            *point = DecimalPoint(a, buffer);  // may use the buffer itself
            buffer[0] = '\0';
            return buffer;
        }
        *point = -static_cast<int>(first - (dot + 1));
        std::memmove(out, first, end - first);
        out += end - first;
    }
    *out = '\0';
    return buffer;
}

char* _itoa(int value, char* buffer, int radix) {
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    if (radix < 2 || radix > 36) {
        buffer[0] = '\0';
        return buffer;
    }
    bool negative = radix == 10 && value < 0;
    uint32_t magnitude = negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    char reversed[33];
    int n = 0;
    do {
        reversed[n++] = kDigits[magnitude % radix];
        magnitude /= radix;
    } while (magnitude != 0);
    char* out = buffer;
    if (negative) *out++ = '-';
    while (n > 0) *out++ = reversed[--n];
    *out = '\0';
    return buffer;
}

namespace {

locale_t CLocale() {
    static locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    return c;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The C library's reader on [begin, end), with the exponent letter at
// letter (if any) read as 'e'.
double ReadByLibrary(const char* begin, const char* end, const char* letter) {
    size_t n = static_cast<size_t>(end - begin);
    char small[128];
    std::string large;
    char* copy = small;
    if (n >= sizeof small) {
        large.resize(n);
        copy = large.data();
    }
    std::memcpy(copy, begin, n);
    copy[n] = '\0';
    if (letter != nullptr) copy[letter - begin] = 'e';
    return strtod_l(copy, nullptr, CLocale());
}

}  // namespace

double strtod(const char* text, char** end) {
    const char* p = text;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    const char* begin = p;
    bool negative = *p == '-';
    if (*p == '+' || *p == '-') ++p;

    // Up to 19 significant digits go into a 64-bit word, the rest only move
    // the decimal exponent.
    uint64_t digits = 0;
    int taken = 0;
    int exponent10 = 0;
    bool dropped = false;
    bool any = false;
    for (; IsDigit(*p); ++p) {
        any = true;
        if (digits == 0 && *p == '0') continue;
        if (taken < 19) {
            digits = digits * 10 + static_cast<uint64_t>(*p - '0');
            ++taken;
        } else {
            dropped = dropped || *p != '0';
            ++exponent10;
        }
    }
    if (*p == '.') {
        for (++p; IsDigit(*p); ++p) {
            any = true;
            if (digits == 0 && *p == '0') {
                --exponent10;
                continue;
            }
            if (taken < 19) {
                digits = digits * 10 + static_cast<uint64_t>(*p - '0');
                ++taken;
                --exponent10;
            } else {
                dropped = dropped || *p != '0';
            }
        }
    }
    if (!any) {
        if (end != nullptr) *end = const_cast<char*>(text);
        return 0.0;
    }
    const char* letter = nullptr;
    if (*p == 'e' || *p == 'E' || *p == 'd' || *p == 'D') {
        const char* q = p + 1;
        bool minus = *q == '-';
        if (*q == '+' || *q == '-') ++q;
        if (IsDigit(*q)) {
            letter = p;
            int written = 0;
            for (; IsDigit(*q); ++q) {
                if (written < 100000) written = written * 10 + (*q - '0');
            }
            exponent10 += minus ? -written : written;
            p = q;
        }
    }
    if (end != nullptr) *end = const_cast<char*>(p);

    double result;
    if (digits == 0) {
        result = 0.0;
    } else if (!dropped && digits <= (uint64_t{1} << 53) && exponent10 >= -kExactPow10 && exponent10 <= kExactPow10) {
        // Both operands are exact, so the one rounding of the product or the
        // quotient is the correct one.
        double d = static_cast<double>(digits);
        result = exponent10 >= 0 ? d * kPow10[exponent10] : d / kPow10[-exponent10];
    } else {
        return ReadByLibrary(begin, p, letter);
    }
    return negative ? -result : result;
}

double atof(const char* text) { return orvacrt::strtod(text, nullptr); }

}  // namespace orvacrt
