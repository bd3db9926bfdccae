// The library's printf: plain text and double-byte text, what counts as a
// conversion, the hand-over of floating conversions to the number text, and
// integer, character and string conversions against snprintf on random
// conversion texts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include <orvanest/ORVANEST.h>

namespace {

using Digit = int (*)(double, char*, DWORD, DWORD, DWORD);

// Plain text, double-byte text and what is no conversion; each takes at
// most the one integer argument.
TEST(LstrPrintf, PlainTextAndWhatIsNoConversion) {
    const struct {
        const char* format;
        const char* text;
    } cases[] = {
        {"", ""}, {"%%", "%"}, {"100%", "100"},
        {"\x95\x5C%d\x81\x93", "\x95\x5C" "7\x81\x93"},  // 表 (0x95 0x5C) and ％ (0x81 0x93) pass whole
        {"%ld|%d", "ld|7"}, {"%*d|%d", "*d|7"}, {"%Lf|%hd|%p|%n", "Lf|hd|p|n"}, {"%dl", "7l"},
        {"%-5%d", "7"},  // the '%' opens the next conversion
        {"a%-08.3", "a"},
    };
    for (const auto& c : cases) {
        char out[256];
        std::memset(out, 0xCC, sizeof out);
        EXPECT_EQ(lstrWsprintf(out, c.format, 7), static_cast<int>(std::strlen(c.text))) << c.format;
        EXPECT_STREQ(out, c.text) << c.format;
    }
}

TEST(LstrPrintf, FloatingConversionsUseTheNumberText) {
    const struct {
        const char* format;
        double value;
        DWORD width, precision, flags;
        Digit form;
    } cases[] = {
        {"%5.2f", 3.14159, 5, 2, 0, lscvtFdigit},         {"%.f", 2.5, 0, 0, 0, lscvtFdigit},
        {"%E", 1500.0, 0, 6, LSCVT_UPPER, lscvtEdigit},   {"%-+ 0#12.4g", 0.000123456, 12, 4, 0x1F, lscvtGdigit},
        {"%G", 1234567.0, 0, 6, LSCVT_UPPER, lscvtGdigit}, {"%010.3.1f", -2.25, 10, 1, LSCVT_ZEROPAD, lscvtFdigit},
        {"%00005f", 1.5, 5, 6, LSCVT_ZEROPAD, lscvtFdigit},
    };
    for (const auto& c : cases) {
        char got[256], expected[256];
        EXPECT_EQ(lstrWsprintf(got, c.format, c.value), c.form(c.value, expected, c.width, c.precision, c.flags))
            << c.format;
        EXPECT_STREQ(got, expected) << c.format;
    }
    char out[256];
    // The arguments are taken in order, a double as one; %c writes the low byte.
    lstrWsprintf(out, "[%5.2f] [%e] [%d] %s=%08x %c%u%%", 3.14159, 1234.5678, -42, "name", 0xBEEF, 0x1C1, 7u);
    EXPECT_STREQ(out, "[ 3.14] [1.234568e+003] [-42] name=0000beef \xC1" "7%");
}

TEST(LstrPrintf, FailedFloatingConversionStopsWithoutTerminator) {
    char out[64];
    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(lstrWsprintf(out, "ab%f%d", HUGE_VAL, 8), -1);
    EXPECT_EQ(std::string(out, 3), "abZ");
    EXPECT_EQ(lstrWsprintf(out, "%d%e", 7, std::nan("")), -1);
    EXPECT_EQ(out[0], '7');
}

// Integer, character and string conversions reach wsprintfA as written,
// which formats them as C does: compared with snprintf on random flags,
// widths and precisions.
TEST(LstrPrintf, IntegersCharactersAndStringsMatchSnprintf) {
    std::mt19937 random(1234);
    const char* strings[] = {"", "a", "hello", "\x82\xA0\x82\xA2 text"};
    for (int i = 0; i < 30000; ++i) {
        std::string format = "<%";
        for (int f = static_cast<int>(random() % 4); f > 0; --f) format += "-+ #0"[random() % 5];
        if (random() % 2) format += std::to_string(1 + random() % 20);
        if (random() % 3 == 0) format += "." + (random() % 4 ? std::to_string(random() % 12) : "");
        const char letter = "diouxXcs"[random() % 8];
        format += std::string(1, letter) + ">";
        if ((letter == 'c' || letter == 's') && format.find('+') != std::string::npos) continue;
        char got[512], expected[512];
        int n = 0;
        auto both = [&](auto argument) {
            n = lstrWsprintf(got, format.c_str(), argument);
            std::snprintf(expected, sizeof expected, format.c_str(), argument);
        };
        const int v = static_cast<int>(random());
        if (letter == 's') {
            both(strings[v & 3]);
        } else if (letter == 'c') {
            both(33 + (v & 0x3F));
        } else {
            both(random() % 4 == 0 ? v % 100 : v);
        }
        ASSERT_STREQ(got, expected) << format;
        ASSERT_EQ(n, static_cast<int>(std::strlen(expected))) << format;
    }
}

}  // namespace
