// The extensible array and the binary search: a seeded random mix against a
// byte model of the block (with injected heap failures), sorted insertion
// against std::set, lalBsearch against std::equal_range, refusals and locks,
// failed growth leaving the array as it was, and several threads at once.
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

using orvatest::BlockView;
using orvatest::kCallerError;
using orvatest::kProbeError;
using orvatest::LatestMarkError;
using orvatest::PrepareCall;

constexpr UINT kLast = 0xFFFFFFFFu;
constexpr UINT kDuplicate = 0xFFFFFFFFu;
constexpr UINT kInsFailed = 0xFFFFFFFEu;

struct Shape {
    DWORD elementSize, firstNum, stepNum;
};

// The block size that num elements want, found by climbing the stairs one
// step at a time.
DWORD Staircase(const Shape& s, UINT num) {
    uint64_t elements = s.firstNum;
    while (elements < num) elements += s.stepNum;
    return static_cast<DWORD>(elements * s.elementSize);
}

BlockView View(void* array) { return orvatest::ViewOf(array, laearLock, laearUnlock); }

// The block as bytes: a change of size gives a fresh zeroed block; within the
// same block only the elements behind the change shift.
class ModelArray {
public:
    explicit ModelArray(Shape s) : m_shape(s), m_bytes(Staircase(s, 0), 0) {}

    UINT num() const { return m_num; }
    const std::vector<unsigned char>& bytes() const { return m_bytes; }

    void Ins(const unsigned char* element, UINT index) {
        if (index == kLast) index = m_num;
        UINT newNum = index > m_num ? index + 1 : m_num + 1;
        Rebuild(newNum, [&](UINT j) { return j < index ? j : j + 1; }, index < m_num ? index : m_num);
        std::memcpy(Slot(index), element, m_shape.elementSize);
    }

    // False when the index is refused.
    bool Del(UINT index) {
        if (index == kLast) index = m_num - 1;
        if (index >= m_num) return false;
        Rebuild(m_num - 1, [&](UINT j) { return j < index ? j : (j == index ? kLast : j - 1); }, index + 1);
        return true;
    }

    void SetNum(UINT num) {
        UINT keep = std::min(num, m_num);
        std::vector<unsigned char> fresh;
        if (Staircase(m_shape, num) != m_bytes.size()) {
            fresh.assign(Staircase(m_shape, num), 0);
            std::memcpy(fresh.data(), m_bytes.data(), size_t{keep} * m_shape.elementSize);
            m_bytes.swap(fresh);
        }
        m_num = num;
    }

private:
    unsigned char* Slot(UINT i) { return m_bytes.data() + size_t{i} * m_shape.elementSize; }

    // Moves old element j to newPlace(j) (dropped at or past newNum): all into
    // a fresh block when the size changes, else those from firstMoving on.
    void Rebuild(UINT newNum, const std::function<UINT(UINT)>& newPlace, UINT firstMoving) {
        const size_t es = m_shape.elementSize;
        std::vector<unsigned char> old = m_bytes;
        UINT first = firstMoving;
        if (Staircase(m_shape, newNum) != m_bytes.size()) {
            m_bytes.assign(Staircase(m_shape, newNum), 0);
            first = 0;
        }
        for (UINT j = first; j < m_num; ++j) {
            if (newPlace(j) < newNum) std::memcpy(Slot(newPlace(j)), old.data() + j * es, es);
        }
        m_num = newNum;
    }

    Shape m_shape;
    std::vector<unsigned char> m_bytes;
    UINT m_num = 0;
};

void ExpectMatches(void* array, const ModelArray& model, const std::string& step) {
    ASSERT_EQ(laearGetNum(array), model.num()) << step;
    BlockView v = View(array);
    ASSERT_EQ(v.capacity, model.bytes().size()) << step << ": not on the staircase";
    ASSERT_EQ(0, std::memcmp(v.block, model.bytes().data(), v.capacity)) << step;
}

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
        EXPECT_EQ(0, std::memcmp(laearLock(a), before.block, 12));
        laearUnlock(a);
        EXPECT_EQ(laearUnlock(a), 1);
    }
    PrepareCall();
    EXPECT_EQ(laearUnlock(a), 0);
    EXPECT_EQ(GetLastError(), LERR_NOTLOCKED);
    EXPECT_EQ(LatestMarkError(), LERR_NOTLOCKED);
    EXPECT_EQ(laearIns(a, &v, kLast), 1) << "open again";

    // A lock is no obstacle to destruction.
    laearLock(a);
    EXPECT_EQ(laearDestroy(a), 1);
}

// The model checks sizes; this checks that shrinking moves to a fresh block
// and that renewing a block of the right size moves nothing.
TEST(LaearTest, ShrinkMovesRenewKeeps) {
    void* a = laearCreate(4, 10, 5);
    for (DWORD i = 0; i < 16; ++i) laearIns(a, &i, kLast);
    BlockView sixteen = View(a);
    ASSERT_EQ(laearDel(a, kLast), 1);
    BlockView fifteen = View(a);
    EXPECT_NE(fifteen.block, sixteen.block);
    for (DWORD i = 0; i < 15; ++i) EXPECT_EQ(reinterpret_cast<DWORD*>(fifteen.block)[i], i);
    EXPECT_EQ(laearRenewBlock(a), 1);
    EXPECT_EQ(View(a).block, fifteen.block);
    laearDestroy(a);
}

// An operation that raised must have left the array as it was.
class LaearModelTest : public testing::TestWithParam<Shape> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

TEST_P(LaearModelTest, FollowsTheModelThroughRandomSteps) {
    const Shape s = GetParam();
    std::mt19937 rng(0xA3A5u + s.elementSize * 131 + s.firstNum * 7 + s.stepNum);
    void* a = laearCreate(s.elementSize, s.firstNum, s.stepNum);
    ASSERT_NE(a, nullptr);
    ModelArray model(s);
    std::vector<unsigned char> element(s.elementSize);
    int raisedSteps = 0;

    for (int step = 0; step < 3000; ++step) {
        for (auto& b : element) b = static_cast<unsigned char>(rng());
        // Counts stay near the first block so the stairs are walked often.
        const UINT num = model.num();
        const UINT spread = 2 * s.stepNum + 4;
        const UINT ceiling = 2 * s.firstNum + 6 * s.stepNum + 20;
        const int kind = static_cast<int>(rng() % 10);
        UINT index = 0;
        std::string what;
        std::function<long long()> call;
        std::function<bool()> apply;  // the model's step; false: refused
        if (kind < 5 && num < ceiling) {  // insert: append, inside, or beyond the end
            int where = static_cast<int>(rng() % 6);
            index = where < 3 ? kLast : (where < 5 ? static_cast<UINT>(rng() % (num + 1)) : num + 1 + rng() % spread);
            what = "Ins at " + std::to_string(static_cast<int>(index));
            call = [&] { return laearIns(a, element.data(), index); };
            apply = [&] { model.Ins(element.data(), index); return true; };
        } else if (kind < 8) {  // delete, now and then out of range
            int where = static_cast<int>(rng() % 8);
            index = where < 3 ? kLast : (where < 7 ? static_cast<UINT>(rng() % (num + 1)) : num + rng() % 3);
            what = "Del at " + std::to_string(static_cast<int>(index));
            call = [&] { return laearDel(a, index); };
            apply = [&] { return model.Del(index); };
        } else {  // a new count, smaller or larger
            index = static_cast<UINT>(rng() % (ceiling + 1));
            what = "SetNum " + std::to_string(index);
            call = [&] { return laearSetNum(a, index); };
            apply = [&] { model.SetNum(index); return true; };
        }
        what = "step " + std::to_string(step) + ": " + what;

        const orvatest::Outcome o = orvatest::CallWithHeapFault(rng() % 4 == 0, call);
        if (o.injected) {
            ASSERT_TRUE(o.raised) << what;
            ++raisedSteps;
        } else {
            ASSERT_FALSE(o.raised) << what;
            DWORD error = GetLastError();
            if (apply()) {
                EXPECT_EQ(o.result, 1) << what;
                EXPECT_EQ(error, kCallerError) << what << ": success leaves the last error";
            } else {
                EXPECT_EQ(o.result, 0) << what;
                EXPECT_EQ(error, LERR_INVALIDARG) << what;
                EXPECT_EQ(LatestMarkError(), LERR_INVALIDARG) << what;
            }
        }
        ExpectMatches(a, model, what);
    }
    EXPECT_GT(raisedSteps, 50) << "few growth steps met an injected failure";
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
            ASSERT_EQ(at, kDuplicate) << k.key;
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

int g_calls = 0;
const void* g_key = nullptr;

int CountedCompare(void* key, void* element) {
    ++g_calls;
    EXPECT_EQ(key, g_key) << "the key comes first";
    int32_t k = *static_cast<int32_t*>(key), e = *static_cast<int32_t*>(element);
    return k < e ? -1 : (k > e ? 1 : 0);
}

TEST(LalBsearchTest, AgreesWithEqualRange) {
    std::mt19937 rng(7);
    for (int round = 0; round < 400; ++round) {
        std::vector<int32_t> v(rng() % 40);
        for (auto& x : v) x = static_cast<int32_t>(rng() % 30) - 15;
        std::sort(v.begin(), v.end());
        for (int32_t key = -17; key <= 17; ++key) {
            g_key = &key;
            UINT index = 0xCCCCCCCCu;
            int found = lalBsearch(&key, v.data(), static_cast<UINT>(v.size()), 4, &index, CountedCompare);
            auto [lo, hi] = std::equal_range(v.begin(), v.end(), key);
            if (lo == hi) {
                ASSERT_EQ(found, 0);
                ASSERT_EQ(index, static_cast<UINT>(lo - v.begin())) << "where the key belongs";
            } else {
                ASSERT_EQ(found, 1);
                ASSERT_GE(index, static_cast<UINT>(lo - v.begin()));
                ASSERT_LT(index, static_cast<UINT>(hi - v.begin()));
            }
        }
    }
}

TEST(LalBsearchTest, EmptyArrayAndUnsignedDefault) {
    g_calls = 0;
    int32_t k = 1;
    UINT index = 0xCCCCCCCCu;
    EXPECT_EQ(lalBsearch(&k, nullptr, 0, 4, &index, CountedCompare), 0);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(g_calls, 0) << "an empty array calls no comparator";

    const DWORD words[] = {1, 5, 0x80000000u};
    DWORD top = 0xFFFFFFFFu;
    EXPECT_EQ(lalBsearch(&top, const_cast<DWORD*>(words), 3, 4, &index, nullptr), 0);
    EXPECT_EQ(index, 3u) << "0xFFFFFFFF sorts after everything";
    DWORD half = 0x80000000u;
    EXPECT_EQ(lalBsearch(&half, const_cast<DWORD*>(words), 3, 4, &index, nullptr), 1);
    EXPECT_EQ(index, 2u);
}

// ---- failures of growth: an array (4, 10, 5) holding 0, 2, 4, ... and one
// operation that needs a fresh block.

struct GrowthCase {
    const char* name;
    UINT filled;
    std::function<bool(void*)> run;  // true when the operation succeeded
    UINT numAfter;
};

void PrintTo(const GrowthCase& c, std::ostream* os) { *os << c.name; }

DWORD g_one = 1;

const GrowthCase kGrowthCases[] = {
    {"AppendPastTheFirstBlock", 10, [](void* a) { return laearIns(a, &g_one, kLast) == 1; }, 11},
    {"InsertInTheMiddle", 15, [](void* a) { return laearIns(a, &g_one, 7) == 1; }, 16},
    {"InsertFarBeyondTheEnd", 3, [](void* a) { return laearIns(a, &g_one, 30) == 1; }, 31},
    {"DeleteInTheMiddleDownAStep", 16, [](void* a) { return laearDel(a, 9) == 1; }, 15},
    {"SetALargerCount", 4, [](void* a) { return laearSetNum(a, 40) == 1; }, 40},
    {"SortedInsertionPastTheBlock", 10, [](void* a) { return laearInsSort(a, &g_one, nullptr) == 1; }, 11},
};

struct Snapshot {
    UINT num;
    BlockView view;
    std::vector<unsigned char> bytes;
};

Snapshot Take(void* a) {
    BlockView v = View(a);
    UINT num = laearGetNum(a);
    return {num, v, std::vector<unsigned char>(v.block, v.block + size_t{num} * 4)};
}

void* FilledArray(UINT filled) {
    void* a = laearCreate(4, 10, 5);
    for (DWORD i = 0, v = 0; i < filled; ++i, v += 2) laearIns(a, &v, kLast);
    return a;
}

// Fails the nth call of op for n = 1, 2, ... until a run completes; each
// failed run must raise and leave count, block, bytes and locks as they were.
// Gives the number of failed runs.
int RunFailureLoop(const GrowthCase& c, void* a, OrvaFaultOp op, const std::function<void()>& afterFailure) {
    for (DWORD n = 1; n < 10; ++n) {
        Snapshot before = Take(a);
        OrvaFaultArm(op, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        bool raised = false, ok = false;
        try {
            ok = c.run(a);
        } catch (L_CMemoryException*) {
            raised = true;
        }
        DWORD injected = OrvaFaultInjected(op);
        OrvaFaultReset();
        if (injected == 0) {
            EXPECT_FALSE(raised);
            EXPECT_TRUE(ok);
            EXPECT_EQ(laearGetNum(a), c.numAfter);
            return static_cast<int>(n) - 1;
        }
        EXPECT_TRUE(raised) << "n=" << n;
        Snapshot after = Take(a);
        EXPECT_EQ(after.num, before.num) << "n=" << n << ": the count must not claim more than the block holds";
        EXPECT_EQ(after.view.block, before.view.block) << "n=" << n;
        EXPECT_EQ(after.view.capacity, before.view.capacity) << "n=" << n;
        EXPECT_EQ(after.bytes, before.bytes) << "n=" << n;
        PrepareCall();
        EXPECT_EQ(laearUnlock(a), 0) << "n=" << n << ": no lock was left standing";
        EXPECT_EQ(GetLastError(), LERR_NOTLOCKED);
        EXPECT_TRUE(OtherThreadGetsLock(a));
        afterFailure();
    }
    ADD_FAILURE() << "never completed";
    return 0;
}

class LaearGrowthFailure : public testing::TestWithParam<GrowthCase> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

TEST_P(LaearGrowthFailure, HeapExhaustionLeavesTheArrayAsItWas) {
    const GrowthCase& c = GetParam();
    void* a = FilledArray(c.filled);
    SIZE_T live = OrvaGlobalLiveBlocks();
    int failed = RunFailureLoop(c, a, ORVA_FAULT_GLOBALALLOC, [&] {
        EXPECT_EQ(OrvaGlobalLiveBlocks(), live) << "a failed growth leaves no block behind";
    });
    EXPECT_EQ(failed, 1) << "one allocation per growth";
    EXPECT_EQ(View(a).capacity, Staircase({4, 10, 5}, c.numAfter));
    laearDestroy(a);
}

// With virtual blocks, a growth commits the header page, then the elements.
TEST_P(LaearGrowthFailure, FailedCommitOfAVirtualBlockLeavesTheArrayAsItWas) {
    const GrowthCase& c = GetParam();
    orvatest::VirtualBlocks seam;
    void* a = FilledArray(c.filled);
    ASSERT_NE(lmemGetVirtualAllocNode(laearLock(a)), nullptr) << "the seam did not take hold";
    laearUnlock(a);
    int failed = RunFailureLoop(c, a, ORVA_FAULT_VIRTUALCOMMIT, [] {
        EXPECT_EQ(lmemGetVirtualAllocNode(orvatest::VirtualBlocks::Latest()), nullptr)
            << "the fresh block was given back";
    });
    EXPECT_EQ(failed, 2) << "both commits of the growth failed once";

    SYSTEM_INFO si;
    GetSystemInfo(&si);
    tagLMM_VirtualAllocNode* node = lmemGetVirtualAllocNode(laearLock(a));
    laearUnlock(a);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->committedSize, 2 * si.dwPageSize) << "the header page and one commit of the elements";
    laearDestroy(a);
}

INSTANTIATE_TEST_SUITE_P(Operations, LaearGrowthFailure, testing::ValuesIn(kGrowthCases),
                         [](const auto& info) { return std::string(info.param.name); });

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
