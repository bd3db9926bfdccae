// The code page 932 operations: byte kinds by place, stepping, the searches
// (checked against a plain walk on seeded random text, where trail bytes
// 0x5C, 0x40 and 0x81 abound), spans, upper-casing (checked against glibc's
// iconv and towupper), _splitpath, lstrcmpiA.
#include <gtest/gtest.h>

#include <iconv.h>

#include <clocale>
#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

#include <orvanest/platform/platform.h>

#include "cp932_model.h"

namespace {

using namespace orvacrt;
using cp932model::Kind;

const unsigned char* U(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.c_str()); }

TEST(Mbcs, ByteClassesFollowTheCodePageRanges) {
    for (unsigned b = 0; b < 256; ++b) {
        bool lead = (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC);
        bool trail = (b >= 0x40 && b <= 0x7E) || (b >= 0x80 && b <= 0xFC);
        EXPECT_EQ(IsDBCSLeadByte(static_cast<BYTE>(b)) != 0, lead) << b;
        EXPECT_EQ(_ismbblead(b) != 0, lead) << b;
        EXPECT_EQ(_ismbbtrail(b) != 0, trail) << b;
    }
    EXPECT_EQ(_ismbblead(0x181), 0);
}

// "a表b@ァ求@ソ\" with a lone lead byte before a blank at the end: 0x5C, 0x40
// and 0x81 stand as trail bytes, 0x81 0x40 as a trail and a single byte.
TEST(Mbcs, KindsOfBytesAreJudgedByTheirPlace) {
    const std::string text = "a\x95\x5C" "b@\x83\x40\x8B\x81@\x83\x5C\\\x81 ";
    const int S = _MBC_SINGLE, L = _MBC_LEAD, T = _MBC_TRAIL, I = _MBC_ILLEGAL;
    const int types[] = {S, L, T, S, S, L, T, L, T, S, L, T, S, I, S, I};
    const unsigned char* s = U(text);
    for (size_t i = 0; i < std::size(types); ++i) {
        EXPECT_EQ(_mbsbtype(s, i), types[i]) << i;
        EXPECT_EQ(_ismbslead(s, s + i), types[i] == L ? -1 : 0) << i;
        EXPECT_EQ(_ismbstrail(s, s + i), types[i] == T ? -1 : 0) << i;
    }
    EXPECT_EQ(_mbsbtype(s, 40), _MBC_ILLEGAL) << "beyond the terminator";
    EXPECT_EQ(_mbschr(s, '\\'), s + 12);
    EXPECT_EQ(_mbschr(s, '@'), s + 4);
    EXPECT_EQ(_mbsrchr(s, '@'), s + 9);
    EXPECT_EQ(_mbschr(s, 0x8140), nullptr) << "0x81 0x40 here is a trail and an '@'";
    EXPECT_EQ(_mbsstr(s, U(std::string("\x81@"))), nullptr);
    EXPECT_EQ(_mbsstr(s, U(std::string("\x5C" "b"))), nullptr);
    EXPECT_EQ(_mbschr(s, 0x81), s + 13) << "a lone lead byte is a character of its own";
    EXPECT_EQ(_mbsinc(s + 13), s + 14);
    EXPECT_EQ(CharPrevA(text.c_str(), text.c_str() + 12), text.c_str() + 10);
    EXPECT_EQ(CharPrevA(text.c_str(), text.c_str() + 9), text.c_str() + 7);
    EXPECT_EQ(CharPrevA(text.c_str(), text.c_str()), text.c_str());
}

TEST(Mbcs, SearchesForTheTerminatorAndTheEmptyText) {
    const std::string text = "ab\x95\x5C";
    const unsigned char* s = U(text);
    EXPECT_EQ(_mbschr(s, 0), s + 4);
    EXPECT_EQ(_mbsrchr(s, 0), s + 4);
    EXPECT_EQ(_mbsstr(s, U("")), s);
    EXPECT_EQ(_mbschr(s, 0x5C5C), nullptr) << "no such character";
    EXPECT_EQ(_mbschr(s, 0x1955C), nullptr);
    EXPECT_EQ(_mbsspnp(s, U("ab\x95\x5C")), nullptr);
}

// Every search and every byte-kind answer against the plain walk, on text
// full of bytes that look like what is searched for.
TEST(Mbcs, AllOperationsAgreeWithAWalkOnRandomText) {
    cp932model::TextGen gen(932);
    const std::vector<unsigned> wanted = {'\\', '@', 'a', 'E', 0x81, 0x9F, 0xE0, 0xB1, 0x955C, 0x8340,
                                          0x8140, 0x8B81, 0x89E0, 0x8261, 0xFCFC, '/', ' '};
    for (int round = 0; round < 400; ++round) {
        const std::string text = gen.Text(gen.Below(60), round % 3 == 0);
        const auto kinds = cp932model::Kinds(text);
        const unsigned char* s = U(text);
        const size_t n = text.size();

        // Byte kinds and stepping.
        for (size_t i = 0; i < n; ++i) {
            const int types[] = {_MBC_SINGLE, _MBC_LEAD, _MBC_TRAIL, _MBC_ILLEGAL};  // by Kind
            ASSERT_EQ(_mbsbtype(s, i), types[kinds[i]]) << round << " at " << i;
            ASSERT_EQ(_ismbslead(s, s + i), kinds[i] == cp932model::kLead ? -1 : 0);
            ASSERT_EQ(_ismbstrail(s, s + i), kinds[i] == cp932model::kTrail ? -1 : 0);
            if (cp932model::IsStart(kinds, i)) {
                ASSERT_EQ(_mbsinc(s + i), s + i + cp932model::WidthAt(kinds, i));
                if (i + cp932model::WidthAt(kinds, i) <= n) {
                    const char* next = text.c_str() + i + cp932model::WidthAt(kinds, i);
                    ASSERT_EQ(CharPrevA(text.c_str(), next), text.c_str() + i) << round << " at " << i;
                }
            }
        }

        // Character searches.
        for (unsigned c : wanted) {
            const unsigned char* first = nullptr;
            const unsigned char* last = nullptr;
            for (size_t i = 0; i < n; i += cp932model::WidthAt(kinds, i)) {
                size_t w = cp932model::WidthAt(kinds, i);
                unsigned code = w == 2 ? (s[i] << 8 | s[i + 1]) : s[i];
                if (code == c) {
                    if (first == nullptr) first = s + i;
                    last = s + i;
                }
            }
            ASSERT_EQ(_mbschr(s, c), first) << round << " char " << std::hex << c;
            ASSERT_EQ(_mbsrchr(s, c), last) << round << " char " << std::hex << c;
        }

        // Text searches: pieces of the text itself, cut anywhere.
        for (int k = 0; k < 6 && n > 0; ++k) {
            size_t at = gen.Below(n);
            size_t len = 1 + gen.Below(std::min<size_t>(5, n - at));
            const std::string sub = text.substr(at, len);
            const unsigned char* want = nullptr;
            for (size_t i = 0; i < n; i += cp932model::WidthAt(kinds, i)) {
                if (text.compare(i, sub.size(), sub) == 0) {
                    want = s + i;
                    break;
                }
            }
            ASSERT_EQ(_mbsstr(s, U(sub)), want) << round;
            if (cp932model::IsStart(kinds, at)) {
                ASSERT_NE(want, nullptr) << "a piece cut at a character start is always found";
                ASSERT_LE(want, s + at);
            }
        }

        // Spans over a random set of pieces.
        const std::string set = gen.Text(3);
        const auto setKinds = cp932model::Kinds(set);
        auto inSet = [&](size_t i) {
            size_t w = cp932model::WidthAt(kinds, i);
            for (size_t j = 0; j < set.size(); j += cp932model::WidthAt(setKinds, j)) {
                if (cp932model::WidthAt(setKinds, j) == w && set.compare(j, w, text, i, w) == 0) return true;
            }
            return false;
        };
        size_t spn = 0;
        while (spn < n && inSet(spn)) spn += cp932model::WidthAt(kinds, spn);
        size_t cspn = 0;
        while (cspn < n && !inSet(cspn)) cspn += cp932model::WidthAt(kinds, cspn);
        ASSERT_EQ(_mbsspn(s, U(set)), spn) << round;
        ASSERT_EQ(_mbscspn(s, U(set)), cspn) << round;
        ASSERT_EQ(_mbsspnp(s, U(set)), spn < n ? s + spn : nullptr) << round;
    }
}

TEST(Mbcs, UpperCaseKeepsCharactersWholeAndTheLength) {
    // "aｚ Ｂ ｱ 表 ａ x" : the trail byte 'a' of Ｂ (0x82 0x61) stays.
    std::string text = "az\x82\x61\xB1\x95\x5C\x82\x81x\x81 ";
    std::string want = "AZ\x82\x61\xB1\x95\x5C\x82\x60X\x81 ";
    std::vector<unsigned char> buffer(text.begin(), text.end());
    buffer.push_back(0);
    EXPECT_EQ(_mbsupr(buffer.data()), buffer.data());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer.data())), want);
}

// Every two-byte character of the code page against an independent source:
// glibc's iconv for the code page and towupper of the UTF-8 locale. Where the
// capital exists in the code page as two bytes, _mbsupr must give it; every
// other character must stay.
TEST(Mbcs, UpperCaseAgreesWithIconvOnEveryTwoByteCharacter) {
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    iconv_t toWide = iconv_open("UCS-4LE", "CP932");
    iconv_t toNarrow = iconv_open("CP932", "UCS-4LE");
    if (toWide == reinterpret_cast<iconv_t>(-1) || toNarrow == reinterpret_cast<iconv_t>(-1)) {
        GTEST_SKIP() << "no CP932 in iconv";
    }
    int mapped = 0;
    for (unsigned lead = 0x81; lead <= 0xFC; ++lead) {
        if (!cp932model::Lead(static_cast<unsigned char>(lead))) continue;
        for (unsigned trail = 0x40; trail <= 0xFC; ++trail) {
            if (!cp932model::Trail(static_cast<unsigned char>(trail))) continue;
            char in[2] = {static_cast<char>(lead), static_cast<char>(trail)};
            uint32_t wide = 0;
            char* ip = in;
            size_t il = 2;
            char* op = reinterpret_cast<char*>(&wide);
            size_t ol = 4;
            if (iconv(toWide, &ip, &il, &op, &ol) == static_cast<size_t>(-1)) continue;  // unassigned
            std::string want(in, 2);
            uint32_t upper = static_cast<uint32_t>(std::towupper(static_cast<wint_t>(wide)));
            if (upper != wide) {
                char out[4];
                ip = reinterpret_cast<char*>(&upper);
                il = 4;
                op = out;
                ol = sizeof out;
                if (iconv(toNarrow, &ip, &il, &op, &ol) != static_cast<size_t>(-1) && sizeof out - ol == 2) {
                    want.assign(out, 2);
                    ++mapped;
                }
            }
            unsigned char buffer[3] = {static_cast<unsigned char>(lead), static_cast<unsigned char>(trail), 0};
            _mbsupr(buffer);
            ASSERT_EQ(std::string(reinterpret_cast<char*>(buffer), 2), want) << std::hex << lead << " " << trail;
        }
    }
    iconv_close(toWide);
    iconv_close(toNarrow);
    EXPECT_GT(mapped, 80) << "the alphabets were found at all";
}

struct SplitCase {
    const char* path;
    const char* drive;
    const char* dir;
    const char* name;
    const char* ext;
};

TEST(Mbcs, SplitPathCutsAtSeparatorsThatAreCharacters) {
    const SplitCase cases[] = {
        {"C:\\a\\b.txt", "C:", "\\a\\", "b", ".txt"},
        {"C:/a/b.txt", "C:", "/a/", "b", ".txt"},
        {"C:\\a/b\\c", "C:", "\\a/b\\", "c", ""},
        {"b", "", "", "b", ""},
        {"C:\\a\\", "C:", "\\a\\", "", ""},
        {"C:", "C:", "", "", ""},
        {"\\\\srv\\share\\f.tar.gz", "", "\\\\srv\\share\\", "f.tar", ".gz"},
        {"dir.x\\name", "", "dir.x\\", "name", ""},
        {".profile", "", "", "", ".profile"},
        {"", "", "", "", ""},
        // 表\示.txt: the 0x5C of 表 is its trail byte, not a separator.
        {"C:\\\x95\x5C\\\x8E\xA6.txt", "C:", "\\\x95\x5C\\", "\x8E\xA6", ".txt"},
        // ソ (0x83 0x5C) ending a name with no separator behind it.
        {"\x83\x5C", "", "", "\x83\x5C", ""},
        {"d\\\x83\x5C.\x83\x5C", "", "d\\", "\x83\x5C", ".\x83\x5C"},
    };
    for (const SplitCase& c : cases) {
        char drive[_MAX_DRIVE], dir[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
        std::memset(drive, 0xCC, sizeof drive);
        std::memset(dir, 0xCC, sizeof dir);
        std::memset(name, 0xCC, sizeof name);
        std::memset(ext, 0xCC, sizeof ext);
        _splitpath(c.path, drive, dir, name, ext);
        EXPECT_STREQ(drive, c.drive) << c.path;
        EXPECT_STREQ(dir, c.dir) << c.path;
        EXPECT_STREQ(name, c.name) << c.path;
        EXPECT_STREQ(ext, c.ext) << c.path;
    }
    char name[_MAX_FNAME];
    _splitpath("x\\y.z", nullptr, nullptr, name, nullptr);
    EXPECT_STREQ(name, "y");
}

TEST(Mbcs, SplitPathCutsLongPartsOnACharacterBoundary) {
    // A directory of 254 'a' and then 表: 256 bytes and a separator do not
    // fit in 256; the cut falls before 表, never inside it.
    std::string path = std::string(254, 'a') + "\x95\x5C" + "\\f";
    char dir[_MAX_DIR];
    _splitpath(path.c_str(), nullptr, dir, nullptr, nullptr);
    EXPECT_EQ(std::string(dir), std::string(254, 'a'));
}

TEST(Mbcs, SplitPathNeverCutsInsideACharacterOnRandomPaths) {
    cp932model::TextGen gen(5);
    for (int round = 0; round < 500; ++round) {
        const std::string path = gen.Text(gen.Below(30));
        char drive[_MAX_DRIVE], dir[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
        _splitpath(path.c_str(), drive, dir, name, ext);
        const std::string joined = std::string(drive) + dir + name + ext;
        ASSERT_EQ(joined, path) << "short parts put together give the path";
        const auto kinds = cp932model::Kinds(path);
        size_t cuts[] = {strlen(drive), strlen(drive) + strlen(dir), strlen(drive) + strlen(dir) + strlen(name)};
        for (size_t cut : cuts) ASSERT_TRUE(cp932model::IsStart(kinds, cut)) << round;
        // The directory ends in a separator that is a character, and the
        // rest holds none.
        const std::string rest = std::string(name) + ext;
        const auto restKinds = cp932model::Kinds(rest);
        for (size_t i = 0; i < rest.size(); ++i) {
            if (rest[i] == '\\' || rest[i] == '/') {
                ASSERT_EQ(restKinds[i], cp932model::kTrail) << round;
            }
        }
    }
}

TEST(Mbcs, CompareIgnoringCase) {
    struct Row {
        const char* a;
        const char* b;
        int sign;
    } rows[] = {
        {"abc", "ABC", 0},   {"abc", "abd", -1},     {"ab", "abc", -1}, {"b", "A", 1},
        {"_", "a", -1},      {"", "", 0},            {"a", "", 1},
        {"\x82\x81", "\x82\x60", 0},    // ａ and Ａ
        {"\x82\x61", "\x82\x41", 1},    // Ｂ against a different trail: trail 'a' is no letter here
        {"\xB1", "\x82\x60", 1},        // byte order: 0xB1 after 0x82
        {"a\x95\x5C", "A\x95\x5C", 0},  // a表
    };
    for (const Row& r : rows) {
        int got = lstrcmpiA(r.a, r.b);
        EXPECT_EQ((got > 0) - (got < 0), r.sign) << r.a << " / " << r.b;
        int back = lstrcmpiA(r.b, r.a);
        EXPECT_EQ((back > 0) - (back < 0), -r.sign) << r.b << " / " << r.a;
    }
    EXPECT_EQ(lstrcmpiA(nullptr, nullptr), 0);
    EXPECT_LT(lstrcmpiA(nullptr, "a"), 0);
    EXPECT_GT(lstrcmpiA("a", nullptr), 0);
    EXPECT_EQ(lstrlenA(nullptr), 0);
    EXPECT_EQ(lstrlenA("\x95\x5C" "a"), 3);
}

}  // namespace
