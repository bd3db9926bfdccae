// The Win32 subset for dates as text: file times, the conversion of a file
// time to calendar fields, the system's locale identifier, and date and time
// pictures.
//
// The platform has one locale, Japanese (0x0411), whatever the identifier
// passed: numbers only, no names of days, months or eras.
#pragma once

#include "win32.h"
#include "win32_system.h"

typedef DWORD LCID;

#define LOCALE_SYSTEM_DEFAULT 0x0800
#define LOCALE_USER_DEFAULT 0x0400
#define ERROR_INVALID_FLAGS 1004L

// 100-nanosecond intervals since 1 January 1601, UTC.
typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

// The calendar fields of a file time, in UTC (no shift to local time). FALSE
// with last error ERROR_INVALID_PARAMETER for a time beyond
// 0x7FFFFFFFFFFFFFFF, which has no year of its own.
ORVANEST_EXPORT BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime);

// 0x0411, Japanese.
ORVANEST_EXPORT LCID GetSystemDefaultLCID(void);

// Write a date (time) by a picture into lpDateStr (lpTimeStr), cchDate
// (cchTime) bytes; the count written with the terminator, or with a size of
// 0 the count needed. lpDate (lpTime) null means now, in local time.
// Pictures: text in single quotes is copied ('' inside quotes is one
// quote); for dates d dd (day), M MM (month), y yy yyyy (year); for times
// h hh (12-hour clock), H HH (24-hour clock), m mm, s ss; doubled letters
// pad to two digits. A null picture is the locale's: "yyyy/MM/dd",
// "H:mm:ss". Fails with 0 and last error ERROR_INSUFFICIENT_BUFFER when the
// text does not fit, ERROR_INVALID_PARAMETER for fields out of range (a date
// before 1601 included) or a picture element this locale does not know
// (names of days and months, eras, AM/PM markers), ERROR_INVALID_FLAGS for
// flags other than 0.
ORVANEST_EXPORT int GetDateFormatA(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpDate, LPCSTR lpFormat,
                                   LPSTR lpDateStr, int cchDate);
ORVANEST_EXPORT int GetTimeFormatA(LCID Locale, DWORD dwFlags, const SYSTEMTIME* lpTime, LPCSTR lpFormat,
                                   LPSTR lpTimeStr, int cchTime);
