// The code page 932 operations: byte kinds by place, stepping, searches and
// spans (against a plain walk on seeded random text, where trail bytes 0x5C,
// 0x40 and 0x81 abound), upper-casing (against glibc's iconv and towupper),
// _splitpath, lstrcmpiA.
#include <gtest/gtest.h>

#include <iconv.h>

#include <array>
#include <clocale>
#include <cstring>
#include <cwctype>
#include <set>
#include <string>
#include <vector>

#include <orvanest/platform/platform.h>

#include "cp932_model.h"

namespace {

using namespace orvacrt;
namespace model = cp932model;

const unsigned char* U(const std::string& s) { return reinterpret_cast<const unsigned char*>(s.c_str()); }

TEST(Mbcs, ByteClassesFollowTheCodePageRanges) {
    for (unsigned b = 0; b < 256; ++b) {
        EXPECT_EQ(IsDBCSLeadByte(static_cast<BYTE>(b)) != 0, model::Lead(b)) << b;
        EXPECT_EQ(_ismbblead(b) != 0, model::Lead(b)) << b;
        EXPECT_EQ(_ismbbtrail(b) != 0, model::Trail(b)) << b;
    }
    EXPECT_EQ(_ismbblead(0x181), 0);
}

// What the walk below never asks: the terminator, the empty text, codes that
// are no character, places outside the text.
TEST(Mbcs, EdgesOfTheSearches) {
    const std::string text = "ab\x95\x5C";
    const unsigned char* s = U(text);
    EXPECT_EQ(_mbschr(s, 0), s + 4);
    EXPECT_EQ(_mbsrchr(s, 0), s + 4);
    EXPECT_EQ(_mbsstr(s, U("")), s);
    EXPECT_EQ(_mbschr(s, 0x5C5C), nullptr) << "no such character";
    EXPECT_EQ(_mbschr(s, 0x1955C), nullptr);
    EXPECT_EQ(_mbsspnp(s, U(text)), nullptr);
    EXPECT_EQ(_mbsbtype(s, 40), _MBC_ILLEGAL) << "beyond the terminator";
    EXPECT_EQ(CharPrevA(text.c_str(), text.c_str()), text.c_str());
}

// Every search, span and byte-kind answer against the walk, on text full of
// bytes that look like what is searched for.
TEST(Mbcs, AllOperationsAgreeWithAWalkOnRandomText) {
    model::TextGen gen(932);
    const int wanted[] = {'\\', '@', 'a', 'E', 0x81, 0x9F, 0xE0, 0xB1, 0x955C, 0x8340,
                          0x8140, 0x8B81, 0x89E0, 0x8261, 0xFCFC, '/', ' '};
    const int types[] = {_MBC_SINGLE, _MBC_LEAD, _MBC_TRAIL, _MBC_ILLEGAL};  // by model::Kind
    for (int round = 0; round < 400; ++round) {
        const std::string text = gen.Text(gen.Below(60), round % 3 == 0);
        const auto kinds = model::Kinds(text);
        const unsigned char* s = U(text);
        const size_t n = text.size();
        std::vector<size_t> starts;  // of the characters, by the walk
        for (size_t i = 0; i < n; i += model::WidthAt(kinds, i)) starts.push_back(i);
        const auto piece = [&](size_t i) { return text.substr(i, model::WidthAt(kinds, i)); };
        SCOPED_TRACE(testing::Message() << "round " << round);

        for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(_mbsbtype(s, i), types[kinds[i]]) << i;
            ASSERT_EQ(_ismbslead(s, s + i), kinds[i] == model::kLead ? -1 : 0) << i;
            ASSERT_EQ(_ismbstrail(s, s + i), kinds[i] == model::kTrail ? -1 : 0) << i;
        }
        for (size_t i : starts) {
            const size_t next = i + model::WidthAt(kinds, i);
            ASSERT_EQ(_mbsinc(s + i), s + next) << i;
            ASSERT_EQ(CharPrevA(text.c_str(), text.c_str() + next), text.c_str() + i) << i;
        }
        for (int c : wanted) {
            std::vector<const unsigned char*> found;
            for (size_t i : starts) {
                if ((kinds[i] == model::kLead ? s[i] << 8 | s[i + 1] : s[i]) == c) found.push_back(s + i);
            }
            ASSERT_EQ(_mbschr(s, c), found.empty() ? nullptr : found.front()) << std::hex << c;
            ASSERT_EQ(_mbsrchr(s, c), found.empty() ? nullptr : found.back()) << std::hex << c;
        }
        // Pieces of the text itself, cut anywhere: found only at a character start.
        for (int k = 0; k < 6 && n > 0; ++k) {
            const size_t at = gen.Below(n);
            const std::string sub = text.substr(at, 1 + gen.Below(std::min<size_t>(5, n - at)));
            const unsigned char* want = nullptr;
            for (size_t i = 0; i < starts.size() && want == nullptr; ++i) {
                if (text.compare(starts[i], sub.size(), sub) == 0) want = s + starts[i];
            }
            ASSERT_EQ(_mbsstr(s, U(sub)), want) << sub;
            ASSERT_TRUE(want != nullptr || !model::IsStart(kinds, at)) << sub;
        }
        // Spans over a set of one to three characters.
        std::string setText;
        std::set<std::string> set;
        for (int k = 0; k <= round % 3; ++k) setText += *set.insert(gen.Text(1)).first;
        size_t spn = 0, cspn = 0;
        while (spn < n && set.count(piece(spn))) spn += model::WidthAt(kinds, spn);
        while (cspn < n && !set.count(piece(cspn))) cspn += model::WidthAt(kinds, cspn);
        ASSERT_EQ(_mbsspn(s, U(setText)), spn) << setText;
        ASSERT_EQ(_mbscspn(s, U(setText)), cspn) << setText;
        ASSERT_EQ(_mbsspnp(s, U(setText)), spn < n ? s + spn : nullptr) << setText;
    }
}

// The letters' neighbours '`', '{', '@' and '[' stay, and the trail 'a' of Ｂ
// (0x82 0x61); eight plain bytes first, then the byte-wise road after ｱ表ａ.
TEST(Mbcs, UpperCaseKeepsCharactersWholeAndTheLength) {
    unsigned char text[] = "`az{@AZ[\x82\x61\xB1\x95\x5C\x82\x81`az{x\x81 ";
    EXPECT_EQ(_mbsupr(text), text);
    EXPECT_STREQ(reinterpret_cast<char*>(text), "`AZ{@AZ[\x82\x61\xB1\x95\x5C\x82\x60`AZ{X\x81 ");
}

// Every two-byte character against an independent source: where its capital
// exists in the code page as two bytes, _mbsupr must give it; every other
// character must stay.
TEST(Mbcs, UpperCaseAgreesWithIconvOnEveryTwoByteCharacter) {
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    iconv_t toWide = iconv_open("UCS-4LE", "CP932"), toNarrow = iconv_open("CP932", "UCS-4LE");
    if (toWide == reinterpret_cast<iconv_t>(-1) || toNarrow == reinterpret_cast<iconv_t>(-1)) {
        GTEST_SKIP() << "no CP932 in iconv";
    }
    // The bytes written, or 0 on failure.
    const auto convert = [](iconv_t cd, const void* in, size_t inSize, void* out, size_t outSize) -> size_t {
        char* ip = static_cast<char*>(const_cast<void*>(in));
        char* op = static_cast<char*>(out);
        size_t left = outSize;
        return iconv(cd, &ip, &inSize, &op, &left) == static_cast<size_t>(-1) ? 0 : outSize - left;
    };
    int mapped = 0;
    for (unsigned code = 0x8140; code <= 0xFCFC; ++code) {
        unsigned char bytes[3] = {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code), 0};
        uint32_t wide = 0;
        if (!model::Lead(bytes[0]) || !model::Trail(bytes[1])) continue;
        if (convert(toWide, bytes, 2, &wide, 4) != 4) continue;  // unassigned
        std::string want(reinterpret_cast<char*>(bytes), 2);
        const uint32_t upper = static_cast<uint32_t>(std::towupper(static_cast<wint_t>(wide)));
        char out[4];
        if (upper != wide && convert(toNarrow, &upper, 4, out, sizeof out) == 2) {
            want.assign(out, 2);
            ++mapped;
        }
        _mbsupr(bytes);
        ASSERT_EQ(std::string(reinterpret_cast<char*>(bytes), 2), want) << std::hex << code;
    }
    iconv_close(toWide);
    iconv_close(toNarrow);
    EXPECT_GT(mapped, 80) << "the alphabets were found at all";
}

// _splitpath into buffers pre-filled with 0xCC: drive, directory, name, extension.
std::array<std::string, 4> Split(const std::string& path) {
    char drive[_MAX_DRIVE], dir[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
    std::memset(drive, 0xCC, sizeof drive);
    std::memset(dir, 0xCC, sizeof dir);
    std::memset(name, 0xCC, sizeof name);
    std::memset(ext, 0xCC, sizeof ext);
    _splitpath(path.c_str(), drive, dir, name, ext);
    return {drive, dir, name, ext};
}

TEST(Mbcs, SplitPathCutsAtSeparatorsThatAreCharacters) {
    const std::pair<const char*, std::array<std::string, 4>> cases[] = {
        {"C:\\a\\b.txt", {"C:", "\\a\\", "b", ".txt"}},
        {"C:\\a/b\\c", {"C:", "\\a/b\\", "c", ""}},
        {"C:\\a\\", {"C:", "\\a\\", "", ""}},
        {"C:", {"C:", "", "", ""}},
        {"\\\\srv\\share\\f.tar.gz", {"", "\\\\srv\\share\\", "f.tar", ".gz"}},
        {"dir.x\\name", {"", "dir.x\\", "name", ""}},
        {".profile", {"", "", "", ".profile"}},
        {"C:\\\x95\x5C\\\x8E\xA6.txt", {"C:", "\\\x95\x5C\\", "\x8E\xA6", ".txt"}},  // 表\示.txt
        {"d\\\x83\x5C.\x83\x5C", {"", "d\\", "\x83\x5C", ".\x83\x5C"}},               // ソ.ソ
    };
    for (const auto& [path, parts] : cases) EXPECT_EQ(Split(path), parts) << path;
    // 254 'a', 表 and a separator do not fit in 256: the cut falls before 表.
    EXPECT_EQ(Split(std::string(254, 'a') + "\x95\x5C" + "\\f")[1], std::string(254, 'a'));
    char name[_MAX_FNAME];
    _splitpath("x\\y.z", nullptr, nullptr, name, nullptr);
    EXPECT_STREQ(name, "y");
}

TEST(Mbcs, SplitPathNeverCutsInsideACharacterOnRandomPaths) {
    model::TextGen gen(5);
    for (int round = 0; round < 500; ++round) {
        const std::string path = gen.Text(gen.Below(30));
        const auto parts = Split(path);
        ASSERT_EQ(parts[0] + parts[1] + parts[2] + parts[3], path) << round;
        const auto kinds = model::Kinds(path);
        size_t cut = 0;
        for (int k = 0; k < 3; ++k) ASSERT_TRUE(model::IsStart(kinds, cut += parts[k].size())) << round;
        // The directory ends at the last separator that is a character.
        const std::string rest = parts[2] + parts[3];
        const auto restKinds = model::Kinds(rest);
        for (size_t i = 0; i < rest.size(); ++i) {
            ASSERT_TRUE((rest[i] != '\\' && rest[i] != '/') || restKinds[i] == model::kTrail) << round;
        }
    }
}

TEST(Mbcs, CompareIgnoringCase) {
    const struct {
        const char *a, *b;
        int sign;
    } rows[] = {
        {"abc", "ABC", 0}, {"abc", "abd", -1}, {"ab", "abc", -1}, {"b", "A", 1}, {"_", "a", -1},
        {"", "", 0},       {"a", "", 1},       {nullptr, nullptr, 0}, {nullptr, "a", -1},
        {"\x82\x81", "\x82\x60", 0},    // ａ and Ａ
        {"\x82\x61", "\x82\x41", 1},    // Ｂ against a different trail: trail 'a' is no letter here
        {"\xB1", "\x82\x60", 1},        // byte order: 0xB1 after 0x82
        {"a\x95\x5C", "A\x95\x5C", 0},  // a表
    };
    for (const auto& r : rows) {
        const char* a = r.a ? r.a : "(null)";
        const char* b = r.b ? r.b : "(null)";
        int got = lstrcmpiA(r.a, r.b), back = lstrcmpiA(r.b, r.a);
        EXPECT_EQ((got > 0) - (got < 0), r.sign) << a << " / " << b;
        EXPECT_EQ((back > 0) - (back < 0), -r.sign) << b << " / " << a;
    }
    EXPECT_EQ(lstrlenA(nullptr), 0);
    EXPECT_EQ(lstrlenA("\x95\x5C" "a"), 3);
}

}  // namespace
