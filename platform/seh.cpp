// Structured exceptions on POSIX signals.
//
// A frame is a record on the stack of OrvaSehTry, linked to the thread's
// previous innermost frame; a thread-local pointer names the innermost one.
// The handlers of SIGSEGV, SIGBUS and SIGFPE, installed at the first frame in
// the process, turn the signal's information and the interrupted context into
// an EXCEPTION_RECORD and a CONTEXT, and ask the thread's frames. Resuming is a
// return from the handler with the (possibly changed) registers written back
// into the signal frame; running a handler is a siglongjmp to the frame;
// searching past the outermost frame calls whatever handler was installed
// before ours.
//
// The handlers run with SA_NODEFER and an empty mask, so the signal mask in a
// handler is the one of the interrupted code; a jump out of it therefore needs
// no saved mask, and frames cost no system call to enter.
#include <errno.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <mutex>

#include <orvanest/platform/win32_seh.h>

#include "internal/fpu.h"

using namespace orva::fpu;

namespace {

struct Frame {
    sigjmp_buf jump;
    ORVA_SEH_FILTER filter;
    void* param;
    Frame* outer;
    bool filtering;            // its filter is running: skipped by a nested fault
    uint32_t mxcsrAtEntry;     // the control bits that the handler runs with
    uint16_t x87AtEntry;
    uint32_t mxcsrAtFault;     // the status flags that the handler runs with
    EXCEPTION_RECORD record;   // what the filter saw, for the handler
};

thread_local Frame* t_innermost = nullptr;

// ---- installation -------------------------------------------------------------------

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];
struct sigaction g_previous[kSignalCount];
std::once_flag g_installed;

int IndexOf(int sig) {
    for (int i = 0; i < kSignalCount; ++i) {
        if (kSignals[i] == sig) return i;
    }
    return 0;
}

void OnFault(int sig, siginfo_t* info, void* raw);

void Install() {
    struct sigaction action = {};
    action.sa_sigaction = OnFault;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    for (int i = 0; i < kSignalCount; ++i) sigaction(kSignals[i], &action, &g_previous[i]);
}

// A stack for the handlers, so that a fault of an overflowing stack can still
// be described. Threads that already have one (a sanitizer gives its threads
// one) keep theirs. A guard page below it turns an overflow of the handler's
// own stack into a fault rather than into damage.
class AltStack {
public:
    void EnsureForThisThread() {
        if (checked_) return;
        checked_ = true;
        stack_t current;
        if (sigaltstack(nullptr, &current) != 0 || !(current.ss_flags & SS_DISABLE)) return;
        long page = sysconf(_SC_PAGESIZE);
        size_ = kUsableSize + static_cast<size_t>(page);
        void* base = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (base == MAP_FAILED) return;
        mprotect(base, static_cast<size_t>(page), PROT_NONE);
        stack_t ours = {};
        ours.ss_sp = static_cast<char*>(base) + page;
        ours.ss_size = kUsableSize;
        if (sigaltstack(&ours, nullptr) != 0) {
            munmap(base, size_);
            return;
        }
        base_ = base;
        sp_ = ours.ss_sp;
    }

    ~AltStack() {
        if (base_ == nullptr) return;
        stack_t current;
        if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == sp_) {
            stack_t off = {};
            off.ss_flags = SS_DISABLE;
            sigaltstack(&off, nullptr);
        }
        munmap(base_, size_);
    }

private:
    static constexpr size_t kUsableSize = 128 * 1024;
    bool checked_ = false;
    void* base_ = nullptr;
    void* sp_ = nullptr;
    size_t size_ = 0;
};

thread_local AltStack t_altStack;

// ---- describing a fault -----------------------------------------------------------

// x86 trap numbers and page-fault error bits.
constexpr greg_t kTrapDivide = 0;
constexpr greg_t kTrapOverflow = 4;
constexpr greg_t kTrapPageFault = 14;
constexpr greg_t kTrapX87 = 16;
constexpr greg_t kTrapSimd = 19;
constexpr greg_t kPageFaultWrite = 0x2;
constexpr greg_t kPageFaultFetch = 0x10;

// The first pending exception in the processor's order, as a code.
DWORD FloatCode(uint32_t pending, bool stackFault) {
    if (pending & kInvalid) return stackFault ? EXCEPTION_FLT_STACK_CHECK : EXCEPTION_FLT_INVALID_OPERATION;
    if (pending & kDenormal) return EXCEPTION_FLT_DENORMAL_OPERAND;
    if (pending & kZeroDivide) return EXCEPTION_FLT_DIVIDE_BY_ZERO;
    if (pending & kOverflow) return EXCEPTION_FLT_OVERFLOW;
    if (pending & kUnderflow) return EXCEPTION_FLT_UNDERFLOW;
    if (pending & kInexact) return EXCEPTION_FLT_INEXACT_RESULT;
    return 0;
}

// What the kernel says, when the registers do not tell.
DWORD FloatCodeOfSignal(int code) {
    switch (code) {
    case FPE_INTDIV: return EXCEPTION_INT_DIVIDE_BY_ZERO;
    case FPE_INTOVF: return EXCEPTION_INT_OVERFLOW;
    case FPE_FLTDIV: return EXCEPTION_FLT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF: return EXCEPTION_FLT_OVERFLOW;
    case FPE_FLTUND: return EXCEPTION_FLT_UNDERFLOW;
    case FPE_FLTRES: return EXCEPTION_FLT_INEXACT_RESULT;
    default: return EXCEPTION_FLT_INVALID_OPERATION;
    }
}

DWORD FloatExceptionCode(const siginfo_t* info, const CONTEXT& context, greg_t trap) {
    DWORD code = 0;
    if (trap == kTrapDivide) return EXCEPTION_INT_DIVIDE_BY_ZERO;
    if (trap == kTrapOverflow) return EXCEPTION_INT_OVERFLOW;
    if (trap == kTrapSimd) {
        uint32_t pending = (context.MxCsr & kMxcsrFlags) & ~((context.MxCsr & kMxcsrMasks) >> kMxcsrMaskShift);
        code = FloatCode(pending, false);
    } else if (trap == kTrapX87) {
        const XMM_SAVE_AREA32& x87 = context.FltSave;
        uint32_t pending = (x87.StatusWord & kX87Flags) & ~(x87.ControlWord & kX87Masks);
        code = FloatCode(pending, (x87.StatusWord & kX87StackFault) != 0);
    }
    return code != 0 ? code : FloatCodeOfSignal(info->si_code);
}

void ReadContext(const ucontext_t* uc, CONTEXT* context) {
    const greg_t* g = uc->uc_mcontext.gregs;
    *context = CONTEXT{};
    context->ContextFlags = CONTEXT_FULL;
    context->Rax = static_cast<DWORD64>(g[REG_RAX]);
    context->Rcx = static_cast<DWORD64>(g[REG_RCX]);
    context->Rdx = static_cast<DWORD64>(g[REG_RDX]);
    context->Rbx = static_cast<DWORD64>(g[REG_RBX]);
    context->Rsp = static_cast<DWORD64>(g[REG_RSP]);
    context->Rbp = static_cast<DWORD64>(g[REG_RBP]);
    context->Rsi = static_cast<DWORD64>(g[REG_RSI]);
    context->Rdi = static_cast<DWORD64>(g[REG_RDI]);
    context->R8 = static_cast<DWORD64>(g[REG_R8]);
    context->R9 = static_cast<DWORD64>(g[REG_R9]);
    context->R10 = static_cast<DWORD64>(g[REG_R10]);
    context->R11 = static_cast<DWORD64>(g[REG_R11]);
    context->R12 = static_cast<DWORD64>(g[REG_R12]);
    context->R13 = static_cast<DWORD64>(g[REG_R13]);
    context->R14 = static_cast<DWORD64>(g[REG_R14]);
    context->R15 = static_cast<DWORD64>(g[REG_R15]);
    context->Rip = static_cast<DWORD64>(g[REG_RIP]);
    context->EFlags = static_cast<DWORD>(g[REG_EFL]);
    if (const auto* fp = uc->uc_mcontext.fpregs) {
        context->MxCsr = fp->mxcsr;
        context->FltSave.ControlWord = fp->cwd;
        context->FltSave.StatusWord = fp->swd;
        context->FltSave.TagWord = static_cast<BYTE>(fp->ftw);
        context->FltSave.ErrorOpcode = fp->fop;
        context->FltSave.ErrorOffset = fp->rip;
        context->FltSave.DataOffset = fp->rdp;
        context->FltSave.MxCsr = fp->mxcsr;
        context->FltSave.MxCsr_Mask = fp->mxcr_mask;
    }
}

// Writes back what a filter may have changed before the fault resumes.
void WriteContext(const CONTEXT& context, ucontext_t* uc) {
    greg_t* g = uc->uc_mcontext.gregs;
    g[REG_RAX] = static_cast<greg_t>(context.Rax);
    g[REG_RCX] = static_cast<greg_t>(context.Rcx);
    g[REG_RDX] = static_cast<greg_t>(context.Rdx);
    g[REG_RBX] = static_cast<greg_t>(context.Rbx);
    g[REG_RSP] = static_cast<greg_t>(context.Rsp);
    g[REG_RBP] = static_cast<greg_t>(context.Rbp);
    g[REG_RSI] = static_cast<greg_t>(context.Rsi);
    g[REG_RDI] = static_cast<greg_t>(context.Rdi);
    g[REG_R8] = static_cast<greg_t>(context.R8);
    g[REG_R9] = static_cast<greg_t>(context.R9);
    g[REG_R10] = static_cast<greg_t>(context.R10);
    g[REG_R11] = static_cast<greg_t>(context.R11);
    g[REG_R12] = static_cast<greg_t>(context.R12);
    g[REG_R13] = static_cast<greg_t>(context.R13);
    g[REG_R14] = static_cast<greg_t>(context.R14);
    g[REG_R15] = static_cast<greg_t>(context.R15);
    g[REG_RIP] = static_cast<greg_t>(context.Rip);
    g[REG_EFL] = static_cast<greg_t>(context.EFlags);
    if (auto* fp = uc->uc_mcontext.fpregs) {
        // A reserved bit in MXCSR would make the return from the handler fail.
        uint32_t allowed = fp->mxcr_mask != 0 ? fp->mxcr_mask : 0xFFBF;
        fp->mxcsr = context.MxCsr & allowed;
        fp->cwd = context.FltSave.ControlWord;
        fp->swd = context.FltSave.StatusWord;
    }
}

void Describe(int sig, const siginfo_t* info, const ucontext_t* uc, EXCEPTION_RECORD* record, CONTEXT* context) {
    ReadContext(uc, context);
    const greg_t trap = uc->uc_mcontext.gregs[REG_TRAPNO];
    const greg_t error = uc->uc_mcontext.gregs[REG_ERR];
    *record = EXCEPTION_RECORD{};
    record->ExceptionAddress = reinterpret_cast<void*>(context->Rip);

    if (sig == SIGFPE) {
        record->ExceptionCode = FloatExceptionCode(info, *context, trap);
        return;
    }
    if (sig == SIGBUS && info->si_code == BUS_ADRALN) {
        record->ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
        return;
    }
    record->ExceptionCode = sig == SIGBUS ? EXCEPTION_IN_PAGE_ERROR : EXCEPTION_ACCESS_VIOLATION;
    record->NumberParameters = 2;
    ULONG_PTR kind = 0;
    if (trap == kTrapPageFault && (error & kPageFaultWrite)) kind = 1;
    if (trap == kTrapPageFault && (error & kPageFaultFetch)) kind = 8;
    record->ExceptionInformation[0] = kind;
    // A general protection fault (a non-canonical address, for one) has no
    // address of its own; all bits set says so.
    record->ExceptionInformation[1] =
        info->si_code == SI_KERNEL ? ~ULONG_PTR{0} : reinterpret_cast<ULONG_PTR>(info->si_addr);
}

// ---- dispatching -----------------------------------------------------------------

// The handler that was there before ours gets the fault as if we had never
// looked at it.
void Chain(int sig, siginfo_t* info, void* raw) {
    const struct sigaction& previous = g_previous[IndexOf(sig)];
    if (previous.sa_flags & SA_SIGINFO) {
        if (previous.sa_sigaction != nullptr) {
            previous.sa_sigaction(sig, info, raw);
            return;
        }
    } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler(sig);
        return;
    }
    const bool sent = info->si_code <= 0;
    if (previous.sa_handler == SIG_IGN && sent) return;
    // The default action. A fault happens again as soon as we return, now
    // with no handler; a signal that was sent is sent once more.
    struct sigaction fallback = {};
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    sigaction(sig, &fallback, nullptr);
    if (sent) raise(sig);
}

// Asks one frame's filter. A C++ exception from the filter leaves through
// the faulting code, as if that code had thrown it: the frame is asked again
// by later faults, and the floating-point state goes back to the faulting
// code's own.
LONG AskFilter(Frame* frame, EXCEPTION_POINTERS* pointers, const ucontext_t* uc) {
    frame->filtering = true;
    LONG answer;
    try {
        answer = frame->filter(pointers, frame->param);
    } catch (...) {
        frame->filtering = false;
        if (const auto* fp = uc->uc_mcontext.fpregs) {
            WriteMxcsr(fp->mxcsr);
            ClearX87Status();
            WriteX87Control(fp->cwd);
        }
        throw;
    }
    frame->filtering = false;
    return answer;
}

void OnFault(int sig, siginfo_t* info, void* raw) {
    const int savedErrno = errno;
    auto* uc = static_cast<ucontext_t*>(raw);
    // Filters run with every floating-point exception masked, whatever the
    // faulting code had set; the return from the handler restores its state.
    WriteMxcsr(kMxcsrDefault);
    WriteX87Control(kX87Default);
    if (info->si_code > 0) {
        EXCEPTION_RECORD record;
        CONTEXT context;
        Describe(sig, info, uc, &record, &context);
        const uint32_t mxcsrAtFault = context.MxCsr;
        EXCEPTION_POINTERS pointers = {&record, &context};
        for (Frame* frame = t_innermost; frame != nullptr; frame = frame->outer) {
            if (frame->filtering) continue;
            LONG answer = AskFilter(frame, &pointers, uc);
            if (answer < 0) {
                WriteContext(context, uc);
                errno = savedErrno;
                return;
            }
            if (answer > 0) {
                frame->record = record;
                frame->mxcsrAtFault = mxcsrAtFault;
                t_innermost = frame;
                siglongjmp(frame->jump, 1);
            }
        }
    }
    errno = savedErrno;
    Chain(sig, info, raw);
}

}  // namespace

BOOL OrvaSehTry(ORVA_SEH_BODY body, void* param, ORVA_SEH_FILTER filter, ORVA_SEH_HANDLER handler) {
    std::call_once(g_installed, Install);
    t_altStack.EnsureForThisThread();

    Frame frame;
    frame.filter = filter;
    frame.param = param;
    frame.outer = t_innermost;
    frame.filtering = false;
    frame.mxcsrAtEntry = ReadMxcsr();
    frame.x87AtEntry = ReadX87Control();

    if (sigsetjmp(frame.jump, 0) == 0) {
        t_innermost = &frame;
        try {
            body(param);
        } catch (...) {
            t_innermost = frame.outer;
            throw;
        }
        t_innermost = frame.outer;
        return TRUE;
    }

    // Back from a handler that chose this frame. The signal left the units in
    // their default state; the body's changes to the control bits are undone
    // as a callee's would be, while the SSE flags of the fault stay readable.
    t_innermost = frame.outer;
    WriteMxcsr((frame.mxcsrAtEntry & kMxcsrControl) | (frame.mxcsrAtFault & kMxcsrFlags));
    ClearX87Status();
    WriteX87Control(frame.x87AtEntry);
    if (handler != nullptr) handler(&frame.record, param);
    return FALSE;
}
