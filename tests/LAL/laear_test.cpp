// The extensible array and the binary search: a seeded random mix against a
// byte model of the block (with injected heap failures), sorted insertion
// against std::set, lalBsearch against std::equal_range, refusals and locks,
// failed growth and commits, and several threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <thread>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "support/block_view.h"
#include "support/heap_fault.h"
#include "support/marks.h"
#include "support/virtual_blocks.h"

namespace {

using namespace orvatest;

constexpr UINT kLast = 0xFFFFFFFFu;  // also what a sorted insertion gives for a duplicate
constexpr UINT kInsFailed = 0xFFFFFFFEu;

struct Shape { DWORD elementSize, firstNum, stepNum; };

// The block size that num elements want, climbing the stairs a step at a time.
DWORD Staircase(const Shape& s, UINT num) {
    uint64_t elements = s.firstNum;
    while (elements < num) elements += s.stepNum;
    return static_cast<DWORD>(elements * s.elementSize);
}

BlockView View(void* array) { return ViewOf(array, laearLock, laearUnlock); }

// The block as bytes. A new size takes a fresh zeroed block with the elements
// at their new places; otherwise the elements behind the change shift within
// the block and every other byte stays.
struct ModelArray {
    Shape s;
    std::vector<unsigned char> bytes = std::vector<unsigned char>(Staircase(s, 0), 0);
    UINT num = 0;

    // `edit` moves the elements within a copy of the block with room for newNum.
    void Change(UINT newNum, const std::function<void(unsigned char*)>& edit) {
        const size_t es = s.elementSize, capacity = Staircase(s, newNum);
        const bool fresh = capacity != bytes.size();
        std::vector<unsigned char> v = bytes;
        if (fresh) std::fill(v.begin() + num * es, v.end(), 0);
        v.resize(std::max(v.size(), newNum * es), 0);
        edit(v.data());
        v.resize(capacity, 0);
        if (fresh) std::fill(v.begin() + newNum * es, v.end(), 0);
        bytes = v;
        num = newNum;
    }
    void Ins(const unsigned char* element, UINT index) {
        const size_t es = s.elementSize, at = index == kLast ? num : index;
        Change(static_cast<UINT>(std::max<size_t>(at, num) + 1), [&](unsigned char* v) {
            if (at < num) std::memmove(v + (at + 1) * es, v + at * es, (num - at) * es);
            std::memcpy(v + at * es, element, es);
        });
    }
    bool Del(UINT index) {  // false: refused
        const size_t es = s.elementSize, at = index == kLast ? num - 1 : index;
        if (at >= num) return false;
        Change(num - 1, [&](unsigned char* v) { std::memmove(v + at * es, v + (at + 1) * es, (num - at - 1) * es); });
        return true;
    }
    void SetNum(UINT n) { Change(n, [](unsigned char*) {}); }
};

// Whether another thread can take the library's lock now; a lock left held
// would hang it, so the run ends after a generous wait.
bool OtherThreadGetsLock(void* array) {
    auto other = std::async(std::launch::async, [array] { return laearGetNum(array); });
    if (other.wait_for(std::chrono::seconds(60)) == std::future_status::ready) return true;
    std::fprintf(stderr, "the library's lock was left held: another thread waits for ever\n");
    std::_Exit(1);
}

TEST(LaearTest, RefusedCreationAndNullHandles) {
    constexpr DWORD kHandle = ERROR_INVALID_HANDLE;
    unsigned char element[4] = {};
    const std::tuple<const char*, std::function<bool()>, DWORD, DWORD> cases[] = {
        {"Create size 0", [] { return laearCreate(0, 10, 5) == nullptr; }, LERR_INVALIDARG, LERR_INVALIDARG},
        {"Create first 0", [] { return laearCreate(4, 0, 5) == nullptr; }, LERR_INVALIDARG, LERR_INVALIDARG},
        {"Create step 0", [] { return laearCreate(4, 10, 0) == nullptr; }, LERR_INVALIDARG, LERR_INVALIDARG},
        {"GetNum", [] { return laearGetNum(nullptr) == 0; }, kHandle, kProbeError},  // marks nothing
        {"Destroy", [] { return laearDestroy(nullptr) == 0; }, kHandle, kHandle},
        {"Unlock", [] { return laearUnlock(nullptr) == 0; }, kHandle, kHandle},
        {"Ins", [&] { return laearIns(nullptr, element, 0) == 0; }, kHandle, kHandle},
        {"InsSort", [&] { return laearInsSort(nullptr, element, nullptr) == kInsFailed; }, kHandle, kHandle},
        {"Del", [] { return laearDel(nullptr, 0) == 0; }, kHandle, kHandle},
        {"SetNum", [] { return laearSetNum(nullptr, 0) == 0; }, kHandle, kHandle},
        {"RenewBlock", [] { return laearRenewBlock(nullptr) == 0; }, kHandle, kHandle},
    };
    for (const auto& [name, failed, error, mark] : cases) {
        PrepareCall();
        EXPECT_TRUE(failed()) << name;
        EXPECT_EQ(GetLastError(), error) << name;
        EXPECT_EQ(LatestMarkError(), mark) << name;
    }
}

TEST(LaearTest, LocksNestAndRefuseEveryChange) {
    void* a = laearCreate(4, 2, 2);
    for (DWORD v : {10u, 20u, 30u}) ASSERT_EQ(laearIns(a, &v, kLast), 1);
    BlockView before = View(a);
    ASSERT_EQ(laearLock(a), before.block);
    ASSERT_EQ(laearLock(a), before.block);
    DWORD v = 5;
    const std::pair<const char*, std::function<bool()>> refused[] = {
        {"Ins", [&] { return laearIns(a, &v, kLast) == 0; }},
        {"InsSort", [&] { return laearInsSort(a, &v, nullptr) == kInsFailed; }},
        {"Del", [&] { return laearDel(a, 0) == 0; }},
        {"SetNum", [&] { return laearSetNum(a, 9) == 0; }},
    };
    for (int unlocks = 0; unlocks < 2; ++unlocks) {
        for (const auto& [name, call] : refused) {
            PrepareCall();
            EXPECT_TRUE(call()) << name;
            EXPECT_EQ(GetLastError(), LERR_LOCKED) << name;
            EXPECT_EQ(LatestMarkError(), LERR_LOCKED) << name;
        }
        EXPECT_EQ(laearGetNum(a), 3u) << "counting works under a lock";
        EXPECT_TRUE(OtherThreadGetsLock(a)) << "a refusal leaves the library's lock free";
        EXPECT_EQ(laearUnlock(a), 1);
    }
    EXPECT_EQ(0, std::memcmp(View(a).block, before.block, 12));
    PrepareCall();
    EXPECT_EQ(laearUnlock(a), 0);
    EXPECT_EQ(GetLastError(), LERR_NOTLOCKED);
    EXPECT_EQ(LatestMarkError(), LERR_NOTLOCKED);
    EXPECT_EQ(laearIns(a, &v, kLast), 1) << "open again";
    laearLock(a);
    EXPECT_EQ(laearDestroy(a), 1) << "a lock is no obstacle to destruction";
}

class LaearModelTest : public testing::TestWithParam<Shape> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

// An operation that raised must have left the array as it was, and nothing
// but a change of size moves the block.
TEST_P(LaearModelTest, FollowsTheModelThroughRandomSteps) {
    const Shape s = GetParam();
    std::mt19937 rng(0xA3A5u + s.elementSize * 131 + s.firstNum * 7 + s.stepNum);
    void* a = laearCreate(s.elementSize, s.firstNum, s.stepNum);
    ModelArray model{s};
    BlockView last = View(a);
    std::vector<unsigned char> element(s.elementSize);
    int raisedSteps = 0;
    for (int step = 0; step < 3000; ++step) {
        for (auto& b : element) b = static_cast<unsigned char>(rng());
        // Counts stay near the first block so the stairs are walked often.
        const UINT num = model.num, ceiling = 2 * s.firstNum + 6 * s.stepNum + 20;
        const int kind = static_cast<int>(rng() % 10);
        ModelArray next = model;  // the model after the call, unless it raises
        bool accepted = true;
        UINT index;
        std::string what;
        std::function<long long()> call;
        if (kind < 5 && num < ceiling) {  // insert: append, inside, or beyond the end
            int where = static_cast<int>(rng() % 6);
            index = where < 3 ? kLast : (where < 5 ? rng() % (num + 1) : num + 1 + rng() % (2 * s.stepNum + 4));
            what = "Ins at ";
            call = [&] { return laearIns(a, element.data(), index); };
            next.Ins(element.data(), index);
        } else if (kind < 8) {  // delete, now and then out of range
            int where = static_cast<int>(rng() % 8);
            index = where < 3 ? kLast : (where < 7 ? rng() % (num + 1) : num + rng() % 3);
            what = "Del at ";
            call = [&] { return laearDel(a, index); };
            accepted = next.Del(index);
        } else {
            index = rng() % (ceiling + 1);
            what = "SetNum ";
            call = [&] { return laearSetNum(a, index); };
            next.SetNum(index);
        }
        what = "step " + std::to_string(step) + ": " + what + std::to_string(static_cast<int>(index));

        const SIZE_T live = OrvaGlobalLiveBlocks();
        const Outcome o = CallWithHeapFault(rng() % 4 == 0, call);
        const DWORD error = GetLastError();
        if (o.injected) {
            ASSERT_TRUE(o.raised) << what;
            EXPECT_EQ(OrvaGlobalLiveBlocks(), live) << what << ": a failed growth leaves no block behind";
            ++raisedSteps;
        } else {
            ASSERT_FALSE(o.raised) << what;
            EXPECT_EQ(o.result, accepted ? 1 : 0) << what;
            EXPECT_EQ(error, accepted ? kCallerError : LERR_INVALIDARG) << what;
            EXPECT_EQ(LatestMarkError(), accepted ? kProbeError : LERR_INVALIDARG) << what;
            model = next;
        }
        ASSERT_EQ(laearGetNum(a), model.num) << what;
        BlockView v = View(a);
        ASSERT_EQ(v.capacity, model.bytes.size()) << what << ": not on the staircase";
        ASSERT_EQ(0, std::memcmp(v.block, model.bytes.data(), v.capacity)) << what;
        ASSERT_EQ(v.block == last.block, v.capacity == last.capacity) << what << ": a new size, and only that, moves";
        last = v;
    }
    EXPECT_GT(raisedSteps, 50) << "few growth steps met an injected failure";
    EXPECT_TRUE(OtherThreadGetsLock(a)) << "no raise left the library's lock held";
    laearDestroy(a);
}

const Shape kShapes[] = {{4, 10, 5}, {12, 1, 1}, {1, 3, 7}, {24, 16, 3}, {8, 2, 64}};

INSTANTIATE_TEST_SUITE_P(Shapes, LaearModelTest, testing::ValuesIn(kShapes), [](const auto& info) {
    const Shape& s = info.param;
    return "E" + std::to_string(s.elementSize) + "F" + std::to_string(s.firstNum) + "S" + std::to_string(s.stepNum);
});

struct Keyed {
    DWORD tag;    // not part of the order
    int32_t key;  // signed: the default comparison would get it wrong
    char pad[8];
};

int CompareKeyed(void* first, void* second) {
    int32_t a = static_cast<Keyed*>(first)->key, b = static_cast<Keyed*>(second)->key;
    return a < b ? -1 : (a > b ? 1 : 0);
}

TEST(LaearSortTest, KeepsAStrictlyAscendingArrayLikeASet) {
    std::mt19937 rng(424242);
    void* a = laearCreate(sizeof(Keyed), 4, 3);
    std::set<int32_t> model;
    for (int step = 0; step < 4000; ++step) {
        Keyed k{static_cast<DWORD>(step), static_cast<int32_t>(rng() % 1500) - 750, {}};
        bool present = model.count(k.key) != 0;
        PrepareCall();
        UINT at = laearInsSort(a, &k, CompareKeyed);
        if (present) {
            ASSERT_EQ(at, kLast) << k.key;
            EXPECT_EQ(GetLastError(), kCallerError) << "a duplicate sets no last error";
            EXPECT_EQ(LatestMarkError(), kProbeError) << "a duplicate makes no mark";
        } else {
            ASSERT_EQ(at, static_cast<UINT>(std::distance(model.begin(), model.lower_bound(k.key)))) << k.key;
            model.insert(k.key);
        }
        ASSERT_EQ(laearGetNum(a), model.size());
    }
    auto* e = static_cast<Keyed*>(laearLock(a));
    EXPECT_TRUE(std::equal(model.begin(), model.end(), e, [](int32_t k, const Keyed& x) { return k == x.key; }));
    laearUnlock(a);
    laearDestroy(a);
}

const void* g_key = nullptr;

int KeyFirstCompare(void* key, void* element) {
    EXPECT_EQ(key, g_key) << "the key comes first";
    int32_t k = *static_cast<int32_t*>(key), e = *static_cast<int32_t*>(element);
    return k < e ? -1 : (k > e ? 1 : 0);
}

// Empty arrays too: their data pointer is null, so a comparator call would fault.
TEST(LalBsearchTest, AgreesWithEqualRange) {
    std::mt19937 rng(7);
    for (int round = 0; round < 400; ++round) {
        std::vector<int32_t> v(rng() % 40);
        for (auto& x : v) x = static_cast<int32_t>(rng() % 30) - 15;
        std::sort(v.begin(), v.end());
        for (int32_t key = -17; key <= 17; ++key) {
            g_key = &key;
            UINT index = 0xCCCCCCCCu;
            int found = lalBsearch(&key, v.data(), static_cast<UINT>(v.size()), 4, &index, KeyFirstCompare);
            auto [lo, hi] = std::equal_range(v.begin(), v.end(), key);
            const auto from = static_cast<UINT>(lo - v.begin()), to = static_cast<UINT>(hi - v.begin());
            ASSERT_EQ(found, from != to ? 1 : 0);
            ASSERT_TRUE(from == to ? index == from : index >= from && index < to)  // where it is or belongs
                << index << " for " << from << ".." << to;
        }
    }
}

TEST(LalBsearchTest, DefaultComparesFirstWordsUnsigned) {
    const DWORD words[] = {1, 5, 0x80000000u};
    DWORD top = 0xFFFFFFFFu, half = 0x80000000u;
    UINT index = 0;
    EXPECT_EQ(lalBsearch(&top, const_cast<DWORD*>(words), 3, 4, &index, nullptr), 0);
    EXPECT_EQ(index, 3u) << "0xFFFFFFFF sorts after everything";
    EXPECT_EQ(lalBsearch(&half, const_cast<DWORD*>(words), 3, 4, &index, nullptr), 1);
    EXPECT_EQ(index, 2u);
}

// With virtual blocks a growth commits the fresh block's header page, then
// its elements. Either commit failing raises, leaves count, block, bytes and
// locks as they were, and gives the fresh block back. (The random run fails
// the allocation itself under every operation.)
TEST(LaearTest, FailedCommitOfAVirtualBlockLeavesTheArrayAsItWas) {
    VirtualBlocks seam;
    void* a = laearCreate(4, 10, 5);
    for (DWORD v = 0; v < 10; ++v) laearIns(a, &v, kLast);
    const BlockView before = View(a);
    ASSERT_NE(lmemGetVirtualAllocNode(before.block), nullptr) << "the seam did not take hold";
    const std::vector<unsigned char> bytes(before.block, before.block + 40);
    DWORD last = 100;
    int failed = 0;
    for (DWORD n = 1;; ++n) {
        ASSERT_LT(n, 10u) << "never completed";
        OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        try {
            EXPECT_EQ(laearInsSort(a, &last, nullptr), 10u);  // past the first block
        } catch (L_CMemoryException*) {
            ++failed;
        }
        DWORD injected = OrvaFaultInjected(ORVA_FAULT_VIRTUALCOMMIT);
        OrvaFaultReset();
        if (injected == 0) break;
        EXPECT_EQ(failed, static_cast<int>(n)) << "n=" << n << ": raised";
        EXPECT_EQ(laearGetNum(a), 10u) << "n=" << n << ": the count must not claim more than the block holds";
        EXPECT_EQ(View(a).block, before.block) << "n=" << n;
        EXPECT_EQ(0, std::memcmp(before.block, bytes.data(), bytes.size())) << "n=" << n;
        EXPECT_EQ(lmemGetVirtualAllocNode(VirtualBlocks::Latest()), nullptr) << "n=" << n;
        PrepareCall();
        EXPECT_EQ(laearUnlock(a), 0) << "n=" << n << ": no lock was left standing";
        EXPECT_TRUE(OtherThreadGetsLock(a));
    }
    EXPECT_EQ(failed, 2);
    tagLMM_VirtualAllocNode* grown = lmemGetVirtualAllocNode(View(a).block);
    ASSERT_NE(grown, nullptr);
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    EXPECT_EQ(grown->committedSize, 2 * si.dwPageSize) << "the header page and one commit of the elements";
    laearDestroy(a);
}

TEST(LaearThreadTest, SingleOperationsFromSeveralThreads) {
    constexpr int kThreads = 4;
    constexpr DWORD kEach = 4000;
    void* shared = laearCreate(4, 16, 16);
    void* sorted = laearCreate(4, 16, 16);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([=] {
            for (DWORD i = 0; i < kEach; ++i) {
                DWORD v = static_cast<DWORD>(t) * kEach + i;
                laearIns(shared, &v, i % 3 == 0 ? 0 : kLast);
                DWORD w = i * kThreads + static_cast<DWORD>(t);
                laearInsSort(sorted, &w, nullptr);
                if (i % 5 == 4) laearDel(shared, kLast);
            }
        });
    }
    for (auto& th : threads) th.join();

    const UINT kept = kThreads * (kEach - kEach / 5);
    ASSERT_EQ(laearGetNum(shared), kept);
    ASSERT_EQ(laearGetNum(sorted), kThreads * kEach);
    auto* s = static_cast<DWORD*>(laearLock(shared));
    std::set<DWORD> distinct(s, s + kept);
    EXPECT_EQ(distinct.size(), kept) << "no element was lost or doubled";
    laearUnlock(shared);
    auto* o = static_cast<DWORD*>(laearLock(sorted));
    for (DWORD i = 0; i < kThreads * kEach; ++i) ASSERT_EQ(o[i], i);
    laearUnlock(sorted);
    laearDestroy(shared);
    laearDestroy(sorted);
}

}  // namespace
