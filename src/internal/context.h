// The per-thread context record and the process-wide state beside it.
//
// The record lives in static thread-local storage, zero-filled before any
// code of the library runs on the thread. The first use on a thread that was
// not attached by the load entry tells the platform, which then runs the
// entry's thread attach.
#pragma once

#include <orvanest/ORVANEST.h>

// One entry of the error-position ring.
struct tagLDE_ErrPos {
    DWORD mark;
    tagLDE_ErrPos* next;
};

constexpr int kErrPosRingSize = 128;
constexpr int kErrCodeCount = 16;

struct tagLDE_ThreadContext {
    void* virtualAllocTree;
    void* mmfList;
    void* aearList;
    void* memfileList;
    void* spareTree;
    tagLDE_ErrPos* errPosFirst;
    DWORD spare1;
    tagLDE_ErrPos* errPosLast;
    DWORD spare2;
    DWORD* errCodeBase;
    DWORD errCodeIndex;
    int setErrClosed;
    tagLDE_ErrPos errPosRing[kErrPosRingSize];
    DWORD errCodes[kErrCodeCount];
    LDE_DETACHHOOK threadDetachFunc;
    int processAttached;
    int threadAttached;
    LONG stopMsgCount;
    DWORD lastMarkError;
    HWND ofnDialog;
    HWND ofnFileList;
    HWND ofnDirList;
    HWND ofnDirName;
    WNDPROC ofnFileListProc;
    WNDPROC ofnDirNameProc;
    int ofnPending;
    int ofnRefilling;
    char* ofnNames;
    char* ofnNamesCursor;
    LONG ofnNamesCount;
    int ofnHideReadOnly;
    void* amlcList;
    int amlcBusy;
    int amlcRefreshBusy;
    double safeValue;
};

namespace lde {

extern thread_local tagLDE_ThreadContext t_context;
extern thread_local bool t_contextUsed;
void FirstUseOnThread();

// The calling thread's context. On a thread that the load entry has not yet
// seen, the first call runs the thread attach.
inline tagLDE_ThreadContext* Context() {
    if (!t_contextUsed) FirstUseOnThread();
    return &t_context;
}

// The module's handle from the platform's loader.
extern HMODULE g_module;

// Process-wide state.
extern LDE_DETACHHOOK g_processDetachFunc;
extern CRITICAL_SECTION g_libraryLock;
extern void* g_sourceList;
extern int g_sourceListCreated;

// The six accounting counters.
extern DWORD g_globalAlloc;
extern DWORD g_globalAllocMax;
extern DWORD g_virtualReserved;
extern DWORD g_virtualReservedMax;
extern DWORD g_virtualCommit;
extern DWORD g_virtualCommitMax;

}  // namespace lde
