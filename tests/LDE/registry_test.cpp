// The source registry: the library's own ids in their order, look-ups by
// mark, host tables of several rows, and taking tables out again.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include <orvanest/ORVANEST.h>

namespace {

const char* const kLibrarySources[28] = {
    ".\\ORVANEST",     ".\\LAL\\LAEAR",    ".\\LAL\\LAEMM",    ".\\LAL\\LAL",      ".\\LAL\\LAVL",
    ".\\LAL\\LBITBTL", ".\\LAL\\LDLIST",   ".\\LAL\\LSLIST",   ".\\LCL\\LCALC",    ".\\LCL\\LUNITCIR",
    ".\\LDE\\LDE",     ".\\LFL\\LCFILE",   ".\\LFL\\LFILE",    ".\\LFL\\LSEQFMT",  ".\\LMM\\LAMLC",
    ".\\LMM\\LMEM",    ".\\LMM\\LMEMBUFS", ".\\LMM\\LMEMFILE", ".\\LMM\\LMEMWORK", ".\\LMM\\LMMF",
    ".\\LMM\\LSTACK",  ".\\LST\\LSCALC",   ".\\LST\\LSCHK",    ".\\LST\\LSCVT",    ".\\LST\\LSTR",
    ".\\LSY\\LCPPEXCP", ".\\LSY\\LEXCEPT", ".\\LSY\\LSYS",
};

TEST(RegistryTest, LibrarySourcesHaveIdsOneToTwentyEightInOrder) {
    for (DWORD n = 1; n <= 28; ++n) EXPECT_STREQ(ldbgFindSource(n << 16), kLibrarySources[n - 1]) << n;
    EXPECT_EQ(ldbgFindSource(29u << 16), nullptr);
}

TEST(RegistryTest, LookUpIgnoresMarkBitAndLine) {
    const std::pair<DWORD, const char*> cases[] = {
        {0x80100123, ".\\LMM\\LMEM"}, {0x00100000, ".\\LMM\\LMEM"}, {0x0001FFFF, ".\\ORVANEST"},
        {0x801C0001, ".\\LSY\\LSYS"}, {0x7FFF0000, nullptr},
        {0x00000000, nullptr}, {0x80000123, nullptr},  // source id 0 never matches the terminator
    };
    for (auto [mark, name] : cases) EXPECT_STREQ(ldbgFindSource(mark), name) << std::hex << mark;
}

TEST(RegistryTest, HostSourcesTakeTheNextIdsAndCanBeTakenOut) {
    LDE_CSourceInfo first("host\\first");
    LDE_CSourceInfo second;
    EXPECT_EQ(first.m_info[0].id, 0x001D0000u);
    EXPECT_EQ(second.m_info[0].id, 0x001E0000u);
    EXPECT_EQ(first.m_info[1].id, 0u);
    EXPECT_STREQ(first.m_info[1].name, "");
    EXPECT_STREQ(ldbgFindSource(0x801D0042), "host\\first");
    EXPECT_STREQ(ldbgFindSource(0x001E0000), "");

    EXPECT_EQ(ldbgResetSourceInfo(second.m_info), 1);
    EXPECT_EQ(ldbgFindSource(0x001E0000), nullptr);
    SetLastError(1234);
    EXPECT_EQ(ldbgResetSourceInfo(second.m_info), 0) << "no longer registered";
    EXPECT_EQ(GetLastError(), 1234u) << "a failed reset sets no error";

    // Ids count the tables registered now, so one can come up again.
    LDE_CSourceInfo third("host\\third");
    EXPECT_EQ(third.m_info[0].id, 0x001E0000u);
    EXPECT_EQ(ldbgResetSourceInfo(third.m_info), 1);
    EXPECT_EQ(ldbgResetSourceInfo(first.m_info), 1);
}

TEST(RegistryTest, TableOfSeveralRowsIsFoundByEveryRow) {
    tagLDE_SourceInfo table[4] = {{0x00400000, "app\\one"}, {0x00410000, "app\\two"}, {0x00420000, "app\\three"},
                                  {0, ""}};
    EXPECT_EQ(ldbgSetSourceInfo(table), 1);
    EXPECT_STREQ(ldbgFindSource(0x80400001), "app\\one");
    EXPECT_STREQ(ldbgFindSource(0x00410002), "app\\two");
    EXPECT_STREQ(ldbgFindSource(0x80420003), "app\\three");
    EXPECT_EQ(ldbgFindSource(0x00430000), nullptr);
    EXPECT_EQ(ldbgResetSourceInfo(table), 1);
    EXPECT_EQ(ldbgFindSource(0x00410000), nullptr);
}

TEST(RegistryTest, DestructorLeavesTheObjectRegistered) {
    alignas(LDE_CSourceInfo) unsigned char storage[sizeof(LDE_CSourceInfo)];
    auto* info = new (storage) LDE_CSourceInfo("host\\kept");
    DWORD id = info->m_info[0].id;
    info->~LDE_CSourceInfo();
    EXPECT_STREQ(ldbgFindSource(id), "host\\kept");
    EXPECT_EQ(ldbgResetSourceInfo(info->m_info), 1);
}

TEST(RegistryTest, LookUpRestoresTheLatestMarkAsLastError) {
    std::thread([] {
        // No mark yet on this thread: the last error stays.
        SetLastError(7);
        ldbgFindSource(0x00100000);
        EXPECT_EQ(GetLastError(), 7u);
        SetLastError(0x55);
        ldbgSetMarkErr(0);
        for (DWORD mark : {0x00100000u, 0x7FFF0000u}) {
            SetLastError(9);
            ldbgFindSource(mark);
            EXPECT_EQ(GetLastError(), 0x55u) << std::hex << mark;
        }
    }).join();
}

}  // namespace
