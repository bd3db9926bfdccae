// Numbers and text in the C runtime subset, in the platform's namespace
// orvacrt: decimal digits of a double (_ecvt, _fcvt), integer text (_itoa),
// and the reading of decimal text (strtod, atof).
//
// None of these consults the process locale: the decimal point is always
// '.', so a host that sets a locale cannot change what is read or written.
#pragma once

#include "export.h"

namespace orvacrt {

// The largest digit count that _ecvt and _fcvt give; larger requests are
// taken as this. Every double's exact expansion ends well before it.
constexpr int _CVTDIGITS_MAX = 1100;

// Exactly count decimal digits of |value|, rounded to nearest with a tie
// going away from zero (the tie being judged on the exact binary value), and
// no point. *point is where the decimal point stands relative to the first
// digit (1234.5 gives 4, 0.00123 gives -2); a rounding that carries
// (9.96 to 2 digits) gives "10" and the larger point. *negative is 1 when
// value has its sign bit set, else 0. A zero gives count '0' digits and point
// 1. A count of 0 gives the empty string, or "1" with point raised by 1 when
// the first digit of |value| is 5 or more. An infinity or a NaN gives the
// empty string and point 0.
// The string lives in a buffer of the calling thread that the next _ecvt or
// _fcvt on that thread overwrites.
ORVANEST_EXPORT char* _ecvt(double value, int count, int* point, int* negative);
// The digits of |value| rounded to places behind the point (places 0 or
// more; a negative count is taken as 0), as for _ecvt, without leading
// zeros: point + places of them. When that count is not positive the string
// is empty, except that a count of 0 whose first digit is 5 or more rounds up
// to "1", raising point by 1. *point is the place of the point relative to
// the first digit of |value| itself (so it stays meaningful when the string
// is empty); a zero gives the empty string and point 0. Same buffer as
// _ecvt.
ORVANEST_EXPORT char* _fcvt(double value, int places, int* point, int* negative);

// value in radix 2 to 36 into buffer, lower-case letters; radix 10 writes a
// '-' for a negative value, every other radix writes the 32-bit pattern as
// unsigned. buffer must hold 33 bytes. Gives buffer.
ORVANEST_EXPORT char* _itoa(int value, char* buffer, int radix);

// Reads a decimal number: white space, an optional sign, digits with an
// optional '.', and an optional exponent whose letter is 'e', 'E', 'd' or
// 'D', followed by an optional sign and at least one digit. *end (when end
// is not null) points behind what was read, or at text when no digit came.
// Hexadecimal text, "inf" and "nan" are not numbers here. A magnitude too
// large gives an infinity, one too small a zero or a denormal.
ORVANEST_EXPORT double strtod(const char* text, char** end);
// strtod without the end pointer.
ORVANEST_EXPORT double atof(const char* text);

}  // namespace orvacrt
