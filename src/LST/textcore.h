// What the text families share inside the library: the three character
// classes (white space, word character, character code) on top of the
// platform's stepper, _mbsinc. The library has no stepper of its own; every
// walk by characters goes through the platform, so there is one answer to
// where a character ends.
#pragma once

#include <orvanest/LST.h>

namespace lst {

using UC = unsigned char;

inline UC Byte(const char* p) { return static_cast<UC>(*p); }

// White space at p: 0x20, 0x09, or the full-width space 0x81 0x40, told by
// the two bytes themselves.
inline bool IsSpaceAt(const char* p) {
    return *p == ' ' || *p == '\t' || (Byte(p) == 0x81 && Byte(p + 1) == 0x40);
}

// Bytes of the white space at p (which must hold one).
inline int SpaceWidth(const char* p) { return Byte(p) == 0x81 ? 2 : 1; }

// A word character: a letter or digit in the "C" sense, or '_'.
inline bool IsWordByte(char c) { return orvacrt::isalnum(static_cast<UC>(c)) || c == '_'; }

// The code of the character from p to next (= _mbsinc(p)): the byte, or
// lead << 8 | trail.
inline unsigned CharCode(const char* p, const char* next) {
    return next - p == 2 ? (static_cast<unsigned>(Byte(p)) << 8 | Byte(p + 1)) : Byte(p);
}

}  // namespace lst
