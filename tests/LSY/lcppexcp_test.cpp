// The C++ exception filter and the stop-message scope: nesting and the
// per-thread count.
#include <gtest/gtest.h>

#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

TEST(LcppexcpFilter, GivesOneForAnyObjectAndTouchesNothing) {
    SetLastError(1234);
    CException object;
    EXPECT_EQ(lcppexcpFilter(nullptr), 1);
    EXPECT_EQ(lcppexcpFilter(&object), 1);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST(StopExceptMsg, NestedScopesCountUntilTheLastHasGone) {
    EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 0);
    {
        L_CStopExceptMsg outer;
        EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 1);
        {
            L_CStopExceptMsg inner;
            EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 1);
        }
        EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 1) << "the outer one still lives";
    }
    EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 0);
    // Destroyed through its base-less virtual destructor, as a host may.
    L_CStopExceptMsg* dynamic = new L_CStopExceptMsg;
    EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 1);
    delete dynamic;
    EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 0);
}

TEST(StopExceptMsg, AnotherThreadsScopeIsNotSeen) {
    L_CStopExceptMsg stop;
    int seenThere = -1;
    std::thread([&] { seenThere = L_CStopExceptMsg::IsStopMsg(); }).join();
    EXPECT_EQ(seenThere, 0);
    EXPECT_EQ(L_CStopExceptMsg::IsStopMsg(), 1);
}

}  // namespace
