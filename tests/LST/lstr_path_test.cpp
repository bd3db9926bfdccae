// Path text: the parts of a path, lstrCutShortDir (the worked tables, then
// random paths: never longer than the limit, never cutting a character), the
// trailing separator, the text left and right of a character. Every text
// function is checked in its three forms.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "platform/cp932_model.h"

namespace {

// The buffer, reference and value forms of a text function give the same
// text; FORMS takes the call with d... where the destination goes.
template <typename Call>
std::string AllForms(Call call) {
    char out[1024];
    std::memset(out, 0xCC, sizeof out);
    EXPECT_EQ(call(out), out);
    CString ref("junk");
    EXPECT_EQ(&call(ref), &ref);
    EXPECT_STREQ(ref, out);
    EXPECT_STREQ(call(), out);
    return out;
}
#define FORMS(...) AllForms([&](auto&&... d) -> decltype(auto) { return __VA_ARGS__; })

TEST(LstrPath, PartsOfAPath) {
    const struct {
        const char *path, *folder, *file, *base, *ext;
    } cases[] = {
        {"C:\\a\\b.txt", "C:\\a\\", "b.txt", "b", ".txt"}, {"b", "", "b", "b", ""}, {"C:\\a\\", "C:\\a\\", "", "", ""},
        {"/usr/lib/x.so.1", "/usr/lib/", "x.so.1", "x.so", ".1"},
        // 表 (0x95 0x5C) ends a directory with no separator behind it: the whole component is the file.
        {"C:\\dir\\\x95\x5C", "C:\\dir\\", "\x95\x5C", "\x95\x5C", ""},
        {"C:\\\x95\x5C\\\x83\x5C.c", "C:\\\x95\x5C\\", "\x83\x5C.c", "\x83\x5C", ".c"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(FORMS(lstrGetFolder(c.path, d...)), c.folder);
        EXPECT_EQ(FORMS(lstrGetFile(c.path, d...)), c.file);
        EXPECT_EQ(FORMS(lstrGetBase(c.path, d...)), c.base);
        EXPECT_EQ(FORMS(lstrGetExt(c.path, d...)), c.ext);
    }
}

// lstrCutShortDir in all three forms; gives the text and checks the length.
std::string CutShort(const char* path, int limit) {
    char out[1024];
    std::memset(out, 0xCC, sizeof out);
    int length = lstrCutShortDir(path, limit, out);
    EXPECT_EQ(length, static_cast<int>(std::strlen(out))) << path << " " << limit;
    CString ref("junk");
    EXPECT_EQ(lstrCutShortDir(path, limit, ref), length);
    EXPECT_STREQ(ref, out);
    EXPECT_STREQ(lstrCutShortDir(path, limit), out);
    return out;
}

TEST(LstrPath, CutShortDirFollowsItsRules) {
    const char* const p = "C:\\aaa\\bbb\\ccc\\file.txt";
    const char* const kanji = "C:\\aaa\\\x95\x5C\x95\x5C.txt";
    const char* const kanjiDir = "C:\\a\x95\x5C\x95\x5C\\bbb\\file.txt";
    const struct {
        const char* path;
        int limit;
        const char* text;
    } rows[] = {
        {p, 23, "C:\\aaa\\bbb\\ccc\\file.txt"}, {p, 22, "C:\\aaa\\...ccc\\file.txt"},
        {p, 19, "C:\\aaa\\...\\file.txt"},      {p, 18, "C:\\aaa...\\file.txt"},
        {p, 13, "C...\\file.txt"},                {p, 12, "file.txt"},
        {p, 7, "file.tx"},                        {p, 0, ""},
        {"\\\\srv\\share\\dir\\sub\\file.txt", 27, "\\\\srv\\share\\...sub\\file.txt"},
        {"\\\\srv\\share\\dir\\sub\\file.txt", 22, "\\\\srv\\shar...\\file.txt"},
        {"//srv/share/dir/sub/file.txt", 25, "//srv/share/...b/file.txt"},
        {"C:/aaa/bbb/ccc/file.txt", 20, "C:/aaa/...c/file.txt"}, {"aaa\\bbb\\ccc\\file.txt", 19, "aaa\\...ccc\\file.txt"},
        {"C:\\aaa\\file.txt", 14, "C:...\\file.txt"},    {"C:\\file.txt", 10, "file.txt"},
        // Two-byte characters on the cut: one byte short of the limit.
        {kanji, 5, "\x95\x5C\x95\x5C."},  {kanji, 3, "\x95\x5C"},
        {kanjiDir, 18, "C:\\a\x95\x5C...\\file.txt"}, {kanjiDir, 17, "C:\\a...\\file.txt"},
        {"\\\x95\x5C\\dir\\sub\\file.txt", 19, "\\\x95\x5C\\dir...\\file.txt"},  // index 2 is 表's trail
        // The tail's start moves by characters: 表 is skipped whole.
        {"C:\\aaa\\xx\\b\x95\x5C" "cd\\file.txt", 22, "C:\\aaa\\...cd\\file.txt"},
    };
    for (const auto& r : rows) EXPECT_EQ(CutShort(r.path, r.limit), r.text) << r.path << " " << r.limit;
}

// Random paths: the text is never longer than the limit, and is the file
// name cut on a character boundary, or a prefix and a suffix of the path
// around "...".
TEST(LstrPath, CutShortDirNeverExceedsTheLimitNorSplitsACharacter) {
    cp932model::TextGen gen(23);
    const std::vector<std::string> nameChars = {"a", "b", "Z", "_", "1", "\xB1", "\x95\x5C", "\x83\x5C",
                                                "\x83\x40", "\x8B\x81", "\x89\xE0", "\x88\x9F", "\xE0\x40"};
    auto name = [&](size_t most) {
        std::string s;
        for (size_t i = 0, n = 1 + gen.Below(most); i < n; ++i) s += nameChars[gen.Below(nameChars.size())];
        return s;
    };
    const char* heads[] = {"C:", "", "\\\\srv", "//srv", "D:", "x"};
    for (int round = 0; round < 3000; ++round) {
        const char sep = gen.Below(3) == 0 ? '/' : '\\';
        std::string path = heads[gen.Below(6)];
        if (path.size() == 5) path[0] = path[1] = sep;  // network heads use the path's own separator
        for (size_t i = 0, dirs = gen.Below(5); i < dirs; ++i) path += sep + name(6);
        path += sep + name(5) + (gen.Below(3) != 0 ? "." + name(3) : "");
        const auto kinds = cp932model::Kinds(path);
        const std::string file = lstrGetFile(path.c_str()).operator const char*();
        const int limit = static_cast<int>(gen.Below(path.size() + 4));
        const std::string got = CutShort(path.c_str(), limit);
        const std::string where = path + " " + std::to_string(limit) + " -> " + got;
        ASSERT_LE(got.size(), static_cast<size_t>(limit)) << where;
        const size_t mark = got.find("...");
        if (limit >= static_cast<int>(path.size())) {
            ASSERT_EQ(got, path);
        } else if (mark == std::string::npos) {
            ASSERT_TRUE(file.compare(0, got.size(), got) == 0 && cp932model::IsStart(cp932model::Kinds(file), got.size()))
                << where;
        } else {
            // head + "\..." + tail, or cut head + "...\" + file.
            std::string left = got.substr(0, mark);
            const std::string right = got.substr(mark + 3);
            if (!left.empty() && left.back() == sep && path.compare(0, left.size(), left) != 0) left.pop_back();
            ASSERT_TRUE(path.compare(0, left.size(), left) == 0 && cp932model::IsStart(kinds, left.size())) << where;
            const size_t at = path.size() - right.size();
            ASSERT_TRUE(right.size() <= path.size() && path.compare(at, right.size(), right) == 0 &&
                        cp932model::IsStart(kinds, at))
                << where;
        }
    }
}

TEST(LstrPath, AddSeparator) {
    const struct {
        const char* path;
        bool backslash;
        const char* want;
    } rows[] = {
        {"", true, "\\"},          {"", false, "/"},              {"C:\\dir\\", false, "C:\\dir\\"},
        {"C:/dir/", true, "C:/dir/"}, {"C:\\dir", true, "C:\\dir\\"}, {"C:\\dir", false, "C:\\dir/"},
        {"C:\\\x95\x5C", true, "C:\\\x95\x5C\\"},  // 表: its trail 0x5C is no separator
    };
    for (const auto& r : rows) {
        char buffer[64];
        std::strcpy(buffer, r.path);
        lstrAddSeparator(buffer, r.backslash);
        EXPECT_STREQ(buffer, r.want) << r.path;
        CString s(r.path);
        lstrAddSeparator(s, r.backslash);
        EXPECT_STREQ(s, r.want) << r.path;
    }
}

TEST(LstrPath, LeftAndRightByFind) {
    const struct {
        const char* source;
        char ch;
        bool first, include;
        const char* left;
        const char* right;
    } cases[] = {
        {"a.b.c", '.', true, false, "a", "b.c"},   {"a.b.c", '.', false, false, "a.b", "c"},
        {"a.b.c", '.', false, true, "a.b.", ".c"}, {"a.b.c", '.', true, true, "a.", ".b.c"},
        {".ab", '.', true, false, "", "ab"},       {".ab", '.', true, true, ".", ".ab"},
        {"ab.", '.', false, false, "ab", ""},      {"ab.", '.', false, true, "ab.", "."},
        {"abc", '.', true, true, "", ""},          {"", '.', true, true, "", ""},
        // 表\ソ : only the separator of its own is found, never a trail byte.
        {"\x95\x5C\\\x83\x5C", '\\', true, false, "\x95\x5C", "\x83\x5C"},
        {"\x95\x5C\\\x83\x5C", '\\', false, true, "\x95\x5C\\", "\\\x83\x5C"},
        {"\x95\x5C\x83\x5C", '\\', true, true, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.source) + " " + c.ch + " " + std::to_string(c.first) + std::to_string(c.include));
        const unsigned char ch = static_cast<unsigned char>(c.ch);
        EXPECT_EQ(FORMS(lstrLeftByFind(c.source, ch, d..., c.first, c.include)), c.left);
        EXPECT_EQ(FORMS(lstrRightByFind(c.source, ch, d..., c.first, c.include)), c.right);
    }
}

// The reference forms run on the CString's own buffer, which may hold the
// source itself.
TEST(LstrPath, ReferenceFormsTakeTheirOwnTextAsSource) {
    CString s("dir\\name.ext");
    lstrRightByFind(s, '\\', s, true, false);
    EXPECT_STREQ(s, "name.ext");
    lstrLeftByFind(s, '.', s, false, false);
    EXPECT_STREQ(s, "name");
    CString p("C:\\aaa\\bbb\\ccc\\file.txt");
    EXPECT_EQ(lstrCutShortDir(p, 21, p), 21);
    EXPECT_STREQ(p, "C:\\aaa\\...cc\\file.txt");
}

}  // namespace
