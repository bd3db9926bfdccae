// Arenas: the chunk layout at its edges, free-list reuse, shrinking,
// compaction and refresh, a seeded random run against a model of the live
// chunks (with and without a failing heap), failed creation, and the
// thread's detach.
#include <gtest/gtest.h>
#include <orvanest/ORVANEST.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

// The smallest chunk, derived as the library derives it: a free chunk holds
// its word and two pointer links, rounded up to the step of 8.
struct FreeChunkShape { DWORD word; void* prev; void* next; };
constexpr DWORD kFloor = (offsetof(FreeChunkShape, next) + sizeof(void*) + 7) / 8 * 8;

DWORD R(DWORD n) { return std::max<DWORD>((n + 7) & ~7u, kFloor); }
DWORD WordOf(const void* p) { return *static_cast<const DWORD*>(p); }
char* At(void* p, ptrdiff_t offset) { return static_cast<char*>(p) + offset; }

tagLMM_AmlcWatch Watch(void* a) {
    tagLMM_AmlcWatch w;
    std::memset(&w, 0xCC, sizeof w);
    EXPECT_EQ(lamlcWatch(a, &w), 1);
    return w;
}

// Bytes from the fifth on belong to the caller; fill them with a pattern of
// the chunk's own and tell whether the first `size` bytes still hold it.
unsigned char PatternByte(unsigned seed, DWORD i) { return static_cast<unsigned char>(seed * 131 + i * 7); }
void Fill(void* p, DWORD size, unsigned seed) {
    for (DWORD i = 4; i < size; ++i) static_cast<unsigned char*>(p)[i] = PatternByte(seed, i);
}
bool Holds(const void* p, DWORD size, unsigned seed) {
    for (DWORD i = 4; i < size; ++i)
        if (static_cast<const unsigned char*>(p)[i] != PatternByte(seed, i)) return false;
    return WordOf(p) == size;
}

// Each case runs in its own process, so the thread's arena list starts empty;
// every case ends with its arenas sound and destroyed.
class Lamlc : public ::testing::Test {
protected:
    void* Make(DWORD first, DWORD unit) {
        void* a = lamlcCreate(first, unit, 0);
        EXPECT_NE(a, nullptr);
        m_arenas.push_back(a);
        return a;
    }
    void TearDown() override {
        EXPECT_EQ(lamlcCheck(), 1);
        for (void* a : m_arenas) EXPECT_EQ(lamlcDestroy(a), 1);
    }
    std::vector<void*> m_arenas;
};

TEST_F(Lamlc, FirstBlockAndUnitAreRounded) {
    struct Case { DWORD first, unit, blockBytes; };
    const Case cases[] = {{1, 1, kFloor}, {100, 1000, 1000}, {5000, 1000, 5000}, {1001, 1000, 2000},
                          {30, 20, ((32 - 1) / R(20) + 1) * R(20)}, {4096, 4096, 4096}};
    for (const Case& c : cases) {
        tagLMM_AmlcWatch w = Watch(Make(c.first, c.unit));
        EXPECT_EQ(w.blockBytes, c.blockBytes) << c.first << "/" << c.unit;
        EXPECT_EQ(w.freeBytes, c.blockBytes);
        EXPECT_EQ(w.usedBytes + w.slackBytes + w.bigCount, 0u);
    }
}

// A block or big allocation that 32 bits cannot describe raises as exhausted
// memory, where its size would wrap to a few bytes that the arena then wrote
// past; a refused creation takes nothing.
TEST_F(Lamlc, SizesBeyond32BitsRaise) {
    struct Case { DWORD first, unit; };
    const Case creations[] = {{0xFFFFFFF0u, 8},             // the block's header on top of its data
                              {8, 0xFFFFFFF0u},             // the same for one unit
                              {0x80000001u, 0x80000000u},   // two units are 2^32
                              {0xFFFFFFF9u, 8}, {8, 0xFFFFFFFFu}};  // the rounding itself
    for (const Case& c : creations) {
        const SIZE_T before = OrvaGlobalLiveBlocks();
        SetLastError(0);
        EXPECT_THROW(lamlcCreate(c.first, c.unit, 0), L_CMemoryException*) << std::hex << c.first << "/" << c.unit;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(OrvaGlobalLiveBlocks(), before);
    }
    void* a = Make(4096, 4096);
    for (DWORD size : {0xFFFFFFF0u, 0xFFFFFFFFu}) EXPECT_THROW(lamlcAlloc(a, size), L_CMemoryException*) << size;
    EXPECT_EQ(Watch(a).bigCount, 0u);
}

// Every size from 1 up takes R(size) bytes of the block.
TEST_F(Lamlc, ChunksAreCarvedAtTheirRoundedSize) {
    void* a = Make(4096, 4096);
    for (DWORD size = 1; size <= kFloor + 9; ++size) {
        char* p = static_cast<char*>(lamlcAlloc(a, size));
        EXPECT_EQ(WordOf(p), size);
        EXPECT_EQ(static_cast<char*>(lamlcAlloc(a, 1)) - p, static_cast<ptrdiff_t>(R(size))) << size;
    }
}

TEST_F(Lamlc, Refusals) {
    void* a = Make(4096, 4096);
    void* p = lamlcAlloc(a, 33);
    void* freed = lamlcAlloc(a, 64);
    lamlcFree(a, freed);
    constexpr DWORD kKept = 1234;  // the last error stays
    const std::tuple<const char*, std::function<bool()>, DWORD> cases[] = {
        {"Create first 0", [] { return lamlcCreate(0, 16, 0) == nullptr; }, LERR_INVALIDARG},
        {"Create unit 0", [] { return lamlcCreate(16, 0, 0) == nullptr; }, LERR_INVALIDARG},
        {"Alloc 0", [&] { return lamlcAlloc(a, 0) == nullptr; }, kKept},
        {"Free null", [&] { return lamlcFree(a, nullptr) == 0; }, kKept},
        {"Free twice", [&] { return lamlcFree(a, freed) == 0; }, LERR_INVALIDARG},
        {"ReSize null", [&] { return lamlcReSize(a, nullptr, 8) == nullptr; }, kKept},
        {"ReSize to 0", [&] { return lamlcReSize(a, p, 0) == nullptr; }, kKept},
        {"ReSize a free chunk", [&] { return lamlcReSize(a, freed, 8) == nullptr; }, LERR_INVALIDARG},
        {"ReSize above the size", [&] { return lamlcReSize(a, p, 36) == nullptr; }, LERR_INVALIDARG},
    };
    for (const auto& [what, refused, error] : cases) {
        SetLastError(kKept);
        EXPECT_TRUE(refused()) << what;
        EXPECT_EQ(GetLastError(), error) << what;
    }
    EXPECT_EQ(WordOf(p), 33u);
}

TEST_F(Lamlc, FreeChunksServeExactOrWithALinkableRest) {
    // A freed chunk of `freed` bytes; does a request of `request` take it?
    struct Case { DWORD freed, request; bool taken; };
    const Case cases[] = {{2 * kFloor, kFloor + 8, false},  // the rest would be below the floor
                          {2 * kFloor, kFloor, true},       {2 * kFloor, 1, true},
                          {512, 512, true},                 {1024, 512, false},  // 1024 serves 1024 only
                          {1024, 1024, true},               {1016, 8, true},
                          {kFloor + 8, kFloor, false}};
    for (const Case& c : cases) {
        void* a = Make(8192, 8192);
        void* p = lamlcAlloc(a, c.freed);
        lamlcAlloc(a, 16);  // keeps p off the carve area
        ASSERT_EQ(lamlcFree(a, p), 1);
        void* q = lamlcAlloc(a, c.request);
        EXPECT_EQ(q == p, c.taken) << c.freed << " for " << c.request;
        DWORD rest = c.freed - R(c.request);
        if (c.taken && rest != 0) {
            EXPECT_EQ(lamlcAlloc(a, rest), At(p, R(c.request)));
        }
        EXPECT_EQ(lamlcCheck(), 1);
    }
}

TEST_F(Lamlc, ReSizeShrinksInPlaceOrMoves) {
    enum Outcome { SameRoom, Tail, Moved };  // Tail: the cut-off rest is the next chunk handed out
    struct Case { DWORD size, to; bool atCarve; Outcome outcome; };
    const Case cases[] = {
        {40, 33, false, SameRoom},           {40, 32, false, Moved},  // 8 bytes cannot stand alone
        {32 + kFloor - 8, 32, false, Moved}, {32 + kFloor, 32, false, Tail},
        {200, 100, true, Tail},              {200, 100, false, Tail},
        {1024, 1000, false, Moved},          {2000, 1500, false, Moved},
        {2000, 100, false, Moved},           {2000, 1999, false, SameRoom}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + " to " + std::to_string(c.to));
        void* a = Make(8192, 8192);
        void* p = lamlcAlloc(a, c.size);
        Fill(p, c.size, c.size);
        if (!c.atCarve) lamlcAlloc(a, 16);
        void* q = lamlcReSize(a, p, c.to);
        EXPECT_EQ(q == p, c.outcome != Moved);
        if (c.outcome == Tail) {
            EXPECT_EQ(lamlcAlloc(a, R(c.size) - R(c.to)), At(p, R(c.to)));
        } else if (c.outcome == Moved && c.size <= 1024) {
            EXPECT_NE(WordOf(p) & 0x80000000u, 0u) << "the old chunk is free";
        }
        EXPECT_TRUE(Holds(q, c.to, c.size));
        EXPECT_EQ(lamlcCheck(), 1);
    }
}

TEST_F(Lamlc, CompactMergesNeighboursUpTo1024) {
    struct Case { DWORD first, second; bool merged; };
    const Case cases[] = {{600, 600, false}, {512, 512, true}, {520, 512, false}, {kFloor, 1024 - kFloor, true}};
    for (const Case& c : cases) {
        void* a = Make(8192, 8192);
        void* p = lamlcAlloc(a, c.first);
        void* q = lamlcAlloc(a, c.second);
        lamlcAlloc(a, 16);
        lamlcFree(a, p);
        lamlcFree(a, q);
        DWORD before = Watch(a).freeBytes;
        EXPECT_EQ(lamlcCompact(a), 1);
        EXPECT_EQ(Watch(a).freeBytes, before);
        if (c.merged) {
            EXPECT_EQ(lamlcAlloc(a, c.first + c.second), p) << c.first << "+" << c.second;
        } else {
            EXPECT_EQ(lamlcAlloc(a, c.first), p) << c.first << "+" << c.second;
            EXPECT_EQ(lamlcAlloc(a, c.second), q);
        }
    }
}

// Blocks of 1000 bytes hold three chunks of 328 and a 16-byte tail, below the
// floor on x86-64, which counts as R(16).
TEST_F(Lamlc, CompactReturnsEmptyBlocks) {
    void* a = Make(1000, 1000);
    std::vector<void*> chunks;
    for (unsigned i = 0; i < 12; ++i) {
        chunks.push_back(lamlcAlloc(a, 328));
        Fill(chunks.back(), 328, i);
    }
    tagLMM_AmlcWatch before = Watch(a);
    EXPECT_EQ(before.blockBytes, 4000u);
    EXPECT_EQ(before.freeBytes + before.usedBytes + before.slackBytes, 4000u + 4 * (R(16) - 16));
    for (unsigned i = 0; i < 6; ++i) lamlcFree(a, chunks[i]);
    for (unsigned i = 9; i < 12; ++i) lamlcFree(a, chunks[i]);  // the current block stays
    lamlcCompact(a);
    EXPECT_EQ(Watch(a).blockBytes, 2000u);
    EXPECT_EQ(lamlcCheck(), 1);
    for (unsigned i = 6; i < 9; ++i) EXPECT_TRUE(Holds(chunks[i], 328, i));
}

// A change starts a finished machine over; a call ends after 100 steps with
// work left over. The merge leaves the list of 1000 in falling addresses, so
// the sort has all of it to turn round.
TEST_F(Lamlc, RefreshTakesUpWorkAfterAChangeInBoundedCalls) {
    EXPECT_EQ(lamlcRefresh(), 0) << "no arena";
    void* a = Make(65536, 65536);
    std::vector<void*> chunks;
    for (int i = 0; i < 500; ++i) chunks.push_back(lamlcAlloc(a, 40));
    lamlcCompact(a);
    EXPECT_EQ(lamlcRefresh(), 0) << "the machine is at its end";
    for (void* c : chunks) lamlcFree(a, c);
    int calls = 0;
    for (; lamlcRefresh() != 0; ++calls) ASSERT_EQ(lamlcCheck(), 1);
    EXPECT_GT(calls, 5);
    for (size_t i = 0; i < chunks.size(); i += 25) EXPECT_EQ(lamlcAlloc(a, 1000), chunks[i]) << "run " << i / 25;
}

// Bad words on an allocated and on a listed free chunk, and a free chunk
// that its list has lost: the check fails and keeps the last error.
TEST_F(Lamlc, CheckFindsDamage) {
    void* a = Make(4096, 4096);
    auto* p = static_cast<FreeChunkShape*>(lamlcAlloc(a, 64));
    auto* f = static_cast<FreeChunkShape*>(lamlcAlloc(a, 64));
    auto* g = static_cast<FreeChunkShape*>(lamlcAlloc(a, 64));
    lamlcAlloc(a, 64);
    lamlcFree(a, f);
    lamlcFree(a, g);  // the list of 64: g, then f
    ASSERT_EQ(g->next, f);
    for (DWORD* at : {&p->word, &f->word}) {
        for (DWORD word : {0u, 0xF0000004u, 0x80000040u, 0x70000040u}) {
            DWORD saved = std::exchange(*at, word);
            SetLastError(4321);
            EXPECT_EQ(lamlcCheck(), 0) << std::hex << word;
            EXPECT_EQ(GetLastError(), 4321u);
            *at = saved;
        }
    }
    g->next = nullptr;
    EXPECT_EQ(lamlcCheck(), 0);
    g->next = f;
}

// The operations under test, by either name.
struct Api {
    const char* name;
    void* (*create)(DWORD, DWORD, DWORD);
    int (*destroy)(void*);
    void* (*alloc)(void*, DWORD);
    int (*free)(void*, void*);
    void* (*reSize)(void*, void*, DWORD);
    int (*compact)(void*);
    int (*check)(void);
} const kApis[] = {
    {"lamlc", lamlcCreate, lamlcDestroy, lamlcAlloc, lamlcFree, lamlcReSize, lamlcCompact, lamlcCheck},
    {"laemm", laemmCreateFunc, laemmDestroy, laemmAlloc, laemmFree, laemmReSize, laemmCompact, laemmCheckNodeLink}};

struct Live { void* p; DWORD size; unsigned seed; };

// A seeded mix of operations over two arenas against a model of their live
// chunks. When `faultEvery` is set, the global heap fails now and then, and
// an operation that raises must leave the model unchanged and nothing behind.
class LamlcRandom : public ::testing::TestWithParam<std::tuple<int, unsigned>> {
protected:
    struct ArenaModel { void* arena; DWORD unit; std::vector<Live> live; };

    void Verify(const Api& api, const ArenaModel& m, bool contents) {
        ASSERT_EQ(api.check(), 1);
        DWORD used = 0, slack = 0, big = 0;
        for (const Live& l : m.live) {
            if (l.size > 1024) {
                ++big;
            } else {
                used += l.size;
                slack += R(l.size) - l.size;
            }
            ASSERT_TRUE(!contents || Holds(l.p, l.size, l.seed));
        }
        tagLMM_AmlcWatch w = Watch(m.arena);
        ASSERT_EQ(w.usedBytes, used);
        ASSERT_EQ(w.slackBytes, slack);
        ASSERT_EQ(w.bigCount, big);
        ASSERT_EQ(w.blockBytes % m.unit, 0u);
        // Everything in the blocks counts once, by R(size); a tail below the
        // floor counts as the floor, at most once a block.
        DWORD over = w.freeBytes + used + slack - w.blockBytes;
        ASSERT_EQ(over % 8, 0u);
        ASSERT_LE(over, w.blockBytes / m.unit * (kFloor - 8));
    }

    void Run(const Api& api, unsigned seed, int steps, DWORD faultEvery) {
        std::mt19937 rng(seed);
        const SIZE_T liveBlocks = OrvaGlobalLiveBlocks();
        ArenaModel models[2] = {{api.create(4096, 4096, 0), R(4096), {}}, {api.create(100, 1000, 0), 1000, {}}};
        unsigned next = 1;
        for (int step = 0; step < steps; ++step) {
            ArenaModel& m = models[rng() % 2];
            unsigned op = rng() % 100;
            if (faultEvery != 0) OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 1 + rng() % faultEvery, ERROR_NOT_ENOUGH_MEMORY, FALSE);
            bool raised = false;
            try {
                if (op < 45 || m.live.empty()) {
                    DWORD size = rng() % 8 == 0 ? 1 + rng() % kFloor : (rng() % 8 == 0 ? 1025 + rng() % 3000 : 1 + rng() % 1024);
                    void* p = api.alloc(m.arena, size);
                    Fill(p, size, next);
                    m.live.push_back({p, size, next++});
                } else if (op < 80) {
                    size_t i = rng() % m.live.size();
                    ASSERT_EQ(api.free(m.arena, m.live[i].p), 1);
                    m.live[i] = m.live.back();
                    m.live.pop_back();
                } else if (op < 95) {
                    Live& l = m.live[rng() % m.live.size()];
                    DWORD to = 1 + rng() % l.size;
                    void* q = api.reSize(m.arena, l.p, to);
                    ASSERT_TRUE(Holds(q, to, l.seed));
                    l = {q, to, l.seed};
                    Fill(q, to, l.seed);
                } else if (op < 98) {
                    lamlcRefresh();
                } else {
                    ASSERT_EQ(api.compact(m.arena), 1);
                }
            } catch (L_CMemoryException*) {
                ASSERT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC), 1u);
                raised = true;
            }
            OrvaFaultReset();
            ASSERT_NO_FATAL_FAILURE(Verify(api, m, raised || op >= 95)) << "step " << step << ", operation " << op;
        }
        for (ArenaModel& m : models) {
            ASSERT_NO_FATAL_FAILURE(Verify(api, m, true));
            EXPECT_EQ(api.destroy(m.arena), 1);
        }
        EXPECT_EQ(lamlcRefresh(), 0);
        EXPECT_EQ(OrvaGlobalLiveBlocks(), liveBlocks);
    }
};

TEST_P(LamlcRandom, MixAgainstModel) { Run(kApis[std::get<0>(GetParam())], std::get<1>(GetParam()), 4000, 0); }
TEST_P(LamlcRandom, MixWithFailingHeap) { Run(kApis[std::get<0>(GetParam())], std::get<1>(GetParam()), 3000, 3); }

INSTANTIATE_TEST_SUITE_P(Seeds, LamlcRandom, ::testing::Combine(::testing::Values(0, 1), ::testing::Values(1u, 2u, 3u)),
                         [](const auto& info) {
                             return std::string(kApis[std::get<0>(info.param)].name) + "_" +
                                    std::to_string(std::get<1>(info.param));
                         });

// Creation failed at its n-th heap call for n = 1, 2, ... until it goes
// through. An arena whose first block failed stays listed until the thread's
// arenas go; then every block is given back.
TEST_F(Lamlc, FailedCreationLeavesNothingOnceTheThreadsArenasGo) {
    for (DWORD n = 1;; ++n) {
        const SIZE_T before = OrvaGlobalLiveBlocks();
        OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        void* a = nullptr;
        try {
            a = lamlcCreate(256, 256, 0);
        } catch (L_CMemoryException*) {
        }
        DWORD injected = OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC);
        OrvaFaultReset();
        EXPECT_EQ(a == nullptr, injected != 0) << n;
        ASSERT_EQ(lamlcCheck(), 1) << n;
        ASSERT_EQ(lamlcMainDestroy(), 1);
        ASSERT_EQ(lamlcMainCreate(), 1);
        ASSERT_EQ(OrvaGlobalLiveBlocks(), before) << n;
        if (injected == 0) break;
    }
}

// Arenas left behind on a thread go with its detach, and only that thread's.
TEST(LamlcThread, DetachDestroysArenasLeftBehind) {
    void* mine = lamlcCreate(64, 64, 0);
    std::vector<void*> records;  // arenas and their big allocations
    std::thread([&] {
        for (int i = 0; i < 3; ++i) {
            records.push_back(lamlcCreate(512, 512, 0));
            records.push_back(static_cast<char*>(lamlcAlloc(records.back(), 4000)) - 2 * sizeof(void*));
        }
        for (void* r : records) EXPECT_NE(GlobalSize(r), 0u);
    }).join();
    for (void* r : records) EXPECT_EQ(GlobalSize(r), 0u);
    EXPECT_NE(GlobalSize(mine), 0u);
    EXPECT_EQ(lamlcDestroy(mine), 1);
    std::thread([] {
        void* a = lamlcCreate(64, 64, 0);
        EXPECT_EQ(lamlcMainDestroy(), 1);
        EXPECT_EQ(GlobalSize(a), 0u);
        EXPECT_EQ(lamlcMainDestroy(), 0);
    }).join();
}

}  // namespace
