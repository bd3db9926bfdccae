// Text: scanning, path text, character and number checks, wildcard matching,
// the formula evaluator, number text and the library's printf, series, tab
// and time text.
//
// All text is zero-terminated 8-bit text in code page 932, where a lead byte
// and the byte behind it form one character. White space is the byte 0x20,
// the byte 0x09 or the pair 0x81 0x40 (the full-width space). Functions that
// produce text come in up to three forms with one name: into the caller's
// unbounded buffer (returning it), into the caller's CString (returning that
// object), or as a new CString. Unless a line says otherwise, nothing here
// sets an error or a mark, and buffer sizes are the caller's duty.
#pragma once

#include <cstdarg>

#include <orvanest/platform/platform.h>

// ---- scanning -------------------------------------------------------------------

// Copies the first source into destination, then appends each further source
// up to a null pointer. What destination held before is overwritten; the
// first source must not be null and no source may overlap destination.
ORVANEST_EXPORT void lstrCatEx(char* destination, ...);
// The first character that is no white space; null when the text has none.
ORVANEST_EXPORT char* lstrSkipSpace(const char* text);
// The first white space, found by a walk over bytes (so a trail byte 0x81
// followed by 0x40 counts); null when there is none.
ORVANEST_EXPORT char* lstrFindSpace(const char* text);
// Finds the word (letters, digits, '_') at position, or to the right of it
// when position is on white space. 1 with *start and *length (bytes) set; 0
// with both untouched when no word is there.
ORVANEST_EXPORT int lstrFindWord(const char* text, const char* position, char** start, int* length);
// The closing quote of a run that begins behind its opening quote: the first
// quote that is not doubled. quote is a byte (high byte 0) or a two-byte
// character (lead in the high byte). Null for a null or empty text or when
// nothing closes the run.
ORVANEST_EXPORT char* lstrFindEncloseEnd(const char* text, unsigned short quote);
// Looks key up in a null-ended array. Mode 2: the longest entry that key
// begins with; mode 3: the longest entry that begins with key (the first of
// equal length in both); any other mode: the first entry equal to key. The
// entry's pointer, or null.
ORVANEST_EXPORT char* lstrFindInPtrArray(const char* key, const char** const array, DWORD mode);
// The start of the last whole character within the first count bytes; null
// for a null text or a count of 0.
ORVANEST_EXPORT char* lstrCutOff(const char* text, DWORD count);
// The text's first count bytes at most, one less when a character would be
// split; empty for a null text or a count of 0.
ORVANEST_EXPORT CString lstrTrimLeft(const char* text, DWORD count);
// Whether the byte at index is a lead (trail) byte by its place in the text.
ORVANEST_EXPORT bool lstrIsLeadByte(const char* text, int index);
ORVANEST_EXPORT bool lstrIsTrailByte(const char* text, int index);

// ---- path text ------------------------------------------------------------------
// The parts are those of _splitpath: '\' and '/' both separate, a trail byte
// 0x5C does not.

// Drive and directory, the trailing separator kept.
ORVANEST_EXPORT char* lstrGetFolder(const char* path, char* destination);
ORVANEST_EXPORT CString& lstrGetFolder(const char* path, CString& destination);
ORVANEST_EXPORT CString lstrGetFolder(const char* path);
// Name and extension.
ORVANEST_EXPORT char* lstrGetFile(const char* path, char* destination);
ORVANEST_EXPORT CString& lstrGetFile(const char* path, CString& destination);
ORVANEST_EXPORT CString lstrGetFile(const char* path);
// Name without extension.
ORVANEST_EXPORT char* lstrGetBase(const char* path, char* destination);
ORVANEST_EXPORT CString& lstrGetBase(const char* path, CString& destination);
ORVANEST_EXPORT CString lstrGetBase(const char* path);
// Extension with its '.'.
ORVANEST_EXPORT char* lstrGetExt(const char* path, char* destination);
ORVANEST_EXPORT CString& lstrGetExt(const char* path, CString& destination);
ORVANEST_EXPORT CString lstrGetExt(const char* path);

// Shortens path for display to at most limit bytes, keeping its head (drive
// and first directory, or host and share) and its file name, with "\..." or
// "...\" (or the '/' forms) where text was left out; never splits a
// character. The first two forms give the length written.
ORVANEST_EXPORT int lstrCutShortDir(const char* path, int limit, char* destination);
ORVANEST_EXPORT int lstrCutShortDir(const char* path, int limit, CString& destination);
ORVANEST_EXPORT CString lstrCutShortDir(const char* path, int limit);

// Appends '\' (backslash true) or '/' unless the text already ends in either
// as a character of its own.
ORVANEST_EXPORT void lstrAddSeparator(char* path, bool backslash);
ORVANEST_EXPORT void lstrAddSeparator(CString& path, bool backslash);

// The text left of the first (first true) or last place of ch, through it
// when include is true; empty when ch is not found.
ORVANEST_EXPORT char* lstrLeftByFind(const char* source, unsigned char ch, char* destination, bool first,
                                     bool include);
ORVANEST_EXPORT CString& lstrLeftByFind(const char* source, unsigned char ch, CString& destination, bool first,
                                        bool include);
ORVANEST_EXPORT CString lstrLeftByFind(const char* source, unsigned char ch, bool first, bool include);
// The text right of the first (first true) or last place of ch, from it when
// include is true; empty when ch is not found.
ORVANEST_EXPORT char* lstrRightByFind(const char* source, unsigned char ch, char* destination, bool first,
                                      bool include);
ORVANEST_EXPORT CString& lstrRightByFind(const char* source, unsigned char ch, CString& destination, bool first,
                                         bool include);
ORVANEST_EXPORT CString lstrRightByFind(const char* source, unsigned char ch, bool first, bool include);

// ---- character checks ---------------------------------------------------------------
// 1 when the text is not empty and every byte is a letter or digit, a letter,
// a digit (in the "C" sense); 0 otherwise.
ORVANEST_EXPORT int lschkAlphaNumeric(const char* text);
ORVANEST_EXPORT int lschkAlpha(const char* text);
ORVANEST_EXPORT int lschkNumeric(const char* text);
// 1 when the text is not empty and made of two-byte characters alone.
ORVANEST_EXPORT int lschkDBCSString(const char* text);
// 1 when the text is not empty and holds no lead byte (half-width kana pass).
ORVANEST_EXPORT int lschkANK(const char* text);

// ---- number checks -------------------------------------------------------------------
// White space may surround the number and stand between sign and digits.
// *position: the first character that is no white space when the text is
// valid; the text itself when it is empty; null when it is white space
// alone; otherwise the first place that does not fit. 1 valid, 0 not.

// A whole number: optional sign, digits.
ORVANEST_EXPORT int lschkDigit(const char* text, char** position);
// A fixed-point number: optional sign, digits with at most one '.'.
ORVANEST_EXPORT int lschkFdigit(const char* text, char** position);
// A fixed-point number, 'E' or 'e', a whole number. A text of more than 256
// bytes: last error LERR_INVALIDARG, mark, 0, *position untouched.
ORVANEST_EXPORT int lschkEdigit(const char* text, char** position);
// Either of the two above; when both fail, the earlier of their positions.
ORVANEST_EXPORT int lschkGdigit(const char* text, char** position);
// A hexadecimal number of at most maxDigits digits (0: 8), with an optional
// "0x" or 'H' prefix or an 'H' suffix (not both 'H'), either case.
ORVANEST_EXPORT int lschkHex(const char* text, DWORD maxDigits, char** position);

// ---- wildcard matching ---------------------------------------------------------------
// '*' stands for any run of bytes, '?' for one byte (a two-byte character
// takes "??"); a run of wildcards that holds a '*' is a '*'. The whole text
// must be matched. Results: 0 match, -1 no match, -2 bad argument (last error
// LERR_INVALIDARG and a mark). Texts and patterns are at most 255 bytes.

// One compiled piece of a pattern: a literal and what may stand in front of it.
struct tagLST_MatchWild {
    LONG skip;      // 0 literal here; n > 0 exactly n bytes first; -1 any run first; -2 end of the array
    char* literal;  // zero-terminated; null when the pattern ends in a wildcard run
    DWORD length;   // bytes of literal
};

// flag 1 ignores case; any other value compares bytes. An empty text gives -1;
// a longer text, an empty or longer pattern give -2. The caller's strings
// are not touched; nothing is allocated.
ORVANEST_EXPORT int lschkIsMatchWild(char* text, char* pattern, DWORD flag);
// The same against a list of patterns divided by ';' (empty items skipped):
// 0 when one matches, -1 when none does; -2 for an empty or longer list, or
// the first -2 of an item.
ORVANEST_EXPORT int lschkIsMatchWildEx(char* text, char* patterns, DWORD flag);
// Matches text against the records from record on (the array ends with skip
// -2): 0 match, -1 no match.
ORVANEST_EXPORT int lschkMatchSub(char* text, struct tagLST_MatchWild* record);

// ---- formula evaluator -----------------------------------------------------------------
// Numbers (as strtod reads them, with 'd' or 'D' also an exponent letter),
// + - * /, a sign at the start of the formula or of a parenthesis (it
// attaches to the first operand there), parentheses up to 10 deep, and
// multiplication by juxtaposition in front of '('; blanks and tabs between
// tokens. Results: 0 with *value set; 1 a character outside that set; 2 a
// '(' too deep; 3 unbalanced parentheses; 4 a number longer than 31
// characters; 5 a postfix form longer than 500 bytes; 6 a syntax error or a
// number that does not read whole; 7 a divisor whose magnitude is below
// 1e-300. The first failure from the left decides, except that the
// character test comes first and evaluation failures come last, in postfix
// order. *value is written only on 0; no error or mark is set; formula is
// not changed. Re-entrant.
ORVANEST_EXPORT int lscalcFormToReal(double* value, char* formula);

// ---- number text ------------------------------------------------------------------------
// Flags of the digit functions.
#define LSCVT_LEFT 0x001UL       // left-justify in the field
#define LSCVT_PLUS 0x002UL       // '+' on a value that is not negative
#define LSCVT_ZEROPAD 0x004UL    // pad with '0' behind the sign instead of blanks in front
#define LSCVT_ALT 0x008UL        // write the point even with no digit behind it
#define LSCVT_BLANK 0x010UL      // a blank in front of a value that is not negative (not with LSCVT_PLUS)
#define LSCVT_STRIP 0x020UL      // drop the trailing zeros of the fraction
#define LSCVT_TAILBLANK 0x040UL  // blank out (or, left-justified in a wider field, remove) trailing zeros
#define LSCVT_UPPER 0x100UL      // exponent letter 'E' rather than 'e'

// value as text into destination, at least width characters wide with
// precision digits behind the point: the E form "d.ddde+xxx" (three exponent
// digits), the F form (rounded after a bias of 5e-6, or 5 x 10^-(precision +
// 3) above 3 decimals, so that values just under a half-way point go up; a
// value that vanishes at the precision is "0" or "-0"), and the G form, the
// shorter of F and E with the trailing zeros stripped, where precision counts
// significant digits (a tie goes to F; the destination must have room for the
// F form, which for a tiny value runs to over 300 characters). The count
// written without the terminator; -1 with nothing written for an infinity or
// a NaN. Precisions above 1100 are taken as 1100. The destination is not
// bounded.
ORVANEST_EXPORT int lscvtEdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags);
ORVANEST_EXPORT int lscvtFdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags);
ORVANEST_EXPORT int lscvtGdigit(double value, char* destination, DWORD width, DWORD precision, DWORD flags);

// Exactly 8 upper-case hexadecimal digits of value and a terminator into
// destination (9 bytes); gives destination. Null destination: last error
// LERR_INVALIDARG, a mark, null.
ORVANEST_EXPORT char* lscvtDwordToHex(char* destination, DWORD value);
// The value of hexadecimal text that ends at its first white space: an
// optional "0x" or 'H' prefix or 'H' suffix, either case; only the last 8
// digits count. Nothing is checked: any other character adds its own code's
// share, and no error is reported. At most 11 characters are looked at.
ORVANEST_EXPORT DWORD lscvtHexToDword(const char* text);
// The 16 hexadecimal digits of value's bits, sign bit first, into destination
// (17 bytes): 1.0 gives "3FF0000000000000". Null as for lscvtDwordToHex.
ORVANEST_EXPORT char* lscvtDblToHex(char* destination, double value);
// The double whose bits the text gives, read as lscvtDblToHex writes it: an
// optional "0x" or 'h' prefix or 'h' suffix, either case, the text padded
// with '0' on the right to 16 digits ("3FF" is 1.0), anything beyond 16
// digits ignored. At most 19 characters are looked at.
ORVANEST_EXPORT double lscvtHexToDbl(const char* text);
// value as "%f" writes it (six decimals), with the trailing zeros cut down to
// at least level decimals, and the point too when no decimal is left.
ORVANEST_EXPORT CString lscvtRoundDecLevel(double value, int level);

// ---- formatted text ---------------------------------------------------------------------
// The library's printf. A conversion is %[flags][width][.precision]letter
// with the flags '-', '+', '0', '#' and blank in any order. d i o u x X (a
// 32-bit int), c (an int whose low byte is the character) and s (a string)
// are handed to wsprintfA with the conversion text exactly as written; f, e,
// E, g, G (a double) go to lscvtFdigit, lscvtEdigit and lscvtGdigit with
// the width, the precision (6 when none is given, 0 for a bare '.') and the
// flags. Nothing else is a conversion: "%ld" prints "ld" and "%*d" prints
// "*d", taking no argument; "%%" prints '%'; a '%' at the end is dropped.
// The length of the text written (lstrlenA of destination); -1 when a
// floating conversion meets an infinity or a NaN, what was written so far
// then standing without a terminator. The destination is not bounded; a
// conversion text longer than 15 bytes is outside the contract.
ORVANEST_EXPORT int lstrWvprintf(char* destination, const char* format, va_list arguments);
ORVANEST_EXPORT int lstrWsprintf(char* destination, const char* format, ...);

// ---- series, tab and time text ------------------------------------------------------------
// A series is a packed list: each string with its terminator, then one more
// zero. Failures below mark and leave the last error as it was.

// Packs the null-ended array into destination (size bytes): the number of
// strings, or -1 with a mark when the strings and the closing zero do not
// fit (what was copied stays, without the closing zero).
ORVANEST_EXPORT int lscvtPtrArrayToSeries(char const** const array, char* destination, DWORD size);
// Points the entries of array (size entries) at the strings of series, then
// a null: the number of strings, or -1 with a mark when they and the null do
// not fit.
ORVANEST_EXPORT int lscvtSeriesToPtrArray(char const* series, char** const array, DWORD size);
// Copies source into destination (note the order, and that the first is the
// one written) with each tab turned into blanks, at least one, up to the
// next multiple of tab bytes of output. The number of tabs; tab must be at
// least 1. The destination is not bounded.
ORVANEST_EXPORT int lscvtTabToSpace(char const* destination, char* source, unsigned int tab);
// "yyyy/MM/dd HH:mm:ss" into destination (20 bytes): 1, or 0 with a mark
// when the platform refuses the time. The text comes from wsprintfA on
// Win32s, else from GetDateFormatA and GetTimeFormatA.
ORVANEST_EXPORT int lscvtSystemTimeToStr(struct _SYSTEMTIME* time, char* destination);
// The same for a file time, in UTC.
ORVANEST_EXPORT int lscvtFileTimeToStr(struct _FILETIME* time, char* destination);
