// The thread's last error: one word per thread, set by every failing call.
#include <orvanest/platform/win32.h>

namespace {
thread_local DWORD t_lastError = 0;
}

DWORD GetLastError(void) { return t_lastError; }

void SetLastError(DWORD dwErrCode) { t_lastError = dwErrCode; }
