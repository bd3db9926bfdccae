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

// ---- arenas -------------------------------------------------------------------
// An arena hands out chunks carved from large blocks of the base allocator.
// The first four bytes of a chunk are its chunk word (the size asked for,
// counted within the request): the caller owns the bytes from the fifth on
// and must not change the first four. Freed chunks wait on exact-size lists;
// merging, sorting and returning empty blocks happen only in lamlcRefresh and
// lamlcCompact. An arena belongs to the thread that made it; the thread's
// detach destroys the arenas it still has.

// Byte counts of one arena, filled by lamlcWatch.
struct tagLMM_AmlcWatch {
    DWORD blockBytes;  // data sizes of all blocks
    DWORD usedBytes;   // sizes asked for, of allocated chunks in blocks
    DWORD freeBytes;   // rounded sizes of free chunks, the carve area included
    DWORD slackBytes;  // rounded size less size asked for, of allocated chunks
    DWORD bigCount;    // allocations above 1024 bytes, kept outside blocks
};

// A new arena whose first block holds firstSize bytes and whose blocks are
// multiples of unitSize (both rounded up); the third argument is ignored.
// firstSize or unitSize 0: LERR_INVALIDARG, mark, null. Raises
// L_CMemoryException when memory runs out.
ORVANEST_EXPORT void* lamlcCreate(DWORD firstSize, DWORD unitSize, DWORD);
// Releases the arena with all its blocks, chunks and big allocations; 1.
// Null arena: 0 with no mark.
ORVANEST_EXPORT int lamlcDestroy(void* arena);
// A chunk for size bytes (below 0x10000000), its word holding size; size 0:
// null with no mark. Raises L_CMemoryException when memory runs out.
ORVANEST_EXPORT void* lamlcAlloc(void* arena, DWORD size);
// Puts the chunk on its free list (or releases a big allocation); 1. Null p:
// 0 with no mark; a chunk already free: LERR_INVALIDARG, mark, 0.
ORVANEST_EXPORT int lamlcFree(void* arena, void* p);
// Shrinks the chunk to size, in place or by moving it; the result is the
// chunk, with its first size bytes kept. Null p or size 0: null with no mark.
// A free chunk, or size above the size in its word: LERR_INVALIDARG, mark,
// null. Raises L_CMemoryException when a move finds no memory.
ORVANEST_EXPORT void* lamlcReSize(void* arena, void* p, DWORD size);
// Merges, releases empty blocks and sorts the free lists of one arena to the
// end; 1.
ORVANEST_EXPORT int lamlcCompact(void* arena);
// Up to 100 small steps of that work for every arena of the thread: 1 when
// work may remain, 0 when there is none.
ORVANEST_EXPORT int lamlcRefresh(void);
// 1 when every arena of the thread is sound; 0 with no mark and the last
// error unchanged when one is damaged.
ORVANEST_EXPORT int lamlcCheck(void);
// Fills watch with the arena's byte counts; 1.
ORVANEST_EXPORT int lamlcWatch(void* arena, struct tagLMM_AmlcWatch* watch);

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

// ---- memory files ---------------------------------------------------------------------
// A growing block with the behaviour of a file: a position, sequential reads
// and writes, seek, and a size that grows only by writing or by setting it.
// The block grows by whole steps of growStep, never shrinks, and moves at
// every growth. Two ways into the block exclude each other: a lock hands out
// the block itself, a reservation hands out room behind the data. While a
// lock stands, reading, writing, growing, setting the size and reserving are
// refused with LERR_LOCKED; while a reservation stands, the same and locking
// are refused with LERR_RESERVED. A file belongs to the thread that created
// it. Exhausted memory raises L_CMemoryException and leaves the file as it
// was. Null file: last error 6, mark, and the failure value (not tested by
// lmemfileGrowBuf).

// A new empty file with a block of firstSize bytes. Either argument 0: last
// error LERR_INVALIDARG, mark, null.
ORVANEST_EXPORT void* lmemfileCreate(DWORD firstSize, DWORD growStep);
// Frees the block and the record whatever the state; 1.
ORVANEST_EXPORT int lmemfileDestroy(void* file);
// Copies up to length bytes from the position into data and moves on; gives
// the number copied, 0 at the end of the data. Failure -1; null data:
// LERR_INVALIDARG, mark.
ORVANEST_EXPORT int lmemfileRead(void* file, void* data, DWORD length);
// Copies length bytes to the position, growing the block as needed, moves
// on and raises the size to the position if it passed it; 1. Failure 0; null
// data: LERR_INVALIDARG, mark.
ORVANEST_EXPORT int lmemfileWrite(void* file, void* data, DWORD length);
// Sets the position from the start (origin 0), the position (1) or the size
// (2); gives the new position. The target must lie from 0 to the size, both
// included. Another origin or a target outside: LERR_INVALIDARG, mark, -1,
// the position unchanged. Works in every state.
ORVANEST_EXPORT int lmemfileSeek(void* file, int offset, DWORD origin);
// Counts a lock up and gives the block, good until the matching unlock;
// locks nest. Under a reservation: LERR_RESERVED, mark, null.
ORVANEST_EXPORT void* lmemfileLock(void* file);
// Counts a lock down; 1. No lock: LERR_NOTLOCKED, mark, 0.
ORVANEST_EXPORT int lmemfileUnlock(void* file);
// The size and the position, in every state; null file: 0xFFFFFFFF.
ORVANEST_EXPORT DWORD lmemfileGetSize(void* file);
ORVANEST_EXPORT DWORD lmemfileGetCurrentPos(void* file);
// Makes the capacity at least needed: the old capacity plus the fewest whole
// steps that reach it; size and position stay. 1; refused: 0. file must be a
// valid handle.
ORVANEST_EXPORT int lmemfileGrowBuf(void* file, DWORD needed);
// Sets the size and puts the position at it, growing the block when needed;
// bytes inside the capacity are neither cleared nor written. 1; failure 0.
ORVANEST_EXPORT int lmemfileSetSize(void* file, DWORD newSize);
// Makes room for length bytes behind the data and gives its address (the
// block plus the size, wherever the position is); the file is reserved until
// lmemfileReleaseBuf. A second reservation is refused. Failure null.
ORVANEST_EXPORT void* lmemfileReserveBuf(void* file, DWORD length);
// Ends the reservation and claims used bytes of it as data, putting the
// position at the new end; 1. No reservation: LERR_NOTRESERVED, mark, 0.
// used above the reserved length: 0 with no mark and the last error
// untouched, and the reservation stands.
ORVANEST_EXPORT int lmemfileReleaseBuf(void* file, DWORD used);
