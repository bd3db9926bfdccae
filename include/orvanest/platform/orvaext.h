// Extensions that exist only on this platform: the load-entry emulation for a
// shared object, fault injection for tests, and the replaceable message-box
// handler. Everything here carries the Orva prefix.
#pragma once

#include "win32.h"

// ---- load entry ---------------------------------------------------------------
// A module's load entry, called with the reasons DLL_PROCESS_ATTACH and so on.
typedef BOOL (*ORVA_DLLENTRY)(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);

// Registers a module and runs its entry with DLL_PROCESS_ATTACH on this thread,
// which counts as attached and is not sent DLL_THREAD_ATTACH. A module calls it
// once, after its static objects are built. Gives the module's handle.
ORVANEST_EXPORT HMODULE OrvaModuleLoad(ORVA_DLLENTRY entry);
// Runs the entry with DLL_PROCESS_DETACH on this thread; the module gets no
// further calls from the platform.
ORVANEST_EXPORT void OrvaModuleUnload(HMODULE hModule);
// Tells the platform that this thread uses the module. At the first such call
// on a thread (other than the loading one) the entry runs with
// DLL_THREAD_ATTACH; when the thread ends it runs with DLL_THREAD_DETACH.
ORVANEST_EXPORT void OrvaModuleThreadUse(HMODULE hModule);

// ---- fault injection ------------------------------------------------------------
// Operations whose calls can be made to fail. The state is per thread.
enum OrvaFaultOp {
    ORVA_FAULT_GLOBALALLOC = 0,
    ORVA_FAULT_GLOBALLOCK,
    ORVA_FAULT_GLOBALFREE,
    ORVA_FAULT_VIRTUALALLOC,
    ORVA_FAULT_VIRTUALCOMMIT,
    ORVA_FAULT_OPEN,
    ORVA_FAULT_READ,
    ORVA_FAULT_WRITE,
    ORVA_FAULT_MOVE,
    ORVA_FAULT_DELETE,
    ORVA_FAULT_COPY,
    ORVA_FAULT_MAP,
    // orvacrt::_fpclass raises, for real, the floating-point trap that the code
    // names (EXCEPTION_FLT_INVALID_OPERATION, _DENORMAL_OPERAND, _DIVIDE_BY_ZERO,
    // _OVERFLOW, _UNDERFLOW or _INEXACT_RESULT of win32_seh.h) before it
    // classifies: that exception alone is unmasked for one operation.
    ORVA_FAULT_FPCLASS,
    ORVA_FAULT_OP_COUNT
};

// Makes the nth call (1 = the next one) of op fail with code as last error;
// with persistent TRUE every call from the nth on fails. Replaces an earlier
// arming of op; n = 0 disarms it.
ORVANEST_EXPORT void OrvaFaultArm(OrvaFaultOp op, DWORD n, DWORD code, BOOL persistent);
// Disarms every operation on this thread and sets the counts to 0.
ORVANEST_EXPORT void OrvaFaultReset(void);
// How many failures op has injected on this thread since it was armed.
ORVANEST_EXPORT DWORD OrvaFaultInjected(OrvaFaultOp op);

// How many global-heap blocks are live in the process: tests compare it
// before and after a run to see that nothing was left behind.
ORVANEST_EXPORT SIZE_T OrvaGlobalLiveBlocks(void);

// ---- message box handler --------------------------------------------------------
typedef int (*ORVA_MSGBOXHANDLER)(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType);
// Replaces the handler of MessageBoxA (null: the default); gives the old one.
ORVANEST_EXPORT ORVA_MSGBOXHANDLER OrvaSetMessageBoxHandler(ORVA_MSGBOXHANDLER handler);
