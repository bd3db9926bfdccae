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

// The three forms of a part function give the same text.
template <typename Buffer, typename Reference, typename Value>
std::string AllForms(const char* path, Buffer buffer, Reference reference, Value value) {
    char out[1024];
    std::memset(out, 0xCC, sizeof out);
    EXPECT_EQ(buffer(path, out), out);
    CString ref("junk");
    CString& back = reference(path, ref);
    EXPECT_EQ(&back, &ref);
    CString val = value(path);
    EXPECT_STREQ(ref, out) << path;
    EXPECT_STREQ(val, out) << path;
    return out;
}

#define PART_FORMS(F)                                                          \
    [](const char* p, char* d) { return F(p, d); },                            \
        [](const char* p, CString& d) -> CString& { return F(p, d); },         \
        [](const char* p) { return F(p); }

struct PartCase {
    const char* path;
    const char* folder;
    const char* file;
    const char* base;
    const char* ext;
};

TEST(LstrPath, PartsOfAPath) {
    const PartCase cases[] = {
        {"C:\\a\\b.txt", "C:\\a\\", "b.txt", "b", ".txt"}, {"b", "", "b", "b", ""}, {"C:\\a\\", "C:\\a\\", "", "", ""},
        {"/usr/lib/x.so.1", "/usr/lib/", "x.so.1", "x.so", ".1"},
        // 表 (0x95 0x5C) ends a directory with no separator behind it: the whole component is the file.
        {"C:\\dir\\\x95\x5C", "C:\\dir\\", "\x95\x5C", "\x95\x5C", ""},
        {"C:\\\x95\x5C\\\x83\x5C.c", "C:\\\x95\x5C\\", "\x83\x5C.c", "\x83\x5C", ".c"},
    };
    for (const PartCase& c : cases) {
        EXPECT_EQ(AllForms(c.path, PART_FORMS(lstrGetFolder)), c.folder);
        EXPECT_EQ(AllForms(c.path, PART_FORMS(lstrGetFile)), c.file);
        EXPECT_EQ(AllForms(c.path, PART_FORMS(lstrGetBase)), c.base);
        EXPECT_EQ(AllForms(c.path, PART_FORMS(lstrGetExt)), c.ext);
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
    const char* path = "C:\\aaa\\bbb\\ccc\\file.txt";
    const struct {
        int limit;
        const char* text;
    } rows[] = {
        {30, "C:\\aaa\\bbb\\ccc\\file.txt"}, {23, "C:\\aaa\\bbb\\ccc\\file.txt"}, {22, "C:\\aaa\\...ccc\\file.txt"},
        {21, "C:\\aaa\\...cc\\file.txt"},    {20, "C:\\aaa\\...c\\file.txt"},     {19, "C:\\aaa\\...\\file.txt"},
        {18, "C:\\aaa...\\file.txt"},        {14, "C:...\\file.txt"},             {13, "C...\\file.txt"},
        {12, "file.txt"},                    {8, "file.txt"},                     {7, "file.tx"},
        {3, "fil"},                          {0, ""},
    };
    for (const auto& r : rows) EXPECT_EQ(CutShort(path, r.limit), r.text) << r.limit;

    const struct {
        const char* path;
        int limit;
        const char* text;
    } others[] = {
        {"\\\\srv\\share\\dir\\sub\\file.txt", 27, "\\\\srv\\share\\...sub\\file.txt"},
        {"\\\\srv\\share\\dir\\sub\\file.txt", 22, "\\\\srv\\shar...\\file.txt"},
        {"//srv/share/dir/sub/file.txt", 25, "//srv/share/...b/file.txt"},
        {"C:/aaa/bbb/ccc/file.txt", 20, "C:/aaa/...c/file.txt"}, {"aaa\\bbb\\ccc\\file.txt", 19, "aaa\\...ccc\\file.txt"},
        {"C:\\aaa\\file.txt", 14, "C:...\\file.txt"},    {"C:\\file.txt", 10, "file.txt"},
        // Two-byte characters on the cut: one byte short of the limit.
        {"C:\\aaa\\\x95\x5C\x95\x5C.txt", 5, "\x95\x5C\x95\x5C."},
        {"C:\\aaa\\\x95\x5C\x95\x5C.txt", 4, "\x95\x5C\x95\x5C"},
        {"C:\\aaa\\\x95\x5C\x95\x5C.txt", 3, "\x95\x5C"},
        {"C:\\a\x95\x5C\x95\x5C\\bbb\\file.txt", 18, "C:\\a\x95\x5C...\\file.txt"},
        {"C:\\a\x95\x5C\x95\x5C\\bbb\\file.txt", 17, "C:\\a...\\file.txt"},
        // The tail's start moves by characters: 表 is skipped whole.
        {"C:\\aaa\\xx\\b\x95\x5C" "cd\\file.txt", 22, "C:\\aaa\\...cd\\file.txt"},
    };
    for (const auto& o : others) EXPECT_EQ(CutShort(o.path, o.limit), o.text) << o.path << " " << o.limit;
}

// Random paths: the text is never longer than the limit, and each piece of
// it is a piece of the path cut on a character boundary.
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
        path += sep + name(5);
        if (gen.Below(3) != 0) path += "." + name(3);
        const auto kinds = cp932model::Kinds(path);
        auto prefixAt = [&](const std::string& s) {
            return s.size() <= path.size() && path.compare(0, s.size(), s) == 0 && cp932model::IsStart(kinds, s.size());
        };
        auto suffixAt = [&](const std::string& s) {
            size_t at = path.size() - s.size();
            return s.size() <= path.size() && path.compare(at, s.size(), s) == 0 && cp932model::IsStart(kinds, at);
        };
        const std::string file = lstrGetFile(path.c_str()).operator const char*();
        const auto fileKinds = cp932model::Kinds(file);

        const int limit = static_cast<int>(gen.Below(path.size() + 4));
        const std::string got = CutShort(path.c_str(), limit);
        ASSERT_LE(got.size(), static_cast<size_t>(std::max(limit, 0))) << path << " " << limit;
        if (limit >= static_cast<int>(path.size())) {
            ASSERT_EQ(got, path);
            continue;
        }
        size_t mark = got.find("...");
        if (mark == std::string::npos) {
            // The file text, or its start cut on a character boundary.
            ASSERT_TRUE(file.compare(0, got.size(), got) == 0 && cp932model::IsStart(fileKinds, got.size()))
                << path << " " << limit << " -> " << got;
            continue;
        }
        // head + "\..." + tail, or cut head + "...\" + file: a prefix and a suffix of the path.
        const std::string left = got.substr(0, mark);
        const std::string right = got.substr(mark + 3);
        const bool leftFits =
            prefixAt(left) || (!left.empty() && left.back() == sep && prefixAt(left.substr(0, left.size() - 1)));
        ASSERT_TRUE(leftFits) << path << " " << limit << " -> " << got;
        ASSERT_TRUE(suffixAt(right)) << path << " " << limit << " -> " << got;
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

#define BYFIND_FORMS(F)                                                                        \
    [&](const char* p, char* d) { return F(p, ch, d, c.first, c.include); },                   \
        [&](const char* p, CString& d) -> CString& { return F(p, ch, d, c.first, c.include); }, \
        [&](const char* p) { return F(p, ch, c.first, c.include); }

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
        const unsigned char ch = static_cast<unsigned char>(c.ch);
        EXPECT_EQ(AllForms(c.source, BYFIND_FORMS(lstrLeftByFind)), c.left) << c.source;
        EXPECT_EQ(AllForms(c.source, BYFIND_FORMS(lstrRightByFind)), c.right) << c.source;
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
