// The error operations: a mark keeps the last error, the release bracket
// brings the latest mark's value back, and nothing comes back without a mark.
#include <gtest/gtest.h>

#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

// Every case runs on a fresh thread, whose latest mark starts at 0.
template <class Body>
void OnFreshThread(Body body) {
    std::thread(body).join();
}

TEST(MarksTest, MarkKeepsTheLastErrorAndBracketRestoresIt) {
    OnFreshThread([] {
        for (DWORD mark : {0u, 0x80100123u, 0xFFFFFFFFu}) {
            SetLastError(LERR_BADSIZE);
            ldbgSetMarkErr(mark);
            EXPECT_EQ(GetLastError(), LERR_BADSIZE) << "the mark leaves the last error alone";
            SetLastError(5);
            ldbgCloseSetErr();
            SetLastError(6);
            ldbgOpenSetErr();
            EXPECT_EQ(GetLastError(), LERR_BADSIZE);
        }
    });
}

TEST(MarksTest, NothingIsRestoredBeforeAnyMarkOrAfterAMarkOfZero) {
    OnFreshThread([] {
        SetLastError(5);
        ldbgOpenSetErr();
        EXPECT_EQ(GetLastError(), 5u) << "no mark yet";
        SetLastError(0);
        ldbgSetMarkErr(0x80010001);
        SetLastError(5);
        ldbgOpenSetErr();
        EXPECT_EQ(GetLastError(), 5u) << "the stored value is 0";
    });
}

TEST(MarksTest, PassingOnChangesNothing) {
    OnFreshThread([] {
        SetLastError(LERR_NODATA);
        ldbgSetMarkErr(0x80010001);
        SetLastError(77);
        ldbgSetErr(0x00010002);
        EXPECT_EQ(GetLastError(), 77u);
        ldbgOpenSetErr();
        EXPECT_EQ(GetLastError(), LERR_NODATA);
    });
}

TEST(MarksTest, ReleaseStepThatMarksReplacesTheRestoredValue) {
    OnFreshThread([] {
        SetLastError(LERR_BADSIZE);
        ldbgSetMarkErr(0x80010001);
        ldbgCloseSetErr();
        EXPECT_EQ(ldlistDestroy(nullptr), 0);  // sets 6 and marks
        SetLastError(99);
        ldbgOpenSetErr();
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    });
}

TEST(MarksTest, MarksArePerThread) {
    OnFreshThread([] {
        SetLastError(LERR_LOCKED);
        ldbgSetMarkErr(0x80010001);
        OnFreshThread([] {
            SetLastError(3);
            ldbgOpenSetErr();
            EXPECT_EQ(GetLastError(), 3u);
        });
        SetLastError(3);
        ldbgOpenSetErr();
        EXPECT_EQ(GetLastError(), LERR_LOCKED);
    });
}

}  // namespace
