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

TEST(BitTableTest, IndexZeroIsTheTopBitOfTheFirstByte) {
    Table t(16, 0);
    ASSERT_NE(t.handle, nullptr);
    EXPECT_EQ(lbittblCheckStatus(t.handle, 0, 1, 1), 1u);
    EXPECT_EQ(t.Bytes()[0], 0x80);
    lbittblCheckStatus(t.handle, 7, 1, 1);
    EXPECT_EQ(t.Bytes()[0], 0x81);
    lbittblCheckStatus(t.handle, 9, 1, 1);
    EXPECT_EQ(t.Bytes()[1], 0x40);
    EXPECT_EQ(lbittblCheckStatus(t.handle, 9, 1, 5), 5u) << "any value but 1 clears, and comes back";
    EXPECT_EQ(t.Bytes()[1], 0x00);
}

TEST(BitTableTest, CheckStatusModes) {
    Table t(8, 0);
    lbittblCheckStatus(t.handle, 1, 1, 1);
    struct Case {
        DWORD index;
        UINT mode;
        int value;
        UINT result;
    } cases[] = {
        {0, 2, 0, 0}, {1, 2, 0, 1},                                 // read
        {1, 3, 1, 1}, {1, 3, 2, 0}, {0, 3, 1, 0},                   // and
        {0, 4, 1, 1}, {0, 4, 0, 0}, {1, 4, 0, 1}, {0, 4, 2, 0},     // or
        {0, 5, 2, 1}, {1, 5, 2, 1}, {0, 5, 0, 0}, {1, 5, 1, 0},     // exclusive or
        {0, 6, 9, 1}, {1, 6, 9, 0},                                 // not
    };
    for (const Case& c : cases) {
        EXPECT_EQ(lbittblCheckStatus(t.handle, c.index, c.mode, c.value), c.result)
            << "index " << c.index << " mode " << c.mode << " value " << c.value;
    }
    EXPECT_EQ(t.Bytes()[0], 0x40) << "only mode 1 writes";
}

TEST(BitTableTest, BadArgumentsFailWithTheirCodes) {
    Table t(10, 0);
    struct Case {
        void* table;
        DWORD index;
        UINT mode;
        DWORD error;
    } cases[] = {
        {nullptr, 0, 2, ERROR_INVALID_HANDLE}, {t.handle, 10, 2, LERR_INVALIDARG},
        {t.handle, 0, 0, LERR_INVALIDARG},     {t.handle, 0, 7, LERR_INVALIDARG},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        EXPECT_EQ(lbittblCheckStatus(c.table, c.index, c.mode, 1), kFail);
        EXPECT_EQ(GetLastError(), c.error);
    }
    SetLastError(0);
    EXPECT_EQ(lbittblGetEntry(t.handle, 10, 0, 1), kFail);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    SetLastError(0);
    EXPECT_EQ(lbittblGetEntry(nullptr, 0, 0, 1), kFail);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(0);
    EXPECT_EQ(lbittblCreate(0, 0), nullptr);
    EXPECT_EQ(GetLastError(), LERR_INVALIDARG);
    SetLastError(0);
    EXPECT_EQ(lbittblDestroy(nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(42);
    EXPECT_EQ(lbittblGetEntry(t.handle, 3, 2, 1), kNone) << "only 0 and 1 can be found";
    EXPECT_EQ(GetLastError(), 42u);
}

TEST(BitTableTest, SpareBitsAreNeverFound) {
    Table one(1, 0);
    EXPECT_EQ(lbittblGetEntry(one.handle, 0, 1, 1), kNone);
    EXPECT_EQ(lbittblGetEntry(one.handle, 0, 0, 1), 0u);
    Table t33(33, 1);
    EXPECT_EQ(lbittblGetEntry(t33.handle, 0, 0, 1), kNone);
    lbittblCheckStatus(t33.handle, 32, 1, 0);
    EXPECT_EQ(lbittblGetEntry(t33.handle, 0, 0, 1), 32u);
    Table t10(10, 1);
    EXPECT_EQ(lbittblGetEntry(t10.handle, 9, 1, 1), 9u);
    lbittblCheckStatus(t10.handle, 9, 1, 0);
    EXPECT_EQ(lbittblGetEntry(t10.handle, 9, 1, 1), kNone);
    EXPECT_EQ(lbittblGetEntry(t10.handle, 0, 0, 0), kNone);
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

// Every start, both directions, both values, for many sizes and fills.
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
