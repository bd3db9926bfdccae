// The test binary's own lmemAllocFunc. The library calls lmemAllocFunc
// through its procedure linkage table, and a definition in the executable
// comes first in the dynamic linker's search order, so every call in the
// process lands here. Normally it hands the call on to the library's own
// definition; with the seam on, it gives a virtual block instead. Tests that
// rely on the seam check that the block they got is virtual, so a seam that
// did not take hold fails them rather than passing them by.
#include "support/virtual_blocks.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

thread_local bool t_virtual = false;
thread_local void* t_latest = nullptr;

using AllocFunc = void* (*)(DWORD, DWORD);

AllocFunc LibraryAlloc() {
    static const AllocFunc real = [] {
        // The mangled name of lmemAllocFunc(DWORD, DWORD).
        auto f = reinterpret_cast<AllocFunc>(dlsym(RTLD_NEXT, "_Z13lmemAllocFuncjj"));
        if (f == nullptr) {
            std::fprintf(stderr, "virtual_blocks: the library's lmemAllocFunc is not found\n");
            std::abort();
        }
        return f;
    }();
    return real;
}

}  // namespace

void* lmemAllocFunc(DWORD size, DWORD mark) {
    if (!t_virtual) return LibraryAlloc()(size, mark);
    t_latest = nullptr;  // stays null when the allocation raises
    t_latest = lmemVirtualAllocFunc(size, mark);
    return t_latest;
}

namespace orvatest {

VirtualBlocks::VirtualBlocks() { t_virtual = true; }
VirtualBlocks::~VirtualBlocks() { t_virtual = false; }
void* VirtualBlocks::Latest() { return t_latest; }

}  // namespace orvatest
