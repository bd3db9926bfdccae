// The floating-point subset of the C runtime: the control word with its
// exception masks, the status word, the classification of doubles, and the
// IEEE trap record. The names begin with an underscore, so they live in the
// namespace orvacrt.
//
// The control word is an abstract one, the same on every unit: a set mask bit
// keeps its exception quiet, a clear one makes it trap (SIGFPE, which the
// frame API of win32_seh.h turns into an EXCEPTION_FLT_* code). _control87
// writes the SSE control register (MXCSR), which all double arithmetic on
// x86-64 uses, and the x87 control word, which long double arithmetic and a
// few library routines use, so that both units agree. The settings are the
// calling thread's own.
#pragma once

#include "win32_seh.h"

namespace orvacrt {

// ---- control word ---------------------------------------------------------------
// Exception masks.
constexpr unsigned int _EM_INEXACT = 0x00000001;
constexpr unsigned int _EM_UNDERFLOW = 0x00000002;
constexpr unsigned int _EM_OVERFLOW = 0x00000004;
constexpr unsigned int _EM_ZERODIVIDE = 0x00000008;
constexpr unsigned int _EM_INVALID = 0x00000010;
constexpr unsigned int _EM_DENORMAL = 0x00080000;
constexpr unsigned int _MCW_EM = 0x0008001F;
// Set in a result of _control87 when the x87 and SSE units differ in their
// exception masks or rounding; the value then shows the SSE unit's.
constexpr unsigned int _EM_AMBIGUOUS = 0x80000000;

// Rounding.
constexpr unsigned int _MCW_RC = 0x00000300;
constexpr unsigned int _RC_NEAR = 0x00000000;
constexpr unsigned int _RC_DOWN = 0x00000100;
constexpr unsigned int _RC_UP = 0x00000200;
constexpr unsigned int _RC_CHOP = 0x00000300;

// Precision of the x87 unit (the SSE unit has none to set).
constexpr unsigned int _MCW_PC = 0x00030000;
constexpr unsigned int _PC_64 = 0x00000000;
constexpr unsigned int _PC_53 = 0x00010000;
constexpr unsigned int _PC_24 = 0x00020000;

// Infinity control: accepted for source compatibility and ignored (affine is
// the only mode); a read shows neither bit.
constexpr unsigned int _MCW_IC = 0x00040000;
constexpr unsigned int _IC_AFFINE = 0x00040000;
constexpr unsigned int _IC_PROJECTIVE = 0x00000000;

// Denormal control of the SSE unit: _DN_FLUSH sets flush-to-zero and
// denormals-are-zero together.
constexpr unsigned int _MCW_DN = 0x03000000;
constexpr unsigned int _DN_SAVE = 0x00000000;
constexpr unsigned int _DN_FLUSH = 0x01000000;

// Sets the bits of `mask` to those of `newControl` and leaves the others;
// gives the control word afterwards. _control87(0, 0) only reads. Unmasking an
// exception whose x87 status flag is already up clears the x87 status first,
// so that the next x87 instruction does not trap for something old.
ORVANEST_EXPORT unsigned int _control87(unsigned int newControl, unsigned int mask);

// ---- status word ------------------------------------------------------------------
constexpr unsigned int _SW_INEXACT = 0x00000001;
constexpr unsigned int _SW_UNDERFLOW = 0x00000002;
constexpr unsigned int _SW_OVERFLOW = 0x00000004;
constexpr unsigned int _SW_ZERODIVIDE = 0x00000008;
constexpr unsigned int _SW_INVALID = 0x00000010;
constexpr unsigned int _SW_DENORMAL = 0x00080000;

// The exceptions raised since the status was last cleared, from both units.
ORVANEST_EXPORT unsigned int _statusfp(void);
// The same, and clears them.
ORVANEST_EXPORT unsigned int _clearfp(void);

// ---- classification ----------------------------------------------------------------
constexpr int _FPCLASS_SNAN = 0x0001;  // signalling NaN
constexpr int _FPCLASS_QNAN = 0x0002;  // quiet NaN
constexpr int _FPCLASS_NINF = 0x0004;  // negative infinity
constexpr int _FPCLASS_NN = 0x0008;    // negative normal
constexpr int _FPCLASS_ND = 0x0010;    // negative denormal
constexpr int _FPCLASS_NZ = 0x0020;    // negative zero
constexpr int _FPCLASS_PZ = 0x0040;    // positive zero
constexpr int _FPCLASS_PD = 0x0080;    // positive denormal
constexpr int _FPCLASS_PN = 0x0100;    // positive normal
constexpr int _FPCLASS_PINF = 0x0200;  // positive infinity

// These read the bits of the value and do no arithmetic on it, so they raise
// nothing, whatever the control word says: a signalling NaN stays quiet.
ORVANEST_EXPORT int _fpclass(double x);
// Non-zero for either kind of NaN.
ORVANEST_EXPORT int _isnan(double x);
// Non-zero unless x is an infinity or a NaN.
ORVANEST_EXPORT int _finite(double x);

// ---- the IEEE trap record ---------------------------------------------------------
enum _FPIEEE_ROUNDING_MODE { _FpRoundNearest, _FpRoundMinusInfinity, _FpRoundPlusInfinity, _FpRoundChopped };
enum _FPIEEE_PRECISION { _FpPrecisionFull, _FpPrecision53, _FpPrecision24 };
enum _FP_OPERATION_CODE { _FpCodeUnspecified = 0 };

typedef struct {
    unsigned int Inexact : 1;
    unsigned int Underflow : 1;
    unsigned int Overflow : 1;
    unsigned int ZeroDivide : 1;
    unsigned int InvalidOperation : 1;
} _FPIEEE_EXCEPTION_FLAGS;

typedef struct {
    unsigned int OperandValid : 1;
    unsigned int Format : 4;
    double Value;
} _FPIEEE_VALUE;

// What a floating-point trap was. Cause holds the one exception that trapped;
// Enable the exceptions that were unmasked and Status the flags that were up
// on the unit that trapped. The faulting instruction is not decoded:
// Operation is _FpCodeUnspecified and no operand or result is valid.
typedef struct {
    unsigned int RoundingMode : 2;  // _FPIEEE_ROUNDING_MODE
    unsigned int Precision : 3;     // _FPIEEE_PRECISION; an SSE trap reports _FpPrecision53
    unsigned int Operation : 12;    // _FP_OPERATION_CODE
    _FPIEEE_EXCEPTION_FLAGS Cause;
    _FPIEEE_EXCEPTION_FLAGS Enable;
    _FPIEEE_EXCEPTION_FLAGS Status;
    _FPIEEE_VALUE Operand1;
    _FPIEEE_VALUE Operand2;
    _FPIEEE_VALUE Result;
} _FPIEEE_RECORD;

// For a filter: when excCode is one of EXCEPTION_FLT_*, fills a record from
// excInfo and gives what handler(record) answers. A denormal-operand trap has
// no cause bit of its own and shows with an empty Cause. When the handler
// answers EXCEPTION_CONTINUE_EXECUTION, the trapping exception is masked in
// excInfo's context, so that the instruction runs again and gives the masked
// default result (and the exception stays masked on the thread afterwards).
// Any other code gives EXCEPTION_CONTINUE_SEARCH without calling handler.
ORVANEST_EXPORT int _fpieee_flt(DWORD excCode, struct _EXCEPTION_POINTERS* excInfo, int handler(_FPIEEE_RECORD*));

}  // namespace orvacrt
