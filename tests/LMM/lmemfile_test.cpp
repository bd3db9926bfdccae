// The memory file: a seeded random mix of reads, writes, seeks, size
// changes, growth, locks and reservations against a model of size,
// position, capacity, state and every byte of the block, with each
// refusal's last error and mark checked and exhausted memory injected at
// random steps; the growth rule's numbers; null handles; and failures of
// creation and of a virtual block's commit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>
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

constexpr DWORD kAll = 0xFFFFFFFFu;

BlockView View(void* f) { return orvatest::ViewOf(f, lmemfileLock, lmemfileUnlock); }

// What a memory file should be: every byte of its block, the size, the
// position and the state.
struct ModelFile {
    ModelFile(DWORD firstSize, DWORD growStep) : bytes(firstSize, 0), step(growStep) {}

    // Adds whole steps until the block holds `needed`; fresh bytes are zero
    // and the old ones stay.
    void Grow(uint64_t needed) {
        uint64_t capacity = bytes.size();
        while (capacity < needed) capacity += step;
        bytes.resize(capacity, 0);
    }
    // The refusal of everything that reads, writes or may grow, or 0.
    DWORD StateRefusal() const { return locks > 0 ? LERR_LOCKED : (reserved ? LERR_RESERVED : 0); }

    std::vector<unsigned char> bytes;
    DWORD step;
    DWORD size = 0, position = 0;
    int locks = 0;
    bool reserved = false;
    DWORD reservedSize = 0;
};

// What a call should give: its result, and the last error it leaves (the
// caller's, for success and for the quiet refusal) and whether it marks.
struct Expected {
    long long result;
    DWORD error = kCallerError;
    bool marks = false;
};

Expected Refused(long long result, DWORD code) { return {result, code, true}; }

void ExpectFileMatches(void* f, const ModelFile& m, const std::string& step) {
    ASSERT_EQ(lmemfileGetSize(f), m.size) << step;
    ASSERT_EQ(lmemfileGetCurrentPos(f), m.position) << step;
    if (m.reserved) return;  // the block cannot be had until the release
    BlockView v = View(f);
    ASSERT_EQ(v.capacity, m.bytes.size()) << step << ": capacity";
    ASSERT_EQ(0, std::memcmp(v.block, m.bytes.data(), v.capacity)) << step << ": bytes";
}

struct FileShape {
    DWORD firstSize, growStep;
};

void PrintTo(const FileShape& s, std::ostream* os) { *os << "first " << s.firstSize << ", step " << s.growStep; }

class LmemfileModelTest : public testing::TestWithParam<FileShape> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

TEST_P(LmemfileModelTest, FollowsTheModelThroughRandomSteps) {
    const FileShape shape = GetParam();
    std::mt19937 rng(0x3E3F11u + shape.firstSize * 31 + shape.growStep);
    void* f = lmemfileCreate(shape.firstSize, shape.growStep);
    ASSERT_NE(f, nullptr);
    ModelFile m(shape.firstSize, shape.growStep);
    unsigned char* reservedAt = nullptr;
    const DWORD piece = 2 * shape.growStep + 8;
    const DWORD sizeRange = 2 * shape.firstSize + 4 * shape.growStep;
    std::vector<unsigned char> data, out;
    int raisedSteps = 0;

    for (int step = 0; step < 3000; ++step) {
        // The block never shrinks, so a file stops growing once it is large
        // enough; a new file now and then keeps growth (and its failures)
        // coming. Destruction ends any state.
        if (step % 50 == 49) {
            ASSERT_EQ(lmemfileDestroy(f), 1);
            f = lmemfileCreate(shape.firstSize, shape.growStep);
            m = ModelFile(shape.firstSize, shape.growStep);
        }
        const int kind = static_cast<int>(rng() % 10);
        const bool nullData = rng() % 20 == 0;
        std::string what = "step " + std::to_string(step) + ": ";
        std::function<long long()> call;
        std::function<Expected()> apply;  // the model's step and what the call gives
        bool mayGrow = false;

        switch (kind) {
        case 0: {
            DWORD length = rng() % piece;
            out.assign(length + 1, 0xCC);
            what += "Read " + std::to_string(length);
            call = [&, length] { return lmemfileRead(f, nullData ? nullptr : out.data(), length); };
            apply = [&, length]() -> Expected {
                if (nullData) return Refused(-1, LERR_INVALIDARG);
                if (DWORD code = m.StateRefusal()) return Refused(-1, code);
                DWORD n = std::min(length, m.size - m.position);
                EXPECT_EQ(0, std::memcmp(out.data(), m.bytes.data() + m.position, n)) << "read bytes";
                EXPECT_EQ(out[n], 0xCC) << "read past what it gave";
                m.position += n;
                return {n};
            };
            break;
        }
        case 1: {
            DWORD length = rng() % piece;
            data.resize(length + 1);  // never empty, so never a null pointer
            for (auto& b : data) b = static_cast<unsigned char>(rng());
            what += "Write " + std::to_string(length);
            mayGrow = true;
            call = [&, length] { return lmemfileWrite(f, nullData ? nullptr : data.data(), length); };
            apply = [&, length]() -> Expected {
                if (nullData) return Refused(0, LERR_INVALIDARG);
                if (DWORD code = m.StateRefusal()) return Refused(0, code);
                m.Grow(uint64_t{m.position} + length);
                std::copy(data.begin(), data.begin() + length, m.bytes.begin() + m.position);
                m.position += length;
                m.size = std::max(m.size, m.position);
                return {1};
            };
            break;
        }
        case 2: {
            DWORD origin = rng() % 13 == 0 ? 3 + rng() % 2 : rng() % 3;
            int offset = static_cast<int>(rng() % (2 * m.size + 7)) - static_cast<int>(m.size) - 3;
            what += "Seek " + std::to_string(offset) + " from " + std::to_string(origin);
            call = [&, offset, origin] { return lmemfileSeek(f, offset, origin); };
            apply = [&, offset, origin]() -> Expected {
                if (origin > 2) return Refused(-1, LERR_INVALIDARG);
                long long base = origin == 0 ? 0 : (origin == 1 ? m.position : m.size);
                long long target = base + offset;
                if (target < 0 || target > m.size) return Refused(-1, LERR_INVALIDARG);
                m.position = static_cast<DWORD>(target);
                return {target};
            };
            break;
        }
        case 3:
        case 4: {
            DWORD n = rng() % sizeRange;
            const bool setSize = kind == 3;
            what += (setSize ? "SetSize " : "GrowBuf ") + std::to_string(n);
            mayGrow = true;
            call = [&, n, setSize] { return setSize ? lmemfileSetSize(f, n) : lmemfileGrowBuf(f, n); };
            apply = [&, n, setSize]() -> Expected {
                if (DWORD code = m.StateRefusal()) return Refused(0, code);
                m.Grow(n);
                if (setSize) m.size = m.position = n;
                return {1};
            };
            break;
        }
        case 5:
            what += "Lock";
            call = [&] { return lmemfileLock(f) != nullptr ? 1 : 0; };
            apply = [&]() -> Expected {
                if (m.reserved) return Refused(0, LERR_RESERVED);
                ++m.locks;
                return {1};
            };
            break;
        case 6:
            what += "Unlock";
            call = [&] { return lmemfileUnlock(f); };
            apply = [&]() -> Expected {
                if (m.locks == 0) return Refused(0, LERR_NOTLOCKED);
                --m.locks;
                return {1};
            };
            break;
        case 7: {
            DWORD length = rng() % piece;
            what += "ReserveBuf " + std::to_string(length);
            mayGrow = true;
            call = [&, length] {
                reservedAt = static_cast<unsigned char*>(lmemfileReserveBuf(f, length));
                return reservedAt != nullptr ? 1 : 0;
            };
            apply = [&, length]() -> Expected {
                if (DWORD code = m.StateRefusal()) return Refused(0, code);
                m.Grow(uint64_t{m.size} + length);
                m.reserved = true;
                m.reservedSize = length;
                EXPECT_EQ(GlobalSize(reservedAt - m.size), m.bytes.size()) << "the room lies behind the data";
                // The producer fills part of the room, or more than it
                // will claim.
                DWORD filled = rng() % (length + 1);
                for (DWORD i = 0; i < filled; ++i) reservedAt[i] = m.bytes[m.size + i] = static_cast<unsigned char>(rng());
                return {1};
            };
            break;
        }
        default: {
            DWORD used = m.reserved ? rng() % (m.reservedSize + 3) : rng() % 4;
            what += "ReleaseBuf " + std::to_string(used);
            call = [&, used] { return lmemfileReleaseBuf(f, used); };
            apply = [&, used]() -> Expected {
                if (!m.reserved) return Refused(0, LERR_NOTRESERVED);
                if (used > m.reservedSize) return {0};  // quiet, and the reservation stands
                m.reserved = false;
                m.size += used;
                m.position = m.size;
                return {1};
            };
            break;
        }
        }

        const SIZE_T live = OrvaGlobalLiveBlocks();
        const orvatest::Outcome o = orvatest::CallWithHeapFault(mayGrow && rng() % 2 == 0, call);
        const DWORD error = GetLastError();
        if (o.injected) {
            ASSERT_TRUE(o.raised) << what;
            EXPECT_EQ(OrvaGlobalLiveBlocks(), live) << what << ": a failed growth leaves no block behind";
            ++raisedSteps;
        } else {
            ASSERT_FALSE(o.raised) << what;
            Expected want = apply();
            EXPECT_EQ(o.result, want.result) << what;
            EXPECT_EQ(error, want.error) << what;
            EXPECT_EQ(LatestMarkError(), want.marks ? want.error : kProbeError) << what;
        }
        ExpectFileMatches(f, m, what);
    }
    EXPECT_GT(raisedSteps, 40) << "few growths met an injected failure";
    EXPECT_EQ(lmemfileDestroy(f), 1);
}

INSTANTIATE_TEST_SUITE_P(Shapes, LmemfileModelTest,
                         testing::Values(FileShape{16, 8}, FileShape{1, 1}, FileShape{100, 37}, FileShape{1024, 4096}),
                         [](const auto& info) {
                             return "First" + std::to_string(info.param.firstSize) + "Step" +
                                    std::to_string(info.param.growStep);
                         });

// ---- edges ------------------------------------------------------------------------------

TEST(LmemfileTest, GrowthRuleAddsTheFewestWholeSteps) {
    const std::pair<DWORD, DWORD> table[] = {{1024, 1024}, {1025, 5120}, {5120, 5120}, {5121, 9216}, {9217, 13312}};
    for (const auto& [need, capacity] : table) {
        void* f = lmemfileCreate(1024, 4096);
        unsigned char* before = View(f).block;
        PrepareCall();
        ASSERT_EQ(lmemfileGrowBuf(f, need), 1);
        EXPECT_EQ(GetLastError(), kCallerError);
        BlockView v = View(f);
        EXPECT_EQ(v.capacity, capacity) << need;
        EXPECT_EQ(v.block != before, capacity != 1024) << need << ": growth moves, nothing else does";
        EXPECT_EQ(lmemfileGetSize(f), 0u);
        lmemfileDestroy(f);
    }
}

TEST(LmemfileTest, CreationRefusesZeroAndNullHandlesAreRefused) {
    for (auto [first, step] : {std::pair<DWORD, DWORD>{0, 1}, {1, 0}}) {
        PrepareCall();
        EXPECT_EQ(lmemfileCreate(first, step), nullptr);
        EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
        EXPECT_EQ(LatestMarkError(), LERR_INVALIDARG);
    }
    char c = 0;
    const std::tuple<const char*, long long, std::function<long long()>> calls[] = {
        {"Destroy", 0, [] { return lmemfileDestroy(nullptr); }},
        {"Read", -1, [&] { return lmemfileRead(nullptr, &c, 1); }},
        {"Write", 0, [&] { return lmemfileWrite(nullptr, &c, 1); }},
        {"Seek", -1, [] { return lmemfileSeek(nullptr, 0, 0); }},
        {"Lock", 0, [] { return lmemfileLock(nullptr) == nullptr ? 0 : 1; }},
        {"Unlock", 0, [] { return lmemfileUnlock(nullptr); }},
        {"GetSize", kAll, [] { return lmemfileGetSize(nullptr); }},
        {"GetCurrentPos", kAll, [] { return lmemfileGetCurrentPos(nullptr); }},
        {"SetSize", 0, [] { return lmemfileSetSize(nullptr, 1); }},
        {"ReserveBuf", 0, [] { return lmemfileReserveBuf(nullptr, 1) == nullptr ? 0 : 1; }},
        {"ReleaseBuf", 0, [] { return lmemfileReleaseBuf(nullptr, 0); }},
    };
    for (const auto& [name, want, call] : calls) {
        PrepareCall();
        EXPECT_EQ(call(), want) << name;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE)) << name;
        EXPECT_EQ(LatestMarkError(), static_cast<DWORD>(ERROR_INVALID_HANDLE)) << name;
    }
}

// ---- exhaustion ---------------------------------------------------------------------------

TEST(LmemfileFailureTest, CreationLeavesNothingBehind) {
    SIZE_T live = OrvaGlobalLiveBlocks();
    for (DWORD n = 1; n <= 2; ++n) {
        OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        EXPECT_THROW(lmemfileCreate(64, 64), L_CMemoryException*) << "n=" << n;
        OrvaFaultReset();
        EXPECT_EQ(OrvaGlobalLiveBlocks(), live) << "n=" << n;
    }
}

// With this thread's allocations coming out as virtual blocks, a growth
// commits the old capacity in the fresh block; when that commit (or the
// fresh block's own header commit) fails, the file keeps its block and data
// and the fresh block is given back.
TEST(LmemfileFailureTest, FailedCommitOfAVirtualBlockLeavesTheFileAsItWas) {
    orvatest::VirtualBlocks seam;
    void* f = lmemfileCreate(100, 100);
    auto* first = static_cast<unsigned char*>(lmemfileLock(f));
    ASSERT_NE(lmemGetVirtualAllocNode(first), nullptr) << "the seam did not take hold";
    lmemfileUnlock(f);
    std::vector<unsigned char> data(150);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 1);
    lmemfileWrite(f, data.data(), 60);

    int failed = 0;
    for (DWORD n = 1; n < 6; ++n) {
        OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        bool raised = false;
        try {
            lmemfileWrite(f, data.data() + 60, 90);
        } catch (L_CMemoryException*) {
            raised = true;
        }
        DWORD injected = OrvaFaultInjected(ORVA_FAULT_VIRTUALCOMMIT);
        OrvaFaultReset();
        if (injected == 0) break;
        ++failed;
        EXPECT_TRUE(raised) << "n=" << n;
        EXPECT_EQ(lmemfileGetSize(f), 60u);
        EXPECT_EQ(lmemfileGetCurrentPos(f), 60u);
        EXPECT_EQ(lmemfileLock(f), first) << "n=" << n;
        EXPECT_EQ(std::memcmp(first, data.data(), 60), 0);
        lmemfileUnlock(f);
        EXPECT_EQ(lmemGetVirtualAllocNode(orvatest::VirtualBlocks::Latest()), nullptr) << "the fresh block was given back";
    }
    EXPECT_EQ(failed, 2) << "the header commit and the commit of the old capacity";
    EXPECT_EQ(lmemfileGetSize(f), 150u);
    auto* grown = static_cast<unsigned char*>(lmemfileLock(f));
    EXPECT_EQ(std::memcmp(grown, data.data(), 150), 0);
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    ASSERT_NE(lmemGetVirtualAllocNode(grown), nullptr);
    EXPECT_EQ(lmemGetVirtualAllocNode(grown)->committedSize, 2 * si.dwPageSize);
    lmemfileUnlock(f);
    lmemfileDestroy(f);
}

}  // namespace
