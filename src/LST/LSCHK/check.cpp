// Character and number checks of the lschk family. Source .\LST\LSCHK.
//
// The character checks say whether a whole text is of one class. The number
// checks say whether a text has the syntax of a number and, if not, where the
// first fault lies; white space (blank, tab, full-width space) may surround
// the number and stand between a sign and its digits. Only lschkEdigit, for a
// text longer than its private copy, sets an error and marks it. Byte classes
// are the platform's "C" ones, never the process locale's.
#include <cstring>

#include "LST/textcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCHK

namespace {

using lst::UC;

// The longest text lschkEdigit takes: it splits a private copy of this size.
constexpr size_t kMaxExponentText = 256;

template <typename Class>
int EveryByte(const char* text, Class inClass) {
    if (*text == '\0') return 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (!inClass(static_cast<UC>(*p))) return 0;
    }
    return 1;
}

inline bool IsDigit(char c) { return orvacrt::isdigit(static_cast<UC>(c)) != 0; }

// Steps 1-4 that lschkDigit and lschkFdigit share: empty text, white space,
// the position, a sign and white space behind it. Gives where the digits
// start, or null when the answer is already false (the position then holds
// the text, null, or the sign).
const char* OpenNumber(const char* text, char** position) {
    if (*text == '\0') {
        *position = const_cast<char*>(text);
        return nullptr;
    }
    char* p = lstrSkipSpace(text);
    *position = p;
    if (p == nullptr) return nullptr;
    if (*p == '+' || *p == '-') return lstrSkipSpace(p + 1);
    return p;
}

// What may follow the digits: nothing, or white space alone. Otherwise false
// with the position at what remains.
int CloseNumber(const char* rest, char** position) {
    char* remains = lstrSkipSpace(rest);
    if (remains == nullptr) return 1;
    *position = remains;
    return 0;
}

}  // namespace

// ---- character classes ---------------------------------------------------------------

int lschkAlphaNumeric(const char* text) { return EveryByte(text, [](UC c) { return orvacrt::isalnum(c); }); }

int lschkAlpha(const char* text) { return EveryByte(text, [](UC c) { return orvacrt::isalpha(c); }); }

int lschkNumeric(const char* text) { return EveryByte(text, [](UC c) { return orvacrt::isdigit(c); }); }

int lschkDBCSString(const char* text) {
    if (*text == '\0') return 0;
    // Steps of two; only the lead byte is judged. A lead byte with the
    // terminator behind it fails rather than stepping past the end.
    for (const char* p = text; *p != '\0'; p += 2) {
        if (!IsDBCSLeadByte(static_cast<BYTE>(*p)) || p[1] == '\0') return 0;
    }
    return 1;
}

int lschkANK(const char* text) { return EveryByte(text, [](UC c) { return !IsDBCSLeadByte(c); }); }

// ---- numbers ---------------------------------------------------------------------------

int lschkDigit(const char* text, char** position) {
    const char* p = OpenNumber(text, position);
    if (p == nullptr) return 0;
    while (IsDigit(*p)) ++p;
    return CloseNumber(p, position);
}

int lschkFdigit(const char* text, char** position) {
    const char* p = OpenNumber(text, position);
    if (p == nullptr) return 0;
    bool point = false;
    for (;; ++p) {
        if (IsDigit(*p)) continue;
        if (*p != '.') break;
        if (point) {
            *position = const_cast<char*>(p);
            return 0;
        }
        point = true;
    }
    return CloseNumber(p, position);
}

int lschkEdigit(const char* text, char** position) {
    if (*text == '\0') {
        *position = const_cast<char*>(text);
        return 0;
    }
    size_t n = std::strlen(text);
    if (n > kMaxExponentText) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }
    // The letter is found by characters: 'E' and 'e' may be trail bytes.
    size_t e = orvacrt::_mbscspn(text, "Ee");
    if (e == 0 || text[e] == '\0') {
        *position = const_cast<char*>(text);
        return 0;
    }
    // Each half is checked on a private copy; a fault's place is told back at
    // the same place in the caller's text. A half that is white space alone
    // has no place of its own; it is reported at the exponent letter, which
    // then stands with nothing on that side.
    char copy[kMaxExponentText + 1];
    std::memcpy(copy, text, n + 1);
    copy[e] = '\0';
    char* at = nullptr;
    auto inText = [&](const char* place) { return const_cast<char*>(place ? text + (place - copy) : text + e); };
    if (!lschkFdigit(copy, &at)) {
        *position = inText(at);
        return 0;
    }
    if (!lschkDigit(copy + e + 1, &at)) {
        *position = inText(at);
        return 0;
    }
    *position = lstrSkipSpace(text);
    return 1;
}

int lschkGdigit(const char* text, char** position) {
    char* fixedAt = nullptr;
    if (lschkFdigit(text, &fixedAt)) {
        *position = fixedAt;
        return 1;
    }
    // lschkEdigit leaves its position alone for a text too long for it; the
    // answer is then lschkFdigit's position, and its failure is passed on.
    static char unsetMark;  // never a place in anybody's text
    char* const unset = &unsetMark;
    char* exponentAt = unset;
    if (lschkEdigit(text, &exponentAt)) {
        *position = exponentAt;
        return 1;
    }
    if (exponentAt == unset) {
        LDE_PASS();
        *position = fixedAt;
        return 0;
    }
    // The earlier place; null (white space alone) comes before any.
    *position = (fixedAt == nullptr || exponentAt == nullptr) ? nullptr
                : (fixedAt < exponentAt ? fixedAt : exponentAt);
    return 0;
}

int lschkHex(const char* text, DWORD maxDigits, char** position) {
    if (*text == '\0') {
        *position = const_cast<char*>(text);
        return 0;
    }
    const char* p = lstrSkipSpace(text);
    *position = const_cast<char*>(p);
    if (p == nullptr) return 0;
    // A prefix: "0x" in either case, or one 'H'; white space may follow it.
    bool prefixH = false;
    bool prefix = false;
    if (orvacrt::_memicmp(p, "0x", 2) == 0) {
        p += 2;
        prefix = true;
    } else if (*p == 'H' || *p == 'h') {
        p += 1;
        prefix = prefixH = true;
    }
    if (prefix) {
        p = lstrSkipSpace(p);
        if (p == nullptr) return 0;  // the position stays at the prefix
    }
    const DWORD limit = maxDigits != 0 ? maxDigits : 8;
    DWORD count = 0;
    for (; orvacrt::isxdigit(static_cast<UC>(*p)); ++p) {
        if (++count > limit) {
            *position = const_cast<char*>(p);
            return 0;
        }
    }
    if (*p == 'H' || *p == 'h') {
        // A suffix; not after an 'H' prefix.
        if (prefixH) {
            *position = const_cast<char*>(p);
            return 0;
        }
        ++p;
    }
    return CloseNumber(p, position);
}
