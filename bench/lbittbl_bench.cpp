// The nearest-bit search of the bit table against the ways a user would
// write it otherwise: a bit-by-bit loop, a 64-bit word scan with byte swap
// and count of leading/trailing zeros, std::bitset::_Find_next and
// boost::dynamic_bitset::find_next (these two only search upwards). The
// table has 1,000,000 bits, all 1 but for one 0 in every 1,000 (dense) or
// every 100,000 (sparse) bits, and every search looks for the nearest 0 from
// a random start.
#include <benchmark/benchmark.h>

#include <bitset>
#include <boost/dynamic_bitset.hpp>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

constexpr DWORD kBits = 1000000;
constexpr size_t kStarts = 4096;

struct Fixture {
    void* table;
    const BYTE* bytes;  // the table's own bits, for the hand-written peers
    std::unique_ptr<std::bitset<kBits>> zeros;  // set where the table has a 0
    boost::dynamic_bitset<uint64_t> dynZeros;
    std::vector<DWORD> starts;
    DWORD immediate;  // a start that is itself a 0
};

Fixture& Get(DWORD gap) {
    static Fixture* fixtures[2] = {};
    Fixture*& f = fixtures[gap == 1000 ? 0 : 1];
    if (f != nullptr) return *f;
    f = new Fixture;
    f->table = lbittblCreate(kBits, 1);
    f->bytes = *reinterpret_cast<BYTE* const*>(static_cast<char*>(f->table) + sizeof(void*));
    f->zeros = std::make_unique<std::bitset<kBits>>();
    f->dynZeros.resize(kBits);
    std::mt19937 rng(gap);
    for (DWORD base = 0; base < kBits; base += gap) {
        DWORD at = base + rng() % gap;
        if (at >= kBits) continue;
        lbittblCheckStatus(f->table, at, 1, 0);
        f->zeros->set(at);
        f->dynZeros.set(at);
        f->immediate = at;
    }
    for (size_t i = 0; i < kStarts; ++i) f->starts.push_back(rng() % kBits);
    return *f;
}

inline bool Bit(const BYTE* bytes, DWORD i) { return (bytes[i >> 3] & (0x80 >> (i & 7))) != 0; }

DWORD NaiveUp(const BYTE* bytes, DWORD start) {
    for (DWORD i = start; i < kBits; ++i) {
        if (!Bit(bytes, i)) return i;
    }
    return 0xFFFFFFFEu;
}
DWORD NaiveDown(const BYTE* bytes, DWORD start) {
    for (DWORD i = start + 1; i-- > 0;) {
        if (!Bit(bytes, i)) return i;
    }
    return 0xFFFFFFFEu;
}

inline uint64_t Word(const BYTE* bytes, size_t w) {
    uint64_t v;
    std::memcpy(&v, bytes + w * 8, 8);
    return ~__builtin_bswap64(v);  // set where the table has a 0
}
constexpr size_t kWords = kBits / 64;  // 1,000,000 is a whole number of words

DWORD WordUp(const BYTE* bytes, DWORD start) {
    size_t w = start / 64;
    uint64_t v = Word(bytes, w) & (~uint64_t{0} >> (start % 64));
    while (v == 0) {
        if (++w == kWords) return 0xFFFFFFFEu;
        v = Word(bytes, w);
    }
    return static_cast<DWORD>(w * 64 + __builtin_clzll(v));
}
DWORD WordDown(const BYTE* bytes, DWORD start) {
    size_t w = start / 64;
    uint64_t v = Word(bytes, w) & (~uint64_t{0} << (63 - start % 64));
    while (v == 0) {
        if (w-- == 0) return 0xFFFFFFFEu;
        v = Word(bytes, w);
    }
    return static_cast<DWORD>(w * 64 + 63 - __builtin_ctzll(v));
}

template <class Search>
void Run(benchmark::State& state, Search search) {
    Fixture& f = Get(static_cast<DWORD>(state.range(0)));
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(search(f, f.starts[i++ % kStarts]));
    }
}

void BM_Table_Up(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) { return lbittblGetEntry(f.table, start, 0, 1); });
}
void BM_Table_Down(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) { return lbittblGetEntry(f.table, start, 0, 0); });
}
void BM_Naive_Up(benchmark::State& s) { Run(s, [](Fixture& f, DWORD start) { return NaiveUp(f.bytes, start); }); }
void BM_Naive_Down(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) { return NaiveDown(f.bytes, start); });
}
void BM_WordScan_Up(benchmark::State& s) { Run(s, [](Fixture& f, DWORD start) { return WordUp(f.bytes, start); }); }
void BM_WordScan_Down(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) { return WordDown(f.bytes, start); });
}
void BM_StdBitset_Up(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) { return start == 0 ? f.zeros->_Find_first() : f.zeros->_Find_next(start - 1); });
}
void BM_DynamicBitset_Up(benchmark::State& s) {
    Run(s, [](Fixture& f, DWORD start) {
        return start == 0 ? f.dynZeros.find_first() : f.dynZeros.find_next(start - 1);
    });
}
void BM_Table_ImmediateHit(benchmark::State& state) {
    Fixture& f = Get(1000);
    for (auto _ : state) benchmark::DoNotOptimize(lbittblGetEntry(f.table, f.immediate, 0, 1));
}

}  // namespace

BENCHMARK(BM_Table_Up)->Arg(1000)->Arg(100000);
BENCHMARK(BM_Naive_Up)->Arg(1000)->Arg(100000);
BENCHMARK(BM_WordScan_Up)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StdBitset_Up)->Arg(1000)->Arg(100000);
BENCHMARK(BM_DynamicBitset_Up)->Arg(1000)->Arg(100000);
BENCHMARK(BM_Table_Down)->Arg(1000)->Arg(100000);
BENCHMARK(BM_Naive_Down)->Arg(1000)->Arg(100000);
BENCHMARK(BM_WordScan_Down)->Arg(1000)->Arg(100000);
BENCHMARK(BM_Table_ImmediateHit);

BENCHMARK_MAIN();
