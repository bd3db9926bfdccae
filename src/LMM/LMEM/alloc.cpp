// Global blocks of the base allocator: allocation, free and reallocation,
// with the global-block counters. Every ordinary allocation of the library is
// a fixed, zero-filled block of the global heap; lmemFree also takes back
// virtual blocks, which it tells apart by their address alone.
#include <cstring>

#include "LMM/LMEM/accounting.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLMEM

namespace {

// Copies n bytes of a virtual block from src into dst, a zero-filled block.
// Only committed pages are read: a page that was never committed was never
// written, so it holds zeros by definition, which dst already has, and reading
// it would fault.
void CopyCommitted(char* dst, const char* src, SIZE_T n) {
    SIZE_T done = 0;
    while (done < n) {
        MEMORY_BASIC_INFORMATION info;
        if (VirtualQuery(src + done, &info, sizeof info) == 0) return;
        SIZE_T run = static_cast<SIZE_T>(static_cast<char*>(info.BaseAddress) + info.RegionSize - (src + done));
        if (run > n - done) run = n - done;
        bool readable = info.Protect == PAGE_READWRITE || info.Protect == PAGE_READONLY;
        if (info.State == MEM_COMMIT && readable) std::memcpy(dst + done, src + done, run);
        done += run;
    }
}

// Frees a block made by a call that is failing, keeping the failure's last
// error.
void ReleaseQuietly(void* p) {
    ldbgCloseSetErr();
    lmemFree(p);
    ldbgOpenSetErr();
}

}  // namespace

int lmemIsVirtualAllocSize(DWORD) { return 0; }

void* lmemAllocFunc(DWORD size, DWORD mark) {
    // The hook where large sizes could become virtual blocks; no size does.
    if (lmemIsVirtualAllocSize(size) != 0) return lmemVirtualAllocFunc(size, mark);
    void* p = GlobalAlloc(GMEM_ZEROINIT, size);
    if (p == nullptr) LDE_THROW_MEMORY();
    lmem::Grow(lde::g_globalAlloc, lde::g_globalAllocMax, static_cast<DWORD>(GlobalSize(p)));
    return p;
}

int lmemFree(void* p) {
    if (p == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }
    if (lmemGetVirtualAllocNode(p) != nullptr) return lmemVirtualFree(p);
    // Not a live global block (interior, freed, stack, another thread's
    // virtual block): nothing to free, and the counters stay.
    SIZE_T n = GlobalSize(p);
    if (n == 0) return 1;
    if (GlobalFree(p) != nullptr) LDE_THROW_MEMORY();
    lde::g_globalAlloc -= static_cast<DWORD>(n);
    return 1;
}

void* lmemReAlloc(void* p, DWORD size) {
    // The old size of a virtual block runs from p to the block's end, so an
    // interior pointer copies no byte from beyond it.
    tagLMM_VirtualAllocNode* node = lmemGetVirtualAllocNode(p);
    SIZE_T old = node != nullptr ? static_cast<SIZE_T>(static_cast<char*>(node->dataLast) - static_cast<char*>(p)) + 1
                                 : GlobalSize(p);
    auto* fresh = static_cast<char*>(lmemAllocFunc(size, LDE_POS()));
    SIZE_T n = size < old ? size : old;
    if (node != nullptr) {
        CopyCommitted(fresh, static_cast<const char*>(p), n);
    } else if (n != 0) {
        std::memcpy(fresh, p, n);
    }
    // When the old block cannot be freed it stays the caller's, and the new
    // one must not outlive the failure: neither when lmemFree refuses nor
    // when it raises.
    int freed;
    try {
        freed = lmemFree(p);
    } catch (...) {
        ReleaseQuietly(fresh);
        throw;
    }
    if (freed == 0) {
        ReleaseQuietly(fresh);
        LDE_THROW_MEMORY();
    }
    return fresh;
}
