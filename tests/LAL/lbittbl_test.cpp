// The bit table against a bit-by-bit model: the bit order, every mode of
// CheckStatus, and searches from every start in both directions over tables
// of awkward sizes and random contents.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

constexpr DWORD kNone = 0xFFFFFFFEu;
constexpr DWORD kFail = 0xFFFFFFFFu;

struct Table {
    explicit Table(DWORD count, int initial) : handle(lbittblCreate(count, initial)) {}
    ~Table() { lbittblDestroy(handle); }
    BYTE* Bytes() const { return *reinterpret_cast<BYTE* const*>(static_cast<char*>(handle) + sizeof(void*)); }
    void* handle;
};

DWORD ModelSearch(const std::vector<int>& bits, DWORD start, int value, int direction) {
    if (direction == 1) {
        for (DWORD i = start; i < bits.size(); ++i) {
            if (bits[i] == value) return i;
        }
    } else {
        for (DWORD i = start + 1; i-- > 0;) {
            if (bits[i] == value) return i;
        }
    }
    return kNone;
}

// Index 0 is the top bit of the first byte; only mode 1 writes.
TEST(BitTableTest, BitOrderAndCheckStatusModes) {
    Table t(16, 0);
    ASSERT_NE(t.handle, nullptr);
    struct Case {
        DWORD index;
        UINT mode;
        int value;
        UINT result;
        BYTE byte0, byte1;  // after the call
    } cases[] = {
        {0, 1, 1, 1, 0x80, 0}, {7, 1, 1, 1, 0x81, 0}, {9, 1, 1, 1, 0x81, 0x40},
        {9, 1, 5, 5, 0x81, 0},  // any value but 1 clears, and comes back
        {0, 1, 0, 0, 0x01, 0}, {7, 1, 0, 0, 0, 0}, {1, 1, 1, 1, 0x40, 0},
        {0, 2, 0, 0, 0x40, 0}, {1, 2, 0, 1, 0x40, 0},                                                // read
        {1, 3, 1, 1, 0x40, 0}, {1, 3, 2, 0, 0x40, 0}, {0, 3, 1, 0, 0x40, 0},                         // and
        {0, 4, 1, 1, 0x40, 0}, {0, 4, 0, 0, 0x40, 0}, {1, 4, 0, 1, 0x40, 0}, {0, 4, 2, 0, 0x40, 0},  // or
        {0, 5, 2, 1, 0x40, 0}, {1, 5, 2, 1, 0x40, 0}, {0, 5, 0, 0, 0x40, 0}, {1, 5, 1, 0, 0x40, 0},  // xor
        {0, 6, 9, 1, 0x40, 0}, {1, 6, 9, 0, 0x40, 0},                                                // not
    };
    for (const Case& c : cases) {
        EXPECT_EQ(lbittblCheckStatus(t.handle, c.index, c.mode, c.value), c.result)
            << "index " << c.index << " mode " << c.mode << " value " << c.value;
        EXPECT_EQ(t.Bytes()[0], c.byte0) << "index " << c.index << " mode " << c.mode;
        EXPECT_EQ(t.Bytes()[1], c.byte1) << "index " << c.index << " mode " << c.mode;
    }
}

TEST(BitTableTest, BadArgumentsFailWithTheirCodes) {
    Table t(10, 0);
    struct Case {
        const char* what;
        DWORD result, error;  // error 42: the last error stays
        DWORD (*call)(void*);
    } cases[] = {
        {"null table", kFail, ERROR_INVALID_HANDLE, [](void*) { return lbittblCheckStatus(nullptr, 0, 2, 1); }},
        {"index", kFail, LERR_INVALIDARG, [](void* h) { return lbittblCheckStatus(h, 10, 2, 1); }},
        {"mode 0", kFail, LERR_INVALIDARG, [](void* h) { return lbittblCheckStatus(h, 0, 0, 1); }},
        {"mode 7", kFail, LERR_INVALIDARG, [](void* h) { return lbittblCheckStatus(h, 0, 7, 1); }},
        {"search start", kFail, LERR_INVALIDARG, [](void* h) { return lbittblGetEntry(h, 10, 0, 1); }},
        {"search null", kFail, ERROR_INVALID_HANDLE, [](void*) { return lbittblGetEntry(nullptr, 0, 0, 1); }},
        {"create 0", 0, LERR_INVALIDARG, [](void*) { return DWORD(lbittblCreate(0, 0) != nullptr); }},
        {"destroy null", 0, ERROR_INVALID_HANDLE, [](void*) { return DWORD(lbittblDestroy(nullptr)); }},
        {"search for 2", kNone, 42, [](void* h) { return lbittblGetEntry(h, 3, 2, 1); }},
    };
    for (const Case& c : cases) {
        SetLastError(42);
        EXPECT_EQ(c.call(t.handle), c.result) << c.what;
        EXPECT_EQ(GetLastError(), c.error) << c.what;
    }
}

TEST(BitTableTest, EntryNumCountsInclusiveRangesInEitherOrder) {
    Table t(40, 0);
    for (DWORD i : {2u, 3u, 5u, 39u}) lbittblCheckStatus(t.handle, i, 1, 1);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 2, 5, 1), 3u);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 5, 2, 1), 3u);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 2, 5, 0), 1u);
    SetLastError(42);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 6, 38, 1), 0u);
    EXPECT_EQ(GetLastError(), 42u) << "no hit is no error";
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 0, 39, 1), 4u);
    // A bound beyond the table: the hit at the last index leads to a search
    // from the end, which fails.
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 30, 100, 1), kFail);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 30, 100, 0), 9u) << "no hit at the last index, no search past it";
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 40, 50, 0), kFail);
}

// Every start, both directions, both values, for many sizes and fills;
// sizes off a byte or word boundary check that spare bits are never found.
class BitTableSearch : public ::testing::TestWithParam<DWORD> {};

TEST_P(BitTableSearch, MatchesABitByBitWalkFromEveryStart) {
    const DWORD count = GetParam();
    std::mt19937 rng(count * 7919u);
    for (int fill = 0; fill < 6; ++fill) {
        Table t(count, fill % 2);
        std::vector<int> model(count, fill % 2);
        // Sparse, dense and clustered patterns.
        int perMille = fill < 2 ? 2 : fill < 4 ? 500 : 30;
        for (DWORD i = 0; i < count; ++i) {
            if (static_cast<int>(rng() % 1000) < perMille) {
                int v = 1 - model[i];
                DWORD run = fill >= 4 ? 1 + rng() % 70 : 1;
                for (DWORD k = i; k < count && k < i + run; ++k) {
                    model[k] = v;
                    lbittblCheckStatus(t.handle, k, 1, v);
                }
            }
        }
        for (DWORD start = 0; start < count; ++start) {
            for (int value = 0; value <= 1; ++value) {
                for (int direction : {1, 0}) {
                    ASSERT_EQ(lbittblGetEntry(t.handle, start, value, direction),
                              ModelSearch(model, start, value, direction))
                        << "count " << count << " fill " << fill << " start " << start << " value " << value
                        << " direction " << direction;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, BitTableSearch,
                         ::testing::Values(1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 511, 512, 513, 1000,
                                           4133));

TEST(BitTableTest, LargeTableWithSingleHitsFarApart) {
    const DWORD count = 1000003;
    Table t(count, 1);
    std::vector<DWORD> zeros = {0, 4097, 500000, count - 1};
    for (DWORD z : zeros) lbittblCheckStatus(t.handle, z, 1, 0);
    EXPECT_EQ(lbittblGetEntry(t.handle, 1, 0, 1), 4097u);
    EXPECT_EQ(lbittblGetEntry(t.handle, 4098, 0, 1), 500000u);
    EXPECT_EQ(lbittblGetEntry(t.handle, 500001, 0, 1), count - 1);
    EXPECT_EQ(lbittblGetEntry(t.handle, count - 2, 0, 0), 500000u);
    EXPECT_EQ(lbittblGetEntry(t.handle, 499999, 0, 0), 4097u);
    EXPECT_EQ(lbittblGetEntry(t.handle, 4096, 0, 0), 0u);
    EXPECT_EQ(lbittblGetEntryNum(t.handle, 0, count - 1, 0), 4u);
}

}  // namespace
