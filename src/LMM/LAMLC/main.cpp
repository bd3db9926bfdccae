// The thread's list of arenas, which thread attach makes and thread detach
// empties.
#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

int lamlcMainCreate(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    ctx->amlcList = nullptr;
    ctx->amlcList = ldlistCreate(0);
    return 1;
}

int lamlcMainDestroy(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    if (ctx->amlcList == nullptr) return 0;
    // The result of each destroy is not looked at: for an arena of the list
    // it gives 1 or raises, and either way the loop comes to an end.
    for (void* arena; (arena = ldlistGetFirstNode(ctx->amlcList, 0)) != nullptr;) {
        lamlcDestroy(arena);
    }
    ldlistDestroy(ctx->amlcList);
    ctx->amlcList = nullptr;
    return 1;
}
