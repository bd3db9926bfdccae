// CString: ownership of its text through copies, moves and appends (also of
// its own text), the buffer protocol, the clamped byte-index operations,
// searches that step by characters, trimming, comparison and formatting.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include <orvanest/platform/platform.h>

namespace {

TEST(CString, CopiesOwnTheirText) {
    char source[] = "hello";
    CString a(source);
    source[0] = 'j';
    CString b(a);
    b.SetAt(0, 'y');
    b.SetAt(5, 'x');  // outside: nothing happens
    CString c;
    c = b;
    b = 'q';
    CString d(std::move(c));
    EXPECT_TRUE(c.IsEmpty());  // NOLINT: moved-from is empty by contract
    CString& alias = d;
    d = alias;
    EXPECT_STREQ(a, "hello");
    EXPECT_STREQ(b, "q");
    EXPECT_STREQ(d, "yello");
    EXPECT_EQ(a[1], 'e');
    EXPECT_EQ(a.GetAt(4), 'o');
    EXPECT_EQ(a.GetAt(5), '\0');
    EXPECT_EQ(a.GetAt(-1), '\0');
    EXPECT_STREQ(CString(static_cast<const char*>(nullptr)), "");
    EXPECT_STREQ(CString('x', 3), "xxx");
    EXPECT_STREQ(CString("abcdef", 3), "abc");
    EXPECT_STREQ(CString("ab", 10), "ab");
}

TEST(CString, AppendsIncludingItsOwnText) {
    CString s("ab");
    s += "cd";
    s += 'e';
    s += static_cast<unsigned char>(0x95);
    s += static_cast<unsigned char>(0x5C);  // 表 completed byte by byte
    s += CString("!");
    EXPECT_STREQ(s, "abcde\x95\x5C!");
    EXPECT_EQ(s.GetLength(), 8);
    // Its own text, before and after the buffer has to grow.
    CString t("xyz");
    for (int i = 0; i < 6; ++i) t += t;
    EXPECT_EQ(t.GetLength(), 3 * 64);
    EXPECT_EQ(t.Find("zx"), 2);
    CString u("0123456789");
    u += static_cast<const char*>(u) + 5;
    EXPECT_STREQ(u, "012345678956789");
    u = static_cast<const char*>(u) + 10;
    EXPECT_STREQ(u, "56789");
    EXPECT_STREQ(CString("a") + CString("b") + "c" + 'd', "abcd");
    EXPECT_STREQ("a" + ('b' + CString("c")), "abc");
}

TEST(CString, BufferProtocol) {
    CString s;
    ASSERT_EQ(s.GetBuffer(0)[0], '\0');
    s.ReleaseBuffer();
    EXPECT_TRUE(s.IsEmpty());
    s = "abc";
    char* p = s.GetBuffer(100);
    EXPECT_STREQ(p, "abc") << "the buffer holds the text";
    std::memset(p, 'z', 100);
    p[100] = '\0';
    s.ReleaseBuffer();
    EXPECT_EQ(s.GetLength(), 100);
    s.GetBuffer(0)[4] = '\0';
    s.ReleaseBuffer(-1);
    EXPECT_STREQ(s, "zzzz");
    std::memcpy(s.GetBuffer(10), "0123456789", 10);
    s.ReleaseBuffer(7);
    EXPECT_STREQ(s, "0123456");
    s.Empty();
    EXPECT_STREQ(s, "");
}

TEST(CString, LeftMidRightClamp) {
    const CString s("abcdef");
    const std::pair<CString, const char*> rows[] = {
        {s.Left(2), "ab"},     {s.Left(99), "abcdef"}, {s.Left(-1), ""},     {s.Mid(4), "ef"},
        {s.Mid(9), ""},        {s.Mid(-3), "abcdef"},  {s.Mid(1, 3), "bcd"}, {s.Mid(4, 9), "ef"},
        {s.Right(2), "ef"},    {s.Right(9), "abcdef"},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_STREQ(rows[i].first, rows[i].second) << "row " << i;
}

// "表\ソ@ァ" with plain '\' and '@' between: the trail bytes 0x5C and 0x40
// are never found.
TEST(CString, FindStepsByCharacters) {
    const CString s("\x95\x5C\\\x83\x5C@\x83\x40");
    EXPECT_EQ(s.Find('\\'), 2);
    EXPECT_EQ(s.Find('\\', 3), -1);
    EXPECT_EQ(s.ReverseFind('\\'), 2);
    EXPECT_EQ(s.Find('@', 6), -1);
    EXPECT_EQ(s.ReverseFind('@'), 5);
    EXPECT_EQ(s.Find('x', -1), -1);
    EXPECT_EQ(s.Find("\x5C" "\\"), -1) << "a match may not begin on a trail byte";
    EXPECT_EQ(s.Find("\x83\x5C"), 3);
    EXPECT_EQ(s.Find("", 8), 8);
    EXPECT_EQ(s.Find("", 9), -1);
}

TEST(CString, Compares) {
    const CString s("Hello");
    EXPECT_EQ(s.Compare("Hello"), 0);
    EXPECT_GT(s.Compare("Hell"), 0);
    EXPECT_LT(s.Compare("hello"), 0);
    EXPECT_TRUE(s == "Hello" && s != "hello");
    EXPECT_EQ(s.CompareNoCase("hELLO"), 0);
    EXPECT_LT(s.CompareNoCase("help"), 0);
    EXPECT_EQ(CString("\x82\x81").CompareNoCase("\x82\x60"), 0);  // ａ / Ａ
    EXPECT_NE(CString("\x82\x61").CompareNoCase("\x82\x41"), 0);  // Ｂ and its trail 'a'
}

TEST(CString, TrimsWhiteSpace) {
    CString s(" \t\r\nabc \x95\x5C \n");
    EXPECT_STREQ(s.TrimLeft(), "abc \x95\x5C \n");
    EXPECT_STREQ(s.TrimRight(), "abc \x95\x5C");
    EXPECT_STREQ(CString("  \t ").TrimRight(), "");
    CString fullWidth("\x81\x40" "a\x81\x40");  // a full-width space is no byte of white space
    EXPECT_STREQ(fullWidth.TrimLeft().TrimRight(), "\x81\x40" "a\x81\x40");
}

TEST(CString, FormatsInThePrintfManner) {
    CString s;
    s.Format("%s-%d-%c-%.1f", "ab", -12, 'z', 1.5);
    EXPECT_STREQ(s, "ab--12-z-1.5");
    s.Format("<%s>", static_cast<const char*>(s));  // its own text as an argument
    EXPECT_STREQ(s, "<ab--12-z-1.5>");
    s.Format("%s", "");
    EXPECT_TRUE(s.IsEmpty());
    s.Format("%s!", std::string(5000, 'q').c_str());
    EXPECT_EQ(s.GetLength(), 5001);
}

}  // namespace
