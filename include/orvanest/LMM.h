// Memory: blocks taken straight from the global heap, and the thread's list
// of arenas.
#pragma once

#include <orvanest/platform/win32.h>

// Unlocks and frees a block taken from GlobalAlloc and GlobalLock; 1. Raises
// L_CMemoryException when the free fails. Needs no set-up.
ORVANEST_EXPORT int lmemGlobalFree(void* h);

// Makes the thread's list of arenas; 1.
ORVANEST_EXPORT int lamlcMainCreate(void);
// Destroys every arena of the thread, then the list; 1, or 0 when the thread
// has no list.
ORVANEST_EXPORT int lamlcMainDestroy(void);

// ---- size-class buffers and stack -------------------------------------------------------

// One size class of a pool: slots of slotSize bytes, slotNum of them.
struct tagLMM_MembufsBlock {
    DWORD slotSize;
    DWORD slotNum;
};

// A pool with the classes of blocks (in rising order of slotSize). Null with
// LERR_INVALIDARG for null blocks, num 0 or a class with a size or count of
// 0. Raises L_CMemoryException when memory runs out.
ORVANEST_EXPORT void* lmembufsCreate(struct tagLMM_MembufsBlock* blocks, DWORD num);
// Frees the slots, every overflow block and the pool; 1, or 0 when a step
// failed. Null pool: last error 6, mark, 0.
ORVANEST_EXPORT int lmembufsDestroy(void* pool);
// A slot of the first class large enough, or, when that class is full or no
// class fits, an overflow block (a free one of the size or the next larger,
// else the largest smaller one grown, else a new one). Null pool: last error
// 6; size 0: LERR_INVALIDARG; both mark and give null.
ORVANEST_EXPORT void* lmembufsAlloc(void* pool, DWORD size);
// Frees a slot (any pointer inside it) or puts an overflow block among the
// free ones; 1. 0 for a pointer of neither kind.
ORVANEST_EXPORT int lmembufsFree(void* pool, void* p);
// Returns the free overflow blocks to the base allocator; 1, or 0 when a step
// failed.
ORVANEST_EXPORT int lmembufsCompact(void* pool);
// Does nothing; 1.
ORVANEST_EXPORT int lmembufsDispInfo(void* pool);

// A stack on a pool of the classes of blocks, whose slot sizes are payload
// sizes: the item header is added to each (the array is changed).
ORVANEST_EXPORT void* lstackCreate(struct tagLMM_MembufsBlock* blocks, DWORD num);
// Pushes a copy of size bytes; 1. size 0: LERR_BADSIZE, mark, 0.
ORVANEST_EXPORT int lstackPush(void* stack, void* data, DWORD size);
// Pops the top item into buffer and gives its size. Empty: LERR_NODATA, mark,
// 0. A buffer too small: LERR_BUFTOOSMALL, mark, 0xFFFFFFFF, the item stays.
ORVANEST_EXPORT DWORD lstackPop(void* stack, void* buffer, DWORD bufferSize);
// Frees the stack with its pool and items; 1. Null: LERR_BADHANDLE, mark, 0.
ORVANEST_EXPORT int lstackDestroy(void* stack);
