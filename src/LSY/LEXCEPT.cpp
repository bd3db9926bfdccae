// The structured-exception services for hosts: the filter that commits a page
// of a virtual block at the fault and lets the faulting instruction run again,
// so that a block can be used without committing it first; and the display of
// an exception, which shows nothing.
//
// The filter runs inside the platform's signal handler. It looks only at the
// calling thread's blocks, so a fault on another thread's block is not
// repaired. A commit that fails raises L_CMemoryException from inside
// lmemVirtualCommit; the exception leaves through the faulting code.
#include <orvanest/LMM.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLEXCEPT

int lexceptFilter(struct _EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD* record = info->ExceptionRecord;
    if (record->ExceptionCode != EXCEPTION_ACCESS_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
    // The second word is the address; the first (read or write) does not
    // matter: either way the page is missing.
    void* address = reinterpret_cast<void*>(record->ExceptionInformation[1]);
    if (lmemGetVirtualAllocNode(address) == nullptr) {
        LDE_MARK();
        return EXCEPTION_CONTINUE_SEARCH;
    }
    if (lmemVirtualCommit(address, 1) != nullptr) return EXCEPTION_CONTINUE_EXECUTION;
    return EXCEPTION_EXECUTE_HANDLER;
}

void lexceptDispInfo(struct _EXCEPTION_POINTERS*) {}
