// The global heap: blocks, handles and locks, the "not a block" answers that
// the library relies on, and injected failures.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <orvanest/platform/platform.h>

namespace {

class HeapTest : public ::testing::Test {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

TEST_F(HeapTest, FixedAndMovableBlocksKeepTheirSizeAndZeroFill) {
    for (UINT flags : {GMEM_FIXED, GMEM_ZEROINIT, GMEM_MOVEABLE, GMEM_MOVEABLE | GMEM_ZEROINIT}) {
        HGLOBAL h = GlobalAlloc(flags, 100);
        ASSERT_NE(h, nullptr);
        auto* p = static_cast<unsigned char*>(GlobalLock(h));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(GlobalSize(h), 100u);
        EXPECT_EQ(GlobalSize(p), 100u);
        if (flags & GMEM_ZEROINIT) {
            for (int i = 0; i < 100; ++i) ASSERT_EQ(p[i], 0) << i;
        }
        std::memset(p, 0xAB, 100);
        GlobalUnlock(h);
        EXPECT_EQ(GlobalFree(h), nullptr);
    }
}

TEST_F(HeapTest, SizeIsZeroForAnythingThatIsNotALiveBlock) {
    int onStack = 0;
    HGLOBAL live = GlobalAlloc(GMEM_FIXED, 64);
    HGLOBAL freed = GlobalAlloc(GMEM_FIXED, 64);
    ASSERT_EQ(GlobalFree(freed), nullptr);
    struct Case {
        const char* what;
        void* p;
    } cases[] = {
        {"null", nullptr},
        {"stack", &onStack},
        {"interior", static_cast<char*>(live) + 8},
        {"one past", static_cast<char*>(live) + 64},
        {"freed", freed},
        {"wild", reinterpret_cast<void*>(0x10)},
        {"all bits", reinterpret_cast<void*>(~uintptr_t{0})},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        EXPECT_EQ(GlobalSize(c.p), 0u) << c.what;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE)) << c.what;
    }
    EXPECT_EQ(GlobalFree(freed), freed) << "a second free is refused";
    EXPECT_EQ(GlobalLock(&onStack), nullptr);
    EXPECT_EQ(GlobalSize(live), 64u);
    GlobalFree(live);
}

TEST_F(HeapTest, UnlockCountsDownMovableLocks) {
    HGLOBAL h = GlobalAlloc(GHND, 8);
    ASSERT_EQ(GlobalLock(h), h);
    ASSERT_EQ(GlobalLock(h), h);
    EXPECT_TRUE(GlobalUnlock(h));
    SetLastError(77);
    EXPECT_FALSE(GlobalUnlock(h));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NO_ERROR));
    EXPECT_FALSE(GlobalUnlock(h));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_LOCKED));
    GlobalFree(h);
}

TEST_F(HeapTest, ManyBlocksStayDistinctThroughGrowthAndFrees) {
    std::vector<HGLOBAL> blocks;
    for (int i = 0; i < 20000; ++i) {
        blocks.push_back(GlobalAlloc(GMEM_FIXED, 1 + i % 97));
        ASSERT_NE(blocks.back(), nullptr);
    }
    for (size_t i = 0; i < blocks.size(); i += 2) ASSERT_EQ(GlobalFree(blocks[i]), nullptr);
    for (size_t i = 0; i < blocks.size(); ++i) {
        ASSERT_EQ(GlobalSize(blocks[i]), i % 2 ? 1 + i % 97 : 0u) << i;
    }
    for (size_t i = 1; i < blocks.size(); i += 2) ASSERT_EQ(GlobalFree(blocks[i]), nullptr);
}

TEST_F(HeapTest, InjectedFailuresHitTheNthCallOnceOrFromThenOn) {
    OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 3, ERROR_NOT_ENOUGH_MEMORY, FALSE);
    std::vector<HGLOBAL> got;
    for (int i = 0; i < 5; ++i) got.push_back(GlobalAlloc(GMEM_FIXED, 16));
    EXPECT_NE(got[0], nullptr);
    EXPECT_NE(got[1], nullptr);
    EXPECT_EQ(got[2], nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_NE(got[3], nullptr);
    EXPECT_NE(got[4], nullptr);
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC), 1u);

    OrvaFaultArm(ORVA_FAULT_GLOBALLOCK, 2, ERROR_INVALID_HANDLE, TRUE);
    EXPECT_NE(GlobalLock(got[0]), nullptr);
    EXPECT_EQ(GlobalLock(got[0]), nullptr);
    EXPECT_EQ(GlobalLock(got[1]), nullptr);
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALLOCK), 2u);
    OrvaFaultReset();
    EXPECT_NE(GlobalLock(got[1]), nullptr);
    for (HGLOBAL h : got) {
        if (h != nullptr) GlobalFree(h);
    }
}

}  // namespace
