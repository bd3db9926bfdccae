// The thread's list of arenas, which thread attach makes and thread detach
// empties.
#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

// Arenas themselves are not built yet, so no arena can ever be in the list;
// should one be, this stops the process rather than leak it silently.
int lamlcDestroyNotYetAvailable(void* arena);

int lamlcMainCreate(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    ctx->amlcList = nullptr;
    ctx->amlcList = ldlistCreate(0);
    return 1;
}

int lamlcMainDestroy(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    if (ctx->amlcList == nullptr) return 0;
    for (void* arena; (arena = ldlistGetFirstNode(ctx->amlcList, 0)) != nullptr;) {
        lamlcDestroyNotYetAvailable(arena);
    }
    ldlistDestroy(ctx->amlcList);
    ctx->amlcList = nullptr;
    return 1;
}
