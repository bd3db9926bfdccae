// Series, tabs and time text: string lists at their size limits, tabs to the
// next column, the date text on both roads.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

// One byte short: packing keeps the strings copied so far, with no closing
// zero, and sets no code of its own; unpacking keeps the entries written.
TEST(LscvtSeries, BothDirectionsAtTheSizeLimit) {
    const char* two[] = {"ab", "c", nullptr};
    char out[16];
    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(lscvtPtrArrayToSeries(two, out, 6), 2);
    EXPECT_EQ(std::string(out, 7), std::string("ab\0c\0\0Z", 7));
    std::memset(out, 'Z', sizeof out);
    SetLastError(55);
    EXPECT_EQ(lscvtPtrArrayToSeries(two, out, 5), -1);
    EXPECT_EQ(GetLastError(), 55u);
    EXPECT_EQ(std::string(out, 5), std::string("ab\0ZZ", 5));

    char* array[4];
    const char series[] = "first\0second\0";
    EXPECT_EQ(lscvtSeriesToPtrArray(series, array, 3), 2);
    EXPECT_EQ(std::vector<const void*>(array, array + 3), (std::vector<const void*>{series, series + 6, nullptr}));
    std::memset(array, 0xCC, sizeof array);
    EXPECT_EQ(lscvtSeriesToPtrArray(series, array, 2), -1);
    EXPECT_EQ(static_cast<void*>(array[0]), series);

    const char* none[] = {nullptr};  // the empty list is a single zero
    EXPECT_EQ(lscvtPtrArrayToSeries(none, out, 1), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(lscvtSeriesToPtrArray(out, array, 1), 0);
    EXPECT_EQ(static_cast<void*>(array[0]), nullptr);
}

TEST(LscvtTabs, ExpandToTheNextMultiple) {
    const struct {
        const char* source;
        unsigned tab;
        const char* text;
        int tabs;
    } cases[] = {
        {"a\tb", 4, "a   b", 1},     {"\t", 4, "    ", 1},          {"", 4, "", 0},   {"abcd\te", 4, "abcd    e", 1},
        {"a\t\tb", 3, "a     b", 2}, {"x\ny\tz", 4, "x\ny z", 1}, {"\x82\xA0\tc", 4, "\x82\xA0  c", 1},
        {"ab\t", 1, "ab ", 1},
    };
    for (const auto& c : cases) {
        char out[64];
        std::memset(out, 'Z', sizeof out);
        std::string source = c.source;
        EXPECT_EQ(lscvtTabToSpace(out, source.data(), c.tab), c.tabs) << c.source;
        EXPECT_STREQ(out, c.text) << c.source;
    }
}

// The date text on both roads; the platform's own has no year before 1601.
TEST(LscvtTime, SystemTimes) {
    const SYSTEMTIME now = {2024, 3, 0, 5, 14, 7, 9, 0}, last = {9999, 12, 0, 31, 23, 59, 59, 0},
                     early = {999, 1, 0, 2, 3, 4, 5, 0}, badHour = {2024, 1, 0, 1, 25, 0, 0, 0};
    const struct {
        BOOL win32s;
        SYSTEMTIME time;
        const char* text;  // null: refused with ERROR_INVALID_PARAMETER
    } cases[] = {
        {FALSE, now, "2024/03/05 14:07:09"},  {TRUE, now, "2024/03/05 14:07:09"}, {FALSE, last, "9999/12/31 23:59:59"},
        {TRUE, last, "9999/12/31 23:59:59"}, {TRUE, early, "0999/01/02 03:04:05"}, {FALSE, early, nullptr},
        {FALSE, badHour, nullptr},
    };
    for (const auto& c : cases) {
        BOOL before = OrvaSetWin32s(c.win32s);
        char out[32];
        std::memset(out, 'Z', sizeof out);
        SetLastError(0);
        SYSTEMTIME time = c.time;
        EXPECT_EQ(lscvtSystemTimeToStr(&time, out), c.text ? 1 : 0) << c.time.wYear << " " << c.win32s;
        if (c.text) {
            EXPECT_STREQ(out, c.text);
        } else {
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << c.time.wYear;
        }
        OrvaSetWin32s(before);
    }
}

TEST(LscvtTime, FileTimesInUtc) {
    // 2024-03-05 14:07:09.5 UTC.
    uint64_t ticks = (1709647629ull * 10000000ull) + 116444736000000000ull + 5000000ull;
    FILETIME ft = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    char out[32];
    EXPECT_EQ(lscvtFileTimeToStr(&ft, out), 1);
    EXPECT_STREQ(out, "2024/03/05 14:07:09");
    FILETIME bad = {0, 0x80000000u};
    SetLastError(0);
    EXPECT_EQ(lscvtFileTimeToStr(&bad, out), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

}  // namespace
