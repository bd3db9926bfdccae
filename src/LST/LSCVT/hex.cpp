// Number text of the lscvt family, second part: 32-bit words and the bits
// of doubles as fixed-width hexadecimal text and back, and the trimming of
// a double's six-decimal text. Source .\LST\LSCVT; the two writers mark a
// null destination.
//
// The readers validate nothing, on purpose: they serve text the library
// wrote itself, and any byte adds its code's share to the number, so bad
// text gives a number rather than an error.
#include <cstring>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCVT

namespace {

constexpr int kWordTextSize = 12;    // "0x12345678h" and a terminator
constexpr int kDoubleTextSize = 20;  // "0x" or 'h', 16 digits, 'h', a terminator
constexpr int kDoubleDigits = 16;

// The length of the text up to its first white space or its end.
size_t NumberLength(const char* text) {
    const char* space = lstrFindSpace(text);
    return space != nullptr ? static_cast<size_t>(space - text) : std::strlen(text);
}

}  // namespace

char* lscvtDwordToHex(char* destination, DWORD value) {
    if (destination == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    char digits[33];
    orvacrt::_itoa(static_cast<int>(value), digits, 16);
    size_t n = std::strlen(digits);
    std::memset(destination, '0', 8 - n);
    for (size_t i = 0; i < n; ++i) destination[8 - n + i] = static_cast<char>(orvacrt::toupper(digits[i]));
    destination[8] = '\0';
    return destination;
}

DWORD lscvtHexToDword(const char* text) {
    char copy[kWordTextSize];
    size_t n = NumberLength(text);
    if (n > kWordTextSize - 1) n = kWordTextSize - 1;
    for (size_t i = 0; i < n; ++i) copy[i] = static_cast<char>(orvacrt::toupper(static_cast<unsigned char>(text[i])));
    copy[n] = '\0';

    const char* first = copy;
    if (n >= 2 && copy[0] == '0' && copy[1] == 'X') first += 2;
    else if (n >= 1 && copy[0] == 'H') first += 1;
    const char* last = copy + n;
    if (last > first && last[-1] == 'H') --last;

    DWORD value = 0;
    DWORD multiplier = 1;
    for (const char* p = last; p > first;) {
        DWORD code = static_cast<unsigned char>(*--p);
        value += (code < 0x40 ? code - 0x30 : code - 0x37) * multiplier;
        multiplier <<= 4;
    }
    return value;
}

char* lscvtDblToHex(char* destination, double value) {
    if (destination == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    lscvtDwordToHex(destination, static_cast<DWORD>(bits >> 32));
    lscvtDwordToHex(destination + 8, static_cast<DWORD>(bits));
    return destination;
}

double lscvtHexToDbl(const char* text) {
    if (orvacrt::_memicmp(text, "0x", 2) == 0) text += 2;
    else if (orvacrt::_memicmp(text, "h", 1) == 0) text += 1;

    char copy[kDoubleTextSize];
    size_t n = NumberLength(text);
    if (n > kDoubleTextSize - 1) n = kDoubleTextSize - 1;
    std::memcpy(copy, text, n);
    if (n > 0 && (copy[n - 1] == 'h' || copy[n - 1] == 'H')) --n;
    // Short text is the high digits: "3FF" reads as 3FF0000000000000.
    while (n < kDoubleDigits) copy[n++] = '0';

    char word[9];
    std::memcpy(word, copy, 8);
    word[8] = '\0';
    uint64_t bits = static_cast<uint64_t>(lscvtHexToDword(word)) << 32;
    std::memcpy(word, copy + 8, 8);
    bits |= lscvtHexToDword(word);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

CString lscvtRoundDecLevel(double value, int level) {
    CString text;
    text.Format("%f", value);
    int dot = text.Find('.');
    if (dot < 0) return text;
    // Trailing zeros go, but not the first level decimals.
    long long keep = static_cast<long long>(dot) + level;
    int last = text.GetLength() - 1;
    while (last > keep && text[last] == '0') --last;
    return last == dot ? text.Left(dot) : text.Left(last + 1);
}
