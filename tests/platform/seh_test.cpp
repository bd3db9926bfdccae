// Structured exceptions: real faults described as records, the three filter
// answers, nesting, faults inside filters, the road past the outermost frame
// to the handler installed before ours, and frames on several threads.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

// A page-aligned region whose pages start inaccessible.
class Region {
public:
    explicit Region(size_t pages) : size_(pages * PageSize()) {
        base_ = static_cast<char*>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    ~Region() { munmap(base_, size_); }
    char* Page(size_t i) const { return base_ + i * PageSize(); }
    bool Contains(ULONG_PTR address) const {
        return address >= reinterpret_cast<ULONG_PTR>(base_) && address < reinterpret_cast<ULONG_PTR>(base_) + size_;
    }
    void Open(size_t i) const { mprotect(Page(i), PageSize(), PROT_READ | PROT_WRITE); }
    static size_t PageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

private:
    size_t size_;
    char* base_;
};

int ReadByte(const volatile char* p) { return *p; }
void WriteByte(volatile char* p, char value) { *p = value; }

// What a filter and a handler saw.
struct Seen {
    int filterCalls = 0;
    int handlerCalls = 0;
    DWORD code = 0;
    ULONG_PTR kind = ~ULONG_PTR{0};
    ULONG_PTR address = 0;
    DWORD handlerCode = 0;
};

LONG Record(Seen& seen, EXCEPTION_POINTERS* info, LONG answer) {
    ++seen.filterCalls;
    seen.code = info->ExceptionRecord->ExceptionCode;
    if (info->ExceptionRecord->NumberParameters >= 2) {
        seen.kind = info->ExceptionRecord->ExceptionInformation[0];
        seen.address = info->ExceptionRecord->ExceptionInformation[1];
    }
    return answer;
}

TEST(Seh, AccessViolationDescribesReadAndWriteAndReachesTheHandler) {
    Region region(1);
    struct Case {
        const char* what;
        bool write;
        size_t offset;
    } cases[] = {{"read at start", false, 0}, {"write at start", true, 0}, {"read inside", false, 123},
                 {"write at end", true, Region::PageSize() - 1}};
    for (const Case& c : cases) {
        Seen seen;
        char* target = region.Page(0) + c.offset;
        BOOL completed = OrvaTryExcept(
            [&] {
                if (c.write) {
                    WriteByte(target, 1);
                } else {
                    ReadByte(target);
                }
            },
            [&](EXCEPTION_POINTERS* info) { return Record(seen, info, EXCEPTION_EXECUTE_HANDLER); },
            [&](const EXCEPTION_RECORD* record) {
                ++seen.handlerCalls;
                seen.handlerCode = record->ExceptionCode;
            });
        EXPECT_EQ(completed, FALSE) << c.what;
        EXPECT_EQ(seen.filterCalls, 1) << c.what;
        EXPECT_EQ(seen.handlerCalls, 1) << c.what;
        EXPECT_EQ(seen.code, EXCEPTION_ACCESS_VIOLATION) << c.what;
        EXPECT_EQ(seen.handlerCode, EXCEPTION_ACCESS_VIOLATION) << c.what;
        EXPECT_EQ(seen.kind, c.write ? 1u : 0u) << c.what;
        EXPECT_EQ(seen.address, reinterpret_cast<ULONG_PTR>(target)) << c.what;
    }
}

TEST(Seh, ContinueExecutionResumesTheFaultingInstruction) {
    Region region(3);
    int faults = 0;
    BOOL completed = OrvaTryExcept(
        [&] {
            // Each page faults once on its first touch; the value written is
            // there afterwards.
            for (size_t i = 0; i < 3; ++i) WriteByte(region.Page(i) + 7, static_cast<char>(10 + i));
            for (size_t i = 0; i < 3; ++i) EXPECT_EQ(ReadByte(region.Page(i) + 7), static_cast<int>(10 + i));
        },
        [&](EXCEPTION_POINTERS* info) -> LONG {
            ULONG_PTR address = info->ExceptionRecord->ExceptionInformation[1];
            if (!region.Contains(address)) return EXCEPTION_CONTINUE_SEARCH;
            ++faults;
            region.Open((address - reinterpret_cast<ULONG_PTR>(region.Page(0))) / Region::PageSize());
            return EXCEPTION_CONTINUE_EXECUTION;
        },
        [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(faults, 3);
}

// Two frames, the inner one answering `inner`: who is asked and who handles.
TEST(Seh, NestedFramesSearchOutwardAndUnwindToTheChosenFrame) {
    Region region(1);
    struct Case {
        const char* what;
        LONG inner;
        BOOL innerCompleted;
        int outerFilterCalls;
        int innerHandlerCalls;
        int outerHandlerCalls;
    } cases[] = {
        {"inner handles", EXCEPTION_EXECUTE_HANDLER, FALSE, 0, 1, 0},
        {"inner searches on", EXCEPTION_CONTINUE_SEARCH, FALSE, 1, 0, 1},
    };
    for (const Case& c : cases) {
        Seen inner;
        Seen outer;
        BOOL innerCompleted = 2;
        bool afterInner = false;
        BOOL outerCompleted = OrvaTryExcept(
            [&] {
                innerCompleted = OrvaTryExcept(
                    [&] { ReadByte(region.Page(0)); },
                    [&](EXCEPTION_POINTERS* info) { return Record(inner, info, c.inner); },
                    [&](const EXCEPTION_RECORD*) { ++inner.handlerCalls; });
                afterInner = true;
            },
            [&](EXCEPTION_POINTERS* info) { return Record(outer, info, EXCEPTION_EXECUTE_HANDLER); },
            [&](const EXCEPTION_RECORD*) { ++outer.handlerCalls; });
        EXPECT_EQ(inner.filterCalls, 1) << c.what;
        EXPECT_EQ(outer.filterCalls, c.outerFilterCalls) << c.what;
        EXPECT_EQ(inner.handlerCalls, c.innerHandlerCalls) << c.what;
        EXPECT_EQ(outer.handlerCalls, c.outerHandlerCalls) << c.what;
        if (c.inner == EXCEPTION_EXECUTE_HANDLER) {
            EXPECT_EQ(innerCompleted, FALSE) << c.what;
            EXPECT_TRUE(afterInner) << c.what << ": the outer body goes on";
            EXPECT_EQ(outerCompleted, TRUE) << c.what;
        } else {
            EXPECT_FALSE(afterInner) << c.what << ": the inner frame was abandoned";
            EXPECT_EQ(outerCompleted, FALSE) << c.what;
        }
    }
}

TEST(Seh, AFrameLeftByACppExceptionIsNoLongerAsked) {
    Region region(1);
    Seen outer;
    Seen stale;
    BOOL completed = OrvaTryExcept(
        [&] {
            try {
                OrvaTryExcept([] { throw 42; }, [&](EXCEPTION_POINTERS* info) { return Record(stale, info, 1); },
                              [](const EXCEPTION_RECORD*) {});
            } catch (int value) {
                EXPECT_EQ(value, 42);
            }
            ReadByte(region.Page(0));
        },
        [&](EXCEPTION_POINTERS* info) { return Record(outer, info, EXCEPTION_EXECUTE_HANDLER); },
        [&](const EXCEPTION_RECORD*) { ++outer.handlerCalls; });
    EXPECT_EQ(completed, FALSE);
    EXPECT_EQ(stale.filterCalls, 0);
    EXPECT_EQ(outer.filterCalls, 1);
    EXPECT_EQ(outer.handlerCalls, 1);
}

TEST(Seh, AFaultInsideAFilterSkipsThatFrame) {
    Region region(2);
    Seen outer;
    int innerFilterCalls = 0;
    BOOL completed = OrvaTryExcept(
        [&] {
            OrvaTryExcept(
                [&] { ReadByte(region.Page(0)); },
                [&](EXCEPTION_POINTERS*) -> LONG {
                    ++innerFilterCalls;
                    ReadByte(region.Page(1));  // faults again, inside the filter
                    return EXCEPTION_CONTINUE_EXECUTION;
                },
                [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "inner handler ran"; });
            ADD_FAILURE() << "the inner frame returned";
        },
        [&](EXCEPTION_POINTERS* info) { return Record(outer, info, EXCEPTION_EXECUTE_HANDLER); },
        [&](const EXCEPTION_RECORD*) { ++outer.handlerCalls; });
    EXPECT_EQ(completed, FALSE);
    EXPECT_EQ(innerFilterCalls, 1);
    EXPECT_EQ(outer.filterCalls, 1);
    EXPECT_EQ(outer.address, reinterpret_cast<ULONG_PTR>(region.Page(1)));
    EXPECT_EQ(outer.handlerCalls, 1);
}

// A fault inside the outer filter is taken by the inner frame: the outer
// filter's run is abandoned, and the outer frame must be asked again later.
TEST(Seh, AFrameWhoseFilterWasAbandonedIsAskedAgain) {
    Region region(3);
    const auto at = [&](EXCEPTION_POINTERS* info, size_t page) {
        return info->ExceptionRecord->ExceptionInformation[1] == reinterpret_cast<ULONG_PTR>(region.Page(page));
    };
    int outerFilterCalls = 0;
    int innerHandler = 0;
    int outerHandler = 0;
    BOOL innerCompleted = 2;
    BOOL completed = OrvaTryExcept(
        [&] {
            innerCompleted = OrvaTryExcept(
                [&] { ReadByte(region.Page(0)); },
                [&](EXCEPTION_POINTERS* info) -> LONG {
                    return at(info, 1) ? EXCEPTION_EXECUTE_HANDLER : EXCEPTION_CONTINUE_SEARCH;
                },
                [&](const EXCEPTION_RECORD*) { ++innerHandler; });
            ReadByte(region.Page(2));
        },
        [&](EXCEPTION_POINTERS* info) -> LONG {
            ++outerFilterCalls;
            if (at(info, 0)) ReadByte(region.Page(1));  // taken by the inner frame
            return EXCEPTION_EXECUTE_HANDLER;
        },
        [&](const EXCEPTION_RECORD*) { ++outerHandler; });
    EXPECT_EQ(innerCompleted, FALSE);
    EXPECT_EQ(innerHandler, 1);
    EXPECT_EQ(completed, FALSE);
    EXPECT_EQ(outerFilterCalls, 2);
    EXPECT_EQ(outerHandler, 1);
}

// Called through a pointer, so that the compiler keeps the handlers around
// the call (it could prove a visible one-line store unable to throw).
void StoreByte(char* p) { *static_cast<volatile char*>(p) = 1; }
void (*volatile g_store)(char*) = StoreByte;

TEST(Seh, AnExceptionFromAFilterLeavesThroughTheFaultingCode) {
    Region region(2);
    int filterCalls = 0;
    int caught = 0;
    unsigned int controlAtCatch = 0;
    const unsigned int control = orvacrt::_control87(orvacrt::_RC_UP, orvacrt::_MCW_RC);
    BOOL completed = OrvaTryExcept(
        [&] {
            try {
                g_store(region.Page(0));
            } catch (int value) {
                EXPECT_EQ(value, 7);
                controlAtCatch = orvacrt::_control87(0, 0);
                ++caught;
            }
            g_store(region.Page(1));  // the frame is asked again
        },
        [&](EXCEPTION_POINTERS* info) -> LONG {
            ++filterCalls;
            if (info->ExceptionRecord->ExceptionInformation[1] == reinterpret_cast<ULONG_PTR>(region.Page(0))) {
                throw 7;
            }
            region.Open(1);
            return EXCEPTION_CONTINUE_EXECUTION;
        },
        [](const EXCEPTION_RECORD*) { ADD_FAILURE() << "handler ran"; });
    orvacrt::_control87(orvacrt::_RC_NEAR, orvacrt::_MCW_RC);
    EXPECT_EQ(completed, TRUE);
    EXPECT_EQ(caught, 1);
    EXPECT_EQ(filterCalls, 2);
    EXPECT_EQ(controlAtCatch, control) << "the faulting code's rounding, not the handler's";
}

// Recursion that outruns the stack.
volatile bool g_deepEnough = false;  // never set: the recursion ends in a fault

int Deep(int n) {
    volatile char pad[512];
    pad[0] = static_cast<char>(n);
    if (g_deepEnough) return n;
    return Deep(n + 1) + pad[0];
}

TEST(Seh, StackOverflowAndIntegerDivideAreDescribed) {
    struct Case {
        const char* what;
        void (*body)();
        DWORD code;
        ULONG_PTR kind;
    } cases[] = {
        // The handler runs on the alternate stack; the push that overflowed writes.
        {"stack overflow", [] { Deep(0); }, EXCEPTION_ACCESS_VIOLATION, 1},
        {"divide by zero",
         [] {
             // Straight to the instruction: the compiler may not see the zero.
             int dividend = 7;
             int divisor = 0;
             __asm__ volatile("cltd\n\tidivl %2" : "+a"(dividend) : "d"(0), "r"(divisor) : "cc");
         },
         EXCEPTION_INT_DIVIDE_BY_ZERO, ~ULONG_PTR{0}},
    };
    for (const Case& c : cases) {
        Seen seen;
        BOOL completed = OrvaTryExcept(c.body,
                                       [&](EXCEPTION_POINTERS* info) { return Record(seen, info, EXCEPTION_EXECUTE_HANDLER); },
                                       [&](const EXCEPTION_RECORD*) { ++seen.handlerCalls; });
        EXPECT_EQ(completed, FALSE) << c.what;
        EXPECT_EQ(seen.code, c.code) << c.what;
        if (c.kind != ~ULONG_PTR{0}) {
            EXPECT_EQ(seen.kind, c.kind) << c.what;
        }
        EXPECT_EQ(seen.handlerCalls, 1) << c.what;
    }
}

// Each thread's faults go to its own frames.
TEST(Seh, FramesArePerThread) {
    constexpr int kThreads = 4;
    Region region(kThreads);
    std::atomic<int> ready{0};
    std::vector<Seen> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            OrvaTryExcept(
                [&] {
                    ++ready;
                    while (ready.load() < kThreads) std::this_thread::yield();
                    for (int i = 0; i < 100; ++i) {
                        WriteByte(region.Page(t) + i, 1);
                    }
                },
                [&](EXCEPTION_POINTERS* info) { return Record(seen[t], info, EXCEPTION_EXECUTE_HANDLER); },
                [&](const EXCEPTION_RECORD*) { ++seen[t].handlerCalls; });
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(seen[t].filterCalls, 1) << t;
        EXPECT_EQ(seen[t].handlerCalls, 1) << t;
        EXPECT_EQ(seen[t].address, reinterpret_cast<ULONG_PTR>(region.Page(t))) << t;
    }
}

// ---- past the outermost frame -----------------------------------------------------

void ExitFromEarlierHandler(int, siginfo_t* info, void*) {
    // Only async-signal-safe calls: the exit status says where the fault was.
    _exit(info->si_addr != nullptr ? 42 : 43);
}

// A frame whose filter declines, after a SIGSEGV handler of the test's own
// when `earlier` is set: the fault must go on past our frames.
void Decline(bool earlier) {
    if (earlier) {
        struct sigaction action = {};
        action.sa_sigaction = ExitFromEarlierHandler;
        action.sa_flags = SA_SIGINFO;
        sigemptyset(&action.sa_mask);
        sigaction(SIGSEGV, &action, nullptr);
    }
    Region region(1);
    OrvaTryExcept([&] { ReadByte(region.Page(0)); },
                  [](EXCEPTION_POINTERS*) -> LONG { return EXCEPTION_CONTINUE_SEARCH; },
                  [](const EXCEPTION_RECORD*) {});
}

TEST(SehDeathTest, SearchPastTheOutermostFrameCallsTheEarlierHandler) {
    // A fresh process, so that the test's handler is there before ours.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(Decline(true), testing::ExitedWithCode(42), "");
}

TEST(SehDeathTest, SearchPastTheOutermostFrameEndsInTheDefaultAction) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's handler was there first, and reports.
    EXPECT_DEATH(Decline(false), "AddressSanitizer: SEGV");
#elif defined(__SANITIZE_THREAD__)
    EXPECT_DEATH(Decline(false), "ThreadSanitizer: SEGV");
#else
    EXPECT_EXIT(Decline(false), testing::KilledBySignal(SIGSEGV), "");
#endif
}

}  // namespace
