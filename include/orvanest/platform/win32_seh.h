// Structured exceptions: the exception record, the processor context and the
// filter values of Win32, and a frame API that stands in for __try/__except.
//
// A frame runs a body under a filter. When the body (or anything it calls on
// the same thread) faults, the platform's signal handlers describe the fault
// as an EXCEPTION_RECORD with a CONTEXT and ask the filters of the thread's
// frames, innermost first:
//
//   - a negative answer (EXCEPTION_CONTINUE_EXECUTION) resumes at the faulting
//     instruction, with the registers of the CONTEXT, which the filter may
//     have changed (a filter that masks a floating-point exception in MxCsr
//     lets the instruction run again with the default result);
//   - a positive answer (EXCEPTION_EXECUTE_HANDLER) abandons the body and the
//     inner frames and runs the frame's handler; OrvaSehTry then returns FALSE;
//   - 0 (EXCEPTION_CONTINUE_SEARCH) asks the next outer frame. When no frame
//     is left, the fault goes to the signal handler that was installed before
//     the platform's (a sanitizer's report, a debugger, or the default action,
//     which ends the process).
//
// What is described:
//   SIGSEGV  EXCEPTION_ACCESS_VIOLATION; information word 0 is 0 for a read,
//            1 for a write, 8 for an instruction fetch; word 1 the address.
//   SIGBUS   EXCEPTION_IN_PAGE_ERROR (a mapped page the file no longer backs),
//            with the same two words, or EXCEPTION_DATATYPE_MISALIGNMENT.
//   SIGFPE   EXCEPTION_INT_DIVIDE_BY_ZERO, EXCEPTION_INT_OVERFLOW, or one of
//            EXCEPTION_FLT_*, chosen from the unmasked status flags of the
//            unit that trapped (SSE or x87) in the order the processor ranks
//            them: invalid (stack check on the x87 stack), denormal, zero
//            divide, overflow, underflow, inexact.
// Signals sent by kill(2) and the like are no faults and go straight on to
// the previous handler.
//
// Rules for bodies and filters:
//   - Frames nest per thread; a fault on one thread never reaches another
//     thread's frames.
//   - Leaving a body for its handler is a siglongjmp: automatic C++ objects of
//     the body and of everything it called are abandoned without their
//     destructors. Keep such objects outside the body, or make sure nothing
//     relies on their destruction. A C++ exception that leaves the body passes
//     through OrvaSehTry normally (the frame is taken off first).
//   - The handler runs with the floating-point control bits (exception masks,
//     rounding, precision, flush-to-zero) as they were when the frame was
//     entered, and the SSE status flags as they were at the fault; the x87
//     status is cleared, so that no pending x87 exception fires later.
//   - A filter runs inside a signal handler, with the floating-point unit in
//     its default state (all exceptions masked). It should do little: look at
//     the record, commit or protect memory, set a flag. A fault inside a
//     filter is searched for in the thread's frames as any other, except that
//     the frame whose filter is running is skipped.
//   - A C++ exception thrown by a filter leaves through the faulting code as
//     if that code had thrown it, with its floating-point state. The unwinder
//     finds no landing pad at a faulting instruction, so the function that
//     faults must have no cleanups or handlers of its own, and a caller's
//     handler only sees the exception if the compiler could not prove the
//     call unable to throw (a call through a pointer, or to another
//     translation unit; a small function it can see is often proved so).
//     Code built with -fnon-call-exceptions has neither limit.
//   - A fault inside code that holds a lock (the C library's allocator, for
//     one) must not be sent to a handler that uses that code again.
//
// Sanitizers: AddressSanitizer must let the platform install its handlers,
// which it does by default (allow_user_segv_handler=1); its report still comes
// when no frame takes a fault. ThreadSanitizer and plain builds need nothing.
// Under valgrind, resuming after a commit needs
// --vex-iropt-register-updates=allregs-at-mem-access.
#pragma once

#include "win32.h"

typedef uint64_t DWORD64;

// ---- exception codes ------------------------------------------------------------
#define EXCEPTION_ACCESS_VIOLATION ((DWORD)0xC0000005)
#define EXCEPTION_IN_PAGE_ERROR ((DWORD)0xC0000006)
#define EXCEPTION_DATATYPE_MISALIGNMENT ((DWORD)0x80000002)
#define EXCEPTION_FLT_DENORMAL_OPERAND ((DWORD)0xC000008D)
#define EXCEPTION_FLT_DIVIDE_BY_ZERO ((DWORD)0xC000008E)
#define EXCEPTION_FLT_INEXACT_RESULT ((DWORD)0xC000008F)
#define EXCEPTION_FLT_INVALID_OPERATION ((DWORD)0xC0000090)
#define EXCEPTION_FLT_OVERFLOW ((DWORD)0xC0000091)
#define EXCEPTION_FLT_STACK_CHECK ((DWORD)0xC0000092)
#define EXCEPTION_FLT_UNDERFLOW ((DWORD)0xC0000093)
#define EXCEPTION_INT_DIVIDE_BY_ZERO ((DWORD)0xC0000094)
#define EXCEPTION_INT_OVERFLOW ((DWORD)0xC0000095)

// ---- filter answers ---------------------------------------------------------------
#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_SEARCH 0
#define EXCEPTION_CONTINUE_EXECUTION (-1)

// ---- the record and the context ---------------------------------------------------
#define EXCEPTION_MAXIMUM_PARAMETERS 15
#define EXCEPTION_NONCONTINUABLE 0x1

typedef struct _EXCEPTION_RECORD {
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    struct _EXCEPTION_RECORD* ExceptionRecord;  // a chained record; always null here
    void* ExceptionAddress;                     // the faulting instruction
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
} EXCEPTION_RECORD, *PEXCEPTION_RECORD;

#define CONTEXT_CONTROL 0x00100001UL
#define CONTEXT_INTEGER 0x00100002UL
#define CONTEXT_FLOATING_POINT 0x00100008UL
#define CONTEXT_FULL (CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_FLOATING_POINT)

// The legacy floating-point state: the x87 words and the SSE control and
// status register as the processor saved them.
typedef struct _XMM_SAVE_AREA32 {
    WORD ControlWord;
    WORD StatusWord;
    BYTE TagWord;  // abridged: one bit per register, 1 = in use
    BYTE Reserved1;
    WORD ErrorOpcode;
    DWORD64 ErrorOffset;  // the last x87 instruction
    DWORD64 DataOffset;   // its operand
    DWORD MxCsr;
    DWORD MxCsr_Mask;
} XMM_SAVE_AREA32;

// The thread's registers at the fault (x86-64). A filter that answers
// EXCEPTION_CONTINUE_EXECUTION resumes with the general registers, Rip,
// EFlags, MxCsr and FltSave.ControlWord/StatusWord of this record.
typedef struct _CONTEXT {
    DWORD ContextFlags;  // CONTEXT_FULL
    DWORD MxCsr;         // the SSE control and status register
    DWORD EFlags;
    DWORD64 Rax, Rcx, Rdx, Rbx, Rsp, Rbp, Rsi, Rdi;
    DWORD64 R8, R9, R10, R11, R12, R13, R14, R15;
    DWORD64 Rip;
    XMM_SAVE_AREA32 FltSave;
} CONTEXT, *PCONTEXT;

typedef struct _EXCEPTION_POINTERS {
    PEXCEPTION_RECORD ExceptionRecord;
    PCONTEXT ContextRecord;
} EXCEPTION_POINTERS, *PEXCEPTION_POINTERS;

// ---- the frame API ----------------------------------------------------------------
// The body of a frame, its filter, and the handler that runs when the filter
// answers EXCEPTION_EXECUTE_HANDLER (with a copy of the record it saw).
typedef void (*ORVA_SEH_BODY)(void* param);
typedef LONG (*ORVA_SEH_FILTER)(struct _EXCEPTION_POINTERS* info, void* param);
typedef void (*ORVA_SEH_HANDLER)(const EXCEPTION_RECORD* record, void* param);

// Runs body(param) inside a frame whose filter is filter(info, param). TRUE
// when the body returned; FALSE when the filter chose EXCEPTION_EXECUTE_HANDLER
// and handler(record, param) has run (handler may be null). The first call on
// a thread gives the thread an alternate signal stack when it has none, so
// that a stack overflow can be reported; the first call in the process
// installs the signal handlers.
ORVANEST_EXPORT BOOL OrvaSehTry(ORVA_SEH_BODY body, void* param, ORVA_SEH_FILTER filter, ORVA_SEH_HANDLER handler);

// The same with callables:
//     BOOL done = OrvaTryExcept(
//         [&] { ...body... },
//         [&](EXCEPTION_POINTERS* info) -> LONG { ...filter... },
//         [&](const EXCEPTION_RECORD* record) { ...handler... });
// The callables are taken by reference and must outlive the call.
template <class Body, class Filter, class Handler>
BOOL OrvaTryExcept(Body&& body, Filter&& filter, Handler&& handler) {
    struct Parts {
        Body& body;
        Filter& filter;
        Handler& handler;
    } parts{body, filter, handler};
    return OrvaSehTry([](void* p) { static_cast<Parts*>(p)->body(); }, &parts,
                      [](EXCEPTION_POINTERS* info, void* p) -> LONG { return static_cast<Parts*>(p)->filter(info); },
                      [](const EXCEPTION_RECORD* record, void* p) { static_cast<Parts*>(p)->handler(record); });
}
