// The local time, from the real-time clock and the C library's time zone.
#include <time.h>

#include <orvanest/platform/win32_system.h>

void GetLocalTime(LPSYSTEMTIME lpSystemTime) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    lpSystemTime->wYear = static_cast<WORD>(local.tm_year + 1900);
    lpSystemTime->wMonth = static_cast<WORD>(local.tm_mon + 1);
    lpSystemTime->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    lpSystemTime->wDay = static_cast<WORD>(local.tm_mday);
    lpSystemTime->wHour = static_cast<WORD>(local.tm_hour);
    lpSystemTime->wMinute = static_cast<WORD>(local.tm_min);
    // A leap second shows as the last second of its minute.
    lpSystemTime->wSecond = static_cast<WORD>(local.tm_sec > 59 ? 59 : local.tm_sec);
    lpSystemTime->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}
