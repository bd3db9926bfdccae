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
