// The error operations: a mark keeps the last error, the release bracket
// brings the latest mark's value back, and nothing comes back without a
// mark. Every case runs on a fresh thread, whose latest mark starts at 0.
#include <gtest/gtest.h>

#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

// The value ldbgOpenSetErr leaves when the last error before it is 5.
DWORD Restored() {
    SetLastError(5);
    ldbgOpenSetErr();
    return GetLastError();
}

TEST(MarksTest, MarkKeepsTheLastErrorAndBracketRestoresIt) {
    std::thread([] {
        EXPECT_EQ(Restored(), 5u) << "no mark yet";
        for (DWORD mark : {0u, 0x80100123u, 0xFFFFFFFFu}) {
            SetLastError(LERR_BADSIZE);
            ldbgSetMarkErr(mark);
            EXPECT_EQ(GetLastError(), LERR_BADSIZE) << "the mark leaves the last error alone";
            SetLastError(6);
            ldbgCloseSetErr();
            EXPECT_EQ(Restored(), LERR_BADSIZE);
        }
        SetLastError(0);
        ldbgSetMarkErr(0x80010001);
        EXPECT_EQ(Restored(), 5u) << "the stored value is 0";
    }).join();
}

TEST(MarksTest, PassingOnChangesNothing) {
    std::thread([] {
        SetLastError(LERR_NODATA);
        ldbgSetMarkErr(0x80010001);
        SetLastError(77);
        ldbgSetErr(0x00010002);
        EXPECT_EQ(GetLastError(), 77u);
        EXPECT_EQ(Restored(), LERR_NODATA);
    }).join();
}

TEST(MarksTest, ReleaseStepThatMarksReplacesTheRestoredValue) {
    std::thread([] {
        SetLastError(LERR_BADSIZE);
        ldbgSetMarkErr(0x80010001);
        ldbgCloseSetErr();
        EXPECT_EQ(ldlistDestroy(nullptr), 0);  // sets 6 and marks
        EXPECT_EQ(Restored(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }).join();
}

TEST(MarksTest, MarksArePerThread) {
    std::thread([] {
        SetLastError(LERR_LOCKED);
        ldbgSetMarkErr(0x80010001);
        std::thread([] { EXPECT_EQ(Restored(), 5u); }).join();
        EXPECT_EQ(Restored(), LERR_LOCKED);
    }).join();
}

}  // namespace
