// Number text of the lscvt family, third part: packed string lists
// (series), tabs to blanks, and dates as "yyyy/MM/dd HH:mm:ss". Source
// .\LST\LSCVT; failures mark here and set no last error of their own.
//
// A series is each string with its terminator, one after another, and one
// more zero behind the last; an empty series is a single zero, so an empty
// string cannot stand in one.
#include <cstdint>
#include <cstring>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCVT

namespace {

constexpr int kTimeTextSize = 20;  // "2024/03/05 14:07:09" and a terminator

}  // namespace

int lscvtPtrArrayToSeries(char const** const array, char* destination, DWORD size) {
    destination[0] = '\0';
    // Summed in 64 bits: a 32-bit sum could wrap below the size and let a
    // string past the test.
    uint64_t total = 0;
    char* out = destination;
    int count = 0;
    for (; array[count] != nullptr; ++count) {
        const size_t length = std::strlen(array[count]);
        total += length + 1;
        // The closing zero must fit behind the strings too. What was copied
        // stays, without it.
        if (size <= total) {
            LDE_MARK();
            return -1;
        }
        std::memcpy(out, array[count], length + 1);
        out += length + 1;
    }
    *out = '\0';
    return count;
}

int lscvtSeriesToPtrArray(char const* series, char** const array, DWORD size) {
    DWORD count = 0;
    for (const char* p = series; *p != '\0'; p += std::strlen(p) + 1) {
        ++count;
        // The entries point into the series; the closing null must fit.
        if (size <= count) {
            LDE_MARK();
            return -1;
        }
        array[count - 1] = const_cast<char*>(p);
    }
    array[count] = nullptr;
    return static_cast<int>(count);
}

// The first argument is the one written, although it is declared const, and
// the second the one read; callers have always passed them so.
int lscvtTabToSpace(char const* destination, char* source, unsigned int tab) {
    char* const start = const_cast<char*>(destination);
    char* out = start;
    int tabs = 0;
    // Columns count bytes of the output, so a double-byte character counts
    // two; 0x09 is never a trail byte, so no lead-byte test is needed.
    for (const char* p = source; *p != '\0'; ++p) {
        if (*p != '\t') {
            *out++ = *p;
            continue;
        }
        ++tabs;
        do {
            *out++ = ' ';
        } while (static_cast<unsigned>(out - start) % tab != 0);
    }
    *out = '\0';
    return tabs;
}

int lscvtSystemTimeToStr(struct _SYSTEMTIME* time, char* destination) {
    if (lsysIsWin32s() != 0) {
        wsprintfA(destination, "%04d/%02d/%02d %02d:%02d:%02d", time->wYear, time->wMonth, time->wDay, time->wHour,
                  time->wMinute, time->wSecond);
        return 1;
    }
    const LCID locale = GetSystemDefaultLCID();
    if (GetDateFormatA(locale, 0, time, "yyyy'/'MM'/'dd' '", destination, kTimeTextSize) == 0) {
        LDE_MARK();
        return 0;
    }
    char clock[kTimeTextSize];
    if (GetTimeFormatA(locale, 0, time, "HH':'mm':'ss", clock, kTimeTextSize) == 0) {
        LDE_MARK();
        return 0;
    }
    std::strcat(destination, clock);
    return 1;
}

int lscvtFileTimeToStr(struct _FILETIME* time, char* destination) {
    SYSTEMTIME fields;
    if (!FileTimeToSystemTime(time, &fields)) {
        LDE_MARK();
        return 0;
    }
    return lscvtSystemTimeToStr(&fields, destination);
}
