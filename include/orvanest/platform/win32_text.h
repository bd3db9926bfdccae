// The Win32 text calls for code page 932: the lead-byte test, stepping back
// by a character, and the length and case-blind comparison of texts. They
// follow the same lead/trail rule as the runtime's multibyte operations
// (crt_mbcs.h) and ignore the process locale.
#pragma once

#include "win32.h"

// TRUE when the byte is a lead byte of code page 932, judged by itself.
ORVANEST_EXPORT BOOL IsDBCSLeadByte(BYTE TestChar);
// The start of the character in front of lpszCurrent in the text that begins
// at lpszStart; lpszStart itself when lpszCurrent is not behind it.
ORVANEST_EXPORT LPSTR CharPrevA(LPCSTR lpszStart, LPCSTR lpszCurrent);
// Compares two texts character by character, ignoring the case of letters
// (single-byte 'A'-'Z' fold to lower case, the two-byte letters that
// _mbsupr knows to upper case): -1, 0 or 1. Characters order as their bytes
// do. A null text sorts before any other.
ORVANEST_EXPORT int lstrcmpiA(LPCSTR lpString1, LPCSTR lpString2);
// The length in bytes; 0 for null.
ORVANEST_EXPORT int lstrlenA(LPCSTR lpString);
