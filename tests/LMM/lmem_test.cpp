// The base allocator: the six counters and their peaks against a reference
// model under a seeded random mix of operations; lmemFree and lmemReAlloc on
// odd pointers; virtual blocks (layout, lookup, commit, free, other threads);
// exhausted memory injected at every allocating step until none is left to
// inject, with nothing leaked; and the text of lmemDispAllocInfo.
#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "support/marks.h"

namespace {

using orvatest::kCallerError;
using orvatest::kProbeError;
using orvatest::LatestMarkError;
using orvatest::PrepareCall;

using Node = tagLMM_VirtualAllocNode;

const DWORD kPage = [] {
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    return si.dwPageSize;
}();

// ---- reading the counters through the display ---------------------------------------

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

struct Counters {
    DWORD reservedMax, commitMax, reserved, commit, globalMax, global;
    bool operator==(const Counters&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Counters& c) {
    return os << "{reservedMax " << c.reservedMax << ", commitMax " << c.commitMax << ", reserved " << c.reserved
              << ", commit " << c.commit << ", globalMax " << c.globalMax << ", global " << c.global << "}";
}

// The six numbers of the box, in the order it shows them.
Counters ReadCounters() {
    ORVA_MSGBOXHANDLER old = OrvaSetMessageBoxHandler(CaptureBox);
    lmemDispAllocInfo();
    OrvaSetMessageBoxHandler(old);
    DWORD v[6] = {};
    size_t at = 0;
    for (DWORD& x : v) {
        at = g_box.text.find("= ", at);
        if (at == std::string::npos) {
            ADD_FAILURE() << "fewer than six numbers in the box";
            break;
        }
        at += 2;
        x = static_cast<DWORD>(std::strtol(g_box.text.c_str() + at, nullptr, 10));
    }
    return {v[0], v[1], v[2], v[3], v[4], v[5]};
}

template <class F>
bool RaisesMemory(F&& f) {
    try {
        f();
    } catch (L_CMemoryException* e) {
        EXPECT_STREQ(e->GetFileName(), ".\\LMM\\LMEM");
        return true;
    }
    return false;
}

// ---- global blocks ------------------------------------------------------------------

// Zero-filled; and a block of 0 bytes is what the heap gives for 0: live, of
// size 0, so lmemFree sees nothing to free and the counters do not move.
TEST(LmemTest, GlobalBlocksAreZeroFilledAndZeroBytesStay) {
    Counters before = ReadCounters();
    auto* p = static_cast<unsigned char*>(lmemAllocFunc(1000, 0));
    EXPECT_EQ(GlobalSize(p), 1000u);
    EXPECT_TRUE(std::all_of(p, p + 1000, [](unsigned char c) { return c == 0; }));
    EXPECT_EQ(lmemFree(p), 1);
    void* empty = lmemAllocFunc(0, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(lmemFree(empty), 1);
    EXPECT_EQ(ReadCounters().global, before.global);
    EXPECT_EQ(GlobalFree(empty), nullptr) << "still a live block";
}

TEST(LmemTest, FreeOfOddPointers) {
    Counters base = ReadCounters();
    char* live = static_cast<char*>(lmemAllocFunc(64, 0));
    void* freed = lmemAllocFunc(64, 0);
    ASSERT_EQ(lmemFree(freed), 1);
    int onStack = 0;
    void* theirs = nullptr;
    std::thread([&] { theirs = lmemVirtualAllocFunc(100, 0); }).join();
    ASSERT_NE(theirs, nullptr);

    struct Case { const char* what; void* p; } cases[] = {
        {"interior of a global block", live + 8},
        {"freed block", freed},
        {"stack", &onStack},
        {"another thread's virtual block", theirs},
    };
    for (const Case& c : cases) {
        PrepareCall();
        EXPECT_EQ(lmemFree(c.p), 1) << c.what;
        EXPECT_EQ(LatestMarkError(), kProbeError) << c.what << ": no mark";
        EXPECT_EQ(ReadCounters().global, base.global + 64) << c.what;
    }
    EXPECT_EQ(GlobalSize(live), 64u) << "the block holding the interior pointer lives on";

    PrepareCall();
    EXPECT_EQ(lmemFree(nullptr), 0);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    EXPECT_EQ(LatestMarkError(), LERR_INVALIDARG);

    // An interior address of this thread's virtual block reaches
    // lmemVirtualFree, which marks and keeps the last error.
    char* mine = static_cast<char*>(lmemVirtualAllocFunc(100, 0));
    PrepareCall();
    EXPECT_EQ(lmemFree(mine + 1), 0);
    EXPECT_EQ(GetLastError(), kCallerError);
    EXPECT_EQ(LatestMarkError(), kCallerError);
    EXPECT_NE(lmemGetVirtualAllocNode(mine), nullptr) << "the block lives on";
    EXPECT_NE(lmemFree(mine), 0);
    EXPECT_EQ(lmemFree(live), 1);

    // The other thread's block is still there for that thread to free; the
    // region itself stays reserved until then.
    MEMORY_BASIC_INFORMATION info;
    ASSERT_EQ(VirtualQuery(theirs, &info, sizeof info), sizeof info);
    EXPECT_EQ(info.State, static_cast<DWORD>(MEM_COMMIT));
    Counters end = ReadCounters();
    EXPECT_EQ(end.global, base.global);
    EXPECT_GT(end.reserved, base.reserved);
}

TEST(LmemTest, ReAllocOfOddPointers) {
    Counters base = ReadCounters();
    int onStack = 7;
    void* freed = lmemAllocFunc(8, 0);
    lmemFree(freed);
    // Pointers that lmemFree takes without freeing anything: nothing is
    // copied, and a fresh zeroed block comes back.
    for (void* p : {static_cast<void*>(&onStack), freed}) {
        auto* q = static_cast<unsigned char*>(lmemReAlloc(p, 16));
        ASSERT_NE(q, nullptr);
        EXPECT_TRUE(std::all_of(q, q + 16, [](unsigned char c) { return c == 0; }));
        lmemFree(q);
    }
    EXPECT_EQ(onStack, 7);

    // Pointers that lmemFree refuses raise, and the new block does not stay.
    char* mine = static_cast<char*>(lmemVirtualAllocFunc(100, 0));
    for (void* p : {static_cast<void*>(nullptr), static_cast<void*>(mine + 10)}) {
        EXPECT_TRUE(RaisesMemory([&] { lmemReAlloc(p, 32); })) << p;
        EXPECT_EQ(ReadCounters().global, base.global) << p;
    }
    EXPECT_NE(lmemGetVirtualAllocNode(mine), nullptr);
    lmemFree(mine);
}

// A virtual block's contents move into a global block; pages never committed
// read as the zeros they are, without being touched.
TEST(LmemTest, ReAllocOfAVirtualBlock) {
    const DWORD size = 8 * kPage;
    char* v = static_cast<char*>(lmemVirtualAllocFunc(size, 0));
    ASSERT_NE(v, nullptr);
    v[0] = 'a';
    ASSERT_EQ(lmemVirtualCommit(v + 3 * kPage, 2 * kPage), v + 3 * kPage);
    std::memset(v + 3 * kPage, 'b', 2 * kPage);
    auto* g = static_cast<char*>(lmemReAlloc(v, size));
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(GlobalSize(g), size);
    for (DWORD i = 0; i < size; ++i) {
        char expected = i == 0 ? 'a' : (i >= 3 * kPage && i < 5 * kPage ? 'b' : 0);
        ASSERT_EQ(g[i], expected) << i;
    }
    EXPECT_EQ(lmemGetVirtualAllocNode(v), nullptr);
    lmemFree(g);
}

// ---- virtual blocks -----------------------------------------------------------------

TEST(LmemTest, VirtualBlockLayoutAndLookup) {
    const DWORD header = sizeof(Node);
    for (DWORD size : {0u, 1u, kPage - header, kPage - header + 1, 1u << 20}) {
        char* p = static_cast<char*>(lmemVirtualAllocFunc(size, 0));
        ASSERT_NE(p, nullptr) << size;
        Node* node = lmemGetVirtualAllocNode(p);
        ASSERT_NE(node, nullptr) << size;
        DWORD reserved = (size + header + kPage - 1) / kPage * kPage;
        EXPECT_EQ(static_cast<void*>(node), p - header) << size;
        EXPECT_EQ(node->dataStart, p);
        EXPECT_EQ(node->reservedSize, reserved) << size;
        EXPECT_EQ(node->dataSize, reserved - header) << size;
        EXPECT_EQ(node->dataLast, p + node->dataSize - 1);
        EXPECT_EQ(node->committedSize, kPage);
        if (node->dataSize > 0) std::memset(p, 0x77, kPage - header);  // the first page is committed

        EXPECT_EQ(lmemGetVirtualAllocNode(node->dataLast), node);
        EXPECT_EQ(lmemGetVirtualAllocNode(p + node->dataSize / 2), node);
        EXPECT_EQ(lmemGetVirtualAllocNode(node), nullptr) << "the header is not data";
        EXPECT_EQ(lmemGetVirtualAllocNode(p - 1), nullptr);
        EXPECT_EQ(lmemGetVirtualAllocNode(p + node->dataSize), nullptr) << "one past the end";

        EXPECT_NE(lmemVirtualFree(p), 0);
        EXPECT_EQ(lmemGetVirtualAllocNode(p), nullptr);
        MEMORY_BASIC_INFORMATION info;
        ASSERT_EQ(VirtualQuery(node, &info, sizeof info), sizeof info);
        EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE)) << "the region is released";
    }
    EXPECT_EQ(lmemGetVirtualAllocNode(nullptr), nullptr);
}

TEST(LmemTest, CommitsCountOnePagePerCall) {
    Counters base = ReadCounters();
    char* p = static_cast<char*>(lmemVirtualAllocFunc(16 * kPage, 0));
    Node* node = lmemGetVirtualAllocNode(p);
    ASSERT_NE(node, nullptr);
    // Three commits of three pages each count three pages, not nine; the
    // third covers pages that are committed already.
    for (DWORD at : {2u, 5u, 3u}) {
        EXPECT_EQ(lmemVirtualCommit(p + at * kPage, 3 * kPage), p + at * kPage);
    }
    EXPECT_EQ(node->committedSize, 4 * kPage);
    std::memset(p + 2 * kPage, 1, 6 * kPage);
    Counters during = ReadCounters();
    EXPECT_EQ(during.commit, base.commit + 4 * kPage);
    EXPECT_EQ(during.commitMax, std::max(base.commitMax, base.commit + 4 * kPage));

    // Outside every block: null, no mark, the last error untouched.
    int onStack = 0;
    for (void* q : {static_cast<void*>(&onStack), static_cast<void*>(node), static_cast<void*>(nullptr)}) {
        PrepareCall();
        EXPECT_EQ(lmemVirtualCommit(q, 1), nullptr);
        EXPECT_EQ(GetLastError(), kCallerError);
        EXPECT_EQ(LatestMarkError(), kProbeError);
    }
    // Past the region's end the platform refuses, which is exhausted memory.
    EXPECT_TRUE(RaisesMemory([&] { lmemVirtualCommit(node->dataLast, 2); }));

    EXPECT_NE(lmemFree(p), 0);
    Counters after = ReadCounters();
    EXPECT_EQ(after.commit, base.commit) << "the free takes back all that was counted";
    EXPECT_EQ(after.commitMax, during.commitMax);
}

TEST(LmemTest, VirtualFreeWantsADataStartOfThisThread) {
    char* p = static_cast<char*>(lmemVirtualAllocFunc(kPage, 0));
    int onStack = 0;
    for (void* q : {static_cast<void*>(p + 1), static_cast<void*>(p - sizeof(Node)), static_cast<void*>(&onStack)}) {
        PrepareCall();
        EXPECT_EQ(lmemVirtualFree(q), 0);
        EXPECT_EQ(GetLastError(), kCallerError) << "no code of its own";
        EXPECT_EQ(LatestMarkError(), kCallerError) << "but a mark";
    }
    PrepareCall();
    EXPECT_EQ(lmemVirtualFree(nullptr), 0);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    EXPECT_EQ(LatestMarkError(), LERR_INVALIDARG);

    // Another thread neither finds, commits nor frees it.
    std::thread([&] {
        EXPECT_EQ(lmemGetVirtualAllocNode(p), nullptr);
        EXPECT_EQ(lmemVirtualCommit(p, 1), nullptr);
        EXPECT_EQ(lmemVirtualFree(p), 0);
        EXPECT_EQ(lmemFree(p), 1);
    }).join();
    EXPECT_NE(lmemGetVirtualAllocNode(p), nullptr);
    EXPECT_NE(lmemVirtualFree(p), 0);
    PrepareCall();
    EXPECT_EQ(lmemVirtualFree(p), 0) << "freed twice";
    EXPECT_EQ(LatestMarkError(), kCallerError);
}

TEST(LmemTest, ARegionBeyond32BitsIsExhaustedMemory) {
    Counters base = ReadCounters();
    SetLastError(0);
    EXPECT_TRUE(RaisesMemory([] { lmemVirtualAllocFunc(0xFFFFFFFFu, 0); }));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(ReadCounters(), base);
}

// ---- the counters against a model -------------------------------------------------

// A seeded mix of every operation; after each step the six counters must be
// what a model of the blocks says, and every block keeps its contents.
TEST(LmemTest, CountersFollowARandomMixAgainstAModel) {
    std::mt19937 rng(20240611);
    Counters model = ReadCounters();
    struct Block { char* p; DWORD size; bool isVirtual; char fill; };  // size: a virtual block's first page
    std::vector<Block> blocks;
    auto grow = [](DWORD& total, DWORD& peak, DWORD n) {
        total += n;
        peak = std::max(peak, total);
    };
    auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    for (int step = 0; step < 600; ++step) {
        int op = static_cast<int>(pick(blocks.empty() ? 2 : 6));
        char fill = static_cast<char>('A' + step % 26);
        if (op == 0) {
            DWORD size = static_cast<DWORD>(1 + pick(3000));
            char* p = static_cast<char*>(lmemAllocFunc(size, 0));
            std::memset(p, fill, size);
            blocks.push_back({p, size, false, fill});
            grow(model.global, model.globalMax, size);
        } else if (op == 1) {
            DWORD size = static_cast<DWORD>(pick(6 * kPage));
            char* p = static_cast<char*>(lmemVirtualAllocFunc(size, 0));
            Node* node = lmemGetVirtualAllocNode(p);
            ASSERT_NE(node, nullptr);
            DWORD first = std::min<DWORD>(node->dataSize, kPage - sizeof(Node));
            std::memset(p, fill, first);
            blocks.push_back({p, first, true, fill});
            grow(model.reserved, model.reservedMax, node->reservedSize);
            grow(model.commit, model.commitMax, kPage);
        } else if (op == 2 || op == 3) {
            size_t i = pick(blocks.size());
            Block b = blocks[i];
            blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(i));
            for (DWORD k = 0; k < b.size; ++k) ASSERT_EQ(b.p[k], b.fill) << step;
            if (b.isVirtual) {
                Node* node = lmemGetVirtualAllocNode(b.p);
                model.reserved -= node->reservedSize;
                model.commit -= node->committedSize;
            } else {
                model.global -= b.size;
            }
            EXPECT_NE(lmemFree(b.p), 0) << step;
        } else if (op == 4) {
            size_t i = pick(blocks.size());
            Block& b = blocks[i];
            DWORD size = static_cast<DWORD>(1 + pick(3000));
            if (b.isVirtual) {
                Node* node = lmemGetVirtualAllocNode(b.p);
                model.reserved -= node->reservedSize;
                model.commit -= node->committedSize;
            }
            char* q = static_cast<char*>(lmemReAlloc(b.p, size));
            grow(model.global, model.globalMax, size);
            if (!b.isVirtual) model.global -= b.size;
            DWORD kept = std::min(size, b.size);
            for (DWORD k = 0; k < kept; ++k) ASSERT_EQ(q[k], b.fill) << step;
            std::memset(q, fill, size);
            b = {q, size, false, fill};
        } else {
            std::vector<size_t> virtuals;
            for (size_t i = 0; i < blocks.size(); ++i) {
                if (blocks[i].isVirtual) virtuals.push_back(i);
            }
            if (virtuals.empty()) continue;
            Block& b = blocks[virtuals[pick(virtuals.size())]];
            Node* node = lmemGetVirtualAllocNode(b.p);
            DWORD at = static_cast<DWORD>(pick(node->dataSize));
            ASSERT_EQ(lmemVirtualCommit(b.p + at, 1), b.p + at);
            b.p[at] = b.p[at];  // the page is usable now
            if (at < b.size) {
                ASSERT_EQ(b.p[at], b.fill);
            }
            grow(model.commit, model.commitMax, kPage);
        }
        ASSERT_EQ(ReadCounters(), model) << "step " << step << " op " << op;
    }
    for (const Block& b : blocks) lmemFree(b.p);
}

// ---- exhausted memory ---------------------------------------------------------------

// A run of every allocating operation that keeps track of what it owns, so
// that a raise at any step leaves it knowing exactly what to release.
class Workload {
public:
    void Run() {
        Keep(lmemAllocFunc(100, 0), false);
        Keep(lmemAllocFunc(5000, 0), false);
        Keep(lmemVirtualAllocFunc(3 * kPage, 0), true);
        char* v = owned_.back().p;
        lmemVirtualCommit(v + kPage, 2 * kPage);
        std::memset(v, 1, 3 * kPage);
        Replace(0, lmemReAlloc(owned_[0].p, 300));
        Replace(2, lmemReAlloc(owned_[2].p, 2 * kPage));  // virtual into global
        Keep(lmemVirtualAllocFunc(kPage, 0), true);
        lmemVirtualCommit(owned_.back().p + kPage / 2, kPage);
        Release(1);
    }
    void ReleaseAll() {
        while (!owned_.empty()) Release(owned_.size() - 1);
    }
    std::vector<void*> Regions() const { return regions_; }

private:
    struct Owned { char* p; bool isVirtual; };
    void Keep(void* p, bool isVirtual) {
        owned_.push_back({static_cast<char*>(p), isVirtual});
        if (isVirtual) regions_.push_back(lmemGetVirtualAllocNode(p));
    }
    void Replace(size_t i, void* p) { owned_[i] = {static_cast<char*>(p), false}; }
    // A free that raises leaves the block live, so it stays on the list.
    void Release(size_t i) {
        int freed = lmemFree(owned_[i].p);
        owned_.erase(owned_.begin() + static_cast<std::ptrdiff_t>(i));
        EXPECT_NE(freed, 0);
    }
    std::vector<Owned> owned_;
    std::vector<void*> regions_;
};

struct FaultCase { const char* name; OrvaFaultOp op; };
void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }

class LmemExhaustionTest : public ::testing::TestWithParam<FaultCase> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

// Fails the nth call of one platform operation for n = 1, 2, 3 ... until a run
// goes through with nothing injected. Every injected failure must come out as
// L_CMemoryException, and after releasing what the run kept the counters are
// back where they started and every region is given back.
TEST_P(LmemExhaustionTest, EveryStepRaisesAndNothingLeaks) {
    const FaultCase& fc = GetParam();
    Counters base = ReadCounters();
    int raised = 0;
    for (DWORD n = 1;; ++n) {
        ASSERT_LT(n, 100u) << "the workload never ran through";
        Workload w;
        OrvaFaultArm(fc.op, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        bool threw = false;
        try {
            w.Run();
        } catch (L_CMemoryException*) {
            threw = true;
        }
        DWORD injected = OrvaFaultInjected(fc.op);
        OrvaFaultReset();
        EXPECT_EQ(threw, injected != 0) << fc.name << " n=" << n;
        w.ReleaseAll();
        Counters now = ReadCounters();
        EXPECT_TRUE(now.global == base.global && now.reserved == base.reserved && now.commit == base.commit)
            << fc.name << " n=" << n << ": " << now << " after " << base;
        for (void* region : w.Regions()) {
            MEMORY_BASIC_INFORMATION info;
            ASSERT_EQ(VirtualQuery(region, &info, sizeof info), sizeof info);
            EXPECT_EQ(info.State, static_cast<DWORD>(MEM_FREE)) << fc.name << " n=" << n;
        }
        if (injected == 0) break;
        ++raised;
    }
    EXPECT_GT(raised, 0) << fc.name << ": the workload uses the operation";
}

INSTANTIATE_TEST_SUITE_P(Faults, LmemExhaustionTest,
                         ::testing::Values(FaultCase{"GlobalAlloc", ORVA_FAULT_GLOBALALLOC},
                                           FaultCase{"GlobalFree", ORVA_FAULT_GLOBALFREE},
                                           FaultCase{"reserve", ORVA_FAULT_VIRTUALALLOC},
                                           FaultCase{"commit", ORVA_FAULT_VIRTUALCOMMIT}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- the display --------------------------------------------------------------------

std::string ToCodePage932(const std::string& utf8) {
    iconv_t cd = iconv_open("CP932", "UTF-8");
    EXPECT_NE(cd, reinterpret_cast<iconv_t>(-1));
    std::string out(utf8.size() * 2, '\0');
    char* in = const_cast<char*>(utf8.data());
    size_t inLeft = utf8.size();
    char* to = out.data();
    size_t toLeft = out.size();
    EXPECT_NE(iconv(cd, &in, &inLeft, &to, &toLeft), static_cast<size_t>(-1));
    iconv_close(cd);
    out.resize(out.size() - toLeft);
    return out;
}

TEST(LmemTest, DisplayShowsTheSixCountersInCodePage932) {
    void* g = lmemAllocFunc(1234, 0);
    void* v = lmemVirtualAllocFunc(10 * kPage, 0);
    Counters c = ReadCounters();
    EXPECT_EQ(g_box.owner, nullptr);
    EXPECT_EQ(g_box.type, static_cast<UINT>(MB_SYSTEMMODAL));
    EXPECT_EQ(g_box.caption, ToCodePage932("オルヴァーネ標準ライブラリ"));
    const char* lines[] = {
        "仮想メモリ最大確保サイズ　　　= ", "仮想メモリ最大コミットサイズ　= ", "仮想メモリ現在確保サイズ　　　= ",
        "仮想メモリ現在コミットサイズ　= ", "グローバルメモリ最大確保サイズ= ", "グローバルメモリ現在確保サイズ= ",
    };
    const DWORD values[] = {c.reservedMax, c.commitMax, c.reserved, c.commit, c.globalMax, c.global};
    std::string expected;
    for (int i = 0; i < 6; ++i) {
        expected += ToCodePage932(lines[i]) + std::to_string(static_cast<LONG>(values[i])) + "\n";
    }
    expected += ToCodePage932("（値は１０進表示です。）");
    EXPECT_EQ(g_box.text, expected);
    EXPECT_GE(c.global, 1234u);
    EXPECT_GE(c.reserved, 10 * kPage);
    lmemFree(g);
    lmemFree(v);
    int calls = g_box.calls;
    ReadCounters();
    EXPECT_EQ(g_box.calls, calls + 1) << "one box per call";
}

}  // namespace
