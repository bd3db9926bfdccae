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
        char form;
    } cases[] = {
        {"%5.2f", 3.14159, 5, 2, 0, 'f'}, {"%.f", 2.5, 0, 0, 0, 'f'}, {"%f", 1.0 / 3, 0, 6, 0, 'f'},
        {"%E", 1500.0, 0, 6, LSCVT_UPPER, 'e'}, {"%e", 1500.0, 0, 6, 0, 'e'}, {"%-+ 0#12.4g", 0.000123456, 12, 4, 0x1F, 'g'},
        {"%G", 1234567.0, 0, 6, LSCVT_UPPER, 'g'}, {"%010.3.1f", -2.25, 10, 1, LSCVT_ZEROPAD, 'f'},
        {"%00005f", 1.5, 5, 6, LSCVT_ZEROPAD, 'f'},
    };
    for (const auto& c : cases) {
        char got[256], expected[256];
        int n = lstrWsprintf(got, c.format, c.value);
        int m = c.form == 'f'   ? lscvtFdigit(c.value, expected, c.width, c.precision, c.flags)
                : c.form == 'e' ? lscvtEdigit(c.value, expected, c.width, c.precision, c.flags)
                                : lscvtGdigit(c.value, expected, c.width, c.precision, c.flags);
        EXPECT_STREQ(got, expected) << c.format;
        EXPECT_EQ(n, m) << c.format;
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
        std::string conversion = "%";
        int flags = static_cast<int>(random() % 4);
        for (int f = 0; f < flags; ++f) conversion += "-+ #0"[random() % 5];
        if (random() % 2) conversion += std::to_string(1 + random() % 20);
        if (random() % 3 == 0) conversion += "." + (random() % 4 ? std::to_string(random() % 12) : "");
        char letter = "diouxXcs"[random() % 8];
        conversion += letter;
        std::string format = "<" + conversion + ">";
        if ((letter == 'c' || letter == 's') && format.find('+') != std::string::npos) continue;
        char got[512], expected[512];
        int n;
        if (letter == 's') {
            const char* s = strings[random() % 4];
            n = lstrWsprintf(got, format.c_str(), s);
            std::snprintf(expected, sizeof expected, format.c_str(), s);
        } else if (letter == 'c') {
            int c = 33 + static_cast<int>(random() % 90);
            n = lstrWsprintf(got, format.c_str(), c);
            std::snprintf(expected, sizeof expected, format.c_str(), c);
        } else {
            int v = static_cast<int>(random());
            if (random() % 4 == 0) v %= 100;
            n = lstrWsprintf(got, format.c_str(), v);
            std::snprintf(expected, sizeof expected, format.c_str(), v);
        }
        ASSERT_STREQ(got, expected) << format;
        ASSERT_EQ(n, static_cast<int>(std::strlen(expected))) << format;
    }
}

}  // namespace
