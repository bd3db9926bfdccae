// The multibyte operations of code page 932 (the runtime's _mbs* family and
// the Win32 text calls), all on the one stepper of internal/cp932.h.
//
// Searching is the hot path (the library looks for separators in every path
// it touches), so the searches let the C library's byte search find candidate
// places and then ask the stepper whether a candidate starts a character.
// That question looks only at the run of lead-valued bytes in front of the
// candidate, and never further back than the last place known to start a
// character, so a search stays linear however the text is mixed. A byte that
// can never be a trail byte ('/', '.', ':', most of ASCII) is a character
// start wherever it stands, and its search costs what strchr costs.
//
// _splitpath lives in splitpath.cpp; the width and kana mappings are elsewhere.
#include <cstdint>
#include <cstring>

#include <orvanest/platform/crt_mbcs.h>
#include <orvanest/platform/win32_text.h>

#include "internal/cp932.h"

namespace cp = orva::cp932;

namespace {

using UC = unsigned char;

inline const char* S(const UC* p) { return reinterpret_cast<const char*>(p); }
inline const UC* U(const char* p) { return reinterpret_cast<const UC*>(p); }
inline UC* Mut(const UC* p) { return const_cast<UC*>(p); }

// The first byte b (not 0) at or after from, or null. The C library's
// search has a start-up cost that short texts (names, the rest of a name)
// do not repay, so the first bytes are looked at one by one.
const UC* ScanFor(const UC* from, UC b) {
    for (int i = 0; i < 16; ++i) {
        if (from[i] == b) return from + i;
        if (from[i] == 0) return nullptr;
    }
    return U(std::strchr(S(from + 16), b));
}

// The first place, at or after from (a character start), where the one-byte
// character b stands.
const UC* FindByteChar(const UC* from, UC b) {
    for (;;) {
        const UC* q = ScanFor(from, b);
        if (q == nullptr) return nullptr;
        if (!cp::IsCharStart(from, q)) {
            from = q + 1;  // q was the trail of the pair in front of it
        } else if (cp::Width(q) == 1) {
            return q;
        } else {
            from = q + 2;  // b is a lead byte here, with its trail
        }
    }
}

// The first place, at or after from (a character start), where sub (not
// empty) stands and a character starts.
const UC* FindText(const UC* from, const UC* sub) {
    const bool oneByte = sub[1] == 0;  // the C library's byte search is the cheaper one then
    for (;;) {
        const UC* q = oneByte ? ScanFor(from, sub[0]) : U(std::strstr(S(from), S(sub)));
        if (q == nullptr || cp::IsCharStart(from, q)) return q;
        from = q + 1;  // q was a trail byte, so the next character starts behind it
    }
}

// The character c as text of one or two bytes; false when c cannot be a
// character of the code page (a two-byte value that is no lead and trail).
bool CharAsText(unsigned c, UC text[3]) {
    if (c <= 0xFF) {
        text[0] = static_cast<UC>(c);
        text[1] = 0;
        return true;
    }
    UC lead = static_cast<UC>(c >> 8);
    UC trail = static_cast<UC>(c);
    if (c > 0xFFFF || !cp::IsLead(lead) || !cp::IsTrail(trail)) return false;
    text[0] = lead;
    text[1] = trail;
    text[2] = 0;
    return true;
}

// Whether the character with this code is one of those of set.
bool InSet(const UC* set, unsigned code) {
    for (const UC* q = set; *q != 0; q = cp::Next(q)) {
        if (cp::Code(q) == code) return true;
    }
    return false;
}

// Whether every byte of set is a one-byte character that no walk can take
// for part of another: neither a lead byte nor a possible trail byte ('*',
// '?', ';', '.', ' ' and the like).
bool IsPlainSet(const UC* set) {
    for (const UC* q = set; *q != 0; ++q) {
        if (cp::IsLead(*q) || cp::IsTrail(*q)) return false;
    }
    return true;
}

// A span over bytes, for a plain set of one or two bytes (";", "*?"): the
// common case, and cheaper by comparison than by the C library's table.
size_t SmallSpan(const UC* str, UC a, UC b, bool inside) {
    const UC* p = str;
    if (inside) {
        while (*p != 0 && (*p == a || *p == b)) ++p;
    } else {
        while (*p != 0 && *p != a && *p != b) ++p;
    }
    return static_cast<size_t>(p - str);
}

size_t Span(const UC* str, const UC* set, bool inside) {
    // Bytes of a plain set stand only where a character starts, and always
    // as that whole character, so a span over bytes gives the same answer as
    // a walk.
    if (IsPlainSet(set)) {
        if (set[0] != 0 && (set[1] == 0 || set[2] == 0)) {
            return SmallSpan(str, set[0], set[1] != 0 ? set[1] : set[0], inside);
        }
        return inside ? std::strspn(S(str), S(set)) : std::strcspn(S(str), S(set));
    }
    const UC* p = str;
    while (*p != 0 && InSet(set, cp::Code(p)) == inside) p = cp::Next(p);
    return static_cast<size_t>(p - str);
}

// The key lstrcmpiA compares a character by. One-byte letters fold to lower
// case (so '_' sorts before letters); two-byte letters fold to their capital,
// the one form that is unique (each small Roman numeral has two codes, its
// capital one). A one-byte character keys as its byte followed by 0, so that
// the order of keys is the order of the bytes.
unsigned FoldKey(const UC* p) {
    if (cp::Width(p) == 2) return cp::ToUpper(cp::Code(p));
    UC b = *p;
    if (b >= 'A' && b <= 'Z') b = static_cast<UC>(b + ('a' - 'A'));
    return static_cast<unsigned>(b) << 8;
}

constexpr uint64_t kOnes = 0x0101010101010101ULL;
constexpr uint64_t kHighBits = kOnes * 0x80;

// Upper-cases eight bytes below 0x80 at once: the high bit of each byte
// tells "at least 'a'" and "above 'z'" without carrying into the next byte.
inline uint64_t UpperAscii8(uint64_t x) {
    uint64_t atLeastA = x + kOnes * (0x80 - 'a');
    uint64_t aboveZ = x + kOnes * (0x80 - 'z' - 1);
    uint64_t lower = atLeastA & ~aboveZ & kHighBits;
    return x - (lower >> 2);  // 0x80 >> 2 is the 0x20 between the cases
}

}  // namespace

// ---- Win32 -------------------------------------------------------------------

BOOL IsDBCSLeadByte(BYTE TestChar) { return cp::IsLead(TestChar) ? TRUE : FALSE; }

LPSTR CharPrevA(LPCSTR lpszStart, LPCSTR lpszCurrent) {
    if (lpszStart == nullptr || lpszCurrent == nullptr || lpszCurrent <= lpszStart) {
        return const_cast<LPSTR>(lpszStart);
    }
    return const_cast<LPSTR>(S(cp::Prev(U(lpszStart), U(lpszCurrent))));
}

int lstrcmpiA(LPCSTR lpString1, LPCSTR lpString2) {
    if (lpString1 == nullptr || lpString2 == nullptr) {
        return lpString1 == lpString2 ? 0 : (lpString1 == nullptr ? -1 : 1);
    }
    const UC* a = U(lpString1);
    const UC* b = U(lpString2);
    for (;;) {
        unsigned ka = FoldKey(a);
        unsigned kb = FoldKey(b);
        if (ka != kb) return ka < kb ? -1 : 1;
        if (*a == 0) return 0;
        a = cp::Next(a);
        b = cp::Next(b);
    }
}

int lstrlenA(LPCSTR lpString) { return lpString == nullptr ? 0 : static_cast<int>(std::strlen(lpString)); }

// ---- the runtime's multibyte family --------------------------------------------

namespace orvacrt {

int _ismbblead(unsigned int c) { return c <= 0xFF && cp::IsLead(static_cast<UC>(c)); }

int _ismbbtrail(unsigned int c) { return c <= 0xFF && cp::IsTrail(static_cast<UC>(c)); }

int _ismbslead(const unsigned char* str, const unsigned char* current) {
    return cp::IsCharStart(str, current) && cp::Width(current) == 2 ? -1 : 0;
}

int _ismbstrail(const unsigned char* str, const unsigned char* current) {
    return cp::IsCharStart(str, current) ? 0 : -1;
}

int _mbsbtype(const unsigned char* str, size_t count) {
    const UC* target = str + count;
    for (const UC* p = str;; p += cp::Width(p)) {
        if (*p == 0) return _MBC_ILLEGAL;
        size_t w = cp::Width(p);
        if (p == target) {
            if (w == 2) return _MBC_LEAD;
            return cp::IsLead(*p) ? _MBC_ILLEGAL : _MBC_SINGLE;
        }
        if (w == 2 && p + 1 == target) return _MBC_TRAIL;
    }
}

unsigned char* _mbsinc(const unsigned char* current) { return Mut(cp::Next(current)); }

unsigned char* _mbschr(const unsigned char* str, unsigned int c) {
    if (c == 0) return Mut(str + std::strlen(S(str)));
    UC text[3];
    if (!CharAsText(c, text)) return nullptr;
    return Mut(c <= 0xFF ? FindByteChar(str, text[0]) : FindText(str, text));
}

unsigned char* _mbsrchr(const unsigned char* str, unsigned int c) {
    if (c == 0) return Mut(str + std::strlen(S(str)));
    UC text[3];
    if (!CharAsText(c, text)) return nullptr;
    // Forward, keeping the last place: only a walk from the start knows where
    // characters begin, and the forward search already steps in strides.
    const UC* last = nullptr;
    const UC* from = str;
    for (;;) {
        const UC* q = c <= 0xFF ? FindByteChar(from, text[0]) : FindText(from, text);
        if (q == nullptr) return Mut(last);
        last = q;
        from = q + (c <= 0xFF ? 1 : 2);
    }
}

unsigned char* _mbsstr(const unsigned char* str, const unsigned char* sub) {
    if (*sub == 0) return Mut(str);
    return Mut(FindText(str, sub));
}

size_t _mbsspn(const unsigned char* str, const unsigned char* set) { return Span(str, set, true); }

size_t _mbscspn(const unsigned char* str, const unsigned char* set) { return Span(str, set, false); }

unsigned char* _mbsspnp(const unsigned char* str, const unsigned char* set) {
    const UC* p = str + Span(str, set, true);
    return *p != 0 ? Mut(p) : nullptr;
}

unsigned char* _mbsupr(unsigned char* str) {
    UC* const end = str + std::strlen(S(str));
    for (UC* p = str; p < end;) {
        // Eight bytes at a time while none is 0x80 or above: at a character
        // start such bytes are all characters of their own.
        if (end - p >= 8) {
            uint64_t x;
            std::memcpy(&x, p, 8);
            if ((x & kHighBits) == 0) {
                x = UpperAscii8(x);
                std::memcpy(p, &x, 8);
                p += 8;
                continue;
            }
        }
        UC b = *p;
        if (b < 0x80) {
            *p = static_cast<UC>(b - ((static_cast<UC>(b - 'a') < 26) << 5));  // no branch on the case
            ++p;
        } else if (cp::Width(p) == 2) {
            unsigned upper = cp::ToUpper(cp::Code(p));
            p[0] = static_cast<UC>(upper >> 8);
            p[1] = static_cast<UC>(upper);
            p += 2;
        } else {
            ++p;  // half-width kana, or a lead byte standing alone
        }
    }
    return str;
}

}  // namespace orvacrt
