// Byte classes of the C runtime in the "C" sense, in the platform's namespace
// orvacrt: the library asks these, never the process locale, so a host that
// sets a locale cannot change what counts as a letter or a digit. Each takes
// a byte as an unsigned value 0-255; anything else (EOF) is in no class.
#pragma once

#include <cstddef>

#include "export.h"

namespace orvacrt {

inline int isdigit(int c) { return c >= '0' && c <= '9'; }
inline int isupper(int c) { return c >= 'A' && c <= 'Z'; }
inline int islower(int c) { return c >= 'a' && c <= 'z'; }
inline int isalpha(int c) { return isupper(c) || islower(c); }
inline int isalnum(int c) { return isalpha(c) || isdigit(c); }
inline int isxdigit(int c) { return isdigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }
inline int toupper(int c) { return islower(c) ? c - ('a' - 'A') : c; }
inline int tolower(int c) { return isupper(c) ? c + ('a' - 'A') : c; }

// Compares count bytes of two buffers with 'A'-'Z' folded to 'a'-'z':
// negative, 0 or positive.
ORVANEST_EXPORT int _memicmp(const void* first, const void* second, size_t count);

}  // namespace orvacrt
