// System queries: the version word with and without the Win32s switch, and
// the local time against the C library's own view of the clock.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include <orvanest/platform/platform.h>

namespace {

TEST(SystemVersion, Win32sSwitchFlipsOnlyTheTopBitRoad) {
    DWORD normal = GetVersion();
    EXPECT_EQ(normal & 0x80000000u, 0u);
    EXPECT_GE(normal & 0xFF, 4u) << "a major version of the NT family";
    EXPECT_EQ(OrvaSetWin32s(TRUE), FALSE);
    EXPECT_EQ(GetVersion() & 0x8000FFFFu, 0x80000A03u) << "3.10 with the top bit";
    EXPECT_EQ(OrvaSetWin32s(7), TRUE) << "any non-zero counts as TRUE";
    EXPECT_EQ(OrvaSetWin32s(FALSE), TRUE);
    EXPECT_EQ(GetVersion(), normal);
}

// The local time lies between two readings of the fine clock (time() may read
// a coarser one that lags); its fields agree with what mktime makes of them.
TEST(SystemTime, LocalTimeAgreesWithTheClock) {
    SYSTEMTIME st;
    std::memset(&st, 0xCC, sizeof st);
    timespec before, after;
    clock_gettime(CLOCK_REALTIME, &before);
    GetLocalTime(&st);
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_LE(st.wMilliseconds, 999);
    tm fields = {};
    fields.tm_year = st.wYear - 1900;
    fields.tm_mon = st.wMonth - 1;
    fields.tm_mday = st.wDay;
    fields.tm_hour = st.wHour;
    fields.tm_min = st.wMinute;
    fields.tm_sec = st.wSecond;
    fields.tm_isdst = -1;
    time_t when = mktime(&fields);
    EXPECT_GE(when, before.tv_sec);
    EXPECT_LE(when, after.tv_sec);
    EXPECT_EQ(fields.tm_wday, st.wDayOfWeek);
}

}  // namespace
