// The global heap: blocks, handles and locks, the "not a block" answers that
// the library relies on, and injected failures.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <thread>
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
        auto* p = static_cast<unsigned char*>(GlobalLock(h));
        ASSERT_NE(p, nullptr) << flags;
        EXPECT_EQ(GlobalSize(h), 100u);
        EXPECT_EQ(GlobalSize(p), 100u);
        for (int i = 0; i < 100 && (flags & GMEM_ZEROINIT); ++i) ASSERT_EQ(p[i], 0) << flags << " byte " << i;
        std::memset(p, 0xAB, 100);
        GlobalUnlock(h);
        EXPECT_EQ(GlobalFree(h), nullptr);
    }
}

TEST_F(HeapTest, SizeIsZeroForAnythingThatIsNotALiveBlock) {
    int onStack = 0;
    char* live = static_cast<char*>(GlobalAlloc(GMEM_FIXED, 64));
    HGLOBAL freed = GlobalAlloc(GMEM_FIXED, 64);
    ASSERT_EQ(GlobalFree(freed), nullptr);
    const std::pair<const char*, void*> cases[] = {
        {"null", nullptr},         {"stack", &onStack},     {"interior", live + 8},
        {"next grain", live + 16}, {"one past", live + 64}, {"freed", freed},
        {"wild", reinterpret_cast<void*>(0x10)}, {"all bits", reinterpret_cast<void*>(~uintptr_t{0})},
    };
    for (auto [what, p] : cases) {
        SetLastError(0);
        EXPECT_EQ(GlobalSize(p), 0u) << what;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE)) << what;
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

// A seeded mix of allocations and frees against a map of the live blocks:
// each keeps its size, and a freed address that did not come back as a new
// block is no block.
TEST_F(HeapTest, RandomAllocationsAndFreesAgainstAModel) {
    std::mt19937 rng(99);
    std::map<HGLOBAL, SIZE_T> live;
    std::vector<HGLOBAL> freed;
    for (int step = 1; step <= 30000; ++step) {
        if (live.empty() || rng() % 5 < 3) {
            SIZE_T size = 1 + rng() % 300;
            HGLOBAL h = GlobalAlloc(GMEM_FIXED, size);
            ASSERT_NE(h, nullptr);
            live[h] = size;
        } else {
            auto it = std::next(live.begin(), static_cast<long>(rng() % live.size()));
            ASSERT_EQ(GlobalFree(it->first), nullptr) << step;
            freed.push_back(it->first);
            live.erase(it);
        }
        if (step % 1000 != 0) continue;
        for (auto [h, size] : live) ASSERT_EQ(GlobalSize(h), size) << step;
        for (HGLOBAL h : freed) ASSERT_TRUE(live.count(h) || GlobalSize(h) == 0) << step;
        freed.clear();
    }
    for (auto [h, size] : live) GlobalFree(h);
}

// Neighbouring blocks share the words that mark them live; two threads that
// free alternate neighbours at once must each clear only their own marks.
TEST_F(HeapTest, NeighboursFreedOnTwoThreadsAtOnce) {
    for (int round = 0; round < 10; ++round) {
        std::vector<HGLOBAL> blocks;
        for (int i = 0; i < 50000; ++i) blocks.push_back(GlobalAlloc(GMEM_FIXED, 16));
        std::atomic<int> failed{0}, ready{0};
        auto freeEvery = [&](size_t first) {
            for (++ready; ready.load() < 2;) {
            }
            for (size_t i = first; i < blocks.size(); i += 2) failed += GlobalFree(blocks[i]) != nullptr;
        };
        std::thread even(freeEvery, 0), odd(freeEvery, 1);
        even.join();
        odd.join();
        ASSERT_EQ(failed.load(), 0) << round;
        for (HGLOBAL h : blocks) ASSERT_EQ(GlobalSize(h), 0u) << round;
    }
}

TEST_F(HeapTest, InjectedFailuresHitTheNthCallOnceOrFromThenOn) {
    OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 3, ERROR_NOT_ENOUGH_MEMORY, FALSE);
    std::vector<HGLOBAL> got;
    for (int i = 0; i < 5; ++i) got.push_back(GlobalAlloc(GMEM_FIXED, 16));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(got[i] == nullptr, i == 2) << i;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC), 1u);

    OrvaFaultArm(ORVA_FAULT_GLOBALLOCK, 2, ERROR_INVALID_HANDLE, TRUE);
    EXPECT_NE(GlobalLock(got[0]), nullptr);
    EXPECT_EQ(GlobalLock(got[0]), nullptr);
    EXPECT_EQ(GlobalLock(got[1]), nullptr);
    EXPECT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALLOCK), 2u);
    OrvaFaultReset();
    EXPECT_NE(GlobalLock(got[1]), nullptr);
    for (HGLOBAL h : got) GlobalFree(h);
}

}  // namespace
