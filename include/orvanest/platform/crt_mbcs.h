// The multibyte text operations of the C runtime for code page 932: byte kinds
// judged by their place in a text, stepping, searching, spans, upper-casing,
// and the cutting of a path into drive, directory, name and extension.
//
// They carry the code page's own lead/trail rule and never consult the
// process locale. A lead byte (0x81-0x9F, 0xE0-0xFC) followed by a trail byte
// (0x40-0x7E, 0x80-0xFC) is one character; every other byte is a character by
// itself. A lead byte followed by anything that is no trail byte stands
// alone, so the terminator, a blank or a separator is never taken for a
// trail, and no walk steps past the terminator.
//
// The names begin with an underscore, as in the runtime they stand in for, so
// they live in the platform's namespace orvacrt. Each takes unsigned char
// text; the char overloads below are the same functions for char text.
#pragma once

#include <cstddef>

#include "export.h"

namespace orvacrt {

// Kinds of byte that _mbsbtype gives.
constexpr int _MBC_SINGLE = 0;
constexpr int _MBC_LEAD = 1;
constexpr int _MBC_TRAIL = 2;
constexpr int _MBC_ILLEGAL = -1;

// Buffer sizes for _splitpath, terminator included.
constexpr int _MAX_PATH = 260;
constexpr int _MAX_DRIVE = 3;
constexpr int _MAX_DIR = 256;
constexpr int _MAX_FNAME = 256;
constexpr int _MAX_EXT = 256;

// Non-zero when the byte c (0-255) is a lead byte, judged by itself.
ORVANEST_EXPORT int _ismbblead(unsigned int c);
// Non-zero when the byte c (0-255) may be a trail byte, judged by itself.
ORVANEST_EXPORT int _ismbbtrail(unsigned int c);

// -1 when the byte at current starts a two-byte character of the text that
// begins at str, judged by its place in that text; otherwise 0.
ORVANEST_EXPORT int _ismbslead(const unsigned char* str, const unsigned char* current);
// -1 when the byte at current is the second byte of a two-byte character of
// the text that begins at str; otherwise 0.
ORVANEST_EXPORT int _ismbstrail(const unsigned char* str, const unsigned char* current);
// The kind of the byte at index count of str, by a walk from its start:
// _MBC_SINGLE, _MBC_LEAD or _MBC_TRAIL; _MBC_ILLEGAL when the text ends at or
// before that index, or when the byte is a lead byte with no trail behind it.
ORVANEST_EXPORT int _mbsbtype(const unsigned char* str, size_t count);

// The start of the character after the one at current.
ORVANEST_EXPORT unsigned char* _mbsinc(const unsigned char* current);

// The first (last) place of the character c in str, stepping by characters,
// or null. c is a byte, or lead << 8 | trail for a two-byte character; a
// byte is found only where it is a character by itself, never as a trail.
// Asked for 0, both give the terminator.
ORVANEST_EXPORT unsigned char* _mbschr(const unsigned char* str, unsigned int c);
ORVANEST_EXPORT unsigned char* _mbsrchr(const unsigned char* str, unsigned int c);
// The first place of sub in str where a character of str starts, or null.
// An empty sub is found at str.
ORVANEST_EXPORT unsigned char* _mbsstr(const unsigned char* str, const unsigned char* sub);

// Length in bytes of the run at the start of str whose characters are all in
// (_mbsspn) or all out of (_mbscspn) the characters of set.
ORVANEST_EXPORT size_t _mbsspn(const unsigned char* str, const unsigned char* set);
ORVANEST_EXPORT size_t _mbscspn(const unsigned char* str, const unsigned char* set);
// The first character of str that is not in set, or null when there is none.
ORVANEST_EXPORT unsigned char* _mbsspnp(const unsigned char* str, const unsigned char* set);

// Upper-cases str in place and gives it back: 'a'-'z', the full-width Latin,
// Greek and Cyrillic letters and the small Roman numerals. Two-byte
// characters stay whole, the length stays the same.
ORVANEST_EXPORT unsigned char* _mbsupr(unsigned char* str);

// Cuts path into its drive ("C:" or empty), directory (through the last
// separator), name (up to the final component's last '.') and extension (from
// that '.'). '\' and '/' are separators; a trail byte 0x5C is none. Each out
// may be null; each part is cut to its _MAX_* size on a character boundary.
ORVANEST_EXPORT void _splitpath(const char* path, char* drive, char* dir, char* fname, char* ext);

// ---- the same for char text --------------------------------------------------
namespace mbcs_detail {
inline const unsigned char* U(const char* s) { return reinterpret_cast<const unsigned char*>(s); }
inline char* C(unsigned char* s) { return reinterpret_cast<char*>(s); }
}  // namespace mbcs_detail

inline int _ismbslead(const char* str, const char* current) {
    return _ismbslead(mbcs_detail::U(str), mbcs_detail::U(current));
}
inline int _ismbstrail(const char* str, const char* current) {
    return _ismbstrail(mbcs_detail::U(str), mbcs_detail::U(current));
}
inline int _mbsbtype(const char* str, size_t count) { return _mbsbtype(mbcs_detail::U(str), count); }
inline char* _mbsinc(const char* current) { return mbcs_detail::C(_mbsinc(mbcs_detail::U(current))); }
inline char* _mbschr(const char* str, unsigned int c) { return mbcs_detail::C(_mbschr(mbcs_detail::U(str), c)); }
inline char* _mbsrchr(const char* str, unsigned int c) {
    return mbcs_detail::C(_mbsrchr(mbcs_detail::U(str), c));
}
inline char* _mbsstr(const char* str, const char* sub) {
    return mbcs_detail::C(_mbsstr(mbcs_detail::U(str), mbcs_detail::U(sub)));
}
inline size_t _mbsspn(const char* str, const char* set) { return _mbsspn(mbcs_detail::U(str), mbcs_detail::U(set)); }
inline size_t _mbscspn(const char* str, const char* set) {
    return _mbscspn(mbcs_detail::U(str), mbcs_detail::U(set));
}
inline char* _mbsspnp(const char* str, const char* set) {
    return mbcs_detail::C(_mbsspnp(mbcs_detail::U(str), mbcs_detail::U(set)));
}
inline char* _mbsupr(char* str) { return mbcs_detail::C(_mbsupr(reinterpret_cast<unsigned char*>(str))); }

}  // namespace orvacrt
