// The small questions put to the platform: its kind, the local time and the
// library's version. Nothing is cached and nothing marks.
#include <cstring>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSYS

namespace {
const char kVersion[8] = "1.00.05";
}  // namespace

int lsysIsWin32s(void) { return static_cast<int>(GetVersion() & 0x80000000u); }

void lsysGetLocalTime(struct _SYSTEMTIME* time) { GetLocalTime(time); }

void lsysGetOrvanestInfo(struct tagLSY_OrvanestInfo* info) { std::memcpy(info->version, kVersion, sizeof kVersion); }
