// Arenas: the chunk layout at its edges, free-list reuse, shrinking,
// compaction and refresh, a seeded random run against a model of the live
// chunks, exhausted memory out of every allocating operation, and the
// thread's detach.
#include <gtest/gtest.h>
#include <orvanest/ORVANEST.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// The smallest chunk, derived as the library derives it: a free chunk holds
// its word and two pointer links, rounded up to the step of 8.
struct FreeChunkShape {
    DWORD word;
    void* prev;
    void* next;
};
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

// The base allocator's count of global bytes now, the last number of its
// diagnostic box.
DWORD g_globalBytes;
int CaptureBox(HWND, LPCSTR text, LPCSTR, UINT) {
    g_globalBytes = static_cast<DWORD>(std::strtoul(std::strrchr(text, '=') + 1, nullptr, 10));
    return IDOK;
}
DWORD GlobalBytes() {
    ORVA_MSGBOXHANDLER old = OrvaSetMessageBoxHandler(CaptureBox);
    lmemDispAllocInfo();
    OrvaSetMessageBoxHandler(old);
    return g_globalBytes;
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
    for (auto [first, unit] : {std::pair<DWORD, DWORD>{0, 16}, {16, 0}}) {
        SetLastError(0);
        EXPECT_EQ(lamlcCreate(first, unit, 0), nullptr);
        EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    }
}

TEST_F(Lamlc, ChunkWordsAndTheFloor) {
    void* a = Make(4096, 4096);
    void* p = lamlcAlloc(a, 100);
    tagLMM_AmlcWatch w = Watch(a);
    EXPECT_EQ(w.blockBytes, 4096u);
    EXPECT_EQ(w.usedBytes, 100u);
    EXPECT_EQ(w.slackBytes, 4u);
    EXPECT_EQ(w.freeBytes, 3992u);
    EXPECT_EQ(w.bigCount, 0u);

    // Every size from 1 up takes R(size) bytes and its word reads the size.
    for (DWORD size = 1; size <= kFloor + 9; ++size) {
        void* q = lamlcAlloc(a, size);
        void* next = lamlcAlloc(a, 1);
        EXPECT_EQ(WordOf(q), size);
        EXPECT_EQ(static_cast<char*>(next) - static_cast<char*>(q), static_cast<ptrdiff_t>(R(size))) << size;
    }
    SetLastError(1234);
    EXPECT_EQ(lamlcAlloc(a, 0), nullptr);
    EXPECT_EQ(lamlcFree(a, nullptr), 0);
    EXPECT_EQ(GetLastError(), 1234u);

    // 1024 is the largest chunk a block serves; 1025 is a big allocation.
    void* inBlock = lamlcAlloc(a, 1024);
    void* big = lamlcAlloc(a, 1025);
    EXPECT_EQ(Watch(a).bigCount, 1u);
    EXPECT_EQ(WordOf(big), 1025u);
    EXPECT_EQ(lamlcFree(a, big), 1);
    EXPECT_EQ(lamlcFree(a, inBlock), 1);
    EXPECT_EQ(Watch(a).bigCount, 0u);
    // A second release marks and fails.
    SetLastError(0);
    EXPECT_EQ(lamlcFree(a, p), 1);
    EXPECT_EQ(lamlcFree(a, p), 0);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
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
    enum Outcome { Refused, SameRoom, TailToList, TailToCarve, Moved };
    struct Case { DWORD size, to; bool atCarve; Outcome outcome; };
    const Case cases[] = {
        {33, 36, false, Refused},            // above the size asked for, though R(33) holds it
        {40, 33, false, SameRoom},           {40, 32, false, Moved},  // 8 bytes cannot stand alone
        {32 + kFloor - 8, 32, false, Moved}, {32 + kFloor, 32, false, TailToList},
        {200, 100, true, TailToCarve},       {200, 100, false, TailToList},
        {1024, 1000, false, Moved},          {2000, 1500, false, Moved},
        {2000, 100, false, Moved},           {2000, 1999, false, SameRoom}};
    for (const Case& c : cases) {
        void* a = Make(8192, 8192);
        void* p = lamlcAlloc(a, c.size);
        Fill(p, c.size, c.size);
        if (!c.atCarve) lamlcAlloc(a, 16);
        SetLastError(0);
        void* q = lamlcReSize(a, p, c.to);
        DWORD d = R(c.size) - R(c.to);
        switch (c.outcome) {
        case Refused:
            EXPECT_EQ(q, nullptr);
            EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
            EXPECT_EQ(WordOf(p), c.size);
            break;
        case SameRoom:
            EXPECT_EQ(q, p);
            break;
        case TailToList:
        case TailToCarve:
            EXPECT_EQ(q, p);
            EXPECT_EQ(lamlcAlloc(a, d), At(p, R(c.to))) << c.size << " to " << c.to;
            break;
        case Moved:
            EXPECT_NE(q, p) << c.size << " to " << c.to;
            if (c.size <= 1024) {
                EXPECT_NE(WordOf(p) & 0x80000000u, 0u);
            }
            break;
        }
        if (q != nullptr) {
            EXPECT_TRUE(Holds(q, c.to, c.size)) << c.size << " to " << c.to;
        }
        EXPECT_EQ(lamlcCheck(), 1);
    }
    void* a = m_arenas.front();
    void* p = lamlcAlloc(a, 64);
    EXPECT_EQ(lamlcReSize(a, nullptr, 8), nullptr);
    EXPECT_EQ(lamlcReSize(a, p, 0), nullptr);
    lamlcFree(a, p);
    SetLastError(0);
    EXPECT_EQ(lamlcReSize(a, p, 8), nullptr);  // a free chunk
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
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

TEST_F(Lamlc, CompactSortsEachListByAddress) {
    void* a = Make(65536, 65536);
    std::vector<void*> chunks;
    for (int i = 0; i < 40; ++i) {
        chunks.push_back(lamlcAlloc(a, 64));
        lamlcAlloc(a, 16);  // no two freed chunks touch
    }
    std::vector<void*> order = chunks;
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (void* p : order) lamlcFree(a, p);
    lamlcCompact(a);
    for (void* p : chunks) EXPECT_EQ(lamlcAlloc(a, 64), p);
}

TEST_F(Lamlc, CompactReturnsEmptyBlocks) {
    // Blocks of 1000 bytes: three chunks of 328 leave a 16-byte tail, which
    // goes below the floor on x86-64 when the fourth chunk needs a new block.
    void* a = Make(1000, 1000);
    std::vector<void*> chunks;
    for (unsigned i = 0; i < 12; ++i) {
        chunks.push_back(lamlcAlloc(a, 328));
        Fill(chunks.back(), 328, i);
    }
    EXPECT_EQ(lamlcCheck(), 1);
    tagLMM_AmlcWatch before = Watch(a);
    EXPECT_EQ(before.blockBytes, 4000u);
    // Each block ends in 16 free bytes (three as a tail, one as the carve
    // area), which count as R(16).
    EXPECT_EQ(before.freeBytes + before.usedBytes + before.slackBytes, 4000u + 4 * (R(16) - 16));
    for (unsigned i = 0; i < 6; ++i) lamlcFree(a, chunks[i]);
    for (unsigned i = 9; i < 12; ++i) lamlcFree(a, chunks[i]);  // the current block stays
    lamlcCompact(a);
    EXPECT_EQ(Watch(a).blockBytes, 2000u);
    EXPECT_EQ(lamlcCheck(), 1);
    for (unsigned i = 6; i < 9; ++i) EXPECT_TRUE(Holds(chunks[i], 328, i));
}

TEST_F(Lamlc, RefreshWorksOnlyAfterAChange) {
    EXPECT_EQ(lamlcRefresh(), 0);  // no arena
    void* a = Make(65536, 65536);
    void* b = Make(4096, 4096);
    void* p = lamlcAlloc(a, 512);
    void* q = lamlcAlloc(a, 512);
    lamlcAlloc(a, 16);
    lamlcCompact(a);
    lamlcCompact(b);
    EXPECT_EQ(lamlcRefresh(), 0);  // every machine at its end
    lamlcFree(a, p);
    lamlcFree(a, q);
    while (lamlcRefresh() != 0) {
    }
    EXPECT_EQ(lamlcAlloc(a, 1024), p);  // the refresh merged the pair

    // Much to do: a call ends after 100 steps with work left over.
    std::vector<void*> chunks;
    for (int i = 0; i < 500; ++i) chunks.push_back(lamlcAlloc(a, 40));
    for (void* c : chunks) lamlcFree(a, c);
    int calls = 0;
    for (; lamlcRefresh() != 0; ++calls) ASSERT_EQ(lamlcCheck(), 1);
    EXPECT_GT(calls, 5);
    EXPECT_EQ(lamlcRefresh(), 0);
}

TEST_F(Lamlc, CheckFindsDamage) {
    void* a = Make(4096, 4096);
    void* p = lamlcAlloc(a, 64);
    void* f = lamlcAlloc(a, 64);
    void* g = lamlcAlloc(a, 64);
    lamlcAlloc(a, 64);
    lamlcFree(a, f);
    lamlcFree(a, g);  // the list of 64: g, then f
    auto expectDamage = [](DWORD* at, DWORD value) {
        DWORD saved = *at;
        *at = value;
        SetLastError(4321);
        EXPECT_EQ(lamlcCheck(), 0) << std::hex << value;
        EXPECT_EQ(GetLastError(), 4321u);
        *at = saved;
        EXPECT_EQ(lamlcCheck(), 1);
    };
    for (void* target : {p, f})
        for (DWORD word : {0u, 0xF0000004u, 0x80000040u, 0x70000040u}) expectDamage(static_cast<DWORD*>(target), word);
    // A free chunk that its list has lost: g's next no longer leads to f.
    auto* gShape = static_cast<FreeChunkShape*>(g);
    ASSERT_EQ(gShape->next, f);
    gShape->next = nullptr;
    EXPECT_EQ(lamlcCheck(), 0);
    gShape->next = f;
    EXPECT_EQ(lamlcCheck(), 1);
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
};
const Api kApis[] = {
    {"lamlc", lamlcCreate, lamlcDestroy, lamlcAlloc, lamlcFree, lamlcReSize, lamlcCompact, lamlcCheck},
    {"laemm", laemmCreateFunc, laemmDestroy, laemmAlloc, laemmFree, laemmReSize, laemmCompact, laemmCheckNodeLink}};

struct Live { void* p; DWORD size; unsigned seed; };

// A seeded mix of operations over two arenas against a model of their live
// chunks. When `faultEvery` is set, the global heap fails now and then, and
// an allocating operation that raises must leave the model unchanged.
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
            if (contents) {
                ASSERT_TRUE(Holds(l.p, l.size, l.seed));
            }
        }
        tagLMM_AmlcWatch w = Watch(m.arena);
        ASSERT_EQ(w.usedBytes, used);
        ASSERT_EQ(w.slackBytes, slack);
        ASSERT_EQ(w.bigCount, big);
        ASSERT_EQ(w.blockBytes % m.unit, 0u);
        // Everything in the blocks is counted once, by R(size); a tail below
        // the floor counts as the floor, at most once a block.
        DWORD over = w.freeBytes + used + slack - w.blockBytes;
        ASSERT_EQ(over % 8, 0u);
        ASSERT_LE(over, w.blockBytes / m.unit * (kFloor - 8));
    }

    DWORD Size(std::mt19937& rng) {
        switch (rng() % 8) {
        case 0: return 1 + rng() % kFloor;
        case 1: return 1025 + rng() % 3000;
        default: return 1 + rng() % 1024;
        }
    }

    void Run(const Api& api, unsigned seed, int steps, DWORD faultEvery) {
        std::mt19937 rng(seed);
        ArenaModel models[2] = {{api.create(4096, 4096, 0), R(4096), {}}, {api.create(100, 1000, 0), 1000, {}}};
        unsigned next = 1;
        for (int step = 0; step < steps; ++step) {
            ArenaModel& m = models[rng() % 2];
            unsigned op = rng() % 100;
            if (faultEvery != 0) OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 1 + rng() % faultEvery, ERROR_NOT_ENOUGH_MEMORY, FALSE);
            try {
                if (op < 45 || m.live.empty()) {
                    DWORD size = Size(rng);
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
                    ASSERT_NE(q, nullptr);
                    ASSERT_TRUE(Holds(q, to, l.seed));
                    l.p = q;
                    l.size = to;
                    Fill(q, to, l.seed);
                } else if (op < 98) {
                    lamlcRefresh();
                } else {
                    ASSERT_EQ(api.compact(m.arena), 1);
                }
            } catch (L_CMemoryException*) {
                ASSERT_NE(faultEvery, 0u);
                ASSERT_EQ(OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC), 1u);
            }
            OrvaFaultReset();
            ASSERT_NO_FATAL_FAILURE(Verify(api, m, op >= 95)) << "step " << step << ", operation " << op;
        }
        for (ArenaModel& m : models) {
            ASSERT_NO_FATAL_FAILURE(Verify(api, m, true));
            EXPECT_EQ(api.destroy(m.arena), 1);
        }
        EXPECT_EQ(lamlcRefresh(), 0);
    }
};

TEST_P(LamlcRandom, MixAgainstModel) {
    Run(kApis[std::get<0>(GetParam())], std::get<1>(GetParam()), 4000, 0);
}
TEST_P(LamlcRandom, MixWithFailingHeap) {
    Run(kApis[std::get<0>(GetParam())], std::get<1>(GetParam()), 3000, 3);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LamlcRandom, ::testing::Combine(::testing::Values(0, 1), ::testing::Values(1u, 2u, 3u)),
                         [](const auto& info) {
                             return std::string(kApis[std::get<0>(info.param)].name) + "_" +
                                    std::to_string(std::get<1>(info.param));
                         });

// Each allocating operation, failed at its n-th heap call for n = 1, 2, 3 ...
// until a run needs no failure: it raises, and the arena stays sound with
// every earlier chunk intact and goes on serving. Once the thread's arenas are
// gone (an arena whose first block failed stays listed until then), every
// byte taken from the base allocator has been given back.
TEST_F(Lamlc, ExhaustionRaisesFromEveryAllocatingOperation) {
    enum Op { Create, CarveNewBlock, Big, MoveToNewBlock, MoveToBig };
    for (Op op : {Create, CarveNewBlock, Big, MoveToNewBlock, MoveToBig}) {
        int raised = 0;
        for (DWORD n = 1;; ++n) {
            const DWORD before = GlobalBytes();
            void* a = op == Create ? nullptr : lamlcCreate(256, 256, 0);
            std::vector<Live> live;
            auto take = [&](DWORD size) {
                live.push_back({lamlcAlloc(a, size), size, static_cast<unsigned>(live.size())});
                Fill(live.back().p, size, live.back().seed);
            };
            for (unsigned i = 0; a != nullptr && i < 3; ++i) take(72);  // 40 bytes of the block are left
            OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
            try {
                switch (op) {
                case Create: a = lamlcCreate(256, 256, 0); break;
                case CarveNewBlock: lamlcAlloc(a, 200); break;
                case Big: lamlcAlloc(a, 5000); break;
                case MoveToNewBlock:  // 8 bytes less cannot stay in place
                    live[2].p = lamlcReSize(a, live[2].p, 64);
                    live[2].size = 64;
                    break;
                case MoveToBig: lamlcReSize(a, lamlcAlloc(a, 3000), 2000); break;
                }
            } catch (L_CMemoryException*) {
                ++raised;
            }
            DWORD injected = OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC);
            OrvaFaultReset();
            ASSERT_EQ(lamlcCheck(), 1) << op << " at " << n;
            if (a != nullptr) {
                for (DWORD size : {40u, 200u, 40u, 3000u}) take(size);
                lamlcCompact(a);
                ASSERT_EQ(lamlcCheck(), 1) << op << " at " << n;
                for (const Live& l : live) ASSERT_TRUE(Holds(l.p, l.size, l.seed)) << op << " at " << n;
                ASSERT_EQ(lamlcDestroy(a), 1);
            }
            ASSERT_EQ(lamlcMainDestroy(), 1);
            ASSERT_EQ(lamlcMainCreate(), 1);
            ASSERT_EQ(GlobalBytes(), before) << op << " at " << n;
            if (injected == 0) break;
        }
        EXPECT_GT(raised, 0) << op;
    }
}

// Arenas left behind on a thread go with its detach.
TEST(LamlcThread, DetachDestroysArenasLeftBehind) {
    void* mine = lamlcCreate(64, 64, 0);
    std::vector<void*> records;
    std::thread worker([&] {
        for (int i = 0; i < 3; ++i) {
            void* a = lamlcCreate(512, 512, 0);
            lamlcAlloc(a, 100);
            records.push_back(a);
            records.push_back(static_cast<char*>(lamlcAlloc(a, 4000)) - 2 * sizeof(void*));
        }
        for (void* r : records) EXPECT_NE(GlobalSize(r), 0u);
        EXPECT_EQ(lamlcCheck(), 1);
    });
    worker.join();
    for (void* r : records) EXPECT_EQ(GlobalSize(r), 0u);
    EXPECT_NE(GlobalSize(mine), 0u);  // another thread's detach leaves this one alone
    EXPECT_EQ(lamlcDestroy(mine), 1);

    std::thread again([] {
        void* a = lamlcCreate(64, 64, 0);
        EXPECT_EQ(lamlcMainDestroy(), 1);
        EXPECT_EQ(GlobalSize(a), 0u);
        EXPECT_EQ(lamlcMainDestroy(), 0);
    });
    again.join();
}

}  // namespace
