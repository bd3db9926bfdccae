// The base allocator against the C heap: lmemAllocFunc/lmemFree beside
// calloc/free (both give zero-filled blocks), and GlobalAlloc/GlobalFree, the
// platform call underneath, to show where the time goes. Sizes are random
// from 16 to 1024 bytes, the same seeded sequence for every contestant, and
// the first byte of every block is written.
//
// Two patterns: a block freed right after it is made (the allocator's fast
// path), and a batch of 1024 live blocks freed in a shuffled order (the
// lookup tables of the global heap grow and are searched at full size).
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

constexpr size_t kSizes = 4096;  // a power of two
constexpr size_t kBatch = 1024;

const std::vector<DWORD>& Sizes() {
    static const std::vector<DWORD> sizes = [] {
        std::mt19937 rng(42);
        std::uniform_int_distribution<DWORD> pick(16, 1024);
        std::vector<DWORD> v(kSizes);
        for (DWORD& s : v) s = pick(rng);
        return v;
    }();
    return sizes;
}

const std::vector<size_t>& FreeOrder() {
    static const std::vector<size_t> order = [] {
        std::vector<size_t> v(kBatch);
        for (size_t i = 0; i < kBatch; ++i) v[i] = i;
        std::shuffle(v.begin(), v.end(), std::mt19937(7));
        return v;
    }();
    return order;
}

struct Lmem {
    static void* Alloc(DWORD n) { return lmemAllocFunc(n, 0); }
    static void Free(void* p) { lmemFree(p); }
};
struct Calloc {
    static void* Alloc(DWORD n) { return std::calloc(1, n); }
    static void Free(void* p) { std::free(p); }
};
struct Global {
    static void* Alloc(DWORD n) { return GlobalAlloc(GMEM_ZEROINIT, n); }
    static void Free(void* p) { GlobalFree(p); }
};

template <class A>
void BM_Pair(benchmark::State& state) {
    const std::vector<DWORD>& sizes = Sizes();
    size_t i = 0;
    for (auto _ : state) {
        auto* p = static_cast<char*>(A::Alloc(sizes[i++ & (kSizes - 1)]));
        p[0] = 1;
        benchmark::DoNotOptimize(p);
        A::Free(p);
    }
    state.SetItemsProcessed(state.iterations());
}

template <class A>
void BM_Batch(benchmark::State& state) {
    const std::vector<DWORD>& sizes = Sizes();
    const std::vector<size_t>& order = FreeOrder();
    std::vector<char*> blocks(kBatch);
    size_t i = 0;
    for (auto _ : state) {
        for (char*& p : blocks) {
            p = static_cast<char*>(A::Alloc(sizes[i++ & (kSizes - 1)]));
            p[0] = 1;
        }
        benchmark::ClobberMemory();
        for (size_t k : order) A::Free(blocks[k]);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

// On a shared machine the fastest of several repetitions is the one least
// disturbed by others; run with --benchmark_repetitions and compare "min".
double Fastest(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }

BENCHMARK_TEMPLATE(BM_Pair, Lmem)->ComputeStatistics("min", Fastest);
BENCHMARK_TEMPLATE(BM_Pair, Calloc)->ComputeStatistics("min", Fastest);
BENCHMARK_TEMPLATE(BM_Pair, Global)->ComputeStatistics("min", Fastest);
BENCHMARK_TEMPLATE(BM_Batch, Lmem)->ComputeStatistics("min", Fastest);
BENCHMARK_TEMPLATE(BM_Batch, Calloc)->ComputeStatistics("min", Fastest);
BENCHMARK_TEMPLATE(BM_Batch, Global)->ComputeStatistics("min", Fastest);

}  // namespace

// The C heap keeps what it has instead of giving its top back to the kernel
// whenever a batch is freed: otherwise a contestant's time would depend on
// whether another one's leftovers happen to sit above its blocks, and the
// measure would be of page faults rather than of allocators.
int main(int argc, char** argv) {
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
