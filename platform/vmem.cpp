// Address space: VirtualAlloc, VirtualFree and VirtualQuery on mmap.
//
// A reservation is an anonymous private mapping with no access (PROT_NONE,
// MAP_NORESERVE, so it costs no commit charge), placed on a 64 KiB boundary by
// mapping a little more and trimming both ends. A commit is an mprotect of
// pages inside it. A decommit maps fresh no-access pages over the range, which
// drops the contents and the commit charge in one step, so a later commit
// reads zeros again. A release unmaps the region whole.
//
// The kernel does not remember which mappings are regions or where a region
// begins, so the platform keeps its own table: one record per region with a
// state byte per page (0 reserved, else the PAGE_* value of the committed
// page). The table is process-wide and every call holds its lock while it
// reads or changes both the table and the mappings, so two threads never see a
// region half made or half gone. Address space that the platform did not
// reserve is none of its business: VirtualQuery calls it free.
#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <vector>

#include <orvanest/platform/win32_memory.h>

#include "internal/fault.h"
#include "internal/sysfacts.h"

using orva::sysfacts::Granularity;
using orva::sysfacts::PageSize;

namespace {

struct Region {
    size_t size;                // a whole number of pages
    DWORD allocationProtect;    // the protection given at reservation
    std::vector<BYTE> pages;    // per page: 0 reserved, else PAGE_* committed
};

// Keyed by the region's start.
using RegionTable = std::map<uintptr_t, Region>;

std::mutex g_lock;

// Built on first use and never destroyed, so that regions can be released by
// code that runs while the process's static objects are torn down.
RegionTable& Table() {
    static RegionTable* table = new RegionTable;
    return *table;
}

inline uintptr_t PageDown(uintptr_t a) { return a & ~(uintptr_t{PageSize()} - 1); }

// Rounds up to whole pages; false when that overflows.
inline bool PageUp(uintptr_t a, uintptr_t* out) {
    uintptr_t mask = PageSize() - 1;
    if (a > ~uintptr_t{0} - mask) return false;
    *out = (a + mask) & ~mask;
    return true;
}

// The pages that hold [a, a + size): true when they lie inside the region at
// `it`, with *lo and *hi their bounds.
bool PagesInRegion(RegionTable::const_iterator it, uintptr_t a, SIZE_T size, uintptr_t* lo, uintptr_t* hi) {
    if (size > ~uintptr_t{0} - a || !PageUp(a + size, hi)) return false;
    *lo = PageDown(a);
    return *lo >= it->first && *hi - it->first <= it->second.size;
}

// The region that holds address a, or the table's end.
RegionTable::iterator RegionAt(uintptr_t a) {
    RegionTable& t = Table();
    auto it = t.upper_bound(a);
    if (it == t.begin()) return t.end();
    --it;
    return a - it->first < it->second.size ? it : t.end();
}

int PosixProtection(DWORD protect) {
    switch (protect) {
    case PAGE_READONLY:
        return PROT_READ;
    case PAGE_READWRITE:
        return PROT_READ | PROT_WRITE;
    default:
        return PROT_NONE;
    }
}

bool ValidProtection(DWORD protect) {
    return protect == PAGE_NOACCESS || protect == PAGE_READONLY || protect == PAGE_READWRITE;
}

DWORD ErrorFromErrno(int e) { return e == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER; }

LPVOID Fail(DWORD code) {
    SetLastError(code);
    return nullptr;
}

// Maps size bytes (a page multiple) of no-access address space on a
// granularity boundary, at `at` exactly when it is not 0. Null with the last
// error set when that cannot be had.
void* MapReservation(uintptr_t at, size_t size) {
    constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    if (at != 0) {
        void* p = mmap(reinterpret_cast<void*>(at), size, PROT_NONE, kFlags | MAP_FIXED_NOREPLACE, -1, 0);
        if (p == MAP_FAILED) {
            SetLastError(errno == EEXIST ? ERROR_INVALID_ADDRESS : ErrorFromErrno(errno));
            return nullptr;
        }
        if (p != reinterpret_cast<void*>(at)) {  // a kernel that ignores the flag
            munmap(p, size);
            SetLastError(ERROR_INVALID_ADDRESS);
            return nullptr;
        }
        return p;
    }
    size_t slack = Granularity() - PageSize();
    if (size > SIZE_MAX - slack) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    void* p = mmap(nullptr, size + slack, PROT_NONE, kFlags, -1, 0);
    if (p == MAP_FAILED) {
        SetLastError(ErrorFromErrno(errno));
        return nullptr;
    }
    uintptr_t raw = reinterpret_cast<uintptr_t>(p);
    uintptr_t start = (raw + Granularity() - 1) & ~(uintptr_t{Granularity()} - 1);
    if (start > raw) munmap(p, start - raw);
    uintptr_t tail = start + size;
    if (raw + size + slack > tail) munmap(reinterpret_cast<void*>(tail), raw + size + slack - tail);
    return reinterpret_cast<void*>(start);
}

// Reserves a new region and enters it in the table. Called with the lock held.
LPVOID Reserve(uintptr_t at, SIZE_T dwSize, DWORD protect) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_VIRTUALALLOC, &code)) return Fail(code);
    uintptr_t size;
    if (!PageUp(dwSize, &size)) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    if (at != 0) at &= ~(uintptr_t{Granularity()} - 1);
    void* p = MapReservation(at, size);
    if (p == nullptr) return nullptr;
    try {
        Table().emplace(reinterpret_cast<uintptr_t>(p), Region{size, protect, std::vector<BYTE>(size / PageSize())});
    } catch (const std::bad_alloc&) {
        munmap(p, size);
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    return p;
}

// Commits the pages of [a, a + dwSize), which must lie in one region. Called
// with the lock held.
LPVOID Commit(uintptr_t a, SIZE_T dwSize, DWORD protect) {
    auto it = RegionAt(a);
    uintptr_t lo, hi;
    if (it == Table().end() || !PagesInRegion(it, a, dwSize, &lo, &hi)) return Fail(ERROR_INVALID_ADDRESS);
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_VIRTUALCOMMIT, &code)) return Fail(code);
    if (mprotect(reinterpret_cast<void*>(lo), hi - lo, PosixProtection(protect)) != 0) {
        return Fail(ErrorFromErrno(errno));
    }
    BYTE* pages = it->second.pages.data();
    std::memset(pages + (lo - it->first) / PageSize(), static_cast<BYTE>(protect), (hi - lo) / PageSize());
    return reinterpret_cast<void*>(lo);
}

BOOL Release(uintptr_t a, SIZE_T dwSize) {
    if (dwSize != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto it = Table().find(a);
    if (it == Table().end()) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    }
    munmap(reinterpret_cast<void*>(a), it->second.size);
    Table().erase(it);
    return TRUE;
}

BOOL Decommit(uintptr_t a, SIZE_T dwSize) {
    auto it = RegionAt(a);
    if (it == Table().end()) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    }
    uintptr_t lo, hi;
    if (dwSize == 0) {
        if (a != it->first) {
            SetLastError(ERROR_INVALID_ADDRESS);
            return FALSE;
        }
        lo = it->first;
        hi = lo + it->second.size;
    } else if (!PagesInRegion(it, a, dwSize, &lo, &hi)) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    }
    void* p = mmap(reinterpret_cast<void*>(lo), hi - lo, PROT_NONE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
    if (p == MAP_FAILED) {
        SetLastError(ErrorFromErrno(errno));
        return FALSE;
    }
    BYTE* pages = it->second.pages.data();
    std::memset(pages + (lo - it->first) / PageSize(), 0, (hi - lo) / PageSize());
    return TRUE;
}

}  // namespace

LPVOID VirtualAlloc(LPVOID lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect) {
    if (dwSize == 0 || !ValidProtection(flProtect) || (flAllocationType & (MEM_COMMIT | MEM_RESERVE)) == 0 ||
        (flAllocationType & ~DWORD{MEM_COMMIT | MEM_RESERVE}) != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    uintptr_t a = reinterpret_cast<uintptr_t>(lpAddress);
    std::lock_guard<std::mutex> hold(g_lock);
    bool reserve = (flAllocationType & MEM_RESERVE) != 0 || a == 0;
    if (!reserve) return Commit(a, dwSize, flProtect);
    // The region reaches from the granule's start to the end of the asked
    // range; a size that the offset into the granule would carry past the
    // top of the address space is more than can be had, not a page or two.
    const SIZE_T offset = a & (Granularity() - 1);
    if (dwSize > SIZE_MAX - offset) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    // The region remembers the protection of its reservation; a commit that
    // comes with it gives its pages the same one.
    LPVOID region = Reserve(a, dwSize + offset, flProtect);
    if (region == nullptr || (flAllocationType & MEM_COMMIT) == 0) return region;
    uintptr_t start = a != 0 ? a : reinterpret_cast<uintptr_t>(region);
    if (Commit(start, dwSize, flProtect) == nullptr) {
        DWORD code = GetLastError();
        Release(reinterpret_cast<uintptr_t>(region), 0);
        return Fail(code);
    }
    return region;
}

BOOL VirtualFree(LPVOID lpAddress, SIZE_T dwSize, DWORD dwFreeType) {
    uintptr_t a = reinterpret_cast<uintptr_t>(lpAddress);
    std::lock_guard<std::mutex> hold(g_lock);
    switch (dwFreeType) {
    case MEM_RELEASE:
        return Release(a, dwSize);
    case MEM_DECOMMIT:
        return Decommit(a, dwSize);
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
}

SIZE_T VirtualQuery(LPCVOID lpAddress, PMEMORY_BASIC_INFORMATION lpBuffer, SIZE_T dwLength) {
    uintptr_t a = reinterpret_cast<uintptr_t>(lpAddress);
    if (lpBuffer == nullptr || dwLength < sizeof(MEMORY_BASIC_INFORMATION) ||
        a > orva::sysfacts::kMaximumAddress) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    MEMORY_BASIC_INFORMATION info{};
    uintptr_t page = PageDown(a);
    info.BaseAddress = reinterpret_cast<LPVOID>(page);
    std::lock_guard<std::mutex> hold(g_lock);
    auto it = RegionAt(a);
    if (it == Table().end()) {
        auto next = Table().upper_bound(a);
        uintptr_t end = next != Table().end() ? next->first : orva::sysfacts::kMaximumAddress + 1;
        info.RegionSize = end - page;
        info.State = MEM_FREE;
        info.Protect = PAGE_NOACCESS;
    } else {
        const Region& r = it->second;
        size_t first = (page - it->first) / PageSize();
        size_t last = first;
        while (last < r.pages.size() && r.pages[last] == r.pages[first]) ++last;
        info.AllocationBase = reinterpret_cast<LPVOID>(it->first);
        info.AllocationProtect = r.allocationProtect;
        info.RegionSize = (last - first) * PageSize();
        info.State = r.pages[first] != 0 ? MEM_COMMIT : MEM_RESERVE;
        info.Protect = r.pages[first];
        info.Type = MEM_PRIVATE;
    }
    *lpBuffer = info;
    return sizeof info;
}
