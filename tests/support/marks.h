// Reading what a call did to the last error and to the thread's latest mark.
// A call is made after PrepareCall: then a refusal shows its code in both,
// a quiet failure or a success leaves kCallerError in the last error, and a
// call that made no mark leaves kProbeError as the latest mark's value.
#pragma once

#include <orvanest/ORVANEST.h>

namespace orvatest {

inline constexpr DWORD kProbeError = 0x2BADBEEF;   // the latest mark's value when none was made
inline constexpr DWORD kCallerError = 0x0BADC0DE;  // the last error a call finds

// The last error that the thread's latest mark kept; the last error itself
// stays as it was.
inline DWORD LatestMarkError() {
    DWORD saved = GetLastError();
    SetLastError(0);
    ldbgCloseSetErr();
    ldbgOpenSetErr();
    DWORD kept = GetLastError();
    SetLastError(saved);
    return kept;
}

inline void PrepareCall() {
    SetLastError(kProbeError);
    ldbgSetMarkErr(0);
    SetLastError(kCallerError);
}

}  // namespace orvatest
