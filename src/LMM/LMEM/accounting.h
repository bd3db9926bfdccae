// Inside the base allocator: the bookkeeping its files share. The six
// counters themselves live with the rest of the process-wide state.
#pragma once

#include "internal/context.h"

namespace lmem {

// Adds to a counter and raises its peak the moment the total passes it. Plain
// reads and writes: the counters serve a diagnostic display only.
inline void Grow(DWORD& total, DWORD& peak, DWORD amount) {
    total += amount;
    if (total > peak) peak = total;
}

// The page size, asked of the system on every call as the commit accounting
// expects: one page per commit, whatever its size.
inline DWORD PageSize() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

}  // namespace lmem
