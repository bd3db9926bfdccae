// Floating-point classification that lets no trap out, and the scope object
// that masks the thread's floating-point exceptions.
//
// The NaN and finiteness tests run under an L_CAnnulException. The safe-value
// tests classify inside a structured-exception frame whose filter hands a
// floating-point trap to the trap handler below, which leaves its verdict in
// the thread's safeValue; other exceptions pass the filter by. On x86-64
// classifying reads bits and cannot trap by itself, so that road is taken
// only when the platform is told to inject a trap; what it gives is the same
// either way. Nothing here marks or sets the last error.
#include <cfloat>

#include <orvanest/platform/crt_float.h>

#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSYS

namespace {

// Every exception mask bit: invalid, denormal, zero divide, overflow,
// underflow, inexact.
constexpr unsigned int kAllExceptionMasks = orvacrt::_MCW_EM;

// Normal numbers and zeros of either sign; NaNs, infinities and denormals
// are not safe.
bool IsSafeClass(int fpClass) {
    return fpClass == orvacrt::_FPCLASS_NN || fpClass == orvacrt::_FPCLASS_NZ || fpClass == orvacrt::_FPCLASS_PZ ||
           fpClass == orvacrt::_FPCLASS_PN;
}

// The trap handler: the cause decides safeValue, underflow first. Underflow
// gives the most negative double whatever the operand's sign.
int TrapHandler(orvacrt::_FPIEEE_RECORD* record) {
    double& safeValue = lde::Context()->safeValue;
    if (record->Cause.Underflow) {
        safeValue = -DBL_MAX;
    } else if (record->Cause.Overflow || record->Cause.ZeroDivide) {
        safeValue = DBL_MAX;
    } else {
        safeValue = 0.0;
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

// The frame's filter: floating-point traps go to the trap handler, whose
// answer it gives; anything else is searched for further out.
LONG TrapFilter(EXCEPTION_POINTERS* info) {
    return orvacrt::_fpieee_flt(info->ExceptionRecord->ExceptionCode, info, TrapHandler);
}

// _fpclass(value) inside the frame. *trapped tells that a trap ended it, and
// then the class is meaningless.
int ClassifyInFrame(double const& value, bool* trapped) {
    int fpClass = 0;
    BOOL completed = OrvaTryExcept([&] { fpClass = orvacrt::_fpclass(value); },
                                   [](EXCEPTION_POINTERS* info) { return TrapFilter(info); },
                                   [](const EXCEPTION_RECORD*) {});
    *trapped = completed == FALSE;
    return fpClass;
}

}  // namespace

// ---- L_CAnnulException ---------------------------------------------------------------

L_CAnnulException::L_CAnnulException(void) {
    savedControl = orvacrt::_control87(0, 0);
    orvacrt::_control87(kAllExceptionMasks, kAllExceptionMasks);
}

L_CAnnulException::~L_CAnnulException(void) {
    orvacrt::_clearfp();
    orvacrt::_control87(savedControl, kAllExceptionMasks);
}

L_CAnnulException& L_CAnnulException::operator=(L_CAnnulException const& other) {
    savedControl = other.savedControl;
    return *this;
}

// ---- classification ------------------------------------------------------------------

bool lsysIsDoubleNaN(double const& value) {
    L_CAnnulException annul;
    return orvacrt::_isnan(value) != 0;
}

bool lsysIsDoubleFinite(double const& value) {
    L_CAnnulException annul;
    return orvacrt::_finite(value) != 0;
}

double lsysSafeValueDouble(double const& value) {
    tagLDE_ThreadContext* ctx = lde::Context();
    ctx->safeValue = 0.0;
    bool trapped = false;
    int fpClass = ClassifyInFrame(value, &trapped);
    if (trapped) return ctx->safeValue;
    return IsSafeClass(fpClass) ? value : 0.0;
}

bool lsysIsSafeValue(double const& value) {
    // The trap handler reaches the context from inside a signal handler; a
    // thread's first use of the context (which may attach the thread) must
    // happen out here.
    (void)lde::Context();
    bool trapped = false;
    int fpClass = ClassifyInFrame(value, &trapped);
    return !trapped && IsSafeClass(fpClass);
}
