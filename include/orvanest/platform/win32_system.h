// System queries: the platform's version word and the local time, and the
// switch with which tests make the platform pass for Win32s.
//
// GetSystemInfo (page size, allocation granularity) belongs with the address
// space, in win32_memory.h.
#pragma once

#include "win32.h"

// ---- version --------------------------------------------------------------------
// The version word: major version in the low byte, minor in the next byte,
// build number in bits 16-30. Bit 31 is set only on Win32s, which this
// platform is not unless a test says so: 6.1, build 7601, normally;
// 3.10 with bit 31 set while OrvaSetWin32s(TRUE) holds.
ORVANEST_EXPORT DWORD GetVersion(void);

// Platform extension for tests: makes GetVersion report Win32s (TRUE) or not
// (FALSE) for the whole process, so that the Win32s roads of callers can be
// run. Gives the previous setting.
ORVANEST_EXPORT BOOL OrvaSetWin32s(BOOL win32s);

// ---- time -------------------------------------------------------------------------
typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;      // 1 = January
    WORD wDayOfWeek;  // 0 = Sunday
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

// The current date and time in the process's time zone (TZ, else the
// system's).
ORVANEST_EXPORT void GetLocalTime(LPSYSTEMTIME lpSystemTime);
