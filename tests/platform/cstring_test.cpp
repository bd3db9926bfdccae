// CString: ownership of its text through copies, moves and appends (also of
// its own text), the buffer protocol, the byte-index operations, searches that
// step by characters, trimming, comparison and formatting.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include <orvanest/platform/platform.h>

#include "cp932_model.h"

namespace {

TEST(CString, CopiesOwnTheirText) {
    char source[] = "hello";
    CString a(source);
    source[0] = 'j';
    EXPECT_STREQ(a, "hello");
    CString b(a);
    b.SetAt(0, 'y');
    EXPECT_STREQ(a, "hello");
    EXPECT_STREQ(b, "yello");
    CString c;
    c = b;
    b = "other";
    EXPECT_STREQ(c, "yello");
    CString d(std::move(c));
    EXPECT_STREQ(d, "yello");
    EXPECT_TRUE(c.IsEmpty());  // NOLINT: moved-from is empty by contract
    CString& alias = d;
    d = alias;
    EXPECT_STREQ(d, "yello");
    CString e(static_cast<const char*>(nullptr));
    EXPECT_EQ(e.GetLength(), 0);
    EXPECT_STREQ(e, "");
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
    // Appending its own text, before and after the buffer has to grow.
    CString t("xyz");
    for (int i = 0; i < 6; ++i) t += t;
    EXPECT_EQ(t.GetLength(), 3 * 64);
    EXPECT_EQ(t.Find("zx"), 2);
    CString u("0123456789");
    u += static_cast<const char*>(u) + 5;
    EXPECT_STREQ(u, "012345678956789");
    u = static_cast<const char*>(u) + 10;
    EXPECT_STREQ(u, "56789");
    EXPECT_STREQ(CString("a") + CString("b"), "ab");
    EXPECT_STREQ(CString("a") + "b", "ab");
    EXPECT_STREQ("a" + CString("b"), "ab");
    EXPECT_STREQ(CString("a") + 'b', "ab");
    EXPECT_STREQ('a' + CString("b"), "ab");
}

TEST(CString, LengthIndexAndEmpty) {
    CString s("abc");
    EXPECT_EQ(s.GetLength(), 3);
    EXPECT_FALSE(s.IsEmpty());
    EXPECT_EQ(s[1], 'b');
    EXPECT_EQ(s.GetAt(2), 'c');
    EXPECT_EQ(s.GetAt(3), '\0');
    EXPECT_EQ(s.GetAt(-1), '\0');
    s.SetAt(5, 'x');  // outside: nothing happens
    EXPECT_STREQ(s, "abc");
    s.Empty();
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_STREQ(s, "");
    s = 'q';
    EXPECT_STREQ(s, "q");
}

TEST(CString, BufferProtocol) {
    CString s;
    char* p = s.GetBuffer(0);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[0], '\0');
    s.ReleaseBuffer();
    EXPECT_TRUE(s.IsEmpty());

    CString t("abc");
    p = t.GetBuffer(100);
    EXPECT_STREQ(p, "abc") << "the buffer holds the text";
    for (int i = 0; i < 100; ++i) p[i] = 'z';
    p[100] = '\0';
    t.ReleaseBuffer();
    EXPECT_EQ(t.GetLength(), 100);
    p = t.GetBuffer(0);
    p[4] = '\0';
    t.ReleaseBuffer(-1);
    EXPECT_STREQ(t, "zzzz");
    p = t.GetBuffer(10);
    std::memcpy(p, "0123456789", 10);
    t.ReleaseBuffer(7);
    EXPECT_STREQ(t, "0123456");
}

TEST(CString, LeftMidRightClamp) {
    CString s("abcdef");
    EXPECT_STREQ(s.Left(2), "ab");
    EXPECT_STREQ(s.Left(99), "abcdef");
    EXPECT_STREQ(s.Left(-1), "");
    EXPECT_STREQ(s.Mid(4), "ef");
    EXPECT_STREQ(s.Mid(9), "");
    EXPECT_STREQ(s.Mid(-3), "abcdef");
    EXPECT_STREQ(s.Mid(1, 3), "bcd");
    EXPECT_STREQ(s.Mid(4, 9), "ef");
    EXPECT_STREQ(s.Right(2), "ef");
    EXPECT_STREQ(s.Right(9), "abcdef");
}

// "表\ソ@ァ" with plain '\' and '@' between: the trail bytes 0x5C and 0x40
// are never found.
TEST(CString, FindStepsByCharacters) {
    CString s("\x95\x5C\\\x83\x5C@\x83\x40");
    EXPECT_EQ(s.Find('\\', 3), -1);
    EXPECT_EQ(s.Find("\x5C" "\\"), -1) << "a match may not begin on a trail byte";
    EXPECT_EQ(s.Find("\x83\x5C"), 3);
    EXPECT_EQ(s.Find("@", 6), -1);
    EXPECT_EQ(s.Find("", 8), 8);
    EXPECT_EQ(s.Find("", 9), -1);
    EXPECT_EQ(s.Find('x', -1), -1);
    EXPECT_EQ(CString("abc").ReverseFind('z'), -1);
}

TEST(CString, FindNeverReportsATrailByteOnRandomText) {
    cp932model::TextGen gen(1);
    for (int round = 0; round < 300; ++round) {
        const std::string text = gen.Text(1 + gen.Below(40));
        const auto kinds = cp932model::Kinds(text);
        CString s(text.c_str());
        for (char ch : {'\\', '@', 'a', 'E', '/'}) {
            int want = -1;
            int last = -1;
            for (size_t i = 0; i < text.size(); i += cp932model::WidthAt(kinds, i)) {
                if (cp932model::WidthAt(kinds, i) == 1 && text[i] == ch) {
                    if (want < 0) want = static_cast<int>(i);
                    last = static_cast<int>(i);
                }
            }
            ASSERT_EQ(s.Find(ch), want) << round;
            ASSERT_EQ(s.ReverseFind(ch), last) << round;
        }
    }
}

TEST(CString, CompareAndCompareNoCase) {
    CString s("Hello");
    EXPECT_EQ(s.CompareNoCase("hELLO"), 0);
    EXPECT_LT(s.CompareNoCase("help"), 0);
    EXPECT_NE(s.Compare("hello"), 0);
    EXPECT_TRUE(s == "Hello");
    EXPECT_TRUE(s != "hello");
    EXPECT_EQ(CString("\x82\x81").CompareNoCase("\x82\x60"), 0);  // ａ / Ａ
    EXPECT_NE(CString("\x82\x61").CompareNoCase("\x82\x41"), 0);  // Ｂ and its trail 'a'
}

TEST(CString, TrimsWhiteSpace) {
    CString s(" \t\r\nabc \x95\x5C \n");
    s.TrimLeft();
    EXPECT_STREQ(s, "abc \x95\x5C \n");
    s.TrimRight();
    EXPECT_STREQ(s, "abc \x95\x5C");
    CString blank("  \t ");
    blank.TrimRight();
    EXPECT_STREQ(blank, "");
    CString fullWidth("\x81\x40" "a\x81\x40");  // a full-width space is no byte of white space
    fullWidth.TrimLeft().TrimRight();
    EXPECT_STREQ(fullWidth, "\x81\x40" "a\x81\x40");
}

TEST(CString, FormatsInThePrintfManner) {
    CString s;
    s.Format("%f", 1.5);
    EXPECT_STREQ(s, "1.500000");
    s.Format("%s-%d-%c", "ab", -12, 'z');
    EXPECT_STREQ(s, "ab--12-z");
    s.Format("<%s>", static_cast<const char*>(s));  // its own text as an argument
    EXPECT_STREQ(s, "<ab--12-z>");
    s.Format("%s", "");
    EXPECT_TRUE(s.IsEmpty());
    std::string longText(5000, 'q');
    s.Format("%s!", longText.c_str());
    EXPECT_EQ(s.GetLength(), 5001);
}

}  // namespace
