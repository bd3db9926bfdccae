// Allocation, release and shrinking of arena chunks: the hot paths.
//
// A small request is served from the free list of its exact size, else from
// the first larger list that leaves a rest big enough to be a chunk of its
// own, else by carving the current block. A release only pushes the chunk on
// its list; merging neighbours is left to the step machine (steps.cpp), so
// both paths take a fixed number of pointer operations. Requests above 1024
// bytes are big allocations of their own, kept in the arena's bigList.
#include <cstring>

#include "LMM/LAMLC/arena.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

using lamlc::Arena;
using lamlc::BusyScope;

namespace {

// A free chunk of `size` bytes at `at`, pushed on its list.
inline void PushRest(Arena* a, char* at, DWORD size) {
    lamlc::SetWord(at, size | kAmlcFreeBits);
    lamlc::Push(a, reinterpret_cast<AmlcChunk*>(at), size);
}

// The first list above the exact one whose chunks leave a rest of at least
// the floor; the rest goes on its own list. Lists whose rest would be
// smaller are skipped, since such a rest could not be linked; the 1024 list
// is left to exact requests.
[[gnu::noinline]] AmlcChunk* TakeLarger(Arena* a, DWORD r) {
    for (DWORD i = (r + kAmlcFloor) / kAmlcStep; i < kAmlcLists; ++i) {
        if (a->freeList[i] == nullptr) continue;
        AmlcChunk* c = lamlc::PopHead(a, i);
        PushRest(a, reinterpret_cast<char*>(c) + r, i * kAmlcStep - r);
        return c;
    }
    return nullptr;
}

// Cuts r bytes off the carve area, first starting a new block when the area
// is too small. The old area's rest becomes a free chunk before the new block
// is asked for, so the arena is sound should that raise.
[[gnu::noinline]] void* Carve(Arena* a, DWORD r) {
    AmlcBlock* b = a->curBlock;
    char* end = b != nullptr ? b->last + 1 : a->carve;
    DWORD rest = static_cast<DWORD>(end - a->carve);
    if (rest < r) {
        if (rest >= kAmlcFloor) {
            PushRest(a, a->carve, rest);
        } else if (rest != 0) {
            lamlc::SetWord(a->carve, rest | kAmlcFreeBits);  // the block's tail, on no list
        }
        a->carve = end;
        lamlc::NewBlock(a, r);
        b = a->curBlock;
        rest = static_cast<DWORD>(b->last + 1 - a->carve);
    }
    char* c = a->carve;
    a->carve += r;
    if (rest > r) lamlc::SetWord(a->carve, (rest - r) | kAmlcFreeBits);
    return c;
}

[[gnu::noinline]] void* AllocBig(Arena* a, DWORD size) {
    if (size > 0xFFFFFFFFu - kAmlcBigHeader) LDE_THROW_TOO_LARGE();  // the link would not fit beside it
    char* big = static_cast<char*>(lmemAllocFunc(size + kAmlcBigHeader, LDE_POS()));
    ldlistIns(a->bigList, big, reinterpret_cast<void*>(~ULONG_PTR{0}));
    return big + kAmlcBigHeader;
}

[[gnu::noinline]] int FreeBig(Arena* a, void* p) {
    char* big = static_cast<char*>(p) - kAmlcBigHeader;
    if (ldlistDel(a->bigList, big) == 0 || lmemFree(big) == 0) {
        LDE_PASS();
        return 0;
    }
    return 1;
}

}  // namespace

void* lamlc::Alloc(Arena* a, DWORD size) {
    void* c;
    if (size > kAmlcLargest) {
        c = AllocBig(a, size);
    } else {
        DWORD r = Rounded(size);
        if (a->freeList[r / kAmlcStep] != nullptr) {
            c = PopHead(a, r / kAmlcStep);
        } else if ((c = TakeLarger(a, r)) == nullptr) {
            c = Carve(a, r);
        }
    }
    SetWord(c, size);
    return c;
}

int lamlc::Free(Arena* a, void* p) {
    DWORD word = WordOf(p);
    if (IsFree(word)) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }
    DWORD r = Rounded(SizeOf(word));
    SetWord(p, r | kAmlcFreeBits);
    if (r > kAmlcLargest) return FreeBig(a, p);
    Push(a, static_cast<AmlcChunk*>(p), r);
    return 1;
}

// The paths that may call out, and so may raise, hold the busy flag through
// a scope object. The fast paths (a small chunk from its exact list, a small
// chunk pushed back) call nothing and set and drop the flag themselves, which
// spares them a frame.
namespace {

[[gnu::noinline]] void* AllocSlow(Arena* a, DWORD size) {
    BusyScope busy(a->context->amlcBusy);
    lamlc::ClearStepState(a);
    if (size == 0) return nullptr;
    return lamlc::Alloc(a, size);
}

[[gnu::noinline]] int FreeSlow(Arena* a, void* p) {
    BusyScope busy(a->context->amlcBusy);
    lamlc::ClearStepState(a);
    if (p == nullptr) return 0;
    return lamlc::Free(a, p);
}

}  // namespace

void* lamlcAlloc(void* arena, DWORD size) {
    Arena* a = static_cast<Arena*>(arena);
    if (a->phase == 0 && size - 1 < kAmlcLargest) {
        DWORD index = lamlc::Rounded(size) / kAmlcStep;
        if (a->freeList[index] != nullptr) {
            int& busy = a->context->amlcBusy;
            busy = 1;
            AmlcChunk* c = lamlc::PopHead(a, index);
            c->word = size;
            busy = 0;
            return c;
        }
    }
    return AllocSlow(a, size);
}

int lamlcFree(void* arena, void* p) {
    Arena* a = static_cast<Arena*>(arena);
    if (a->phase == 0 && p != nullptr) {
        DWORD word = lamlc::WordOf(p);
        if (word - 1 < kAmlcLargest) {  // allocated, 1 to 1024 bytes
            int& busy = a->context->amlcBusy;
            busy = 1;
            DWORD r = lamlc::Rounded(word);
            lamlc::SetWord(p, r | kAmlcFreeBits);
            lamlc::Push(a, static_cast<AmlcChunk*>(p), r);
            busy = 0;
            return 1;
        }
    }
    return FreeSlow(a, p);
}

// Shrinks in place when the cut-off tail can stand as a chunk of its own (it
// goes back to the carve area when the chunk ends there); otherwise, and for
// anything at or above 1024 bytes, moves to a new chunk.
void* lamlcReSize(void* arena, void* p, DWORD size) {
    Arena* a = static_cast<Arena*>(arena);
    BusyScope busy(a->context->amlcBusy);
    lamlc::ClearStepState(a);
    if (p == nullptr || size == 0) return nullptr;
    DWORD word = lamlc::WordOf(p);
    if (lamlc::IsFree(word) || size > lamlc::SizeOf(word)) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    DWORD oldSize = lamlc::Rounded(lamlc::SizeOf(word));
    DWORD newSize = lamlc::Rounded(size);
    if (oldSize == newSize) {
        lamlc::SetWord(p, size);
        return p;
    }
    DWORD d = oldSize - newSize;
    if (oldSize < kAmlcLargest && d >= kAmlcFloor) {
        char* end = static_cast<char*>(p) + oldSize;
        AmlcBlock* b = a->curBlock;
        if (b != nullptr && end == a->carve && end > b->first) {
            DWORD area = static_cast<DWORD>(b->last + 1 - a->carve);
            a->carve -= d;
            lamlc::SetWord(a->carve, (area + d) | kAmlcFreeBits);
        } else {
            PushRest(a, static_cast<char*>(p) + newSize, d);
        }
        lamlc::SetWord(p, size);
        return p;
    }
    void* moved = lamlc::Alloc(a, newSize);
    std::memcpy(moved, p, newSize);
    if (lamlc::Free(a, p) == 0) {
        LDE_PASS();
        return nullptr;
    }
    lamlc::SetWord(moved, size);
    return moved;
}
