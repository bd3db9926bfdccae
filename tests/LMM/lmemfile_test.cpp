// The memory file: a seeded random mix of every operation against a model of
// size, position, state and every byte of the block, with each refusal's
// last error and mark checked and exhausted memory injected at random steps;
// null handles; a failed commit of a virtual block.
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

using namespace orvatest;

BlockView View(void* f) { return ViewOf(f, lmemfileLock, lmemfileUnlock); }

// What a memory file should be: every byte of its block, size, position, state.
struct ModelFile {
    std::vector<unsigned char> bytes;
    DWORD step, size = 0, position = 0, reservedSize = 0;
    int locks = 0;
    bool reserved = false;

    // Whole steps until the block holds `needed`; fresh bytes are zero.
    void Grow(uint64_t needed) {
        size_t capacity = bytes.size();
        while (capacity < needed) capacity += step;
        bytes.resize(capacity, 0);
    }
    // The refusal of everything that reads, writes or may grow, or 0.
    DWORD StateRefusal() const { return locks > 0 ? LERR_LOCKED : (reserved ? LERR_RESERVED : 0); }
};

// A call's result, the last error it leaves (the caller's on success and on a
// quiet refusal) and whether it marks.
struct Expected {
    long long result = 1;
    DWORD error = kCallerError;
    bool marks = false;
};

// Sets a refusal by `code` unless it is 0; whether it did.
bool Refuse(Expected& want, long long result, DWORD code) {
    if (code != 0) want = {result, code, true};
    return code != 0;
}

struct FileShape { DWORD firstSize, growStep; };
void PrintTo(const FileShape& s, std::ostream* os) { *os << "first " << s.firstSize << ", step " << s.growStep; }

class LmemfileModelTest : public testing::TestWithParam<FileShape> {
protected:
    void TearDown() override { OrvaFaultReset(); }
};

const char* const kNames[] = {"Read",   "Write",  "Seek",       "SetSize",    "GrowBuf",
                              "Lock",   "Unlock", "ReserveBuf", "ReleaseBuf", "ReleaseBuf"};

TEST_P(LmemfileModelTest, FollowsTheModelThroughRandomSteps) {
    const FileShape shape = GetParam();
    std::mt19937 rng(0x3E3F11u + shape.firstSize * 31 + shape.growStep);
    const ModelFile fresh{std::vector<unsigned char>(shape.firstSize, 0), shape.growStep};
    void* f = lmemfileCreate(shape.firstSize, shape.growStep);
    ModelFile m = fresh;
    BlockView last{};
    const DWORD piece = 2 * shape.growStep + 8;
    std::vector<unsigned char> data, out;
    unsigned char* room = nullptr;
    int raisedSteps = 0;

    for (int step = 0; step < 3000; ++step) {
        // The block never shrinks; a new file now and then keeps growth coming.
        if (step % 50 == 49) {
            ASSERT_EQ(lmemfileDestroy(f), 1);
            f = lmemfileCreate(shape.firstSize, shape.growStep);
            m = fresh;
            last = {};
        }
        const int kind = static_cast<int>(rng() % 10);
        const bool nullData = rng() % 20 == 0, mayGrow = kind == 1 || kind == 3 || kind == 4 || kind == 7;
        const DWORD n = rng() % piece;
        const std::string what = "step " + std::to_string(step) + ": " + kNames[kind];
        ModelFile next = m;  // the model after the call, unless it raises
        Expected want;
        std::function<long long()> call;
        switch (kind) {
        case 0:
            out.assign(n + 1, 0xCC);
            call = [&] { return lmemfileRead(f, nullData ? nullptr : out.data(), n); };
            if (!Refuse(want, -1, nullData ? LERR_INVALIDARG : m.StateRefusal())) {
                want.result = std::min(n, m.size - m.position);
                next.position += static_cast<DWORD>(want.result);
            }
            break;
        case 1:
            data.resize(n + 1);  // never empty, so never a null pointer
            for (auto& b : data) b = static_cast<unsigned char>(rng());
            call = [&] { return lmemfileWrite(f, nullData ? nullptr : data.data(), n); };
            if (!Refuse(want, 0, nullData ? LERR_INVALIDARG : m.StateRefusal())) {
                next.Grow(uint64_t{m.position} + n);
                std::copy(data.begin(), data.begin() + n, next.bytes.begin() + m.position);
                next.position += n;
                next.size = std::max(next.size, next.position);
            }
            break;
        case 2: {
            DWORD origin = rng() % 13 == 0 ? 3 + rng() % 2 : rng() % 3;
            int offset = static_cast<int>(rng() % (2 * m.size + 7)) - static_cast<int>(m.size) - 3;
            call = [&, offset, origin] { return lmemfileSeek(f, offset, origin); };
            long long target = offset + (origin == 0 ? 0LL : (origin == 1 ? m.position : m.size));
            if (!Refuse(want, -1, origin > 2 || target < 0 || target > m.size ? LERR_INVALIDARG : 0)) {
                want.result = next.position = static_cast<DWORD>(target);
            }
            break;
        }
        case 3:
        case 4: {
            const DWORD to = rng() % (2 * shape.firstSize + 4 * shape.growStep);
            call = [&, to] { return kind == 3 ? lmemfileSetSize(f, to) : lmemfileGrowBuf(f, to); };
            if (!Refuse(want, 0, m.StateRefusal())) {
                next.Grow(to);
                if (kind == 3) next.size = next.position = to;
            }
            break;
        }
        case 5:
            call = [&] { return lmemfileLock(f) != nullptr ? 1 : 0; };
            if (!Refuse(want, 0, m.reserved ? LERR_RESERVED : 0)) ++next.locks;
            break;
        case 6:
            call = [&] { return lmemfileUnlock(f); };
            if (!Refuse(want, 0, m.locks == 0 ? LERR_NOTLOCKED : 0)) --next.locks;
            break;
        case 7:
            call = [&] { return (room = static_cast<unsigned char*>(lmemfileReserveBuf(f, n))) != nullptr; };
            if (!Refuse(want, 0, m.StateRefusal())) {
                next.Grow(uint64_t{m.size} + n);
                next.reserved = true;
                next.reservedSize = n;
            }
            break;
        default: {
            const DWORD used = m.reserved ? rng() % (m.reservedSize + 3) : rng() % 4;
            call = [&, used] { return lmemfileReleaseBuf(f, used); };
            if (Refuse(want, 0, m.reserved ? 0 : LERR_NOTRESERVED)) break;
            if (used > m.reservedSize) {
                want.result = 0;  // quiet, and the reservation stands
            } else {
                next.reserved = false;
                next.position = next.size += used;
            }
        }
        }

        const SIZE_T live = OrvaGlobalLiveBlocks();
        const Outcome o = CallWithHeapFault(mayGrow && rng() % 2 == 0, call);
        const DWORD error = GetLastError();
        if (o.injected) {
            ASSERT_TRUE(o.raised) << what;
            EXPECT_EQ(OrvaGlobalLiveBlocks(), live) << what << ": a failed growth leaves no block behind";
            ++raisedSteps;
        } else {
            ASSERT_FALSE(o.raised) << what;
            EXPECT_EQ(o.result, want.result) << what;
            EXPECT_EQ(error, want.error) << what;
            EXPECT_EQ(LatestMarkError(), want.marks ? want.error : kProbeError) << what;
            if (kind == 0 && !want.marks) {
                EXPECT_EQ(0, std::memcmp(out.data(), m.bytes.data() + m.position, want.result)) << what;
                EXPECT_EQ(out[want.result], 0xCC) << what << ": read past what it gave";
            }
            if (kind == 7 && !want.marks) {
                EXPECT_EQ(GlobalSize(room - m.size), next.bytes.size()) << what << ": the room lies behind the data";
                // The producer fills part of the room, or more than it will claim.
                for (DWORD i = 0, filled = rng() % (n + 1); i < filled; ++i) {
                    room[i] = next.bytes[m.size + i] = static_cast<unsigned char>(rng());
                }
            }
            m = next;
        }
        ASSERT_EQ(lmemfileGetSize(f), m.size) << what;
        ASSERT_EQ(lmemfileGetCurrentPos(f), m.position) << what;
        if (m.reserved) continue;  // the block cannot be had until the release
        BlockView v = View(f);
        ASSERT_EQ(v.capacity, m.bytes.size()) << what << ": capacity";
        ASSERT_EQ(0, std::memcmp(v.block, m.bytes.data(), v.capacity)) << what << ": bytes";
        ASSERT_TRUE(v.capacity != last.capacity || v.block == last.block) << what << ": only growth moves";
        last = v;
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

TEST(LmemfileTest, RefusedCreationAndNullHandles) {
    constexpr DWORD kHandle = ERROR_INVALID_HANDLE, kAll = 0xFFFFFFFFu;
    char c = 0;
    const std::tuple<const char*, long long, std::function<long long()>, DWORD> calls[] = {
        {"Create first 0", 0, [] { return lmemfileCreate(0, 1) != nullptr; }, LERR_INVALIDARG},
        {"Create step 0", 0, [] { return lmemfileCreate(1, 0) != nullptr; }, LERR_INVALIDARG},
        {"Destroy", 0, [] { return lmemfileDestroy(nullptr); }, kHandle},
        {"Read", -1, [&] { return lmemfileRead(nullptr, &c, 1); }, kHandle},
        {"Write", 0, [&] { return lmemfileWrite(nullptr, &c, 1); }, kHandle},
        {"Seek", -1, [] { return lmemfileSeek(nullptr, 0, 0); }, kHandle},
        {"Lock", 0, [] { return lmemfileLock(nullptr) != nullptr; }, kHandle},
        {"Unlock", 0, [] { return lmemfileUnlock(nullptr); }, kHandle},
        {"GetSize", kAll, [] { return lmemfileGetSize(nullptr); }, kHandle},
        {"GetCurrentPos", kAll, [] { return lmemfileGetCurrentPos(nullptr); }, kHandle},
        {"SetSize", 0, [] { return lmemfileSetSize(nullptr, 1); }, kHandle},
        {"ReserveBuf", 0, [] { return lmemfileReserveBuf(nullptr, 1) != nullptr; }, kHandle},
        {"ReleaseBuf", 0, [] { return lmemfileReleaseBuf(nullptr, 0); }, kHandle},
    };
    for (const auto& [name, want, call, error] : calls) {
        PrepareCall();
        EXPECT_EQ(call(), want) << name;
        EXPECT_EQ(GetLastError(), error) << name;
        EXPECT_EQ(LatestMarkError(), error) << name;
    }
}

// With this thread's allocations coming out as virtual blocks, a growth
// commits the old capacity in the fresh block; when that commit (or the fresh
// block's own header commit) fails, the file keeps its block and data and the
// fresh block is given back.
TEST(LmemfileFailureTest, FailedCommitOfAVirtualBlockLeavesTheFileAsItWas) {
    VirtualBlocks seam;
    void* f = lmemfileCreate(100, 100);
    auto* first = static_cast<unsigned char*>(View(f).block);
    ASSERT_NE(lmemGetVirtualAllocNode(first), nullptr) << "the seam did not take hold";
    std::vector<unsigned char> data(150);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 1);
    lmemfileWrite(f, data.data(), 60);
    int failed = 0;
    for (DWORD n = 1; n < 6; ++n) {
        OrvaFaultArm(ORVA_FAULT_VIRTUALCOMMIT, n, ERROR_NOT_ENOUGH_MEMORY, FALSE);
        try {
            lmemfileWrite(f, data.data() + 60, 90);
        } catch (L_CMemoryException*) {
            ++failed;
        }
        DWORD injected = OrvaFaultInjected(ORVA_FAULT_VIRTUALCOMMIT);
        OrvaFaultReset();
        if (injected == 0) break;
        EXPECT_EQ(failed, static_cast<int>(n)) << "raised";
        EXPECT_EQ(lmemfileGetSize(f), 60u);
        EXPECT_EQ(lmemfileGetCurrentPos(f), 60u);
        EXPECT_EQ(View(f).block, first) << "n=" << n;
        EXPECT_EQ(std::memcmp(first, data.data(), 60), 0);
        EXPECT_EQ(lmemGetVirtualAllocNode(VirtualBlocks::Latest()), nullptr) << "the fresh block was given back";
    }
    EXPECT_EQ(failed, 2) << "the header commit and the commit of the old capacity";
    BlockView grown = View(f);
    EXPECT_EQ(std::memcmp(grown.block, data.data(), 150), 0);
    ASSERT_NE(lmemGetVirtualAllocNode(grown.block), nullptr);
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    EXPECT_EQ(lmemGetVirtualAllocNode(grown.block)->committedSize, 2 * si.dwPageSize);
    lmemfileDestroy(f);
}

}  // namespace
