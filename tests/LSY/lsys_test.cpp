// System services: the platform's kind and version, the local time, the
// classification of doubles with no trap escaping whatever the host's control
// word, the trap road (with traps injected into the platform's _fpclass), and
// the floating-point mask scope.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <optional>

#include <orvanest/ORVANEST.h>

using namespace orvacrt;

namespace {

double FromBits(uint64_t bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

uint64_t Bits(double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}

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

// ---- kind, version, time ------------------------------------------------------------

TEST_F(LsysTest, Win32sFollowsTheTopBitOfTheVersion) {
    EXPECT_EQ(lsysIsWin32s(), 0);
    OrvaSetWin32s(TRUE);
    EXPECT_EQ(static_cast<unsigned int>(lsysIsWin32s()), 0x80000000u);
    OrvaSetWin32s(FALSE);
    EXPECT_EQ(lsysIsWin32s(), 0);
}

// On this machine the system's answers happen to equal the Win32s ones; the
// Win32s road is still taken and checked.
TEST_F(LsysTest, PageSizeAndAllocUnitComeFromTheSystemOrAreWin32sFixed) {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_EQ(lsysGetPageSize(), info.dwPageSize);
    EXPECT_EQ(lsysGetAllocUnit(), info.dwAllocationGranularity);
    OrvaSetWin32s(TRUE);
    EXPECT_EQ(lsysGetPageSize(), 0x1000u);
    EXPECT_EQ(lsysGetAllocUnit(), 0x10000u);
}

TEST_F(LsysTest, InfoIsTheVersionTextInEightBytes) {
    struct {
        tagLSY_OrvanestInfo info;
        unsigned char guard[8];
    } out;
    static_assert(sizeof(tagLSY_OrvanestInfo) == 8);
    std::memset(&out, 0xCC, sizeof out);
    lsysGetOrvanestInfo(&out.info);
    EXPECT_EQ(std::memcmp(out.info.version, "1.00.05", 8), 0);
    for (unsigned char b : out.guard) EXPECT_EQ(b, 0xCC);
}

uint64_t Key(const SYSTEMTIME& t) {
    return ((((((uint64_t{t.wYear} * 13 + t.wMonth) * 32 + t.wDay) * 24 + t.wHour) * 60 + t.wMinute) * 60 + t.wSecond) *
            1000) +
           t.wMilliseconds;
}

TEST_F(LsysTest, LocalTimeIsThePlatformsBetweenTwoReadings) {
    SYSTEMTIME before, ours, after;
    std::memset(&ours, 0xCC, sizeof ours);
    GetLocalTime(&before);
    lsysGetLocalTime(&ours);
    GetLocalTime(&after);
    EXPECT_LE(Key(before), Key(ours));
    EXPECT_LE(Key(ours), Key(after));
    EXPECT_LE(ours.wDayOfWeek, 6);
}

// ---- classification -----------------------------------------------------------------

struct ValueCase {
    const char* what;
    uint64_t bits;
    bool safe;
    bool nan;
    bool finite;
};

const ValueCase kValues[] = {
    {"one and a half", 0x3FF8000000000000ull, true, false, true},
    {"minus two", 0xC000000000000000ull, true, false, true},
    {"largest", 0x7FEFFFFFFFFFFFFFull, true, false, true},
    {"smallest normal", 0x0010000000000000ull, true, false, true},
    {"positive zero", 0x0000000000000000ull, true, false, true},
    {"negative zero", 0x8000000000000000ull, true, false, true},
    {"positive denormal", 0x0000000000000001ull, false, false, true},
    {"negative denormal", 0x800FFFFFFFFFFFFFull, false, false, true},
    {"positive infinity", 0x7FF0000000000000ull, false, false, false},
    {"negative infinity", 0xFFF0000000000000ull, false, false, false},
    {"quiet NaN", 0x7FF8000000000000ull, false, true, false},
    {"signalling NaN", 0x7FF0000000000001ull, false, true, false},
    {"negative signalling NaN", 0xFFF7FFFFFFFFFFFFull, false, true, false},
};

// The host has unmasked every exception (or none): a trap escaping any of
// these would end the test, and the control word must be as it was.
TEST_F(LsysTest, ClassificationLetsNoTrapOutWhateverTheHostUnmasked) {
    for (unsigned int hostMasks : {0u, _MCW_EM, _EM_INVALID | _EM_INEXACT}) {
        _control87(hostMasks | _RC_UP, _MCW_EM | _MCW_RC);
        const unsigned int hostWord = _control87(0, 0);
        for (const ValueCase& c : kValues) {
            const double value = FromBits(c.bits);
            const double safe = lsysSafeValueDouble(value);
            if (c.safe) {
                EXPECT_EQ(Bits(safe), c.bits) << c.what << ": unchanged, sign of zero too";
            } else {
                EXPECT_EQ(Bits(safe), 0u) << c.what << ": positive zero";
            }
            EXPECT_EQ(lsysIsSafeValue(value), c.safe) << c.what;
            EXPECT_EQ(lsysIsDoubleNaN(value), c.nan) << c.what;
            EXPECT_EQ(lsysIsDoubleFinite(value), c.finite) << c.what;
            EXPECT_EQ(_control87(0, 0), hostWord) << c.what;
        }
    }
}

// ---- the trap road -----------------------------------------------------------------

struct TrapCase {
    const char* what;
    DWORD code;
    double safeValue;
};

const TrapCase kTraps[] = {
    {"underflow", EXCEPTION_FLT_UNDERFLOW, -DBL_MAX},
    {"overflow", EXCEPTION_FLT_OVERFLOW, DBL_MAX},
    {"zero divide", EXCEPTION_FLT_DIVIDE_BY_ZERO, DBL_MAX},
    {"invalid", EXCEPTION_FLT_INVALID_OPERATION, 0.0},
    {"inexact", EXCEPTION_FLT_INEXACT_RESULT, 0.0},
    {"denormal", EXCEPTION_FLT_DENORMAL_OPERAND, 0.0},
};

TEST_F(LsysTest, ATrapWhileClassifyingGivesTheValueOfItsCause) {
    _control87(_RC_CHOP, _MCW_RC);
    const unsigned int hostWord = _control87(0, 0);
    for (const TrapCase& c : kTraps) {
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

// An access violation inside the classification frame is no floating-point
// trap: the library's filter lets it by and the host's frame outside repairs
// it, after which the value is read and classified.
TEST_F(LsysTest, OtherExceptionsPassTheClassificationFrame) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* base = mmap(nullptr, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(base, MAP_FAILED);
    int hostFilterCalls = 0;
    double safe = -1.0;
    bool isSafe = false;
    BOOL completed = OrvaTryExcept(
        [&] {
            const double& value = *static_cast<double*>(base);
            safe = lsysSafeValueDouble(value);
            isSafe = lsysIsSafeValue(value);
        },
        [&](EXCEPTION_POINTERS* info) -> LONG {
            ++hostFilterCalls;
            if (info->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
            mprotect(base, page, PROT_READ | PROT_WRITE);
            *static_cast<double*>(base) = 6.25;
            return EXCEPTION_CONTINUE_EXECUTION;
        },
        [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "host handler ran"; });
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(hostFilterCalls, 1);
    EXPECT_EQ(safe, 6.25);
    EXPECT_TRUE(isSafe);
    munmap(base, page);
}

// ---- L_CAnnulException -------------------------------------------------------------

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
