// File times to calendar fields against the C library's UTC calendar, and
// the date and time pictures: elements, quotes, sizes and refusals.
#include <gtest/gtest.h>

#include <time.h>

#include <cstring>
#include <random>
#include <string>

#include <orvanest/platform/platform.h>

namespace {

constexpr uint64_t kTicksTo1970 = 116444736000000000ull;

FILETIME FromTicks(uint64_t ticks) { return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

TEST(FileTimeTest, AgreesWithTheCLibraryCalendar) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 20000; ++i) {
        // Seconds from 1601 to 9999, in the range the C library handles.
        int64_t seconds = static_cast<int64_t>(random() % 265000000000ull) - 11644473600ll;
        uint32_t fraction = static_cast<uint32_t>(random() % 10000000);
        uint64_t ticks = static_cast<uint64_t>(seconds + 11644473600ll) * 10000000ull + fraction;
        FILETIME ft = FromTicks(ticks);
        SYSTEMTIME st;
        std::memset(&st, 0xCC, sizeof st);
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
        time_t t = static_cast<time_t>(seconds);
        tm expected = {};
        gmtime_r(&t, &expected);
        ASSERT_EQ(st.wYear, expected.tm_year + 1900) << seconds;
        ASSERT_EQ(st.wMonth, expected.tm_mon + 1) << seconds;
        ASSERT_EQ(st.wDay, expected.tm_mday) << seconds;
        ASSERT_EQ(st.wDayOfWeek, expected.tm_wday) << seconds;
        ASSERT_EQ(st.wHour, expected.tm_hour) << seconds;
        ASSERT_EQ(st.wMinute, expected.tm_min) << seconds;
        ASSERT_EQ(st.wSecond, expected.tm_sec) << seconds;
        ASSERT_EQ(st.wMilliseconds, fraction / 10000) << seconds;
    }
}

TEST(FileTimeTest, EndsOfTheRange) {
    SYSTEMTIME st;
    FILETIME zero = FromTicks(0);
    ASSERT_TRUE(FileTimeToSystemTime(&zero, &st));
    EXPECT_EQ(st.wYear, 1601);
    EXPECT_EQ(st.wMonth, 1);
    EXPECT_EQ(st.wDay, 1);
    EXPECT_EQ(st.wDayOfWeek, 1);
    FILETIME last = FromTicks(0x7FFFFFFFFFFFFFFFull);
    ASSERT_TRUE(FileTimeToSystemTime(&last, &st));
    EXPECT_EQ(st.wYear, 30828);
    FILETIME beyond = FromTicks(0x8000000000000000ull);
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &st));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    FILETIME epoch = FromTicks(kTicksTo1970);
    ASSERT_TRUE(FileTimeToSystemTime(&epoch, &st));
    EXPECT_EQ(st.wYear, 1970);
}

SYSTEMTIME Time(WORD y, WORD mo, WORD d, WORD h, WORD mi, WORD s) { return {y, mo, 0, d, h, mi, s, 0}; }

TEST(DateFormatTest, Pictures) {
    SYSTEMTIME t = Time(2024, 3, 5, 14, 7, 9);
    char out[64];
    EXPECT_EQ(GetDateFormatA(GetSystemDefaultLCID(), 0, &t, "yyyy'/'MM'/'dd' '", out, 20), 12);
    EXPECT_STREQ(out, "2024/03/05 ");
    EXPECT_EQ(GetTimeFormatA(GetSystemDefaultLCID(), 0, &t, "HH':'mm':'ss", out, 20), 9);
    EXPECT_STREQ(out, "14:07:09");
    GetDateFormatA(0, 0, &t, "d.M.y yy-yyyy 'it''s' !", out, sizeof out);
    EXPECT_STREQ(out, "5.3.24 24-2024 it's !");
    GetTimeFormatA(0, 0, &t, "h:m:s hh H", out, sizeof out);
    EXPECT_STREQ(out, "2:7:9 02 14");
    GetDateFormatA(0, 0, &t, nullptr, out, sizeof out);
    EXPECT_STREQ(out, "2024/03/05");
    GetTimeFormatA(0, 0, &t, nullptr, out, sizeof out);
    EXPECT_STREQ(out, "14:07:09");
    SYSTEMTIME midnight = Time(2000, 2, 29, 0, 0, 0);
    GetTimeFormatA(0, 0, &midnight, "h hh", out, sizeof out);
    EXPECT_STREQ(out, "12 12");
    EXPECT_EQ(GetDateFormatA(0, 0, &midnight, "yyyy", nullptr, 0), 5);  // the size needed
}

TEST(DateFormatTest, Refusals) {
    SYSTEMTIME t = Time(2024, 3, 5, 14, 7, 9);
    char out[64];
    struct Case {
        bool time;
        DWORD flags;
        const char* picture;
        int size;
        DWORD error;
    } cases[] = {
        {false, 0, "yyyy/MM/dd", 10, ERROR_INSUFFICIENT_BUFFER},
        {false, 0, "dddd", 64, ERROR_INVALID_PARAMETER},
        {false, 1, "dd", 64, ERROR_INVALID_FLAGS},
        {true, 0, "tt", 64, ERROR_INVALID_PARAMETER},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        auto format = c.time ? GetTimeFormatA : GetDateFormatA;
        EXPECT_EQ(format(0, c.flags, &t, c.picture, out, c.size), 0) << c.picture;
        EXPECT_EQ(GetLastError(), c.error) << c.picture;
    }
    for (SYSTEMTIME bad : {Time(1600, 12, 31, 0, 0, 0), Time(2023, 2, 29, 0, 0, 0), Time(2024, 13, 1, 0, 0, 0),
                           Time(2024, 4, 31, 0, 0, 0), Time(2024, 1, 0, 0, 0, 0)}) {
        SetLastError(0);
        EXPECT_EQ(GetDateFormatA(0, 0, &bad, "yyyy", out, sizeof out), 0) << bad.wYear << "-" << bad.wMonth;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    for (SYSTEMTIME bad : {Time(2024, 1, 1, 24, 0, 0), Time(2024, 1, 1, 0, 60, 0), Time(2024, 1, 1, 0, 0, 60)}) {
        EXPECT_EQ(GetTimeFormatA(0, 0, &bad, "HH", out, sizeof out), 0);
    }
}

}  // namespace
