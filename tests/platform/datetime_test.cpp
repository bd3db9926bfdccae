// File times to calendar fields against the C library's UTC calendar, and
// the date and time pictures: elements, quotes, sizes and refusals.
#include <gtest/gtest.h>

#include <time.h>

#include <cstring>
#include <random>

#include <orvanest/platform/platform.h>

namespace {

FILETIME FromTicks(uint64_t ticks) { return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

TEST(FileTimeTest, AgreesWithTheCLibraryCalendar) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 20000; ++i) {
        // Seconds from 1601 to 9999, in the range the C library handles.
        int64_t seconds = static_cast<int64_t>(random() % 265000000000ull) - 11644473600ll;
        uint32_t fraction = static_cast<uint32_t>(random() % 10000000);
        FILETIME ft = FromTicks(static_cast<uint64_t>(seconds + 11644473600ll) * 10000000ull + fraction);
        SYSTEMTIME st;
        std::memset(&st, 0xCC, sizeof st);
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
        time_t t = static_cast<time_t>(seconds);
        tm c = {};
        gmtime_r(&t, &c);
        const SYSTEMTIME want = {WORD(c.tm_year + 1900), WORD(c.tm_mon + 1), WORD(c.tm_wday), WORD(c.tm_mday),
                                 WORD(c.tm_hour), WORD(c.tm_min), WORD(c.tm_sec), WORD(fraction / 10000)};
        ASSERT_EQ(std::memcmp(&st, &want, sizeof st), 0) << "second " << seconds;
    }
}

TEST(FileTimeTest, EndsOfTheRange) {
    SYSTEMTIME st;
    FILETIME first = FromTicks(0), last = FromTicks(0x7FFFFFFFFFFFFFFFull), beyond = FromTicks(1ull << 63);
    ASSERT_TRUE(FileTimeToSystemTime(&first, &st));
    EXPECT_EQ(st.wYear * 10000 + st.wMonth * 100 + st.wDay, 16010101);
    EXPECT_EQ(st.wDayOfWeek, 1) << "a Monday";
    ASSERT_TRUE(FileTimeToSystemTime(&last, &st));
    EXPECT_EQ(st.wYear, 30828);
    SetLastError(0);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &st));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

SYSTEMTIME Time(WORD y, WORD mo, WORD d, WORD h = 0, WORD mi = 0, WORD s = 0) {
    return {y, mo, 0, d, h, mi, s, 0};
}

const SYSTEMTIME kTime = Time(2024, 3, 5, 14, 7, 9);

// Each picture with a buffer of exactly the size needed, and with none.
TEST(DateFormatTest, Pictures) {
    const SYSTEMTIME midnight = Time(2000, 2, 29);
    const struct {
        bool time;
        const SYSTEMTIME* when;
        const char* picture;
        const char* want;
    } cases[] = {
        {false, &kTime, "yyyy'/'MM'/'dd' '", "2024/03/05 "},
        {false, &kTime, "d.M.y yy-yyyy 'it''s' !", "5.3.24 24-2024 it's !"},
        {false, &kTime, nullptr, "2024/03/05"},   {true, &kTime, "HH':'mm':'ss", "14:07:09"},
        {true, &kTime, "h:m:s hh H", "2:7:9 02 14"}, {true, &kTime, nullptr, "14:07:09"},
        {true, &midnight, "h hh", "12 12"},        {false, &midnight, "yyMMdd", "000229"},
    };
    for (const auto& c : cases) {
        char out[64];
        auto format = c.time ? GetTimeFormatA : GetDateFormatA;
        const int size = static_cast<int>(std::strlen(c.want)) + 1;
        EXPECT_EQ(format(GetSystemDefaultLCID(), 0, c.when, c.picture, out, size), size) << c.want;
        EXPECT_STREQ(out, c.want);
        EXPECT_EQ(format(0, 0, c.when, c.picture, nullptr, 0), size) << c.want;
    }
}

TEST(DateFormatTest, Refusals) {
    constexpr DWORD P = ERROR_INVALID_PARAMETER;
    const struct {
        bool time;
        SYSTEMTIME when;
        DWORD flags;
        const char* picture;
        int size;
        DWORD error;
    } cases[] = {
        {false, kTime, 0, "yyyy/MM/dd", 10, ERROR_INSUFFICIENT_BUFFER},
        {false, kTime, 1, "dd", 64, ERROR_INVALID_FLAGS}, {false, Time(2100, 2, 29), 0, "y", 64, P},
        {false, kTime, 0, "dddd", 64, P},           {true, kTime, 0, "tt", 64, P},
        {false, Time(1600, 12, 31), 0, "y", 64, P}, {false, Time(2023, 2, 29), 0, "y", 64, P},
        {false, Time(2024, 13, 1), 0, "y", 64, P},  {false, Time(2024, 4, 31), 0, "y", 64, P},
        {false, Time(2024, 1, 0), 0, "y", 64, P},   {true, Time(2024, 1, 1, 24), 0, "H", 64, P},
        {true, Time(2024, 1, 1, 0, 60), 0, "H", 64, P}, {true, Time(2024, 1, 1, 0, 0, 60), 0, "H", 64, P},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        char out[64];
        SetLastError(0);
        auto format = c.time ? GetTimeFormatA : GetDateFormatA;
        EXPECT_EQ(format(0, c.flags, &c.when, c.picture, out, c.size), 0) << "row " << i;
        EXPECT_EQ(GetLastError(), c.error) << "row " << i;
    }
}

}  // namespace
