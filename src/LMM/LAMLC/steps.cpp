// The step machine that tidies an arena when its host has time.
//
// Phase 1 walks each block's chunks in address order, merging runs of free
// neighbours into chunks of up to 1024 bytes and handing blocks that hold no
// allocated chunk back to the base allocator. Phase 2 sorts each free list
// by address, one comparison a step, so that allocation afterwards takes the
// lowest addresses first. Every step does a bounded piece of work and keeps
// its place in the arena's step state; any change to the arena's chunks
// clears that state and the machine starts over.
#include "LMM/LAMLC/arena.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

using lamlc::Arena;
using lamlc::BusyScope;

namespace {

constexpr int kPhaseIdle = 0;
constexpr int kPhaseMerge = 1;
constexpr int kPhaseSort = 2;
constexpr int kPhaseDone = 4;
constexpr int kRefreshPasses = 100;

// Takes a free chunk off its list, when it is large enough to be on one.
inline void UnlinkIfListed(Arena* a, char* chunk, DWORD size) {
    if (size >= kAmlcFloor) lamlc::Unlink(a, reinterpret_cast<AmlcChunk*>(chunk), size);
}

// Gives a block whose chunks are all free back to the base allocator. The
// walk resumes behind the block before it, and is set up for that before the
// block goes, so the arena is sound even if the release raises.
void ReleaseBlock(Arena* a, AmlcBlock* b) {
    auto* before = static_cast<AmlcBlock*>(ldlistGetNextNode(a->blockList, b, 0));
    for (char* c = b->first; c <= b->last;) {
        DWORD size = lamlc::SizeOf(lamlc::WordOf(c));
        if (size == 0) break;  // damage; a sound block has none
        UnlinkIfListed(a, c, size);
        c += size;
    }
    ldlistDel(a->blockList, b);
    a->walkBlock = before;
    a->walkChunk = nullptr;
    lmemFree(b);
}

// One merge step; true when the phase has ended.
bool MergeStep(Arena* a) {
    if (a->walkChunk == nullptr) {
        void* next = a->walkBlock == nullptr ? ldlistGetFirstNode(a->blockList, 0)
                                             : ldlistGetNextNode(a->blockList, a->walkBlock, 1);
        if (next == nullptr) {
            a->walkBlock = nullptr;
            a->walkFree = nullptr;
            a->walkAllFree = 0;
            return true;
        }
        a->walkBlock = static_cast<AmlcBlock*>(next);
        a->walkChunk = a->walkBlock->first;
        a->walkFree = nullptr;
        a->walkAllFree = 1;
        return false;
    }
    AmlcBlock* b = a->walkBlock;
    if (a->walkChunk > b->last || (b == a->curBlock && a->walkChunk >= a->carve)) {
        if (a->walkAllFree == 1 && b != a->curBlock) {
            ReleaseBlock(a, b);
        } else {
            a->walkChunk = nullptr;
        }
        return false;
    }
    char* c = a->walkChunk;
    DWORD word = lamlc::WordOf(c);
    DWORD size = lamlc::SizeOf(word);
    if (!lamlc::IsFree(word)) {
        a->walkAllFree = 0;
        a->walkFree = nullptr;
    } else if (a->walkFree != nullptr && lamlc::SizeOf(a->walkFree->word) + size <= kAmlcLargest) {
        DWORD before = lamlc::SizeOf(a->walkFree->word);
        UnlinkIfListed(a, reinterpret_cast<char*>(a->walkFree), before);
        UnlinkIfListed(a, c, size);
        a->walkFree->word = (before + size) | kAmlcFreeBits;
        lamlc::Push(a, a->walkFree, before + size);
    } else {
        a->walkFree = reinterpret_cast<AmlcChunk*>(c);
    }
    a->walkChunk = c + lamlc::Rounded(size);
    return false;
}

// Exchanges the places of two chunks of one list, x before y.
void SwapPlaces(AmlcChunk** head, AmlcChunk* x, AmlcChunk* y) {
    AmlcChunk* xPrev = x->prev;
    AmlcChunk* yNext = y->next;
    if (x->next == y) {
        y->prev = xPrev;
        y->next = x;
        x->prev = y;
        x->next = yNext;
    } else {
        AmlcChunk* xNext = x->next;
        AmlcChunk* yPrev = y->prev;
        y->prev = xPrev;
        y->next = xNext;
        xNext->prev = y;
        x->prev = yPrev;
        x->next = yNext;
        yPrev->next = x;
    }
    if (xPrev != nullptr) {
        xPrev->next = y;
    } else {
        *head = y;
    }
    if (yNext != nullptr) yNext->prev = x;
}

// One sort step; true when the phase has ended. sortNode holds a place in
// the list and gathers the lowest address behind it; sortNext runs ahead.
bool SortStep(Arena* a) {
    if (a->sortNode == nullptr) {
        int i = a->sortIndex;
        while (i < static_cast<int>(kAmlcLists) && a->freeList[i] == nullptr) ++i;
        if (i >= static_cast<int>(kAmlcLists)) {
            a->sortIndex = 0;
            a->sortNext = nullptr;
            return true;
        }
        a->sortIndex = i;
        a->sortNode = a->freeList[i];
        a->sortNext = a->sortNode->next;
        return false;
    }
    if (a->sortNext == nullptr) {
        if (a->sortNode->next != nullptr) {
            a->sortNode = a->sortNode->next;
            a->sortNext = a->sortNode->next;
        } else {
            ++a->sortIndex;
            a->sortNode = nullptr;
        }
        return false;
    }
    if (reinterpret_cast<uintptr_t>(a->sortNode) > reinterpret_cast<uintptr_t>(a->sortNext)) {
        AmlcChunk* later = a->sortNode;
        SwapPlaces(&a->freeList[a->sortIndex], a->sortNode, a->sortNext);
        a->sortNode = a->sortNext;
        a->sortNext = later;
    }
    a->sortNext = a->sortNext->next;
    return false;
}

}  // namespace

int lamlc::Step(Arena* a) {
    switch (a->phase) {
    case kPhaseIdle:
        a->phase = kPhaseMerge;
        return 1;
    case kPhaseMerge:
        if (MergeStep(a)) a->phase = kPhaseSort;
        return 1;
    case kPhaseSort:
        if (SortStep(a)) a->phase = kPhaseDone;
        return 1;
    default:
        return 0;
    }
}

// Gives every arena of the thread one step a pass, for up to 100 passes.
int lamlcRefresh(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    BusyScope busy(ctx->amlcRefreshBusy);
    if (ctx->amlcList == nullptr || ldlistGetEntryNum(ctx->amlcList) == 0) return 0;
    for (int pass = 0; pass < kRefreshPasses; ++pass) {
        int worked = 0;
        for (void* arena = ldlistGetFirstNode(ctx->amlcList, 0); arena != nullptr;
             arena = ldlistGetNextNode(ctx->amlcList, arena, 1)) {
            if (lamlc::Step(static_cast<Arena*>(arena)) != 0) worked = 1;
        }
        if (worked == 0) return 0;
    }
    return 1;
}

int lamlcCompact(void* arena) {
    Arena* a = static_cast<Arena*>(arena);
    BusyScope busy(a->context->amlcRefreshBusy);
    lamlc::ClearStepState(a);
    while (lamlc::Step(a) != 0) {
    }
    return 1;
}
