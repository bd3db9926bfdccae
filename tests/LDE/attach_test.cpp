// Process and thread attach and detach, with hooks, on the main thread and on
// threads that the load entry meets at their first call. Each body runs on a
// thread of its own, joined, so its exit detach has run when it returns.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

std::atomic<int> g_threadHooks{0}, g_processHooks{0};

int ThreadAllow() { return ++g_threadHooks, 1; }
int ThreadRefuse() { return ++g_threadHooks, 0; }
int ProcessAllow() { return ++g_processHooks, 1; }
int ProcessRefuse() { return ++g_processHooks, 0; }

class AttachTest : public ::testing::Test {
protected:
    void SetUp() override { g_threadHooks = g_processHooks = 0; }
    void TearDown() override {
        l_orvanestSetProcDetachFuncName(nullptr);
        l_orvanestSetThreadDetachFuncName(nullptr);
    }
};

TEST_F(AttachTest, NewThreadIsAttachedAtFirstUseAndDetachedAtExit) {
    std::thread([] {
        ldbgCloseSetErr();  // attaches the thread; a later attach only replaces the hook
        EXPECT_EQ(l_orvanestThreadAttach(ThreadAllow), 1);
        EXPECT_EQ(g_threadHooks.load(), 0);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 1) << "thread exit runs the hook once";
}

TEST_F(AttachTest, ExplicitDetachRunsHookOnceAndExitDoesNotDetachAgain) {
    std::thread([] {
        l_orvanestThreadAttach(ThreadAllow);
        EXPECT_EQ(l_orvanestThreadDetach(), 1);
        EXPECT_EQ(g_threadHooks.load(), 1);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 1);
}

// The arena list is still there: destroying it works once, then the thread
// has none.
TEST_F(AttachTest, RefusingHookKeepsEveryContainerAlive) {
    std::thread([] {
        l_orvanestThreadAttach(ThreadRefuse);
        EXPECT_EQ(l_orvanestThreadDetach(), 0);
        EXPECT_EQ(lamlcMainDestroy(), 1);
        EXPECT_EQ(lamlcMainDestroy(), 0);
        EXPECT_EQ(lamlcMainCreate(), 1);
        l_orvanestSetThreadDetachFuncName(nullptr);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 1);
}

TEST_F(AttachTest, LaterAttachReplacesOrWipesTheHook) {
    std::thread([] {
        l_orvanestThreadAttach(ThreadRefuse);
        l_orvanestThreadAttach([] { return g_threadHooks += 100, 1; });
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 100);
    std::thread([] {
        l_orvanestThreadAttach(ThreadAllow);
        l_orvanestThreadAttach(nullptr);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 100);
}

TEST_F(AttachTest, ProcessDetachOnThreadWithoutProcessAttachDoesNothing) {
    l_orvanestSetProcDetachFuncName(ProcessAllow);
    std::thread([] {
        l_orvanestThreadAttach(ThreadAllow);
        EXPECT_EQ(l_orvanestProcessDetach(), 1);
        EXPECT_EQ(g_processHooks.load(), 0);
        EXPECT_EQ(g_threadHooks.load(), 0);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 1) << "only the thread's exit detached it";
}

TEST_F(AttachTest, ProcessAttachOnAnotherThreadAttachesItOnce) {
    std::thread([] {
        EXPECT_EQ(l_orvanestProcessAttach(ProcessAllow), 1);
        EXPECT_EQ(l_orvanestProcessAttach(ProcessAllow), 1);
        l_orvanestSetThreadDetachFuncName(ThreadAllow);
        EXPECT_EQ(l_orvanestProcessDetach(), 1);
        EXPECT_EQ(g_processHooks.load(), 1);
        EXPECT_EQ(g_threadHooks.load(), 1);
    }).join();
    EXPECT_EQ(g_threadHooks.load(), 1);
}

TEST_F(AttachTest, ProcessHookThatRefusesStopsTheDetach) {
    l_orvanestProcessAttach(ProcessRefuse);
    l_orvanestSetThreadDetachFuncName(ThreadAllow);
    EXPECT_EQ(l_orvanestProcessDetach(), 0);
    EXPECT_EQ(g_processHooks.load(), 1);
    EXPECT_EQ(g_threadHooks.load(), 0);
}

// At exit the process hook runs, then the thread hook; an explicit process
// detach is not repeated.
TEST_F(AttachTest, ProcessDetachAtExitCallsBothHooksOnce) {
    EXPECT_EXIT(
        {
            l_orvanestSetProcDetachFuncName([] { return std::fputs("process hook\n", stderr), 1; });
            l_orvanestSetThreadDetachFuncName([] { return std::fputs("thread hook\n", stderr), 1; });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "process hook\nthread hook");
    EXPECT_EXIT(
        {
            l_orvanestSetProcDetachFuncName([] { return std::fputs("once\n", stderr), 1; });
            if (l_orvanestProcessDetach() != 1) std::abort();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^once\n$");
}

}  // namespace
