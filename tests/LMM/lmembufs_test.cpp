// Size-class pools and the stack on them. A seeded random mix of requests
// and releases runs against a model that says where each request must land:
// the lowest free slot of the first class that is large enough, else a free
// overflow block of the size or the next larger, else the largest smaller
// one grown, else a new block; compaction returns exactly the free blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

struct PoolModel {
    struct Class {
        DWORD slotSize;
        std::vector<bool> used;
        BYTE* first = nullptr;
    };
    std::vector<Class> classes;
    std::map<BYTE*, DWORD> usedBlocks;            // overflow blocks the caller has
    std::map<DWORD, std::set<BYTE*>> freeBlocks;  // by size
};

void Fill(BYTE* p, DWORD size, BYTE seed) {
    for (DWORD i = 0; i < size; ++i) p[i] = static_cast<BYTE>(seed + i);
}
bool Holds(const BYTE* p, DWORD size, BYTE seed) {
    for (DWORD i = 0; i < size; ++i)
        if (p[i] != static_cast<BYTE>(seed + i)) return false;
    return true;
}

TEST(MembufsTest, RequestsLandWhereThePlanSays) {
    tagLMM_MembufsBlock plan[] = {{16, 5}, {40, 3}, {64, 2}};
    void* pool = lmembufsCreate(plan, 3);
    ASSERT_NE(pool, nullptr);
    PoolModel model;
    BYTE* base = nullptr;
    for (const auto& b : plan) model.classes.push_back({b.slotSize, std::vector<bool>(b.slotNum, false)});

    std::mt19937 rng(4242);
    struct Live { BYTE* p; DWORD size; BYTE seed; };
    std::vector<Live> live;
    for (int step = 0; step < 4000; ++step) {
        int action = rng() % 10;
        if (action < 5 || live.empty()) {
            DWORD size = 1 + rng() % 100;
            auto* p = static_cast<BYTE*>(lmembufsAlloc(pool, size));
            ASSERT_NE(p, nullptr);
            if (base == nullptr) {  // the first request takes slot 0 of the first class
                ASSERT_LE(size, plan[0].slotSize);
                base = p;
                BYTE* next = base;
                for (auto& c : model.classes) {
                    c.first = next;
                    next += c.slotSize * c.used.size();
                }
            }
            // Where it must land.
            bool placed = false;
            for (auto& c : model.classes) {
                if (c.slotSize < size) continue;
                for (size_t i = 0; i < c.used.size(); ++i) {
                    if (!c.used[i]) {
                        ASSERT_EQ(p, c.first + i * c.slotSize) << "step " << step;
                        c.used[i] = true;
                        placed = true;
                        break;
                    }
                }
                break;  // a full class sends the request to the overflow blocks
            }
            if (!placed) {
                auto fit = model.freeBlocks.lower_bound(size);
                if (fit != model.freeBlocks.end()) {
                    ASSERT_EQ(fit->second.count(p), 1u) << "a free block of the nearest size, step " << step;
                    fit->second.erase(p);
                    model.usedBlocks[p] = fit->first;
                    if (fit->second.empty()) model.freeBlocks.erase(fit);
                } else {
                    if (!model.freeBlocks.empty()) {
                        // The largest smaller block is grown, so it moves.
                        auto largest = std::prev(model.freeBlocks.end());
                        BYTE* grown = *largest->second.rbegin();
                        EXPECT_NE(p, grown);
                        largest->second.erase(grown);
                        if (largest->second.empty()) model.freeBlocks.erase(largest);
                    }
                    model.usedBlocks[p] = size;
                }
            }
            BYTE seed = static_cast<BYTE>(rng());
            Fill(p, size, seed);
            live.push_back({p, size, seed});
        } else if (action < 9) {
            size_t k = rng() % live.size();
            Live item = live[k];
            live.erase(live.begin() + static_cast<long>(k));
            ASSERT_TRUE(Holds(item.p, item.size, item.seed)) << "step " << step;
            ASSERT_EQ(lmembufsFree(pool, item.p), 1);
            bool inSlot = false;
            for (auto& c : model.classes) {
                if (item.p >= c.first && item.p < c.first + c.slotSize * c.used.size()) {
                    c.used[(item.p - c.first) / c.slotSize] = false;
                    inSlot = true;
                }
            }
            if (!inSlot) {
                DWORD size = model.usedBlocks.at(item.p);
                model.usedBlocks.erase(item.p);
                model.freeBlocks[size].insert(item.p);
            }
        } else {
            SIZE_T before = OrvaGlobalLiveBlocks();
            size_t freeCount = 0;
            for (const auto& [size, blocks] : model.freeBlocks) freeCount += blocks.size();
            ASSERT_EQ(lmembufsCompact(pool), 1);
            EXPECT_EQ(OrvaGlobalLiveBlocks(), before - freeCount) << "exactly the free blocks go back";
            model.freeBlocks.clear();
        }
    }
    for (const Live& item : live) ASSERT_TRUE(Holds(item.p, item.size, item.seed));
    EXPECT_EQ(lmembufsDestroy(pool), 1);
}

// A class of many words, spread over two summary words: after filling it,
// releasing a random set and asking again, the answers come lowest slot
// first, and a full class sends requests to overflow blocks.
TEST(MembufsTest, LowestFreeSlotAcrossManyWords) {
    for (DWORD slots : {63u, 64u, 65u, 4096u, 4097u, 9000u}) {
        tagLMM_MembufsBlock plan[] = {{8, slots}};
        void* pool = lmembufsCreate(plan, 1);
        std::vector<BYTE*> slot(slots);
        for (DWORD i = 0; i < slots; ++i) slot[i] = static_cast<BYTE*>(lmembufsAlloc(pool, 8));
        for (DWORD i = 1; i < slots; ++i) ASSERT_EQ(slot[i], slot[0] + 8 * i) << slots;
        std::mt19937 rng(slots);
        std::set<DWORD> freed;
        for (int round = 0; round < 3; ++round) {
            for (DWORD n = 0; n < slots / 3 + 1; ++n) {
                DWORD i = rng() % slots;
                ASSERT_EQ(lmembufsFree(pool, slot[i]), 1);
                freed.insert(i);
            }
            while (freed.size() > slots / 10) {  // take back most, keep some holes
                ASSERT_EQ(lmembufsAlloc(pool, 1 + rng() % 8), slot[*freed.begin()]) << slots;
                freed.erase(freed.begin());
            }
        }
        while (!freed.empty()) {
            ASSERT_EQ(lmembufsAlloc(pool, 8), slot[*freed.begin()]) << slots;
            freed.erase(freed.begin());
        }
        auto* overflow = static_cast<BYTE*>(lmembufsAlloc(pool, 8));
        EXPECT_TRUE(overflow < slot[0] || overflow > slot[slots - 1]) << "full: an overflow block";
        EXPECT_EQ(lmembufsFree(pool, slot[slots - 1]), 1);
        EXPECT_EQ(lmembufsAlloc(pool, 8), slot[slots - 1]) << "the last slot, not a bit past it";
        EXPECT_EQ(lmembufsDestroy(pool), 1);
    }
}

// Freeing anywhere inside a slot frees that slot; freeing it twice is no
// error; a pointer from elsewhere is refused.
TEST(MembufsTest, FreeOfInteriorTwiceAndForeignPointers) {
    tagLMM_MembufsBlock plan[] = {{16, 2}};
    void* pool = lmembufsCreate(plan, 1);
    auto* a = static_cast<BYTE*>(lmembufsAlloc(pool, 1));
    auto* b = static_cast<BYTE*>(lmembufsAlloc(pool, 16));
    ASSERT_EQ(b, a + 16);
    EXPECT_EQ(lmembufsFree(pool, b + 7), 1);
    EXPECT_EQ(lmembufsFree(pool, b), 1);
    EXPECT_EQ(lmembufsAlloc(pool, 3), b);
    int notFromThePool = 0;
    EXPECT_EQ(lmembufsFree(pool, &notFromThePool), 0);
    EXPECT_EQ(lmembufsDestroy(pool), 1);
}

TEST(MembufsTest, BadArgumentsEndWithInvalidArg) {
    tagLMM_MembufsBlock zeroSize[] = {{16, 2}, {0, 1}};
    tagLMM_MembufsBlock zeroCount[] = {{16, 0}};
    struct Case { tagLMM_MembufsBlock* blocks; DWORD num; } cases[] = {{nullptr, 1}, {zeroSize, 0}, {zeroSize, 2}, {zeroCount, 1}};
    for (const Case& c : cases) {
        SetLastError(0);
        EXPECT_EQ(lmembufsCreate(c.blocks, c.num), nullptr);
        EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    }
    tagLMM_MembufsBlock plan[] = {{16, 2}};
    void* pool = lmembufsCreate(plan, 1);
    SetLastError(0);
    EXPECT_EQ(lmembufsAlloc(pool, 0), nullptr);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    for (auto call : {+[] { return lmembufsAlloc(nullptr, 1) != nullptr ? 1 : 0; },
                      +[] { return lmembufsFree(nullptr, nullptr); }, +[] { return lmembufsCompact(nullptr); },
                      +[] { return lmembufsDestroy(nullptr); }}) {
        SetLastError(0);
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    EXPECT_EQ(lmembufsDispInfo(pool), 1);
    EXPECT_EQ(lmembufsDestroy(pool), 1);
    SIZE_T before = OrvaGlobalLiveBlocks();
    SetLastError(0);
    EXPECT_EQ(lstackCreate(nullptr, 1), nullptr) << "a bad plan is passed on and the stack record released";
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
}

// Slots beyond what one block can hold raise at once; the sum must not wrap
// to a small block whose slots would run past its end.
TEST(MembufsTest, PlansLargerThanABlockRaise) {
    tagLMM_MembufsBlock wraps[] = {{16, 4}, {65536, 65536}};
    tagLMM_MembufsBlock sumWraps[] = {{0x80000000u, 1}, {0x80000000u, 1}, {16, 1}};
    for (auto [plan, num] : {std::pair{wraps, 2u}, std::pair{sumWraps, 3u}}) {
        SIZE_T before = OrvaGlobalLiveBlocks();
        SetLastError(0);
        EXPECT_THROW(lmembufsCreate(plan, num), L_CMemoryException*);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
    }
    tagLMM_MembufsBlock plan[] = {{16, 2}};
    void* pool = lmembufsCreate(plan, 1);
    EXPECT_THROW(lmembufsAlloc(pool, 0xFFFFFFF0u), L_CMemoryException*) << "no room for the block's header";
    EXPECT_EQ(lmembufsDestroy(pool), 1);
    void* stack = lstackCreate(plan, 1);
    BYTE byte = 0;
    EXPECT_THROW(lstackPush(stack, &byte, 0xFFFFFFF8u), L_CMemoryException*) << "no room for the item's header";
    EXPECT_EQ(lstackDestroy(stack), 1);
    tagLMM_MembufsBlock huge[] = {{16, 1}, {0xFFFFFFF8u, 1}};
    SIZE_T before = OrvaGlobalLiveBlocks();
    EXPECT_THROW(lstackCreate(huge, 2), L_CMemoryException*) << "no room for a slot's item header";
    EXPECT_EQ(huge[0].slotSize, 16u) << "the plan is left as it was";
    EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
}

TEST(MembufsTest, ExhaustionDuringCreateAndGrowthLeavesNothingBehind) {
    for (DWORD n = 1; n < 40; ++n) {
        SIZE_T before = OrvaGlobalLiveBlocks();
        tagLMM_MembufsBlock plan[] = {{16, 2}, {32, 4}, {48, 1}};
        OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        void* pool = nullptr;
        bool raised = false;
        try {
            pool = lmembufsCreate(plan, 3);
        } catch (L_CMemoryException*) {
            raised = true;
        }
        DWORD injected = OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC);
        OrvaFaultReset();
        if (raised) {
            EXPECT_EQ(OrvaGlobalLiveBlocks(), before) << "n=" << n;
            continue;
        }
        ASSERT_NE(pool, nullptr);
        ASSERT_EQ(injected, 0u);
        // Growing a free block: the failure leaves it whole and free.
        void* block = lmembufsAlloc(pool, 100);
        ASSERT_EQ(lmembufsFree(pool, block), 1);
        OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 1, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        EXPECT_THROW(lmembufsAlloc(pool, 200), L_CMemoryException*);
        OrvaFaultReset();
        EXPECT_EQ(lmembufsAlloc(pool, 100), block) << "still free for reuse";
        EXPECT_EQ(lmembufsDestroy(pool), 1);
        EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
        return;
    }
    FAIL() << "creation never completed";
}

TEST(StackTest, ItemsComeBackInReverseOrderWithTheirSizes) {
    tagLMM_MembufsBlock plan[] = {{16, 8}};
    void* stack = lstackCreate(plan, 1);
    ASSERT_NE(stack, nullptr);
    EXPECT_EQ(plan[0].slotSize, 16u + 2 * sizeof(void*)) << "the item header is added to the caller's sizes";
    std::vector<std::vector<BYTE>> pushed;
    std::mt19937 rng(7);
    for (int i = 0; i < 30; ++i) {
        std::vector<BYTE> data(1 + rng() % 40);
        for (BYTE& b : data) b = static_cast<BYTE>(rng());
        ASSERT_EQ(lstackPush(stack, data.data(), static_cast<DWORD>(data.size())), 1);
        pushed.push_back(data);
    }
    while (!pushed.empty()) {
        std::vector<BYTE> expected = pushed.back(), buffer(expected.size());
        pushed.pop_back();
        if (expected.size() > 1) {
            SetLastError(0);
            EXPECT_EQ(lstackPop(stack, buffer.data(), static_cast<DWORD>(expected.size() - 1)), 0xFFFFFFFFu);
            EXPECT_EQ(GetLastError(), LERR_BUFTOOSMALL);
        }
        ASSERT_EQ(lstackPop(stack, buffer.data(), static_cast<DWORD>(buffer.size())), expected.size());
        EXPECT_EQ(buffer, expected);
    }
    BYTE byte;
    SetLastError(0);
    EXPECT_EQ(lstackPop(stack, &byte, 1), 0u);
    EXPECT_EQ(GetLastError(), LERR_NODATA);
    SetLastError(0);
    EXPECT_EQ(lstackPush(stack, &byte, 0), 0);
    EXPECT_EQ(GetLastError(), LERR_BADSIZE);
    EXPECT_EQ(lstackDestroy(stack), 1);
    SetLastError(0);
    EXPECT_EQ(lstackDestroy(nullptr), 0);
    EXPECT_EQ(GetLastError(), LERR_BADHANDLE);
}

}  // namespace
