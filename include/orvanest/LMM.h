// Memory: the base allocator with its accounting, blocks taken straight from
// the global heap, and the thread's list of arenas.
#pragma once

#include <orvanest/platform/win32.h>

// ---- base allocator -----------------------------------------------------------------
// Two kinds of block, both released by lmemFree: global blocks (fixed,
// zero-filled blocks of the global heap; every ordinary allocation) and
// virtual blocks (address space reserved at once and committed a page at a
// time, known only to the thread that made them). Six process-wide counters
// keep current and peak sizes for lmemDispAllocInfo; they take no lock, so
// updates of two threads at the same moment can be lost. Exhausted memory
// raises L_CMemoryException; nothing here returns null for it.

// The head of a virtual block, at the start of its region. The link belongs
// to the thread's tree of virtual blocks, which orders them by dataStart.
struct tagLMM_VirtualAllocNode {
    ULONG_PTR link[4];    // AVL link words: parent, right, left, balance
    void* dataStart;      // the caller's address: the byte behind this record
    void* dataLast;       // the last usable byte, dataStart + dataSize - 1
    DWORD dataSize;       // reservedSize less this record
    DWORD reservedSize;   // the whole region, a whole number of pages
    DWORD committedSize;  // counted as committed: one page, plus one per commit
};

// A zero-filled global block of at least size bytes (a block of 0 bytes is a
// live block whose size reads 0, so lmemFree leaves it be). `mark` is the
// caller's position and is not used. Raises L_CMemoryException when the heap
// refuses.
ORVANEST_EXPORT void* lmemAllocFunc(DWORD size, DWORD mark);
// Frees a global or a virtual block of this thread; 1, or for a virtual block
// what lmemVirtualFree gives. A pointer that is neither (interior, freed, on
// the stack, another thread's virtual block) gives 1 with nothing freed. Null:
// LERR_INVALIDARG, mark, 0. Raises L_CMemoryException when the heap cannot
// free a live block.
ORVANEST_EXPORT int lmemFree(void* p);
// A new global block of size bytes holding the old contents (as many as fit),
// then p freed by lmemFree; never in place. Raises L_CMemoryException when the
// new block cannot be had or lmemFree refuses p (null included); the new block
// is released first.
ORVANEST_EXPORT void* lmemReAlloc(void* p, DWORD size);
// Reserves a virtual block of at least size usable bytes and commits its first
// page; gives dataStart. Raises L_CMemoryException when the reservation or
// that commit fails, also for a size whose region would not fit in 32 bits.
// Null (passing the tree's mark on) when the thread's tree refuses the block.
ORVANEST_EXPORT void* lmemVirtualAllocFunc(DWORD size, DWORD mark);
// Releases the virtual block whose dataStart is p; non-zero on success. Null:
// LERR_INVALIDARG, mark, 0. Not a dataStart of this thread's blocks: mark
// with the last error left as it was, 0.
ORVANEST_EXPORT int lmemVirtualFree(void* p);
// Commits the pages of [p, p + size) in the virtual block that holds p; gives
// p. The block's committedSize and the commit counter grow by one page per
// call, whatever the size. Null, with no mark, when p is in no virtual block of
// this thread. Raises L_CMemoryException when the commit fails.
ORVANEST_EXPORT void* lmemVirtualCommit(void* p, DWORD size);
// The node of this thread's virtual block whose data (dataStart to dataLast)
// holds p, or null; never marks.
ORVANEST_EXPORT struct tagLMM_VirtualAllocNode* lmemGetVirtualAllocNode(void* p);
// Whether an allocation of this size would be a virtual block: 0 for every
// size, so lmemAllocFunc always gives global blocks.
ORVANEST_EXPORT int lmemIsVirtualAllocSize(DWORD size);
// Shows the six counters in one system-modal message box.
ORVANEST_EXPORT void lmemDispAllocInfo(void);

// ---- blocks straight from the global heap -------------------------------------------

// Unlocks and frees a block taken from GlobalAlloc and GlobalLock; 1. Raises
// L_CMemoryException when the free fails. Needs no set-up.
ORVANEST_EXPORT int lmemGlobalFree(void* h);

// Makes the thread's list of arenas; 1.
ORVANEST_EXPORT int lamlcMainCreate(void);
// Destroys every arena of the thread, then the list; 1, or 0 when the thread
// has no list.
ORVANEST_EXPORT int lamlcMainDestroy(void);
