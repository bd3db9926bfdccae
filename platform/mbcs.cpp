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

// The first place, at or after from (a character start), where the one-byte
// character b stands.
const UC* FindByteChar(const UC* from, UC b) {
    for (;;) {
        const UC* q = U(std::strchr(S(from), b));
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
    for (;;) {
        const UC* q = U(std::strstr(S(from), S(sub)));
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

size_t Span(const UC* str, const UC* set, bool inside) {
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
    for (UC* p = str; *p != 0;) {
        if (cp::Width(p) == 2) {
            unsigned upper = cp::ToUpper(cp::Code(p));
            p[0] = static_cast<UC>(upper >> 8);
            p[1] = static_cast<UC>(upper);
            p += 2;
        } else {
            if (*p >= 'a' && *p <= 'z') *p = static_cast<UC>(*p - ('a' - 'A'));
            ++p;
        }
    }
    return str;
}

}  // namespace orvacrt
