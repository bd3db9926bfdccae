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

// With every exception unmasked a single arithmetic look at a signalling NaN
// or a denormal would trap: classification must not look that way.
TEST_F(FpuTest, ClassificationNeverTrapsAndRaisesNoFlag) {
    const std::pair<uint64_t, int> classes[] = {
        {0x7FF0000000000001ull, _FPCLASS_SNAN}, {0xFFF4000000000000ull, _FPCLASS_SNAN},
        {0x7FF8000000000000ull, _FPCLASS_QNAN}, {0xFFF8000000000001ull, _FPCLASS_QNAN},
        {0xFFF0000000000000ull, _FPCLASS_NINF}, {0x7FF0000000000000ull, _FPCLASS_PINF},
        {0xFFEFFFFFFFFFFFFFull, _FPCLASS_NN},   {0x8010000000000000ull, _FPCLASS_NN},
        {0x800FFFFFFFFFFFFFull, _FPCLASS_ND},   {0x8000000000000001ull, _FPCLASS_ND},
        {0x8000000000000000ull, _FPCLASS_NZ},   {0x0000000000000000ull, _FPCLASS_PZ},
        {0x0000000000000001ull, _FPCLASS_PD},   {0x000FFFFFFFFFFFFFull, _FPCLASS_PD},
        {0x0010000000000000ull, _FPCLASS_PN},   {0x7FEFFFFFFFFFFFFFull, _FPCLASS_PN},
    };
    for (unsigned int masks : {_MCW_EM, 0u}) {
        _control87(masks, _MCW_EM);
        for (auto [bits, fpClass] : classes) {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            const bool nan = fpClass == _FPCLASS_SNAN || fpClass == _FPCLASS_QNAN;
            const bool finite = !nan && fpClass != _FPCLASS_NINF && fpClass != _FPCLASS_PINF;
            EXPECT_EQ(_fpclass(value), fpClass) << std::hex << bits;
            EXPECT_EQ(_isnan(value) != 0, nan) << std::hex << bits;
            EXPECT_EQ(_finite(value) != 0, finite) << std::hex << bits;
        }
        EXPECT_EQ(_statusfp(), 0u) << "masks " << masks;
    }
}

TEST_F(FpuTest, ControlWordReachesBothUnits) {
    for (unsigned int bit :
         {_EM_INVALID, _EM_DENORMAL, _EM_ZERODIVIDE, _EM_OVERFLOW, _EM_UNDERFLOW, _EM_INEXACT}) {
        unsigned int word = _control87(0, bit);
        EXPECT_EQ(word & (_MCW_EM | _EM_AMBIGUOUS), _MCW_EM & ~bit) << bit;
        EXPECT_EQ(_control87(0, 0), word) << bit;
        EXPECT_EQ(_control87(bit, bit) & _MCW_EM, _MCW_EM) << bit;
    }
    // The units' own bits: SSE masks in 7-12, x87 masks in 0-5.
    _control87(_MCW_EM & ~(_EM_ZERODIVIDE | _EM_DENORMAL), _MCW_EM);
    EXPECT_EQ((Mxcsr() >> 7) & 0x3F, 0x3Fu & ~(0x04u | 0x02u));
    EXPECT_EQ(X87Control() & 0x3F, 0x3Fu & ~(0x04u | 0x02u));
    _control87(_MCW_EM, _MCW_EM);
    for (unsigned int rounding : {_RC_DOWN, _RC_UP, _RC_CHOP, _RC_NEAR}) {  // nearest for the arithmetic below
        EXPECT_EQ(_control87(rounding, _MCW_RC) & _MCW_RC, rounding);
        EXPECT_EQ((Mxcsr() >> 13) & 3, rounding >> 8);
        EXPECT_EQ((X87Control() >> 10) & 3, rounding >> 8);
    }
    // The x87 precision shows in its arithmetic.
    volatile long double oneL = 1.0L, threeL = 3.0L;
    const std::pair<unsigned int, long double> precisions[] = {
        {_PC_24, 1.0f / 3.0f}, {_PC_53, 1.0 / 3.0}, {_PC_64, 1.0L / 3.0L}};
    for (auto [precision, third] : precisions) {
        EXPECT_EQ(_control87(precision, _MCW_PC) & _MCW_PC, precision);
        EXPECT_EQ(oneL / threeL, third) << precision;
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

TEST_F(FpuTest, MaskedExceptionsLeaveStatusFlagsThatClearfpDrops) {
    volatile double zero = 0.0, one = 1.0;
    volatile long double zeroL = 0.0L;
    volatile double inf = one / zero;
    EXPECT_EQ(_statusfp() & _SW_ZERODIVIDE, _SW_ZERODIVIDE);
    volatile double nan = zero / zero;
    volatile long double infL = 1.0L / zeroL;  // the x87 unit's flags count too
    (void)inf, (void)nan, (void)infL;
    EXPECT_EQ(_clearfp() & (_SW_ZERODIVIDE | _SW_INVALID), _SW_ZERODIVIDE | _SW_INVALID);
    EXPECT_EQ(_statusfp(), 0u);
}

// ---- traps --------------------------------------------------------------------------

const struct TrapCase {
    unsigned int unmask;
    double a, b;
    DWORD code;
    _FPIEEE_EXCEPTION_FLAGS cause;  // Inexact, Underflow, Overflow, ZeroDivide, InvalidOperation
} kTraps[] = {
    {_EM_INVALID, 0.0, 0.0, EXCEPTION_FLT_INVALID_OPERATION, {0, 0, 0, 0, 1}},
    {_EM_DENORMAL, DBL_TRUE_MIN, 1.0, EXCEPTION_FLT_DENORMAL_OPERAND, {0, 0, 0, 0, 0}},
    {_EM_ZERODIVIDE, 1.0, 0.0, EXCEPTION_FLT_DIVIDE_BY_ZERO, {0, 0, 0, 1, 0}},
    {_EM_OVERFLOW, DBL_MAX, 0.5, EXCEPTION_FLT_OVERFLOW, {0, 0, 1, 0, 0}},
    {_EM_UNDERFLOW, DBL_MIN, 4.0, EXCEPTION_FLT_UNDERFLOW, {0, 1, 0, 0, 0}},
    {_EM_INEXACT, 1.0, 3.0, EXCEPTION_FLT_INEXACT_RESULT, {1, 0, 0, 0, 0}},
};

unsigned Flags(const _FPIEEE_EXCEPTION_FLAGS& f) {
    return f.Inexact | f.Underflow << 1 | f.Overflow << 2 | f.ZeroDivide << 3 | f.InvalidOperation << 4;
}

// What the trap handler behind _fpieee_flt learnt, and what it answers.
_FPIEEE_RECORD g_record;
int g_trapHandlerCalls, g_trapAnswer;

// Runs body in a frame whose filter passes the trap to _fpieee_flt and its
// handler answers `answer`: the code the filter saw, 0 when nothing trapped.
template <class Body>
DWORD Trap(Body body, int answer) {
    g_trapHandlerCalls = 0;
    g_trapAnswer = answer;
    DWORD seen = 0;
    const auto keepRecord = [](_FPIEEE_RECORD* record) {
        g_record = *record;
        ++g_trapHandlerCalls;
        return g_trapAnswer;
    };
    const auto filter = [&](EXCEPTION_POINTERS* info) -> LONG {
        return _fpieee_flt(seen = info->ExceptionRecord->ExceptionCode, info, keepRecord);
    };
    BOOL done = OrvaTryExcept(body, filter, [](const EXCEPTION_RECORD*) {});
    EXPECT_EQ(done, answer != EXCEPTION_EXECUTE_HANDLER || seen == 0) << "handled when trapped";
    return seen;
}

double DivideUnmasked(unsigned int unmask, double a, double b) {
    volatile double x = a, y = b;
    _control87(_MCW_EM & ~unmask, _MCW_EM);
    volatile double result = x / y;
    return result;
}

TEST_F(FpuTest, UnmaskedExceptionsTrapWithTheirCodeAndCause) {
    // Not the state a signal handler starts from, so that the restore shows.
    const unsigned int entry = _control87(_RC_CHOP | _PC_53, _MCW_RC | _MCW_PC);
    for (const TrapCase& c : kTraps) {
        _clearfp();
        EXPECT_EQ(Trap([&] { DivideUnmasked(c.unmask, c.a, c.b); }, EXCEPTION_EXECUTE_HANDLER), c.code);
        EXPECT_EQ(g_trapHandlerCalls, 1) << c.code;
        EXPECT_EQ(Flags(g_record.Cause), Flags(c.cause)) << c.code;
        EXPECT_EQ(Flags(g_record.Enable), c.unmask == _EM_DENORMAL ? 0u : Flags(c.cause)) << c.code;
        EXPECT_EQ(g_record.RoundingMode, static_cast<unsigned>(_FpRoundChopped)) << c.code;
        EXPECT_EQ(_control87(0, 0), entry) << c.code << ": unwinding undoes the body's unmasking";
    }
}

// A trap handler that says "continue" gets the masked default result: the
// exception is masked in the context, and stays masked afterwards.
TEST_F(FpuTest, ContinuingATrapGivesTheMaskedResult) {
    double result = 0.0;
    EXPECT_EQ(Trap([&] { result = DivideUnmasked(_EM_ZERODIVIDE, 1.0, 0.0); }, EXCEPTION_CONTINUE_EXECUTION),
              static_cast<DWORD>(EXCEPTION_FLT_DIVIDE_BY_ZERO));
    EXPECT_EQ(_fpclass(result), _FPCLASS_PINF);
    EXPECT_NE(_control87(0, 0) & _EM_ZERODIVIDE, 0u);
}

// An x87 flag raised while masked belongs to an operation long gone: it must
// not fire once its exception is unmasked.
TEST_F(FpuTest, UnmaskingDoesNotFireAnOldX87Flag) {
    volatile long double zeroL = 0.0L;
    volatile long double infL = 1.0L / zeroL, sum = 0.0L;
    const auto body = [&] {
        _control87(_MCW_EM & ~_EM_ZERODIVIDE, _MCW_EM);
        sum = zeroL + 1.0L;
    };
    (void)infL;
    EXPECT_EQ(Trap(body, EXCEPTION_EXECUTE_HANDLER), 0u);
}

TEST_F(FpuTest, InjectedTrapsInFpclassAreRealTraps) {
    const unsigned int before = _control87(0, 0);
    for (const TrapCase& c : kTraps) {
        OrvaFaultArm(ORVA_FAULT_FPCLASS, 2, c.code, FALSE);
        EXPECT_EQ(_fpclass(1.0), _FPCLASS_PN) << c.code << ": the first call is not armed";
        EXPECT_EQ(Trap([] { _fpclass(1.0); }, EXCEPTION_EXECUTE_HANDLER), c.code);
        EXPECT_EQ(Flags(g_record.Cause), Flags(c.cause)) << c.code;
        EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_FPCLASS), 1u) << c.code;
        EXPECT_EQ(_control87(0, 0), before) << c.code;
        EXPECT_EQ(_fpclass(1.0), _FPCLASS_PN) << c.code << ": transient";
    }
}

}  // namespace
