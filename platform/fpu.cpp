// The floating-point subset of the C runtime on the two units of x86-64.
//
// The abstract control word of the CRT is translated bit by bit to the SSE
// control register and the x87 control word; each unit keeps the bits it has
// (precision only on x87, denormal flushing only on SSE). Classification reads
// the bits of a double and never loads it into a unit, so it cannot trap. The
// IEEE trap record is filled from the context of a trap, not from a decoded
// instruction. Fault injection can make _fpclass raise a real trap, so that
// the trap paths of callers can be exercised on a unit where classifying a
// value never traps by itself.
#include <cfloat>
#include <cstring>

#include <orvanest/platform/crt_float.h>

#include "internal/fault.h"
#include "internal/fpu.h"

using namespace orva::fpu;

namespace orvacrt {

namespace {

// The abstract bit of each exception, in the units' order (bits 0-5). The
// status bits _SW_* have the same values as the masks _EM_*.
constexpr unsigned int kAbstractBit[6] = {_EM_INVALID, _EM_DENORMAL, _EM_ZERODIVIDE,
                                          _EM_OVERFLOW, _EM_UNDERFLOW, _EM_INEXACT};

unsigned int ToAbstract(uint32_t sixBits) {
    unsigned int word = 0;
    for (int i = 0; i < 6; ++i) {
        if (sixBits & (1u << i)) word |= kAbstractBit[i];
    }
    return word;
}

uint32_t FromAbstract(unsigned int word) {
    uint32_t bits = 0;
    for (int i = 0; i < 6; ++i) {
        if (word & kAbstractBit[i]) bits |= 1u << i;
    }
    return bits;
}

// Both units number their rounding modes as the CRT does (nearest, down, up,
// toward zero), two bits each.
unsigned int SseView(uint32_t mxcsr) {
    unsigned int word = ToAbstract((mxcsr & kMxcsrMasks) >> kMxcsrMaskShift);
    word |= ((mxcsr & kMxcsrRound) >> kMxcsrRoundShift) << 8;
    if (mxcsr & (kMxcsrFtz | kMxcsrDaz)) word |= _DN_FLUSH;
    return word;
}

uint32_t ApplySse(uint32_t mxcsr, unsigned int word) {
    mxcsr &= ~(kMxcsrMasks | kMxcsrRound | kMxcsrFtz | kMxcsrDaz);
    mxcsr |= FromAbstract(word & _MCW_EM) << kMxcsrMaskShift;
    mxcsr |= ((word & _MCW_RC) >> 8) << kMxcsrRoundShift;
    if ((word & _MCW_DN) == _DN_FLUSH) mxcsr |= kMxcsrFtz | kMxcsrDaz;
    return mxcsr;
}

// x87 precision: 0 = 24 bits, 2 = 53 bits, 3 = 64 bits (1 is reserved).
unsigned int X87View(uint16_t control) {
    unsigned int word = ToAbstract(control & kX87Masks);
    word |= ((control & kX87Round) >> kX87RoundShift) << 8;
    switch ((control & kX87Precision) >> kX87PrecisionShift) {
    case 0: word |= _PC_24; break;
    case 2: word |= _PC_53; break;
    default: word |= _PC_64; break;
    }
    return word;
}

uint16_t ApplyX87(uint16_t control, unsigned int word) {
    control &= static_cast<uint16_t>(~(kX87Masks | kX87Round | kX87Precision));
    control |= static_cast<uint16_t>(FromAbstract(word & _MCW_EM));
    control |= static_cast<uint16_t>(((word & _MCW_RC) >> 8) << kX87RoundShift);
    unsigned int precision = 3;
    if ((word & _MCW_PC) == _PC_53) precision = 2;
    if ((word & _MCW_PC) == _PC_24) precision = 0;
    control |= static_cast<uint16_t>(precision << kX87PrecisionShift);
    return control;
}

// The SSE unit's view, the x87 precision, and the ambiguity flag.
unsigned int Combined(uint32_t mxcsr, uint16_t control) {
    unsigned int sse = SseView(mxcsr);
    unsigned int x87 = X87View(control);
    unsigned int word = sse | (x87 & _MCW_PC);
    if ((sse & (_MCW_EM | _MCW_RC)) != (x87 & (_MCW_EM | _MCW_RC))) word |= _EM_AMBIGUOUS;
    return word;
}

// ---- injected traps ---------------------------------------------------------------

// The exception bit of a floating-point code, or 0.
uint32_t ExceptionOf(DWORD code) {
    switch (code) {
    case EXCEPTION_FLT_INVALID_OPERATION: return kInvalid;
    case EXCEPTION_FLT_DENORMAL_OPERAND: return kDenormal;
    case EXCEPTION_FLT_DIVIDE_BY_ZERO: return kZeroDivide;
    case EXCEPTION_FLT_OVERFLOW: return kOverflow;
    case EXCEPTION_FLT_UNDERFLOW: return kUnderflow;
    case EXCEPTION_FLT_INEXACT_RESULT: return kInexact;
    default: return 0;
    }
}

// Runs one SSE operation that raises `exception`, with that exception alone
// newly unmasked, the status clear and denormals not treated as zero, so the
// trap that follows is exactly the one asked for. If a filter resumes it, the
// register goes back to what it was.
void RaiseTrap(uint32_t exception) {
    if (exception == 0) return;
    uint32_t saved = ReadMxcsr();
    volatile double a = 1.0;
    volatile double b = 0.0;
    switch (exception) {
    case kInvalid: a = 0.0; break;
    case kDenormal: a = DBL_TRUE_MIN; b = 1.0; break;
    case kOverflow: a = DBL_MAX; b = 0.5; break;
    case kUnderflow: a = DBL_MIN; b = 4.0; break;
    case kInexact: b = 3.0; break;
    default: break;
    }
    WriteMxcsr((saved & ~(kMxcsrFlags | kMxcsrDaz | kMxcsrFtz)) & ~(exception << kMxcsrMaskShift));
    volatile double result = a / b;
    (void)result;
    WriteMxcsr(saved);
}

}  // namespace

// ---- control and status ------------------------------------------------------------

unsigned int _control87(unsigned int newControl, unsigned int mask) {
    uint32_t mxcsr = ReadMxcsr();
    uint16_t control = ReadX87Control();
    mask &= _MCW_EM | _MCW_RC | _MCW_PC | _MCW_DN;
    if (mask != 0) {
        mxcsr = ApplySse(mxcsr, (SseView(mxcsr) & ~mask) | (newControl & mask));
        control = ApplyX87(control, (X87View(control) & ~mask) | (newControl & mask));
        WriteMxcsr(mxcsr);
        // An x87 flag that is up and becomes unmasked would trap at the next
        // x87 instruction, long after whatever raised it.
        if (ReadX87Status() & kX87Flags & ~(control & kX87Masks)) ClearX87Status();
        WriteX87Control(control);
    }
    return Combined(mxcsr, control);
}

unsigned int _statusfp(void) { return ToAbstract((ReadMxcsr() & kMxcsrFlags) | (ReadX87Status() & kX87Flags)); }

unsigned int _clearfp(void) {
    unsigned int status = _statusfp();
    WriteMxcsr(ReadMxcsr() & ~kMxcsrFlags);
    ClearX87Status();
    return status;
}

// ---- classification ------------------------------------------------------------------

namespace {
struct Parts {
    bool negative;
    uint32_t exponent;
    uint64_t fraction;
};

Parts Split(double x) {
    uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return {(bits >> 63) != 0, static_cast<uint32_t>((bits >> 52) & 0x7FF), bits & ((uint64_t{1} << 52) - 1)};
}

constexpr uint32_t kSpecialExponent = 0x7FF;
constexpr uint64_t kQuietBit = uint64_t{1} << 51;
}  // namespace

int _fpclass(double x) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_FPCLASS, &code)) RaiseTrap(ExceptionOf(code));
    Parts p = Split(x);
    if (p.exponent == kSpecialExponent) {
        if (p.fraction == 0) return p.negative ? _FPCLASS_NINF : _FPCLASS_PINF;
        return (p.fraction & kQuietBit) ? _FPCLASS_QNAN : _FPCLASS_SNAN;
    }
    if (p.exponent == 0) {
        if (p.fraction == 0) return p.negative ? _FPCLASS_NZ : _FPCLASS_PZ;
        return p.negative ? _FPCLASS_ND : _FPCLASS_PD;
    }
    return p.negative ? _FPCLASS_NN : _FPCLASS_PN;
}

int _isnan(double x) {
    Parts p = Split(x);
    return p.exponent == kSpecialExponent && p.fraction != 0;
}

int _finite(double x) { return Split(x).exponent != kSpecialExponent; }

// ---- the trap record ---------------------------------------------------------------

namespace {
_FPIEEE_EXCEPTION_FLAGS Flags(uint32_t sixBits) {
    _FPIEEE_EXCEPTION_FLAGS flags{};
    flags.InvalidOperation = (sixBits & kInvalid) != 0;
    flags.ZeroDivide = (sixBits & kZeroDivide) != 0;
    flags.Overflow = (sixBits & kOverflow) != 0;
    flags.Underflow = (sixBits & kUnderflow) != 0;
    flags.Inexact = (sixBits & kInexact) != 0;
    return flags;
}
}  // namespace

int _fpieee_flt(DWORD excCode, struct _EXCEPTION_POINTERS* excInfo, int handler(_FPIEEE_RECORD*)) {
    uint32_t cause = excCode == EXCEPTION_FLT_STACK_CHECK ? uint32_t{kInvalid} : ExceptionOf(excCode);
    if (cause == 0 || excInfo == nullptr || excInfo->ContextRecord == nullptr || handler == nullptr) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    CONTEXT* context = excInfo->ContextRecord;
    XMM_SAVE_AREA32& x87 = context->FltSave;

    // The unit that trapped is the one on which the cause is up and unmasked;
    // on x86-64 that is nearly always the SSE unit.
    uint32_t ssePending = (context->MxCsr & kMxcsrFlags) & ~((context->MxCsr & kMxcsrMasks) >> kMxcsrMaskShift);
    uint32_t x87Pending = (x87.StatusWord & kX87Flags) & ~(x87.ControlWord & kX87Masks);
    bool sse = (ssePending & cause) != 0 || (x87Pending & cause) == 0;

    _FPIEEE_RECORD record{};
    record.Operation = _FpCodeUnspecified;
    record.Cause = Flags(cause);
    if (sse) {
        record.RoundingMode = (context->MxCsr & kMxcsrRound) >> kMxcsrRoundShift;
        record.Precision = _FpPrecision53;
        record.Enable = Flags(~(context->MxCsr >> kMxcsrMaskShift) & 0x3F);
        record.Status = Flags(context->MxCsr & kMxcsrFlags);
    } else {
        record.RoundingMode = (x87.ControlWord & kX87Round) >> kX87RoundShift;
        uint32_t precision = (x87.ControlWord & kX87Precision) >> kX87PrecisionShift;
        record.Precision = precision == 0 ? _FpPrecision24 : precision == 2 ? _FpPrecision53 : _FpPrecisionFull;
        record.Enable = Flags(~x87.ControlWord & kX87Masks);
        record.Status = Flags(x87.StatusWord & kX87Flags);
    }

    int answer = handler(&record);
    if (answer == EXCEPTION_CONTINUE_EXECUTION) {
        if (sse) {
            context->MxCsr |= cause << kMxcsrMaskShift;
            x87.MxCsr = context->MxCsr;
        } else {
            // Masked and dropped from the status, so that the summary bit no
            // longer calls for a trap at the waiting instruction.
            x87.ControlWord |= static_cast<WORD>(cause);
            x87.StatusWord &= static_cast<WORD>(~(cause | kX87StackFault));
            if ((x87.StatusWord & kX87Flags & ~(x87.ControlWord & kX87Masks)) == 0) {
                x87.StatusWord &= static_cast<WORD>(~0x8080);  // error summary and busy
            }
        }
    }
    return answer;
}

}  // namespace orvacrt
