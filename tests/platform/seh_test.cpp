// Structured exceptions: real faults described as records, the three filter
// answers, nesting, faults inside filters, the road past the outermost frame
// to the handler installed before ours, and frames on several threads.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

const size_t kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

using Answer = std::function<LONG(EXCEPTION_POINTERS*)>;
ULONG_PTR FaultAddress(EXCEPTION_POINTERS* info) { return info->ExceptionRecord->ExceptionInformation[1]; }

// Pages that start inaccessible.
struct Region {
    explicit Region(size_t pages) : size(pages * kPage) {
        base = static_cast<char*>(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    ~Region() { munmap(base, size); }
    char* Page(size_t i) const { return base + i * kPage; }
    ULONG_PTR At(size_t i) const { return reinterpret_cast<ULONG_PTR>(Page(i)); }
    // Opens the page that holds address; false when it is none of ours.
    bool Open(ULONG_PTR address) const {
        const size_t page = (address - At(0)) / kPage;
        return page < size / kPage && mprotect(Page(page), kPage, PROT_READ | PROT_WRITE) == 0;
    }
    // A filter's answer: open the faulting page and go on.
    Answer OpenAndContinue() const {
        return [this](EXCEPTION_POINTERS* info) -> LONG {
            return Open(FaultAddress(info)) ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
        };
    }
    size_t size;
    char* base;
};

int ReadByte(const volatile char* p) { return *p; }
void WriteByte(volatile char* p) { *p = 1; }

// What a frame's filter and handler saw.
struct Seen {
    int filterCalls = 0, handlerCalls = 0;
    DWORD code = 0;
    ULONG_PTR kind = ~ULONG_PTR{0}, address = 0;
    std::pair<int, int> Calls() const { return {filterCalls, handlerCalls}; }
};
const std::pair<int, int> kOnceEach = {1, 1};

Answer Always(LONG answer) {
    return [answer](EXCEPTION_POINTERS*) { return answer; };
}

// Runs body in a frame whose filter records into seen and then answers.
BOOL Frame(const std::function<void()>& body, Seen& seen,
           const Answer& answer = Always(EXCEPTION_EXECUTE_HANDLER)) {
    return OrvaTryExcept(
        body,
        [&](EXCEPTION_POINTERS* info) {
            ++seen.filterCalls;
            seen.code = info->ExceptionRecord->ExceptionCode;
            if (info->ExceptionRecord->NumberParameters >= 2) {
                seen.kind = info->ExceptionRecord->ExceptionInformation[0];
                seen.address = FaultAddress(info);
            }
            return answer(info);
        },
        [&](const EXCEPTION_RECORD* record) {
            ++seen.handlerCalls;
            EXPECT_EQ(record->ExceptionCode, seen.code) << "the handler gets the filter's record";
        });
}

volatile bool g_deepEnough = false;  // never set: the recursion ends in a fault

int Deep(int n) {
    volatile char pad[512];
    pad[0] = static_cast<char>(n);
    return g_deepEnough ? n : Deep(n + 1) + pad[0];
}

TEST(Seh, FaultsAreDescribedAndReachTheHandler) {
    Region region(1);
    char* page = region.Page(0);
    const DWORD kAccess = EXCEPTION_ACCESS_VIOLATION;
    const struct {
        const char* what;
        std::function<void()> body;
        DWORD code;
        ULONG_PTR kind;
        const char* address;  // null: not checked
    } cases[] = {
        {"read at start", [&] { ReadByte(page); }, kAccess, 0, page},
        {"write at start", [&] { WriteByte(page); }, kAccess, 1, page},
        {"read inside", [&] { ReadByte(page + 123); }, kAccess, 0, page + 123},
        {"write at end", [&] { WriteByte(page + kPage - 1); }, kAccess, 1, page + kPage - 1},
        {"stack overflow", [] { Deep(0); }, kAccess, 1, nullptr},  // the push that overflowed writes
        {"divide by zero",
         [] {  // straight to the instruction: the compiler may not see the zero
             int dividend = 7, divisor = 0;
             __asm__ volatile("cltd\n\tidivl %2" : "+a"(dividend) : "d"(0), "r"(divisor) : "cc");
         },
         EXCEPTION_INT_DIVIDE_BY_ZERO, ~ULONG_PTR{0}, nullptr},
    };
    for (const auto& c : cases) {
        Seen seen;
        EXPECT_EQ(Frame(c.body, seen), FALSE) << c.what;
        EXPECT_EQ(seen.Calls(), kOnceEach) << c.what;
        EXPECT_EQ(seen.code, c.code) << c.what;
        EXPECT_EQ(seen.kind, c.kind) << c.what;
        if (c.address != nullptr) {
            EXPECT_EQ(seen.address, reinterpret_cast<ULONG_PTR>(c.address)) << c.what;
        }
    }
}

TEST(Seh, ContinueExecutionResumesTheFaultingInstruction) {
    Region region(3);
    volatile char* bytes = region.Page(0);
    Seen seen;
    const auto body = [&] {  // each page faults once on its first touch; what is written stays
        for (size_t i = 0; i < 3; ++i) bytes[i * kPage + 7] = static_cast<char>(10 + i);
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(bytes[i * kPage + 7], static_cast<char>(10 + i));
    };
    EXPECT_EQ(Frame(body, seen, region.OpenAndContinue()), TRUE);
    EXPECT_EQ(seen.Calls(), std::pair(3, 0));
}

// Two frames, the inner one handling or searching on: who is asked, who
// handles, and whose body goes on.
TEST(Seh, NestedFramesSearchOutwardAndUnwindToTheChosenFrame) {
    Region region(1);
    for (bool innerHandles : {true, false}) {
        Seen inner, outer;
        BOOL innerCompleted = 2;
        bool afterInner = false;
        const LONG innerAnswer = innerHandles ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
        const auto body = [&] {
            innerCompleted = Frame([&] { ReadByte(region.Page(0)); }, inner, Always(innerAnswer));
            afterInner = true;
        };
        BOOL outerCompleted = Frame(body, outer);
        SCOPED_TRACE(innerHandles ? "inner handles" : "inner searches on");
        EXPECT_EQ(inner.Calls(), std::pair(1, innerHandles ? 1 : 0));
        EXPECT_EQ(outer.Calls(), innerHandles ? std::pair(0, 0) : kOnceEach);
        EXPECT_EQ(afterInner, innerHandles) << "the outer body goes on only when the inner frame handled";
        EXPECT_EQ(outerCompleted, innerHandles ? TRUE : FALSE);
        EXPECT_EQ(innerCompleted, innerHandles ? FALSE : 2);
    }
}

TEST(Seh, AFrameLeftByACppExceptionIsNoLongerAsked) {
    Region region(1);
    Seen outer, stale;
    const auto body = [&] {
        EXPECT_THROW(Frame([] { throw 42; }, stale), int);
        ReadByte(region.Page(0));
    };
    EXPECT_EQ(Frame(body, outer), FALSE);
    EXPECT_EQ(stale.filterCalls, 0);
    EXPECT_EQ(outer.Calls(), kOnceEach);
}

TEST(Seh, AFaultInsideAFilterSkipsThatFrame) {
    Region region(2);
    Seen inner, outer;
    const auto body = [&] {
        Frame([&] { ReadByte(region.Page(0)); }, inner, [&](EXCEPTION_POINTERS*) -> LONG {
            ReadByte(region.Page(1));  // faults again, inside the filter
            return EXCEPTION_CONTINUE_EXECUTION;
        });
        ADD_FAILURE() << "the inner frame returned";
    };
    EXPECT_EQ(Frame(body, outer), FALSE);
    EXPECT_EQ(inner.Calls(), std::pair(1, 0));
    EXPECT_EQ(outer.Calls(), kOnceEach);
    EXPECT_EQ(outer.address, region.At(1));
}

// A fault inside the outer filter is taken by the inner frame: the outer
// filter's run is abandoned, and the outer frame must be asked again later.
TEST(Seh, AFrameWhoseFilterWasAbandonedIsAskedAgain) {
    Region region(3);
    Seen inner, outer;
    BOOL innerCompleted = 2;
    const auto body = [&] {
        innerCompleted = Frame([&] { ReadByte(region.Page(0)); }, inner, [&](EXCEPTION_POINTERS* info) -> LONG {
            return FaultAddress(info) == region.At(1) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
        });
        ReadByte(region.Page(2));
    };
    EXPECT_EQ(Frame(body, outer, [&](EXCEPTION_POINTERS* info) -> LONG {
                  if (FaultAddress(info) == region.At(0)) ReadByte(region.Page(1));  // taken by the inner frame
                  return EXCEPTION_EXECUTE_HANDLER;
              }),
              FALSE);
    EXPECT_EQ(innerCompleted, FALSE);
    EXPECT_EQ(inner.Calls(), std::pair(2, 1));
    EXPECT_EQ(outer.Calls(), std::pair(2, 1));
}

// Called through a pointer, so that the compiler keeps the handlers around
// the call (it could prove a visible one-line store unable to throw).
void (*volatile g_store)(volatile char*) = WriteByte;

TEST(Seh, AnExceptionFromAFilterLeavesThroughTheFaultingCode) {
    Region region(2);
    Seen seen;
    unsigned int controlAtCatch = 0;
    const unsigned int control = orvacrt::_control87(orvacrt::_RC_UP, orvacrt::_MCW_RC);
    const auto body = [&] {
        try {
            g_store(region.Page(0));
        } catch (int value) {
            EXPECT_EQ(value, 7);
            controlAtCatch = orvacrt::_control87(0, 0);
        }
        g_store(region.Page(1));  // the frame is asked again
    };
    const Answer open = region.OpenAndContinue();
    const BOOL completed = Frame(body, seen, [&](EXCEPTION_POINTERS* info) -> LONG {
        if (FaultAddress(info) == region.At(0)) throw 7;
        return open(info);
    });
    orvacrt::_control87(orvacrt::_RC_NEAR, orvacrt::_MCW_RC);
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(seen.Calls(), std::pair(2, 0));
    EXPECT_EQ(controlAtCatch, control) << "the faulting code's rounding, not the handler's";
}

// Each thread's faults go to its own frames: the threads fault in the order
// in which they entered theirs, so the first to fault is the one whose frame
// any shared chain would have buried under the others.
TEST(Seh, FramesArePerThread) {
    constexpr int kThreads = 4;
    Region region(kThreads);
    std::atomic<int> entered{0}, turn{0};
    std::vector<Seen> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        const auto body = [&, t] {
            const int order = entered++;
            while (entered.load() < kThreads || turn.load() != order) std::this_thread::yield();
            WriteByte(region.Page(t) + t);
        };
        threads.emplace_back([&, t, body] {
            Frame(body, seen[t]);
            ++turn;
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(seen[t].Calls(), kOnceEach) << t;
        EXPECT_EQ(seen[t].address, region.At(t) + t) << t;
    }
}

// ---- past the outermost frame, in fresh processes ------------------------------------

void ExitFromEarlierHandler(int, siginfo_t* info, void*) {
    _exit(info->si_addr != nullptr ? 42 : 43);  // async-signal-safe: the status says where the fault was
}

// A frame whose filter declines, after a SIGSEGV handler of the test's own
// when `earlier` is set: the fault must go on past our frames.
void Decline(bool earlier) {
    struct sigaction action = {};
    action.sa_sigaction = ExitFromEarlierHandler;
    action.sa_flags = SA_SIGINFO;
    if (earlier) sigaction(SIGSEGV, &action, nullptr);
    Region region(1);
    Seen seen;
    Frame([&] { ReadByte(region.Page(0)); }, seen, Always(EXCEPTION_CONTINUE_SEARCH));
}

TEST(SehDeathTest, SearchPastTheOutermostFrameCallsTheEarlierHandler) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(Decline(true), testing::ExitedWithCode(42), "");
}

TEST(SehDeathTest, SearchPastTheOutermostFrameEndsInTheDefaultAction) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_DEATH(Decline(false), "AddressSanitizer: SEGV");  // the sanitizer's handler was there first
#elif defined(__SANITIZE_THREAD__)
    EXPECT_DEATH(Decline(false), "ThreadSanitizer: SEGV");
#else
    EXPECT_EXIT(Decline(false), testing::KilledBySignal(SIGSEGV), "");
#endif
}

}  // namespace
