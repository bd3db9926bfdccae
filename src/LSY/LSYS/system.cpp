// The small questions put to the platform: its kind, its page size and
// allocation unit, the local time and the library's version. Nothing is
// cached, so a test that flips the platform's Win32s switch sees the other
// answers at once; nothing marks.
#include <cstring>

#include <orvanest/platform/win32_memory.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSYS

namespace {
const char kVersion[8] = "1.00.05";

// What Win32s always had, whatever the machine.
constexpr DWORD kWin32sPageSize = 0x1000;
constexpr DWORD kWin32sAllocUnit = 0x10000;
}  // namespace

int lsysIsWin32s(void) { return static_cast<int>(GetVersion() & 0x80000000u); }

void lsysGetLocalTime(struct _SYSTEMTIME* time) { GetLocalTime(time); }

void lsysGetOrvanestInfo(struct tagLSY_OrvanestInfo* info) { std::memcpy(info->version, kVersion, sizeof kVersion); }

DWORD lsysGetPageSize(void) {
    if (lsysIsWin32s() != 0) return kWin32sPageSize;
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

DWORD lsysGetAllocUnit(void) {
    if (lsysIsWin32s() != 0) return kWin32sAllocUnit;
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwAllocationGranularity;
}
