// The global heap: blocks, handles and locks, the "not a block" answers that
// the library relies on, and injected failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
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

// Frees pull later entries of a cluster back into the gap; a seeded mix of
// allocations and frees in random order, checked against a model, shows that
// every live block stays findable and no freed one is.
TEST_F(HeapTest, RandomAllocationsAndFreesAgainstAModel) {
    std::mt19937 rng(99);
    std::vector<std::pair<HGLOBAL, SIZE_T>> live;
    std::vector<HGLOBAL> freed;
    for (int step = 1; step <= 30000; ++step) {
        if (live.empty() || rng() % 5 < 3) {
            SIZE_T size = 1 + rng() % 300;
            live.emplace_back(GlobalAlloc(GMEM_FIXED, size), size);
            ASSERT_NE(live.back().first, nullptr);
        } else {
            size_t k = rng() % live.size();
            ASSERT_EQ(GlobalFree(live[k].first), nullptr) << step;
            freed.push_back(live[k].first);
            live[k] = live.back();
            live.pop_back();
        }
        if (step % 1000 == 0) {
            for (auto& [h, size] : live) ASSERT_EQ(GlobalSize(h), size) << step;
            // A freed address may have come back as a new block; only those
            // that did not are "not a block".
            for (HGLOBAL h : freed) {
                bool reused = std::any_of(live.begin(), live.end(), [h](auto& b) { return b.first == h; });
                if (!reused) {
                    ASSERT_EQ(GlobalSize(h), 0u) << step;
                }
            }
            freed.clear();
        }
    }
    for (auto& b : live) GlobalFree(b.first);
}

// Neighbouring blocks share the words that mark them live; two threads that
// free alternate neighbours at once must each clear only their own marks.
TEST_F(HeapTest, NeighboursFreedOnTwoThreadsAtOnce) {
    for (int round = 0; round < 10; ++round) {
        std::vector<HGLOBAL> blocks;
        for (int i = 0; i < 50000; ++i) blocks.push_back(GlobalAlloc(GMEM_FIXED, 16));
        std::atomic<int> failed{0};
        std::atomic<int> ready{0};
        auto freeEvery = [&](size_t first) {
            // Both start together, so that their frees overlap.
            ++ready;
            while (ready.load() < 2) {
            }
            for (size_t i = first; i < blocks.size(); i += 2) {
                if (GlobalFree(blocks[i]) != nullptr) ++failed;
            }
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
    for (HGLOBAL h : got) {
        if (h != nullptr) GlobalFree(h);
    }
}

}  // namespace
