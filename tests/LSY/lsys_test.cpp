// System services: kind, page size and version, the classification of
// doubles with no trap escaping whatever the host's control word, the trap
// road (traps injected into the platform's _fpclass), the mask scope.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>

#include <orvanest/ORVANEST.h>

using namespace orvacrt;

namespace {

double FromBits(uint64_t bits) { return std::bit_cast<double>(bits); }
uint64_t Bits(double d) { return std::bit_cast<uint64_t>(d); }

class LsysTest : public ::testing::Test {
protected:
    void SetUp() override {
        _clearfp();
        initial_ = _control87(0, 0);
    }
    void TearDown() override {
        OrvaFaultReset();
        OrvaSetWin32s(FALSE);
        _clearfp();
        _control87(initial_, _MCW_EM | _MCW_RC | _MCW_PC | _MCW_DN);
    }
    unsigned int initial_ = 0;
};

// On this machine the system's page size and granularity happen to equal
// the fixed Win32s answers; the Win32s road is still taken and checked.
TEST_F(LsysTest, Win32sSwitchChangesKindPageSizeAndAllocUnit) {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_EQ(lsysIsWin32s(), 0);
    EXPECT_EQ(lsysGetPageSize(), info.dwPageSize);
    EXPECT_EQ(lsysGetAllocUnit(), info.dwAllocationGranularity);
    OrvaSetWin32s(TRUE);
    EXPECT_EQ(static_cast<unsigned int>(lsysIsWin32s()), 0x80000000u);
    EXPECT_EQ(lsysGetPageSize(), 0x1000u);
    EXPECT_EQ(lsysGetAllocUnit(), 0x10000u);
}

TEST_F(LsysTest, InfoIsTheVersionTextInEightBytes) {
    static_assert(sizeof(tagLSY_OrvanestInfo) == 8);
    tagLSY_OrvanestInfo out[2];
    std::memset(out, 0xCC, sizeof out);
    lsysGetOrvanestInfo(&out[0]);
    EXPECT_EQ(std::string(out[0].version, 8), std::string("1.00.05", 8));
    EXPECT_EQ(std::string(out[1].version, 8), std::string(8, '\xCC')) << "nothing behind it";
}

// The host has unmasked every exception (or none): a trap escaping any of
// these would end the test, and the control word must be as it was.
TEST_F(LsysTest, ClassificationLetsNoTrapOutWhateverTheHostUnmasked) {
    const struct {
        const char* what;
        uint64_t bits;
        bool safe, nan, finite;
    } values[] = {
        {"1.5", 0x3FF8000000000000ull, 1, 0, 1},        {"-2", 0xC000000000000000ull, 1, 0, 1},
        {"largest", 0x7FEFFFFFFFFFFFFFull, 1, 0, 1},    {"smallest normal", 0x0010000000000000ull, 1, 0, 1},
        {"+0", 0x0000000000000000ull, 1, 0, 1},         {"-0", 0x8000000000000000ull, 1, 0, 1},
        {"+denormal", 0x0000000000000001ull, 0, 0, 1},  {"-denormal", 0x800FFFFFFFFFFFFFull, 0, 0, 1},
        {"+infinity", 0x7FF0000000000000ull, 0, 0, 0},  {"-infinity", 0xFFF0000000000000ull, 0, 0, 0},
        {"quiet NaN", 0x7FF8000000000000ull, 0, 1, 0},  {"signalling NaN", 0x7FF0000000000001ull, 0, 1, 0},
        {"-signalling NaN", 0xFFF7FFFFFFFFFFFFull, 0, 1, 0},
    };
    for (unsigned int hostMasks : {0u, _MCW_EM, _EM_INVALID | _EM_INEXACT}) {
        _control87(hostMasks | _RC_UP, _MCW_EM | _MCW_RC);
        const unsigned int hostWord = _control87(0, 0);
        for (const auto& c : values) {
            const double value = FromBits(c.bits);
            const double safe = lsysSafeValueDouble(value);
            EXPECT_EQ(Bits(safe), c.safe ? c.bits : 0u) << c.what << ": unchanged (sign of zero too), else +0";
            EXPECT_EQ(lsysIsSafeValue(value), c.safe) << c.what;
            EXPECT_EQ(lsysIsDoubleNaN(value), c.nan) << c.what;
            EXPECT_EQ(lsysIsDoubleFinite(value), c.finite) << c.what;
            EXPECT_EQ(_control87(0, 0), hostWord) << c.what;
        }
    }
}

TEST_F(LsysTest, ATrapWhileClassifyingGivesTheValueOfItsCause) {
    const struct {
        const char* what;
        DWORD code;
        double safeValue;
    } traps[] = {
        {"underflow", EXCEPTION_FLT_UNDERFLOW, -DBL_MAX},     {"overflow", EXCEPTION_FLT_OVERFLOW, DBL_MAX},
        {"zero divide", EXCEPTION_FLT_DIVIDE_BY_ZERO, DBL_MAX}, {"invalid", EXCEPTION_FLT_INVALID_OPERATION, 0.0},
        {"inexact", EXCEPTION_FLT_INEXACT_RESULT, 0.0},       {"denormal", EXCEPTION_FLT_DENORMAL_OPERAND, 0.0},
    };
    _control87(_RC_CHOP, _MCW_RC);
    const unsigned int hostWord = _control87(0, 0);
    for (const auto& c : traps) {
        for (double value : {1.5, 3.0e-310, -2.0}) {
            OrvaFaultArm(ORVA_FAULT_FPCLASS, 1, c.code, FALSE);
            double result = lsysSafeValueDouble(value);
            EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_FPCLASS), 1u) << c.what;
            EXPECT_EQ(Bits(result), Bits(c.safeValue)) << c.what << " " << value;
            OrvaFaultArm(ORVA_FAULT_FPCLASS, 1, c.code, FALSE);
            EXPECT_FALSE(lsysIsSafeValue(value)) << c.what << " " << value;
            EXPECT_EQ(_control87(0, 0), hostWord) << c.what;
        }
        // The next call starts afresh.
        EXPECT_EQ(lsysSafeValueDouble(2.5), 2.5) << c.what;
        EXPECT_EQ(lsysSafeValueDouble(FromBits(0x7FF8000000000000ull)), 0.0) << c.what;
    }
}

TEST_F(LsysTest, AnnulMasksEverythingAndRestoresOnlyTheMasks) {
    volatile double one = 1.0;
    volatile double zero = 0.0;
    _control87(0, _MCW_EM);  // the host wants every trap
    {
        L_CAnnulException annul;
        EXPECT_EQ(annul.savedControl & _MCW_EM, 0u);
        EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM);
        double inf = one / zero;
        EXPECT_TRUE(std::isinf(inf));
        EXPECT_NE(_statusfp() & _SW_ZERODIVIDE, 0u);
        _control87(_RC_UP, _MCW_RC);  // not the scope's to undo
    }
    const unsigned int after = _control87(0, 0);
    EXPECT_EQ(after & _MCW_EM, 0u);
    EXPECT_EQ(after & _MCW_RC, _RC_UP);
    EXPECT_EQ(_statusfp(), 0u) << "what happened inside is dropped";
}

TEST_F(LsysTest, AnnulScopesNestAndEachRestoresWhatItSaw) {
    _control87(_MCW_EM & ~_EM_ZERODIVIDE, _MCW_EM);
    {
        L_CAnnulException outer;
        _control87(0, _EM_INEXACT);  // unmasked inside the outer scope
        {
            L_CAnnulException inner;
            EXPECT_EQ(inner.savedControl & _MCW_EM, _MCW_EM & ~_EM_INEXACT);
            EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM);
        }
        EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM & ~_EM_INEXACT);
    }
    EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM & ~_EM_ZERODIVIDE);
}

TEST_F(LsysTest, AnnulAssignmentCopiesTheSavedWordOnly) {
    _control87(_MCW_EM & ~_EM_OVERFLOW, _MCW_EM);
    std::optional<L_CAnnulException> left;
    left.emplace();
    _control87(_MCW_EM & ~_EM_UNDERFLOW, _MCW_EM);
    std::optional<L_CAnnulException> right;
    right.emplace();
    EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM) << "both scopes mask";
    L_CAnnulException& result = (*left = *right);
    EXPECT_EQ(&result, &*left);
    EXPECT_EQ(left->savedControl, right->savedControl);
    EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM) << "assignment changes no register";
    right.reset();
    left.reset();
    EXPECT_EQ(_control87(0, 0) & _MCW_EM, _MCW_EM & ~_EM_UNDERFLOW) << "the left one restores the right one's word";
}

}  // namespace
