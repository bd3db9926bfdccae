// Process and thread attach and detach, with hooks, on the main thread and on
// threads that the load entry meets at their first call.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

std::atomic<int> g_threadHookCalls{0};
std::atomic<int> g_processHookCalls{0};

int CountingAllow() {
    ++g_threadHookCalls;
    return 1;
}
int CountingRefuse() {
    ++g_threadHookCalls;
    return 0;
}
int OtherAllow() {
    g_threadHookCalls += 100;
    return 1;
}
int ProcessAllow() {
    ++g_processHookCalls;
    return 1;
}
int ProcessRefuse() {
    ++g_processHookCalls;
    return 0;
}

// Runs body on a new thread and waits for the thread to end (so its exit
// detach has run when this returns).
template <class Body>
void OnNewThread(Body body) {
    std::thread t(body);
    t.join();
}

class AttachTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_threadHookCalls = 0;
        g_processHookCalls = 0;
    }
};

TEST_F(AttachTest, NewThreadIsAttachedAtFirstUseAndDetachedAtExit) {
    OnNewThread([] {
        // The first call that uses the context attaches the thread; a later
        // attach only replaces the hook.
        ldbgCloseSetErr();
        EXPECT_EQ(l_orvanestThreadAttach(CountingAllow), 1);
        EXPECT_EQ(g_threadHookCalls.load(), 0);
    });
    EXPECT_EQ(g_threadHookCalls.load(), 1) << "thread exit runs the hook once";
}

TEST_F(AttachTest, ExplicitDetachRunsHookOnceAndExitDoesNotDetachAgain) {
    OnNewThread([] {
        l_orvanestThreadAttach(CountingAllow);
        EXPECT_EQ(l_orvanestThreadDetach(), 1);
        EXPECT_EQ(g_threadHookCalls.load(), 1);
    });
    EXPECT_EQ(g_threadHookCalls.load(), 1);
}

TEST_F(AttachTest, RefusingHookKeepsEveryContainerAlive) {
    OnNewThread([] {
        l_orvanestThreadAttach(CountingRefuse);
        EXPECT_EQ(l_orvanestThreadDetach(), 0);
        // The arena list is still there: destroying it works once, then the
        // thread has none.
        EXPECT_EQ(lamlcMainDestroy(), 1);
        EXPECT_EQ(lamlcMainDestroy(), 0);
        EXPECT_EQ(lamlcMainCreate(), 1);
        l_orvanestSetThreadDetachFuncName(nullptr);
    });
    EXPECT_EQ(g_threadHookCalls.load(), 1);
}

TEST_F(AttachTest, LaterAttachReplacesOrWipesTheHook) {
    OnNewThread([] {
        l_orvanestThreadAttach(CountingAllow);
        EXPECT_EQ(l_orvanestThreadAttach(OtherAllow), 1);
    });
    EXPECT_EQ(g_threadHookCalls.load(), 100);
    g_threadHookCalls = 0;
    OnNewThread([] {
        l_orvanestThreadAttach(CountingAllow);
        l_orvanestThreadAttach(nullptr);
    });
    EXPECT_EQ(g_threadHookCalls.load(), 0);
}

TEST_F(AttachTest, ProcessDetachOnThreadWithoutProcessAttachDoesNothing) {
    l_orvanestSetProcDetachFuncName(ProcessAllow);
    OnNewThread([] {
        l_orvanestThreadAttach(CountingAllow);
        EXPECT_EQ(l_orvanestProcessDetach(), 1);
        EXPECT_EQ(g_processHookCalls.load(), 0);
        EXPECT_EQ(g_threadHookCalls.load(), 0);
    });
    l_orvanestSetProcDetachFuncName(nullptr);
    EXPECT_EQ(g_threadHookCalls.load(), 1) << "only the thread's exit detached it";
}

TEST_F(AttachTest, ProcessAttachOnAnotherThreadAttachesItOnce) {
    OnNewThread([] {
        EXPECT_EQ(l_orvanestProcessAttach(ProcessAllow), 1);
        EXPECT_EQ(l_orvanestProcessAttach(ProcessAllow), 1);
        l_orvanestSetThreadDetachFuncName(CountingAllow);
        EXPECT_EQ(l_orvanestProcessDetach(), 1);
        EXPECT_EQ(g_processHookCalls.load(), 1);
        EXPECT_EQ(g_threadHookCalls.load(), 1);
    });
    l_orvanestSetProcDetachFuncName(nullptr);
    EXPECT_EQ(g_threadHookCalls.load(), 1);
}

TEST_F(AttachTest, ProcessHookThatRefusesStopsTheDetach) {
    l_orvanestProcessAttach(ProcessRefuse);
    l_orvanestSetThreadDetachFuncName(CountingAllow);
    EXPECT_EQ(l_orvanestProcessDetach(), 0);
    EXPECT_EQ(g_processHookCalls.load(), 1);
    EXPECT_EQ(g_threadHookCalls.load(), 0);
    l_orvanestSetProcDetachFuncName(nullptr);
    l_orvanestSetThreadDetachFuncName(nullptr);
}

TEST_F(AttachTest, ProcessDetachAtExitCallsBothHooks) {
    EXPECT_EXIT(
        {
            l_orvanestSetProcDetachFuncName([] {
                std::fputs("process hook\n", stderr);
                return 1;
            });
            l_orvanestSetThreadDetachFuncName([] {
                std::fputs("thread hook\n", stderr);
                return 1;
            });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "process hook\nthread hook");
}

TEST_F(AttachTest, ExplicitProcessDetachIsNotRepeatedAtExit) {
    EXPECT_EXIT(
        {
            l_orvanestSetProcDetachFuncName([] {
                std::fputs("once\n", stderr);
                return 1;
            });
            if (l_orvanestProcessDetach() != 1) std::abort();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^once\n$");
}

}  // namespace
