// The base allocator: the six counters against a model under a seeded random
// mix; odd pointers; virtual blocks; exhausted memory injected at every
// allocating step; the text of lmemDispAllocInfo.
#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "support/marks.h"

namespace {

using namespace orvatest;
using Node = tagLMM_VirtualAllocNode;

const DWORD kPage = [] {
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    return si.dwPageSize;
}();

struct Box {
    HWND owner;
    std::string text, caption;
    UINT type;
    int calls = 0;
} g_box;

int CaptureBox(HWND owner, LPCSTR text, LPCSTR caption, UINT type) {
    g_box = {owner, text, caption, type, g_box.calls + 1};
    return IDOK;
}

// The six numbers of the box, in the order it shows them.
using Counters = std::array<DWORD, 6>;
enum { kReservedMax, kCommitMax, kReserved, kCommit, kGlobalMax, kGlobal };

Counters ReadCounters() {
    ORVA_MSGBOXHANDLER old = OrvaSetMessageBoxHandler(CaptureBox);
    lmemDispAllocInfo();
    OrvaSetMessageBoxHandler(old);
    Counters v{};
    size_t at = 0;
    for (DWORD& x : v) {
        if ((at = g_box.text.find("= ", at)) == std::string::npos) break;
        x = static_cast<DWORD>(std::strtol(g_box.text.c_str() + (at += 2), nullptr, 10));
    }
    return v;
}

void Grow(Counters& c, int total, int peak, DWORD n) {
    c[total] += n;
    c[peak] = std::max(c[peak], c[total]);
}

bool RaisesMemory(const std::function<void()>& f) {
    try {
        f();
    } catch (L_CMemoryException* e) {
        EXPECT_STREQ(e->GetFileName(), ".\\LMM\\LMEM");
        return true;
    }
    return false;
}

// Every call on a pointer that is no block of this thread, or not its start:
// what it gives, the last error it leaves and the mark it makes.
TEST(LmemTest, OddPointers) {
    Counters base = ReadCounters();
    char* live = static_cast<char*>(lmemAllocFunc(64, 0));
    void* empty = lmemAllocFunc(0, 0);  // live, of size 0
    void* freed = lmemAllocFunc(64, 0);
    lmemFree(freed);
    char* mine = static_cast<char*>(lmemVirtualAllocFunc(100, 0));
    void* header = mine - sizeof(Node);
    void* theirs = nullptr;
    std::thread([&] { theirs = lmemVirtualAllocFunc(100, 0); }).join();
    int stack = 0;
    constexpr DWORD kAny = 0;  // the last error as the heap's size query leaves it
    struct Case { const char* what; std::function<long long()> call; long long result; DWORD error, mark; };
    const Case cases[] = {
        {"Free interior", [&] { return lmemFree(live + 8); }, 1, kAny, kProbeError},
        {"Free 0 bytes", [&] { return lmemFree(empty); }, 1, kAny, kProbeError},
        {"Free freed", [&] { return lmemFree(freed); }, 1, kAny, kProbeError},
        {"Free stack", [&] { return lmemFree(&stack); }, 1, kAny, kProbeError},
        {"Free other thread's", [&] { return lmemFree(theirs); }, 1, kAny, kProbeError},
        {"Free null", [] { return lmemFree(nullptr); }, 0, LERR_INVALIDARG, LERR_INVALIDARG},
        {"Free virtual interior", [&] { return lmemFree(mine + 1); }, 0, kCallerError, kCallerError},
        {"VirtualFree interior", [&] { return lmemVirtualFree(mine + 1); }, 0, kCallerError, kCallerError},
        {"VirtualFree header", [&] { return lmemVirtualFree(header); }, 0, kCallerError, kCallerError},
        {"VirtualFree stack", [&] { return lmemVirtualFree(&stack); }, 0, kCallerError, kCallerError},
        {"VirtualFree null", [] { return lmemVirtualFree(nullptr); }, 0, LERR_INVALIDARG, LERR_INVALIDARG},
        {"Commit stack", [&] { return lmemVirtualCommit(&stack, 1) != nullptr; }, 0, kCallerError, kProbeError},
        {"Commit header", [&] { return lmemVirtualCommit(header, 1) != nullptr; }, 0, kCallerError, kProbeError},
        {"Commit null", [] { return lmemVirtualCommit(nullptr, 1) != nullptr; }, 0, kCallerError, kProbeError},
    };
    for (const Case& c : cases) {
        PrepareCall();
        EXPECT_EQ(c.call(), c.result) << c.what;
        EXPECT_EQ(GetLastError(), c.error == kAny ? GetLastError() : c.error) << c.what;
        EXPECT_EQ(LatestMarkError(), c.mark) << c.what;
        EXPECT_EQ(ReadCounters()[kGlobal], base[kGlobal] + 64) << c.what;
    }
    EXPECT_EQ(GlobalSize(live), 64u);
    EXPECT_EQ(GlobalFree(empty), nullptr) << "still a live block";
    EXPECT_NE(lmemGetVirtualAllocNode(mine), nullptr);

    // Another thread neither finds, commits nor frees this thread's block.
    std::thread([&] {
        EXPECT_EQ(lmemGetVirtualAllocNode(mine), nullptr);
        EXPECT_EQ(lmemVirtualCommit(mine, 1), nullptr);
        EXPECT_EQ(lmemVirtualFree(mine), 0);
        EXPECT_EQ(lmemFree(mine), 1);
    }).join();
    EXPECT_NE(lmemVirtualFree(mine), 0);
    EXPECT_EQ(lmemVirtualFree(mine), 0) << "freed twice";
    EXPECT_EQ(lmemFree(live), 1);
}

TEST(LmemTest, ReAllocOfOddPointers) {
    Counters base = ReadCounters();
    int stack = 7;
    void* freed = lmemAllocFunc(8, 0);
    lmemFree(freed);
    // Pointers that lmemFree passes over: a fresh zeroed block of the size
    // asked for, nothing copied.
    for (void* p : {static_cast<void*>(&stack), freed}) {
        auto* q = static_cast<unsigned char*>(lmemReAlloc(p, 16));
        EXPECT_EQ(GlobalSize(q), 16u);
        EXPECT_TRUE(std::all_of(q, q + 16, [](unsigned char c) { return c == 0; }));
        lmemFree(q);
    }
    EXPECT_EQ(stack, 7);
    // Pointers that lmemFree refuses raise, and the new block does not stay.
    char* mine = static_cast<char*>(lmemVirtualAllocFunc(100, 0));
    for (void* p : {static_cast<void*>(nullptr), static_cast<void*>(mine + 10)}) {
        EXPECT_TRUE(RaisesMemory([&] { lmemReAlloc(p, 32); })) << p;
        EXPECT_EQ(ReadCounters()[kGlobal], base[kGlobal]) << p;
    }
    EXPECT_NE(lmemFree(mine), 0);
}

// Pages never committed read as the zeros they are, without being touched.
TEST(LmemTest, ReAllocOfAVirtualBlock) {
    const DWORD size = 8 * kPage;
    char* v = static_cast<char*>(lmemVirtualAllocFunc(size, 0));
    v[0] = 'a';
    ASSERT_EQ(lmemVirtualCommit(v + 3 * kPage, 2 * kPage), v + 3 * kPage);
    std::memset(v + 3 * kPage, 'b', 2 * kPage);
    auto* g = static_cast<char*>(lmemReAlloc(v, size));
    EXPECT_EQ(GlobalSize(g), size);
    for (DWORD i = 0; i < size; ++i) {
        ASSERT_EQ(g[i], i == 0 ? 'a' : (i >= 3 * kPage && i < 5 * kPage ? 'b' : 0)) << i;
    }
    EXPECT_EQ(lmemGetVirtualAllocNode(v), nullptr);
    lmemFree(g);
}

TEST(LmemTest, VirtualBlockLayoutAndLookup) {
    const DWORD header = sizeof(Node);
    for (DWORD size : {0u, 1u, kPage - header, kPage - header + 1, 1u << 20}) {
        char* p = static_cast<char*>(lmemVirtualAllocFunc(size, 0));
        Node* node = lmemGetVirtualAllocNode(p);
        ASSERT_NE(node, nullptr) << size;
        EXPECT_EQ(static_cast<void*>(node), p - header) << size;
        EXPECT_EQ(node->dataStart, p);
        EXPECT_EQ(node->reservedSize, (size + header + kPage - 1) / kPage * kPage) << size;
        EXPECT_EQ(node->dataSize, node->reservedSize - header) << size;
        EXPECT_EQ(node->dataLast, p + node->dataSize - 1);
        EXPECT_EQ(node->committedSize, kPage);
        EXPECT_EQ(lmemGetVirtualAllocNode(node->dataLast), node);
        EXPECT_EQ(lmemGetVirtualAllocNode(p + node->dataSize), nullptr) << "one past the end";
        EXPECT_TRUE(RaisesMemory([&] { lmemVirtualCommit(node->dataLast, 2); })) << "past the region";
        EXPECT_NE(lmemVirtualFree(p), 0);
        EXPECT_EQ(lmemGetVirtualAllocNode(p), nullptr);
    }
}

TEST(LmemTest, ARegionBeyond32BitsIsExhaustedMemory) {
    Counters base = ReadCounters();
    SetLastError(0);
    EXPECT_TRUE(RaisesMemory([] { lmemVirtualAllocFunc(0xFFFFFFFFu, 0); }));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(ReadCounters(), base);
}

// After each step of a seeded mix the counters are what the model says, and
// every block keeps its contents. A commit counts one page however many it
// covers.
TEST(LmemTest, CountersFollowARandomMixAgainstAModel) {
    std::mt19937 rng(20240611);
    auto pick = [&](size_t n) { return static_cast<DWORD>(rng() % n); };
    Counters m = ReadCounters();
    // filled: the bytes that hold `fill` (a virtual block's first page);
    // reserved is 0 for a global block.
    struct Block { char* p; DWORD filled, reserved, committed; char fill; };
    std::vector<Block> blocks;
    auto drop = [&](const Block& b) {
        if (b.reserved == 0) m[kGlobal] -= b.filled;
        m[kReserved] -= b.reserved;
        m[kCommit] -= b.committed;
    };
    for (int step = 0; step < 600; ++step) {
        DWORD op = pick(blocks.empty() ? 2 : 5);
        char fill = static_cast<char>('A' + step % 26);
        size_t i = blocks.empty() ? 0 : pick(blocks.size());
        if (op == 0) {
            DWORD size = 1 + pick(3000);
            blocks.push_back({static_cast<char*>(lmemAllocFunc(size, 0)), size, 0, 0, fill});
            Grow(m, kGlobal, kGlobalMax, size);
        } else if (op == 1) {
            DWORD size = pick(6 * kPage);
            DWORD reserved = (size + sizeof(Node) + kPage - 1) / kPage * kPage;
            DWORD first = kPage - sizeof(Node);  // the region's first page is committed
            blocks.push_back({static_cast<char*>(lmemVirtualAllocFunc(size, 0)), first, reserved, kPage, fill});
            Grow(m, kReserved, kReservedMax, reserved);
            Grow(m, kCommit, kCommitMax, kPage);
        }
        Block& b = op <= 1 ? blocks.back() : blocks[i];
        if (op <= 1) {
            std::memset(b.p, fill, b.filled);
        } else {
            for (DWORD k = 0; k < b.filled; ++k) ASSERT_EQ(b.p[k], b.fill) << step;
        }
        if (op == 2) {
            EXPECT_NE(lmemFree(b.p), 0) << step;
            drop(b);
            blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(i));
        } else if (op == 4 && b.reserved != 0) {
            DWORD dataSize = b.reserved - sizeof(Node);
            DWORD at = pick(dataSize), length = 1 + pick(std::min(3 * kPage, dataSize - at));
            ASSERT_EQ(lmemVirtualCommit(b.p + at, length), b.p + at);
            volatile char* v = b.p;
            v[at] = v[at + length - 1];  // both ends are usable now
            b.filled = std::min(b.filled, at);
            b.committed += kPage;
            Grow(m, kCommit, kCommitMax, kPage);
        } else if (op >= 3) {
            DWORD size = 1 + pick(3 * kPage);
            auto* q = static_cast<char*>(lmemReAlloc(b.p, size));
            Grow(m, kGlobal, kGlobalMax, size);
            drop(b);
            for (DWORD k = 0; k < std::min(size, b.filled); ++k) ASSERT_EQ(q[k], b.fill) << step;
            std::memset(q, fill, size);
            b = {q, size, 0, 0, fill};
        }
        ASSERT_EQ(ReadCounters(), m) << "step " << step << " op " << op;
    }
    for (const Block& b : blocks) lmemFree(b.p);
}

// One run of every allocating operation. What it holds stays in `owned` even
// when a step raises, and the regions it reserved in `regions`.
void Workload(std::vector<void*>& owned, std::vector<void*>& regions) {
    auto keep = [&](void* p) {
        owned.push_back(p);
        if (Node* n = lmemGetVirtualAllocNode(p)) regions.push_back(n);
        return static_cast<char*>(p);
    };
    keep(lmemAllocFunc(100, 0));
    keep(lmemAllocFunc(5000, 0));
    char* v = keep(lmemVirtualAllocFunc(3 * kPage, 0));
    lmemVirtualCommit(v + kPage, 2 * kPage);
    std::memset(v, 1, 3 * kPage);
    owned[0] = lmemReAlloc(owned[0], 300);
    owned[2] = lmemReAlloc(owned[2], 2 * kPage);  // virtual into global
    char* w = keep(lmemVirtualAllocFunc(kPage, 0));
    lmemVirtualCommit(w + kPage / 2, kPage);
    EXPECT_NE(lmemFree(owned[1]), 0);  // a free that raises leaves the block live
    owned.erase(owned.begin() + 1);
}

struct FaultCase { const char* name; OrvaFaultOp op; };
void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }

class LmemExhaustionTest : public ::testing::TestWithParam<FaultCase> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

// Fails the nth call of one platform operation for n = 1, 2, ... until a run
// goes through: each failure raises, and once the run's blocks are released
// the counters are back and every region is given back.
TEST_P(LmemExhaustionTest, EveryStepRaisesAndNothingLeaks) {
    const FaultCase& fc = GetParam();
    Counters base = ReadCounters();
    for (DWORD n = 1;; ++n) {
        ASSERT_LT(n, 100u) << "the workload never ran through";
        std::vector<void*> owned, regions;
        OrvaFaultArm(fc.op, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        bool threw = false;
        try {
            Workload(owned, regions);
        } catch (L_CMemoryException*) {
            threw = true;
        }
        DWORD injected = OrvaFaultInjected(fc.op);
        OrvaFaultReset();
        EXPECT_EQ(threw, injected != 0) << "n=" << n;
        for (void* p : owned) EXPECT_NE(lmemFree(p), 0);
        Counters c = ReadCounters();
        EXPECT_EQ(std::tie(c[kGlobal], c[kReserved], c[kCommit]), std::tie(base[kGlobal], base[kReserved], base[kCommit]))
            << "n=" << n;
        for (void* region : regions) {
            MEMORY_BASIC_INFORMATION info;
            ASSERT_EQ(VirtualQuery(region, &info, sizeof info), sizeof info);
            EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE)) << "n=" << n;
        }
        if (injected == 0) {
            EXPECT_GT(n, 1u) << "the workload uses the operation";
            break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, LmemExhaustionTest,
                         ::testing::Values(FaultCase{"GlobalAlloc", ORVA_FAULT_GLOBALALLOC},
                                           FaultCase{"GlobalFree", ORVA_FAULT_GLOBALFREE},
                                           FaultCase{"reserve", ORVA_FAULT_VIRTUALALLOC},
                                           FaultCase{"commit", ORVA_FAULT_VIRTUALCOMMIT}),
                         [](const auto& info) { return std::string(info.param.name); });

std::string ToCodePage932(const std::string& utf8) {
    iconv_t cd = iconv_open("CP932", "UTF-8");
    std::string out(utf8.size() * 2, '\0');
    char* in = const_cast<char*>(utf8.data());
    char* to = out.data();
    size_t inLeft = utf8.size(), toLeft = out.size();
    EXPECT_NE(iconv(cd, &in, &inLeft, &to, &toLeft), static_cast<size_t>(-1));
    iconv_close(cd);
    out.resize(out.size() - toLeft);
    return out;
}

TEST(LmemTest, DisplayShowsTheSixCountersInCodePage932) {
    const int calls = g_box.calls;
    Counters c = ReadCounters();
    EXPECT_EQ(g_box.owner, nullptr);
    EXPECT_EQ(g_box.type, static_cast<UINT>(MB_SYSTEMMODAL));
    EXPECT_EQ(g_box.caption, ToCodePage932("オルヴァーネ標準ライブラリ"));
    const char* lines[] = {
        "仮想メモリ最大確保サイズ　　　= ", "仮想メモリ最大コミットサイズ　= ", "仮想メモリ現在確保サイズ　　　= ",
        "仮想メモリ現在コミットサイズ　= ", "グローバルメモリ最大確保サイズ= ", "グローバルメモリ現在確保サイズ= ",
    };
    std::string expected;
    for (int i = 0; i < 6; ++i) expected += ToCodePage932(lines[i]) + std::to_string(c[i]) + "\n";
    EXPECT_EQ(g_box.text, expected + ToCodePage932("（値は１０進表示です。）"));
    EXPECT_EQ(g_box.calls, calls + 1) << "one box per call";
}

}  // namespace
