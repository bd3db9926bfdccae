// The platform's version word, and the switch that makes it pass for Win32s.
#include <atomic>

#include <orvanest/platform/win32_system.h>

namespace {

// 6.1, build 7601: a Windows NT family version word, bit 31 clear.
constexpr DWORD kVersion = (7601u << 16) | (1u << 8) | 6u;
// 3.10 with bit 31 set, as Win32s reports itself.
constexpr DWORD kVersionWin32s = 0x80000000u | (10u << 8) | 3u;

std::atomic<BOOL> g_win32s{FALSE};

}  // namespace

DWORD GetVersion(void) { return g_win32s.load(std::memory_order_relaxed) ? kVersionWin32s : kVersion; }

BOOL OrvaSetWin32s(BOOL win32s) { return g_win32s.exchange(win32s ? TRUE : FALSE); }
