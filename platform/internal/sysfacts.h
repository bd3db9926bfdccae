// Inside the platform: the system facts that the address-space calls and
// GetSystemInfo must agree on. Both ask here, so a reservation is aligned to
// exactly the granularity that GetSystemInfo reports.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace orva::sysfacts {

// The system's page size.
inline size_t PageSize() {
    static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return page;
}

// Every reservation starts on a multiple of this: 64 KiB, as Win32 programs
// expect, or the page size on a system whose pages are larger.
inline size_t Granularity() {
    constexpr size_t kWin32Granularity = 0x10000;
    return PageSize() > kWin32Granularity ? PageSize() : kWin32Granularity;
}

// The lowest and the highest address a process can map. The kernel keeps the
// first 64 KiB unmapped; the top is the end of the user half of a 48-bit
// address space, less the guard page the kernel keeps below it.
constexpr uintptr_t kMinimumAddress = 0x10000;
#if defined(__x86_64__)
constexpr uintptr_t kMaximumAddress = 0x00007FFFFFFFEFFFull;
#elif defined(__aarch64__)
constexpr uintptr_t kMaximumAddress = 0x0000FFFFFFFFEFFFull;
#else
constexpr uintptr_t kMaximumAddress = ~uintptr_t{0} >> 1;
#endif

}  // namespace orva::sysfacts
