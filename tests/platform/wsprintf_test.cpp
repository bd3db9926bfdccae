// wsprintfA and wvsprintfA: every integer, character and string conversion
// against the C library's snprintf on a table of formats and values, then what
// differs from C on purpose: 'l' is 32 bits, unknown letters, the limit.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include <orvanest/platform/platform.h>

namespace {

// Formats one argument both ways and compares text (a %c of 0 included) and
// length. C reads the format without `dropped`: its 'l' is 64 bits where
// ours is 32, and its 'h' before s and c asks for the narrow text all of it is.
template <class T>
void ExpectLikeC(const char* format, T value, char dropped = 'l') {
    std::string forC = format;
    std::erase(forC, dropped);
    char ours[WSPRINTF_LIMIT], theirs[WSPRINTF_LIMIT];
    int n = wsprintfA(ours, format, value);
    int m = std::snprintf(theirs, sizeof theirs, forC.c_str(), value);
    ASSERT_EQ(n, m) << "format \"" << format << "\" value " << value;
    EXPECT_EQ(std::string(ours, n + 1), std::string(theirs, m + 1)) << "format \"" << format << "\" value " << value;
}

TEST(WsprintfTest, IntegersMatchC) {
    const char* formats[] = {
        "%d",     "%i",      "%u",       "%x",     "%X",      "%o",       "%5d",     "%-5d",
        "%05d",   "%.3d",    "%8.3d",    "%-8.3x", "%#x",     "%#X",      "%#o",     "%#10x",
        "%#010x", "%+d",     "% d",      "%+5d",   "%-+6i",   "%+ d",     "%.0d",    "%.0u",
        "%#.0o",  "%#.0x",   "%0-8u",    "%-010d", "%012.5d", "%#-12.5o", "%#.8X",   "%00005d",
        "%.d",    "%+u",     "% x",      "%hd",    "%hu",     "%hx",      "%hi",     "%ho",
        "%ld",    "%lu",     "%lx",      "%lX",    "%lo",     "%li",      "%-+8ld",  "%#010lx",
        "[%3d]",  "%d%%",    "%1d",      "%40d",   "%-40x",   "%.40o",    "%+.4hd",  "%#5.3x",
    };
    const int values[] = {0,     1,     -1,     42,      -42,     255,        65535,      65536,
                          32767, -32768, 100000, INT_MAX, INT_MIN, static_cast<int>(0x80000000u),
                          static_cast<int>(0xFFFFFFFFu), 0x12345678};
    for (const char* format : formats) {
        for (int value : values) ExpectLikeC(format, value);
    }
}

TEST(WsprintfTest, CharactersAndStringsMatchC) {
    const std::pair<const char*, const char*> strings[] = {
        {"%s", "text"},      {"%10s", "text"}, {"%-10s|", "text"}, {"%.2s", "text"}, {"%8.3s", "text"},
        {"%-8.3s|", "text"}, {"%.0s", "text"}, {"%s", ""},         {"%05s", "ab"},   {"%hs", "narrow"},
        {"<%s>", "\x83\x65\x83\x58\x83\x67"},  // code page 932 text goes through as bytes
        {"%.10s", "short"},
    };
    for (auto [format, value] : strings) ExpectLikeC(format, value, 'h');
    for (const char* format : {"%c", "%5c", "%-5c|", "%05c", "%hc", "a%cb"}) {
        for (int c : {int{'A'}, int{'z'}, int{' '}, 0, 0x83, -1}) ExpectLikeC(format, c, 'h');
    }
    char ours[WSPRINTF_LIMIT], theirs[WSPRINTF_LIMIT];
    const char* mixed = "%s=%d (%#x) %c%-4s|%05u%%";  // arguments taken in order
    EXPECT_EQ(wsprintfA(ours, mixed, "key", -17, 255, 'Q', "ab", 42u),
              std::snprintf(theirs, sizeof theirs, mixed, "key", -17, 255, 'Q', "ab", 42u));
    EXPECT_STREQ(ours, theirs);
}

TEST(WsprintfTest, WhatCDoesDifferently) {
    const std::pair<const char*, const char*> cases[] = {
        {"%y|%d", "y|7"},     // unknown letter: written, nothing taken
        {"%-08y|%d", "y|7"},  // what came before it is dropped
        {"%*d|%d", "*d|7"},   // no '*' width
        {"%ls|%d", "s|7"},    // no wide strings
        {"%lc|%d", "c|7"},    // nor wide characters
        {"%S%C|%d", "SC|7"},  {"%5%|%d", "%|7"},
        {"abc%", "abc"},      // a '%' at the end
        {"abc%-5", "abc"},    {"", ""},
    };
    char out[WSPRINTF_LIMIT];
    for (auto [format, expected] : cases) {
        EXPECT_EQ(wsprintfA(out, format, 7), static_cast<int>(std::strlen(expected))) << format;
        EXPECT_STREQ(out, expected) << format;
    }
    const char* null = nullptr;
    wsprintfA(out, "%s|%.3s|%8s", null, null, null);
    EXPECT_STREQ(out, "(null)|(nu|  (null)");
    // Pointers: their full width in upper-case hex.
    const std::string zeros(2 * sizeof(void*), '0');
    wsprintfA(out, "%p", reinterpret_cast<void*>(uintptr_t{0xABCDEF12}));
    EXPECT_EQ(std::string(out), zeros.substr(8) + "ABCDEF12");
    wsprintfA(out, "[%20p]", static_cast<void*>(nullptr));
    EXPECT_EQ(std::string(out), "[" + std::string(20 - zeros.size(), ' ') + zeros + "]");
}

// The output stops at 1023 characters and a terminator, the result says
// 1023, and nothing beyond byte 1023 is written.
TEST(WsprintfTest, OutputIsLimitedTo1024BytesWithTheTerminator) {
    const std::string long2000(2000, 'a');
    const std::pair<std::string, int> cases[] = {  // format, and the length of the full text
        {std::string(1022, 'p'), 1022}, {std::string(1023, 'p'), 1023}, {std::string(1024, 'p'), 1024},
        {"%s", 2000}, {"%5000d", 5000}, {"xy%-3000d!", 3003}, {std::string(1020, 'p') + "%d", 1026},
    };
    for (const auto& [format, length] : cases) {
        char out[WSPRINTF_LIMIT + 64];
        std::memset(out, 0xCC, sizeof out);
        const uintptr_t argument = format == "%s" ? reinterpret_cast<uintptr_t>(long2000.c_str()) : 123456;
        const int stored = std::min(length, WSPRINTF_LIMIT - 1);
        EXPECT_EQ(wsprintfA(out, format.c_str(), argument), stored) << length;
        EXPECT_EQ(std::strlen(out), static_cast<size_t>(stored)) << length;
        for (size_t i = WSPRINTF_LIMIT; i < sizeof out; ++i) {
            ASSERT_EQ(static_cast<unsigned char>(out[i]), 0xCC) << length << " byte " << i;
        }
    }
}

int ViaVaList(char* out, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n = wvsprintfA(out, format, ap);
    va_end(ap);
    return n;
}

TEST(WsprintfTest, VaListFormOfTheSame) {
    char out[WSPRINTF_LIMIT];
    EXPECT_EQ(ViaVaList(out, "%d-%s-%c-%lx", 12, "mid", 'z', DWORD{0xBEEF}), 13);
    EXPECT_STREQ(out, "12-mid-z-beef");
}

}  // namespace
