// The Win32 subset for plain formatting: wsprintfA and wvsprintfA, which know
// integers, characters and strings and nothing of floating point.
//
// A conversion is %[flags][width][.precision][size]type:
//   flags      '-' left-justify, '0' pad with zeros, '#' prefix 0x/0X (hex) or
//              0 (octal); also '+' and ' ' for the sign of d and i. Any order,
//              any repetition.
//   width      decimal digits: the least number of characters. '*' is not
//              accepted.
//   precision  '.' and decimal digits (none means 0): the least number of
//              digits of an integer (zeros in front; precision 0 and the value
//              0 print no digits), the most bytes of a string.
//   size       'h': the argument is taken as a 16-bit short; 'l': as a 32-bit
//              LONG or DWORD. 'l' keeps the meaning it has on Windows (where
//              long is 32 bits wide also in 64-bit programs): pass a LONG or
//              DWORD, never a 64-bit value, for %ld, %lu, %lx ...
//   type       d i (signed), u, x X (hex), o (octal), c (one char), s (a
//              string; null prints "(null)"), p (a pointer, upper-case hex of
//              its full width), % (a percent sign).
// A type that is none of these (also the wide forms C, S, lc, ls, which this
// platform has no text for) ends the conversion: its letter is written as it
// stands, what came before it since the '%' is dropped, and no argument is
// taken. A '%' that ends the format writes nothing.
//
// The output is limited to 1024 bytes with the terminator: text beyond 1023
// characters is cut off, the buffer ends with a terminator at byte 1023, and
// the result is 1023. lpOut must hold 1024 bytes unless the caller knows the
// text is shorter.
#pragma once

#include <cstdarg>

#include "win32.h"

// The limit of one formatted text, terminator included.
#define WSPRINTF_LIMIT 1024

// Formats into lpOut; the number of characters stored, without the terminator.
// Not marked as a printf-like function for the compiler: its 'l' is 32 bits.
ORVANEST_EXPORT int wsprintfA(LPSTR lpOut, LPCSTR lpFmt, ...);
// The same with the arguments in a va_list, which it reads as far as the
// format asks.
ORVANEST_EXPORT int wvsprintfA(LPSTR lpOut, LPCSTR lpFmt, va_list arglist);
