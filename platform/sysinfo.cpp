// GetSystemInfo: the processor and the memory facts of this machine. The page
// size and the allocation granularity come from the same place that
// VirtualAlloc aligns by, so the two always agree.
#include <unistd.h>
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include <cstring>

#include <orvanest/platform/win32_memory.h>

#include "internal/sysfacts.h"

namespace {

// Win32's processor type number for the architecture it is built for.
#if defined(__x86_64__)
constexpr DWORD kProcessorAmdX8664 = 8664;
#elif defined(__aarch64__)
constexpr DWORD kProcessorArm = 0;
#endif

// Fills the processor's fields.
void FillProcessor(SYSTEM_INFO* info) {
#if defined(__x86_64__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    info->dwProcessorType = kProcessorAmdX8664;
#elif defined(__aarch64__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
    info->dwProcessorType = kProcessorArm;
#else
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_UNKNOWN;
#endif
#if defined(__x86_64__) || defined(__i386__)
    // Level is the family, revision the model and stepping, with the
    // extended fields folded in as Intel and AMD define them.
    unsigned eax, ebx, ecx, edx;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
        unsigned family = (eax >> 8) & 0xF;
        unsigned model = (eax >> 4) & 0xF;
        unsigned stepping = eax & 0xF;
        if (family == 0xF) family += (eax >> 20) & 0xFF;
        if (family >= 6) model |= ((eax >> 16) & 0xF) << 4;
        info->wProcessorLevel = static_cast<WORD>(family);
        info->wProcessorRevision = static_cast<WORD>((model << 8) | stepping);
    }
#endif
}

// The processors online when first asked, one mask bit each as far as a
// pointer-wide mask reaches.
void FillCount(SYSTEM_INFO* info) {
    long online = sysconf(_SC_NPROCESSORS_ONLN);
    DWORD count = online > 0 ? static_cast<DWORD>(online) : 1;
    constexpr DWORD kMaskBits = sizeof(DWORD_PTR) * 8;
    info->dwNumberOfProcessors = count;
    info->dwActiveProcessorMask = count >= kMaskBits ? ~DWORD_PTR{0} : (DWORD_PTR{1} << count) - 1;
}

}  // namespace

// The processor facts are read once and copied from then on: cpuid can cost
// microseconds in a virtual machine, reading the processor count means a
// file, and callers ask for the page size on hot paths.
void GetSystemInfo(LPSYSTEM_INFO lpSystemInfo) {
    static const SYSTEM_INFO processor = [] {
        SYSTEM_INFO p;
        std::memset(&p, 0, sizeof p);
        FillProcessor(&p);
        FillCount(&p);
        return p;
    }();
    SYSTEM_INFO info = processor;
    info.dwPageSize = static_cast<DWORD>(orva::sysfacts::PageSize());
    info.dwAllocationGranularity = static_cast<DWORD>(orva::sysfacts::Granularity());
    info.lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(orva::sysfacts::kMinimumAddress);
    info.lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(orva::sysfacts::kMaximumAddress);
    *lpSystemInfo = info;
}
