// The module's own source: the load entry, process and thread attach and
// detach with their hooks, the thread context and the process-wide state.
#include <clocale>
#include <cstring>
#include <new>

#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcORVANEST

namespace lde {

thread_local tagLDE_ThreadContext t_context;
thread_local bool t_contextUsed = false;

// Set once this thread's containers are gone. The fields keep their old
// values after a detach, so a second detach would free them again; the load
// entry looks here so that a thread the host detached itself is not detached
// once more when it ends or the module unloads.
thread_local bool t_threadDetached = false;

HMODULE g_module = nullptr;

LDE_DETACHHOOK g_processDetachFunc = nullptr;
CRITICAL_SECTION g_libraryLock;
void* g_sourceList = nullptr;
int g_sourceListCreated = 0;

DWORD g_globalAlloc = 0;
DWORD g_globalAllocMax = 0;
DWORD g_virtualReserved = 0;
DWORD g_virtualReservedMax = 0;
DWORD g_virtualCommit = 0;
DWORD g_virtualCommitMax = 0;

// A thread that the load entry has not seen yet: the platform runs the
// entry's thread attach for it now, once.
void FirstUseOnThread() {
    t_contextUsed = true;
    if (g_module != nullptr) OrvaModuleThreadUse(g_module);
}

namespace {
AFX_EXTENSION_MODULE g_extensionModule = {FALSE, nullptr, nullptr, nullptr};

// Sets up a thread's error ring: both cursors on the first entry, everything
// zero, each entry linked to the one behind it and the last to the first.
void ResetErrorRing(tagLDE_ThreadContext* ctx) {
    ctx->errPosFirst = &ctx->errPosRing[0];
    ctx->errPosLast = &ctx->errPosRing[0];
    ctx->errCodeBase = ctx->errCodes;
    ctx->spare1 = 0;
    ctx->spare2 = 0;
    ctx->errCodeIndex = 0;
    ctx->setErrClosed = 0;
    std::memset(ctx->errPosRing, 0, sizeof ctx->errPosRing);
    std::memset(ctx->errCodes, 0, sizeof ctx->errCodes);
    for (int i = 0; i < kErrPosRingSize; ++i) {
        ctx->errPosRing[i].next = &ctx->errPosRing[(i + 1) % kErrPosRingSize];
    }
}
}  // namespace

}  // namespace lde

using namespace lde;

// The load entry. It never refuses: whatever attach reports, the result is 1,
// and nothing raised inside may escape into the loader.
BOOL DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID) {
    std::setlocale(LC_ALL, "Japanese");
    try {
        switch (fdwReason) {
        case DLL_PROCESS_ATTACH:
            g_module = hinstDLL;
            AfxInitExtensionModule(g_extensionModule, hinstDLL);
            (void)new (std::nothrow) CDynLinkLibrary(g_extensionModule);
            l_orvanestProcessAttach(nullptr);
            break;
        case DLL_PROCESS_DETACH:
            if (!t_threadDetached) l_orvanestProcessDetach();
            break;
        case DLL_THREAD_ATTACH:
            l_orvanestThreadAttach(nullptr);
            break;
        case DLL_THREAD_DETACH:
            if (!t_threadDetached) l_orvanestThreadDetach();
            break;
        default:
            break;
        }
    } catch (CException*) {
        // Out of memory during attach: the thread stays unattached.
    }
    return TRUE;
}

int l_orvanestProcessAttach(LDE_DETACHHOOK hook) {
    g_processDetachFunc = hook;
    tagLDE_ThreadContext* ctx = Context();
    if (ctx->processAttached != 0) return 1;
    g_globalAlloc = 0;
    g_globalAllocMax = 0;
    g_virtualReserved = 0;
    g_virtualReservedMax = 0;
    g_virtualCommit = 0;
    g_virtualCommitMax = 0;
    if (l_orvanestThreadAttach(nullptr) == 0) return 0;
    ctx->processAttached = 1;
    return 1;
}

int l_orvanestProcessDetach(void) {
    tagLDE_ThreadContext* ctx = Context();
    if (ctx->processAttached == 0) return 1;
    if (g_processDetachFunc != nullptr && g_processDetachFunc() == 0) return 0;
    return l_orvanestThreadDetach() != 0 ? 1 : 0;
}

int l_orvanestThreadAttach(LDE_DETACHHOOK hook) {
    tagLDE_ThreadContext* ctx = Context();
    ctx->threadDetachFunc = hook;
    if (ctx->threadAttached != 0) return 1;

    if ((ctx->virtualAllocTree = lavlCreate(0, nullptr)) == nullptr) return 0;
    if ((ctx->mmfList = ldlistCreate(0)) == nullptr) return 0;
    if ((ctx->aearList = ldlistCreate(0)) == nullptr) return 0;
    if ((ctx->memfileList = ldlistCreate(0)) == nullptr) return 0;
    if ((ctx->spareTree = lavlCreate(0, nullptr)) == nullptr) return 0;
    if (lamlcMainCreate() == 0) return 0;

    ResetErrorRing(ctx);
    ctx->threadAttached = 1;
    return 1;
}

int l_orvanestThreadDetach(void) {
    tagLDE_ThreadContext* ctx = Context();
    if (ctx->threadAttached == 0) return 1;
    if (ctx->threadDetachFunc != nullptr && ctx->threadDetachFunc() == 0) return 0;
    lamlcMainDestroy();
    lavlDestroy(ctx->spareTree);
    lavlDestroy(ctx->virtualAllocTree);
    ldlistDestroy(ctx->mmfList);
    ldlistDestroy(ctx->aearList);
    ldlistDestroy(ctx->memfileList);
    t_threadDetached = true;
    return 1;
}

void l_orvanestSetProcDetachFuncName(LDE_DETACHHOOK hook) { g_processDetachFunc = hook; }

void l_orvanestSetThreadDetachFuncName(LDE_DETACHHOOK hook) { Context()->threadDetachFunc = hook; }
