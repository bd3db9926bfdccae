// The floating-point subset of the runtime: classification that never traps,
// the control word on both units, status flags, real traps described by the
// frame API and _fpieee_flt, and traps injected into _fpclass.
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <cstring>

#include <orvanest/platform/platform.h>

using namespace orvacrt;

namespace {

double FromBits(uint64_t bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

uint16_t X87Control() {
    uint16_t cw;
    __asm__ volatile("fnstcw %0" : "=m"(cw));
    return cw;
}

uint32_t Mxcsr() {
    uint32_t value;
    __asm__ volatile("stmxcsr %0" : "=m"(value));
    return value;
}

// Every test starts from the default state and leaves it behind.
class FpuTest : public ::testing::Test {
protected:
    void SetUp() override {
        _clearfp();
        initial_ = _control87(0, 0);
        ASSERT_EQ(initial_ & _MCW_EM, _MCW_EM) << "exceptions start masked";
    }
    void TearDown() override {
        OrvaFaultReset();
        _clearfp();
        _control87(initial_, _MCW_EM | _MCW_RC | _MCW_PC | _MCW_DN);
    }
    unsigned int initial_ = 0;
};

struct ClassCase {
    const char* what;
    uint64_t bits;
    int fpClass;
};

const ClassCase kClasses[] = {
    {"signalling NaN", 0x7FF0000000000001ull, _FPCLASS_SNAN},
    {"negative signalling NaN", 0xFFF4000000000000ull, _FPCLASS_SNAN},
    {"quiet NaN", 0x7FF8000000000000ull, _FPCLASS_QNAN},
    {"negative quiet NaN", 0xFFF8000000000001ull, _FPCLASS_QNAN},
    {"negative infinity", 0xFFF0000000000000ull, _FPCLASS_NINF},
    {"negative normal", 0xBFF0000000000000ull, _FPCLASS_NN},
    {"most negative", 0xFFEFFFFFFFFFFFFFull, _FPCLASS_NN},
    {"negative smallest normal", 0x8010000000000000ull, _FPCLASS_NN},
    {"negative largest denormal", 0x800FFFFFFFFFFFFFull, _FPCLASS_ND},
    {"negative smallest denormal", 0x8000000000000001ull, _FPCLASS_ND},
    {"negative zero", 0x8000000000000000ull, _FPCLASS_NZ},
    {"positive zero", 0x0000000000000000ull, _FPCLASS_PZ},
    {"positive smallest denormal", 0x0000000000000001ull, _FPCLASS_PD},
    {"positive largest denormal", 0x000FFFFFFFFFFFFFull, _FPCLASS_PD},
    {"positive smallest normal", 0x0010000000000000ull, _FPCLASS_PN},
    {"one and a half", 0x3FF8000000000000ull, _FPCLASS_PN},
    {"largest", 0x7FEFFFFFFFFFFFFFull, _FPCLASS_PN},
    {"positive infinity", 0x7FF0000000000000ull, _FPCLASS_PINF},
};

// With every exception unmasked a single arithmetic look at a signalling NaN
// or a denormal would trap: classification must not look that way.
TEST_F(FpuTest, ClassificationNeverTrapsAndRaisesNoFlag) {
    for (unsigned int masks : {_MCW_EM, 0u}) {
        _control87(masks, _MCW_EM);
        for (const ClassCase& c : kClasses) {
            double value = FromBits(c.bits);
            bool nan = c.fpClass == _FPCLASS_SNAN || c.fpClass == _FPCLASS_QNAN;
            bool infinite = c.fpClass == _FPCLASS_NINF || c.fpClass == _FPCLASS_PINF;
            EXPECT_EQ(_fpclass(value), c.fpClass) << c.what;
            EXPECT_EQ(_isnan(value) != 0, nan) << c.what;
            EXPECT_EQ(_finite(value) != 0, !nan && !infinite) << c.what;
        }
        EXPECT_EQ(_statusfp(), 0u) << "masks " << masks;
    }
}

TEST_F(FpuTest, ControlWordRoundTripsOnBothUnits) {
    const unsigned int exceptions[] = {_EM_INVALID, _EM_DENORMAL, _EM_ZERODIVIDE,
                                       _EM_OVERFLOW, _EM_UNDERFLOW, _EM_INEXACT};
    for (unsigned int bit : exceptions) {
        unsigned int word = _control87(0, bit);
        EXPECT_EQ(word & _MCW_EM, _MCW_EM & ~bit) << bit;
        EXPECT_EQ(word & _EM_AMBIGUOUS, 0u) << bit;
        EXPECT_EQ(_control87(0, 0), word) << bit;
        EXPECT_EQ(_control87(bit, bit) & _MCW_EM, _MCW_EM) << bit;
    }
    // The units' own bits: SSE masks in 7-12, x87 masks in 0-5.
    _control87(_MCW_EM & ~(_EM_ZERODIVIDE | _EM_DENORMAL), _MCW_EM);
    EXPECT_EQ((Mxcsr() >> 7) & 0x3F, 0x3Fu & ~(0x04u | 0x02u));
    EXPECT_EQ(X87Control() & 0x3F, 0x3Fu & ~(0x04u | 0x02u));
    _control87(_MCW_EM, _MCW_EM);

    for (unsigned int rounding : {_RC_NEAR, _RC_DOWN, _RC_UP, _RC_CHOP}) {
        EXPECT_EQ(_control87(rounding, _MCW_RC) & _MCW_RC, rounding);
        EXPECT_EQ((Mxcsr() >> 13) & 3, rounding >> 8);
        EXPECT_EQ((X87Control() >> 10) & 3, rounding >> 8);
    }
    for (unsigned int precision : {_PC_24, _PC_53, _PC_64}) {
        EXPECT_EQ(_control87(precision, _MCW_PC) & _MCW_PC, precision);
    }
    EXPECT_EQ(_control87(_DN_FLUSH, _MCW_DN) & _MCW_DN, _DN_FLUSH);
    EXPECT_EQ(Mxcsr() & 0x8040, 0x8040u) << "flush-to-zero and denormals-are-zero";
    EXPECT_EQ(_control87(_DN_SAVE, _MCW_DN) & _MCW_DN, _DN_SAVE);
}

TEST_F(FpuTest, DifferingUnitsShowAsAmbiguous) {
    uint16_t cw = X87Control() & ~0x0004;  // x87 alone unmasks zero divide
    __asm__ volatile("fldcw %0" : : "m"(cw));
    unsigned int word = _control87(0, 0);
    EXPECT_NE(word & _EM_AMBIGUOUS, 0u);
    EXPECT_NE(word & _EM_ZERODIVIDE, 0u) << "the SSE unit's view";
    EXPECT_EQ(_control87(_EM_ZERODIVIDE, _EM_ZERODIVIDE) & _EM_AMBIGUOUS, 0u);
}

// The rounding and denormal bits are read back from the units above; the x87
// precision field is not, so it is shown through arithmetic.
TEST_F(FpuTest, PrecisionReachesX87Arithmetic) {
    volatile long double oneL = 1.0L;
    volatile long double threeL = 3.0L;
    _control87(_PC_24, _MCW_PC);
    long double third24 = oneL / threeL;
    _control87(_PC_64, _MCW_PC);
    EXPECT_EQ(third24, static_cast<long double>(1.0f / 3.0f));
    EXPECT_NE(oneL / threeL, static_cast<long double>(1.0f / 3.0f));
}

TEST_F(FpuTest, MaskedExceptionsLeaveStatusFlagsThatClearfpDrops) {
    volatile double zero = 0.0;
    volatile double one = 1.0;
    volatile long double zeroL = 0.0L;
    double inf = one / zero;
    EXPECT_EQ(_fpclass(inf), _FPCLASS_PINF);
    EXPECT_EQ(_statusfp() & _SW_ZERODIVIDE, _SW_ZERODIVIDE);
    volatile double nan = zero / zero;
    (void)nan;
    volatile long double infL = 1.0L / zeroL;  // the x87 unit's flags count too
    (void)infL;
    unsigned int status = _clearfp();
    EXPECT_EQ(status & (_SW_ZERODIVIDE | _SW_INVALID), _SW_ZERODIVIDE | _SW_INVALID);
    EXPECT_EQ(_statusfp(), 0u);
}

// ---- traps --------------------------------------------------------------------------

struct TrapCase {
    const char* what;
    unsigned int unmask;
    double a;
    double b;
    DWORD code;
    _FPIEEE_EXCEPTION_FLAGS cause;  // Inexact, Underflow, Overflow, ZeroDivide, InvalidOperation
};

const TrapCase kTraps[] = {
    {"invalid", _EM_INVALID, 0.0, 0.0, EXCEPTION_FLT_INVALID_OPERATION, {0, 0, 0, 0, 1}},
    {"denormal", _EM_DENORMAL, DBL_TRUE_MIN, 1.0, EXCEPTION_FLT_DENORMAL_OPERAND, {0, 0, 0, 0, 0}},
    {"zero divide", _EM_ZERODIVIDE, 1.0, 0.0, EXCEPTION_FLT_DIVIDE_BY_ZERO, {0, 0, 0, 1, 0}},
    {"overflow", _EM_OVERFLOW, DBL_MAX, 0.5, EXCEPTION_FLT_OVERFLOW, {0, 0, 1, 0, 0}},
    {"underflow", _EM_UNDERFLOW, DBL_MIN, 4.0, EXCEPTION_FLT_UNDERFLOW, {0, 1, 0, 0, 0}},
    {"inexact", _EM_INEXACT, 1.0, 3.0, EXCEPTION_FLT_INEXACT_RESULT, {1, 0, 0, 0, 0}},
};

bool SameFlags(const _FPIEEE_EXCEPTION_FLAGS& x, const _FPIEEE_EXCEPTION_FLAGS& y) {
    return x.Inexact == y.Inexact && x.Underflow == y.Underflow && x.Overflow == y.Overflow &&
           x.ZeroDivide == y.ZeroDivide && x.InvalidOperation == y.InvalidOperation;
}

// What the filter learnt through _fpieee_flt.
thread_local _FPIEEE_RECORD t_record;
thread_local int t_trapHandlerCalls;
thread_local int t_trapAnswer;

int KeepRecord(_FPIEEE_RECORD* record) {
    t_record = *record;
    ++t_trapHandlerCalls;
    return t_trapAnswer;
}

TEST_F(FpuTest, UnmaskedExceptionsTrapWithTheirCodeAndCause) {
    // Not the state a signal handler starts from, so that the restore shows.
    const unsigned int entry = _control87(_RC_CHOP | _PC_53, _MCW_RC | _MCW_PC);
    for (const TrapCase& c : kTraps) {
        _clearfp();
        t_trapHandlerCalls = 0;
        t_trapAnswer = EXCEPTION_EXECUTE_HANDLER;
        DWORD seen = 0;
        int filterAnswer = 0;
        volatile double a = c.a;
        volatile double b = c.b;
        BOOL completed = OrvaTryExcept(
            [&] {
                _control87(_MCW_EM & ~c.unmask, _MCW_EM);
                volatile double result = a / b;
                (void)result;
            },
            [&](EXCEPTION_POINTERS* info) -> LONG {
                seen = info->ExceptionRecord->ExceptionCode;
                filterAnswer = _fpieee_flt(seen, info, KeepRecord);
                return filterAnswer;
            },
            [](const EXCEPTION_RECORD*) {});
        EXPECT_EQ(completed, FALSE) << c.what;
        EXPECT_EQ(seen, c.code) << c.what;
        EXPECT_EQ(filterAnswer, EXCEPTION_EXECUTE_HANDLER) << c.what;
        EXPECT_EQ(t_trapHandlerCalls, 1) << c.what;
        EXPECT_TRUE(SameFlags(t_record.Cause, c.cause)) << c.what;
        _FPIEEE_EXCEPTION_FLAGS enabled = {};
        if (c.unmask != _EM_DENORMAL) enabled = c.cause;
        EXPECT_TRUE(SameFlags(t_record.Enable, enabled)) << c.what;
        EXPECT_EQ(t_record.RoundingMode, static_cast<unsigned>(_FpRoundChopped)) << c.what;
        // Unwinding undoes the body's unmasking and keeps the rest.
        EXPECT_EQ(_control87(0, 0), entry) << c.what;
    }
}

// A trap handler that says "continue" gets the masked default result: the
// exception is masked in the context, and stays masked afterwards.
TEST_F(FpuTest, ContinuingATrapGivesTheMaskedResult) {
    t_trapAnswer = EXCEPTION_CONTINUE_EXECUTION;
    volatile double one = 1.0;
    volatile double zero = 0.0;
    double result = 0.0;
    BOOL completed = OrvaTryExcept(
        [&] {
            _control87(_MCW_EM & ~_EM_ZERODIVIDE, _MCW_EM);
            result = one / zero;
        },
        [](EXCEPTION_POINTERS* info) -> LONG {
            return _fpieee_flt(info->ExceptionRecord->ExceptionCode, info, KeepRecord);
        },
        [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(_fpclass(result), _FPCLASS_PINF);
    EXPECT_NE(_control87(0, 0) & _EM_ZERODIVIDE, 0u);
}

// An x87 flag raised while masked must not fire once its exception is
// unmasked: it belongs to an operation long gone.
TEST_F(FpuTest, UnmaskingDoesNotFireAnOldX87Flag) {
    volatile long double zeroL = 0.0L;
    volatile long double infL = 1.0L / zeroL;
    (void)infL;
    int trapped = 0;
    OrvaTryExcept(
        [&] {
            _control87(_MCW_EM & ~_EM_ZERODIVIDE, _MCW_EM);
            volatile long double sum = zeroL + 1.0L;
            (void)sum;
        },
        [&](EXCEPTION_POINTERS*) -> LONG {
            ++trapped;
            return EXCEPTION_EXECUTE_HANDLER;
        },
        [](const EXCEPTION_RECORD*) {});
    EXPECT_EQ(trapped, 0);
}

// ---- injected traps -----------------------------------------------------------------

TEST_F(FpuTest, InjectedTrapsInFpclassAreRealTraps) {
    const unsigned int before = _control87(0, 0);
    for (const TrapCase& c : kTraps) {
        t_trapAnswer = EXCEPTION_EXECUTE_HANDLER;
        OrvaFaultArm(ORVA_FAULT_FPCLASS, 2, c.code, FALSE);
        EXPECT_EQ(_fpclass(1.0), _FPCLASS_PN) << c.what << ": the first call is not armed";
        DWORD seen = 0;
        BOOL completed = OrvaTryExcept(
            [] { _fpclass(1.0); },
            [&](EXCEPTION_POINTERS* info) -> LONG {
                seen = info->ExceptionRecord->ExceptionCode;
                return _fpieee_flt(seen, info, KeepRecord);
            },
            [](const EXCEPTION_RECORD*) {});
        EXPECT_EQ(completed, FALSE) << c.what;
        EXPECT_EQ(seen, c.code) << c.what;
        EXPECT_TRUE(SameFlags(t_record.Cause, c.cause)) << c.what;
        EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_FPCLASS), 1u) << c.what;
        EXPECT_EQ(_control87(0, 0), before) << c.what;
        EXPECT_EQ(_fpclass(1.0), _FPCLASS_PN) << c.what << ": transient";
    }
}

}  // namespace
