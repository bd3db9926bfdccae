// Blocks taken straight from the global heap (list and tree records,
// sentinels, registry nodes). They bypass the accounting of the base
// allocator and need no set-up, so they work before any thread attach.
#include "internal/sources.h"

#include <orvanest/LMM.h>

#define LDE_THIS_SOURCE lde::g_srcLMEM

int lmemGlobalFree(void* h) {
    GlobalUnlock(h);
    if (GlobalFree(h) != nullptr) LDE_THROW_MEMORY();
    return 1;
}
