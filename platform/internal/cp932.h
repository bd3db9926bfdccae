// The one character stepper of code page 932. Every multibyte operation of the
// platform (the _mbs* family, _splitpath, CharPrevA, lstrcmpiA, CString's
// searches) walks text through these few functions, so there is exactly one
// answer to "where does the next character start".
//
// The rule: a lead byte (0x81-0x9F, 0xE0-0xFC) followed by a trail byte
// (0x40-0x7E, 0x80-0xFC) is one character of two bytes; every other byte is a
// character by itself, half-width kana (0xA1-0xDF) among them. A lead byte
// that is followed by anything else -- the terminator, a blank, a separator --
// stands alone as a damaged one-byte character. So the terminator, 0x09, 0x20,
// '*', '?', ':' and ';' are never swallowed by a broken pair, and no walk ever
// steps past the end of a text.
//
// Nothing here looks at the process locale.
#pragma once

#include <cstddef>

namespace orva::cp932 {

constexpr bool IsLead(unsigned char b) { return (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC); }

constexpr bool IsTrail(unsigned char b) { return b >= 0x40 && b <= 0xFC && b != 0x7F; }

// Bytes taken by the character at p: 2 for a lead byte with its trail, 1 for
// anything else (the terminator included). p[1] is read only when p[0] is a
// lead byte, which is never the terminator.
inline size_t Width(const unsigned char* p) { return (IsLead(p[0]) && IsTrail(p[1])) ? 2 : 1; }

inline const unsigned char* Next(const unsigned char* p) { return p + Width(p); }
inline unsigned char* Next(unsigned char* p) { return p + Width(p); }

// The character's code: the byte itself, or lead << 8 | trail.
inline unsigned Code(const unsigned char* p) {
    return Width(p) == 2 ? (static_cast<unsigned>(p[0]) << 8 | p[1]) : p[0];
}

// Whether q starts a character of the walk that begins at from (itself a
// character start, from <= q), without walking from `from`.
//
// Only a run of lead-valued bytes right in front of q can make q a trail byte.
// The byte in front of such a run is no lead byte, so it ends a character
// (alone or as a trail) and the run's first byte starts one; the same holds
// when the run reaches `from`. Every lead value is also a trail value, so the
// run pairs off from its start: after an even run q starts a character, after
// an odd one the run's last byte takes q as its trail -- if q can be a trail.
inline bool IsCharStart(const unsigned char* from, const unsigned char* q) {
    if (q == from || !IsTrail(*q)) return true;
    const unsigned char* r = q;
    while (r > from && IsLead(r[-1])) --r;
    return ((q - r) & 1) == 0;
}

// The start of the character in front of q (a character start, q > from).
inline const unsigned char* Prev(const unsigned char* from, const unsigned char* q) {
    const unsigned char* p = q - 1;
    if (p == from) return p;
    return IsCharStart(from, p) ? p : p - 1;
}

// The upper case of one character code. Single bytes know only 'a'-'z'. The
// two-byte characters with case are the full-width Latin (0x8281-0x829A ->
// 0x8260-0x8279), Greek (0x83BF-0x83D6 -> 0x839F-0x83B6) and Cyrillic
// (0x8470-0x8491 -> 0x8440-0x8460, both rows skipping 0x7F) letters, and the
// small Roman numerals of the two extension rows (0xEEEF-0xEEF8 and
// 0xFA40-0xFA49), whose capitals the code page keeps at 0x8754-0x875D.
inline unsigned ToUpper(unsigned code) {
    if (code < 0x100) return (code >= 'a' && code <= 'z') ? code - 0x20 : code;
    if (code >= 0x8281 && code <= 0x829A) return code - 0x21;
    if (code >= 0x83BF && code <= 0x83D6) return code - 0x20;
    if (code >= 0x8470 && code <= 0x847E) return code - 0x30;
    if (code >= 0x8480 && code <= 0x8491) return code - 0x31;
    if (code >= 0xEEEF && code <= 0xEEF8) return 0x8754 + (code - 0xEEEF);
    if (code >= 0xFA40 && code <= 0xFA49) return 0x8754 + (code - 0xFA40);
    return code;
}

}  // namespace orva::cp932
