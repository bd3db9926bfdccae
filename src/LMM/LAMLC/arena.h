// What the files of the arena allocator share: the records of an arena, its
// blocks and chunks, the rounded size, and the free-list operations that the
// hot paths inline.
//
// A chunk starts with its 32-bit chunk word. An allocated chunk's word is the
// size asked for (bits 27..0, the top bits clear); a free chunk's word is its
// real size ORed with 0xF0000000. A free chunk large enough to hold them
// carries the two links of its exact-size free list behind the word. Chunk
// sizes step by 8, and the smallest chunk is the smallest multiple of 8 that
// holds the word and both links: 24 bytes with 64-bit pointers, 16 with
// 32-bit ones. Free chunks below that floor cannot be linked and arise only
// at the very end of a block.
#pragma once

#include <cstddef>

#include "internal/context.h"

struct AmlcChunk {
    DWORD word;
    AmlcChunk* prev;  // free chunks only: links of the free list
    AmlcChunk* next;
};

// A block: the link in the arena's blockList, then the bounds of its data,
// which follows the header at once.
struct AmlcBlock {
    void* link[2];
    char* first;
    char* last;
};

constexpr DWORD kAmlcStep = 8;
constexpr DWORD kAmlcLargest = 1024;                   // the largest chunk a block serves
constexpr DWORD kAmlcLists = kAmlcLargest / kAmlcStep; // 128: entry i holds chunks of 8 * i bytes
constexpr DWORD kAmlcFloor =
    (static_cast<DWORD>(offsetof(AmlcChunk, next) + sizeof(AmlcChunk*)) + kAmlcStep - 1) / kAmlcStep * kAmlcStep;
constexpr DWORD kAmlcFreeBits = 0xF0000000u;
constexpr DWORD kAmlcFreeBit = 0x80000000u;
constexpr DWORD kAmlcSizeMask = 0x0FFFFFFFu;
// A big allocation is a list link (two words) and then the chunk.
constexpr DWORD kAmlcBigHeader = static_cast<DWORD>(2 * sizeof(void*));

static_assert(kAmlcFloor % kAmlcStep == 0 && kAmlcFloor <= 64, "the floor must fit the free lists");

struct tagLMM_AmlcArena {
    void* link[2];  // in the thread's amlcList
    AmlcChunk* freeList[kAmlcLists + 1];
    DWORD blockUnit;
    void* blockList;
    AmlcBlock* curBlock;
    char* carve;
    void* bigList;
    // The step state: all zero whenever `phase` is 0.
    int phase;
    AmlcBlock* walkBlock;
    char* walkChunk;
    AmlcChunk* walkFree;
    int walkAllFree;
    int sortIndex;
    AmlcChunk* sortNode;
    AmlcChunk* sortNext;
    // The creating thread's context. An arena serves that thread only, so
    // its calls find their busy flag here without a thread-local look-up.
    tagLDE_ThreadContext* context;
};

namespace lamlc {

typedef tagLMM_AmlcArena Arena;

// The room a chunk of `size` occupies: a multiple of 8, at least the floor.
inline DWORD Rounded(DWORD size) {
    DWORD r = (size + kAmlcStep - 1) & ~(kAmlcStep - 1);
    return r < kAmlcFloor ? kAmlcFloor : r;
}

inline bool IsFree(DWORD word) { return (word & kAmlcFreeBit) != 0; }
inline DWORD SizeOf(DWORD word) { return word & kAmlcSizeMask; }
inline DWORD WordOf(const void* chunk) { return *static_cast<const DWORD*>(chunk); }
inline void SetWord(void* chunk, DWORD word) { *static_cast<DWORD*>(chunk) = word; }

inline void Push(Arena* a, AmlcChunk* c, DWORD size) {
    AmlcChunk** head = &a->freeList[size / kAmlcStep];
    c->prev = nullptr;
    c->next = *head;
    if (*head != nullptr) (*head)->prev = c;
    *head = c;
}

inline AmlcChunk* PopHead(Arena* a, DWORD index) {
    AmlcChunk* c = a->freeList[index];
    a->freeList[index] = c->next;
    if (c->next != nullptr) c->next->prev = nullptr;
    return c;
}

inline void Unlink(Arena* a, AmlcChunk* c, DWORD size) {
    if (c->prev != nullptr) {
        c->prev->next = c->next;
    } else {
        a->freeList[size / kAmlcStep] = c->next;
    }
    if (c->next != nullptr) c->next->prev = c->prev;
}

// Allocation, release and resizing change the chunks, so a walk that was
// under way cannot resume: the machine starts over.
inline void ClearStepState(Arena* a) {
    if (a->phase == 0) return;
    a->phase = 0;
    a->walkBlock = nullptr;
    a->walkChunk = nullptr;
    a->walkFree = nullptr;
    a->walkAllFree = 0;
    a->sortIndex = 0;
    a->sortNode = nullptr;
    a->sortNext = nullptr;
}

// Holds one of the context's busy flags at 1 while an arena call runs, and
// drops it however the call ends.
class BusyScope {
public:
    explicit BusyScope(int& flag) : m_flag(flag) { m_flag = 1; }
    ~BusyScope() { m_flag = 0; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    int& m_flag;
};

// A new block of at least `size` data bytes becomes curBlock, all of it
// carve area. Raises L_CMemoryException when memory runs out.
void NewBlock(Arena* a, DWORD size);
// The allocation and release behind lamlcAlloc and lamlcFree, without the
// busy flag and the step state, for the arena's own callers.
void* Alloc(Arena* a, DWORD size);
int Free(Arena* a, void* p);
// One step of the arena's machine: 1 when it did work, 0 when none is left.
int Step(Arena* a);

}  // namespace lamlc
