// Making and ending arenas, and the blocks they carve.
//
// An arena's record, its blocks and its big allocations all come from the
// base allocator; the arena joins the thread's amlcList so that the thread's
// detach can end what the host leaves behind.
#include <cstdint>
#include <cstring>

#include "LMM/LAMLC/arena.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

using lamlc::Arena;
using lamlc::BusyScope;

namespace {

const auto kAtEnd = reinterpret_cast<void*>(~ULONG_PTR{0});

// Takes the arena's two lists, giving back what was taken when memory runs
// out on the way: the record is not in amlcList yet, so nothing else could.
void MakeLists(Arena* a, void** blockList, void** bigList) {
    try {
        *blockList = ldlistCreate(0);
        *bigList = ldlistCreate(0);
    } catch (CException*) {
        if (*blockList != nullptr) ldlistDestroy(*blockList);
        lmemFree(a);
        throw;
    }
}

// Frees every node of a list, then the list.
int FreeAll(void* list) {
    for (void* node; (node = ldlistGetFirstNode(list, 0)) != nullptr;) {
        if (ldlistDel(list, node) == 0 || lmemFree(node) == 0) {
            LDE_PASS();
            return 0;
        }
    }
    if (ldlistDestroy(list) == 0) {
        LDE_PASS();
        return 0;
    }
    return 1;
}

// R in 64 bits, for the sizes a caller gives before they have been
// checked: near 2^32 the 32-bit rounding would wrap to the floor.
uint64_t WideRounded(DWORD size) {
    uint64_t r = (uint64_t{size} + kAmlcStep - 1) & ~uint64_t{kAmlcStep - 1};
    return r < kAmlcFloor ? kAmlcFloor : r;
}

// The data bytes of a block that holds `size` bytes in whole units, worked
// out in 64 bits; raises when the block and its header do not fit 32 bits.
DWORD BlockData(uint64_t size, uint64_t unit) {
    uint64_t data = ((size - 1) / unit + 1) * unit;
    if (sizeof(AmlcBlock) + data > 0xFFFFFFFFu) LDE_THROW_TOO_LARGE();
    return static_cast<DWORD>(data);
}

}  // namespace

void lamlc::NewBlock(Arena* a, DWORD size) {
    DWORD data = BlockData(size, a->blockUnit);
    auto* b = static_cast<AmlcBlock*>(lmemAllocFunc(static_cast<DWORD>(sizeof(AmlcBlock)) + data, LDE_POS()));
    b->first = reinterpret_cast<char*>(b + 1);
    b->last = b->first + data - 1;
    SetWord(b->first, data | kAmlcFreeBits);
    ldlistIns(a->blockList, b, kAtEnd);
    a->curBlock = b;
    a->carve = b->first;
}

// The third argument is accepted and ignored. Should memory run out while
// the first block is made, the arena stays in amlcList without blocks and
// goes with the thread's detach.
void* lamlcCreate(DWORD firstSize, DWORD unitSize, DWORD) {
    tagLDE_ThreadContext* ctx = lde::Context();
    BusyScope busy(ctx->amlcBusy);
    if (firstSize == 0 || unitSize == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    // A first block that cannot be had raises before anything is taken, and
    // the unit is known to round without wrapping from here on.
    BlockData(WideRounded(firstSize), WideRounded(unitSize));
    auto* a = static_cast<Arena*>(lmemAllocFunc(static_cast<DWORD>(sizeof(Arena)), LDE_POS()));
    void* blockList = nullptr;
    void* bigList = nullptr;
    MakeLists(a, &blockList, &bigList);
    std::memset(a, 0, sizeof *a);
    a->context = ctx;
    ldlistIns(ctx->amlcList, a, kAtEnd);
    a->blockUnit = lamlc::Rounded(unitSize);
    a->blockList = blockList;
    a->bigList = bigList;
    lamlc::NewBlock(a, lamlc::Rounded(firstSize));
    return a;
}

// Releases the blocks, with every chunk still in them, then the big
// allocations, then the record.
int lamlcDestroy(void* arena) {
    BusyScope busy(lde::Context()->amlcBusy);
    if (arena == nullptr) return 0;
    Arena* a = static_cast<Arena*>(arena);
    if (FreeAll(a->blockList) == 0 || FreeAll(a->bigList) == 0) {
        LDE_PASS();
        return 0;
    }
    ldlistDel(a->context->amlcList, a);
    std::memset(a, 0, sizeof *a);
    if (lmemFree(a) == 0) {
        LDE_PASS();
        return 0;
    }
    return 1;
}
