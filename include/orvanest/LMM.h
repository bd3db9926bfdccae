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
