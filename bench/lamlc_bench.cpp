// Arena chunks against the general-purpose allocators a host would use
// instead, on three workloads with random sizes from 16 to 1024 bytes whose
// first byte is written:
//   Pair  - one allocation freed at once;
//   Churn - 10,000 chunks alive, each step freeing one at random and
//           allocating its replacement;
//   Bulk  - 100,000 allocations, then 100,000 frees, after one untimed
//           round: first touching 50 MB costs page faults that would swamp
//           the allocators' own work.
// The arena reports how far its blocks have grown (blockMB), since it keeps
// them until it is compacted.
//
// Both mimalloc and jemalloc take over malloc in any executable they are
// linked into. This binary is built twice: lamlc_bench links mimalloc and
// reaches glibc's allocator by its own entry points (__libc_malloc is what
// glibc's malloc is an alias of); lamlc_jemalloc_bench has jemalloc as malloc.
// The arena runs in both, so each binary gives its own ratios.
//
// The arena's chunk word lies within the request, so its caller owns four
// bytes fewer of the same request; the first byte written is the caller's.
#include <benchmark/benchmark.h>
#include <orvanest/ORVANEST.h>

#include <cstdlib>
#include <random>
#include <vector>

#ifdef ORVA_BENCH_JEMALLOC
#define ORVA_BENCH_MALLOC_NAME "jemalloc"
#else
#include <mimalloc.h>
extern "C" void* __libc_malloc(size_t size);
extern "C" void __libc_free(void* p);
#define ORVA_BENCH_MALLOC_NAME "mimalloc"
#endif

namespace {

constexpr size_t kSizes = 1 << 16;
constexpr size_t kLive = 10000;
constexpr size_t kBulk = 100000;

// One table of sizes and one of churn slots for every allocator alike.
const std::vector<unsigned>& Sizes() {
    static const std::vector<unsigned> sizes = [] {
        std::mt19937 rng(42);
        std::uniform_int_distribution<unsigned> pick(16, 1024);
        std::vector<unsigned> v(kSizes);
        for (unsigned& s : v) s = pick(rng);
        return v;
    }();
    return sizes;
}

const std::vector<unsigned>& Slots() {
    static const std::vector<unsigned> slots = [] {
        std::mt19937 rng(7);
        std::uniform_int_distribution<unsigned> pick(0, kLive - 1);
        std::vector<unsigned> v(kSizes);
        for (unsigned& s : v) s = pick(rng);
        return v;
    }();
    return slots;
}

struct Arena {
    static constexpr size_t kFirstByte = 4;  // behind the chunk word
    void* arena = lamlcCreate(1 << 16, 1 << 16, 0);
    ~Arena() { lamlcDestroy(arena); }
    void* Alloc(unsigned size) { return lamlcAlloc(arena, size); }
    void Free(void* p) { lamlcFree(arena, p); }
    double BlockMegabytes() {
        tagLMM_AmlcWatch w;
        lamlcWatch(arena, &w);
        return w.blockBytes / 1e6;
    }
};

// The arena keeps its blocks until compaction; show how large they grew.
template <class A>
void ReportBlocks(benchmark::State& state, A& a) {
    if constexpr (requires { a.BlockMegabytes(); }) state.counters["blockMB"] = a.BlockMegabytes();
}

#ifdef ORVA_BENCH_JEMALLOC
struct Jemalloc {
    static constexpr size_t kFirstByte = 0;
    void* Alloc(unsigned size) { return std::malloc(size); }
    void Free(void* p) { std::free(p); }
};
#else
struct Glibc {
    static constexpr size_t kFirstByte = 0;
    void* Alloc(unsigned size) { return __libc_malloc(size); }
    void Free(void* p) { __libc_free(p); }
};

struct Mimalloc {
    static constexpr size_t kFirstByte = 0;
    void* Alloc(unsigned size) { return mi_malloc(size); }
    void Free(void* p) { mi_free(p); }
};
#endif

template <class A>
void* Take(A& a, unsigned size) {
    auto* p = static_cast<unsigned char*>(a.Alloc(size));
    p[A::kFirstByte] = static_cast<unsigned char>(size);
    return p;
}

template <class A>
void BM_Pair(benchmark::State& state) {
    A a;
    const std::vector<unsigned>& sizes = Sizes();
    size_t i = 0;
    for (auto _ : state) {
        void* p = Take(a, sizes[i++ & (kSizes - 1)]);
        benchmark::DoNotOptimize(p);
        a.Free(p);
    }
    state.SetItemsProcessed(state.iterations());
}

template <class A>
void BM_Churn(benchmark::State& state) {
    A a;
    const std::vector<unsigned>& sizes = Sizes();
    const std::vector<unsigned>& slots = Slots();
    std::vector<void*> live(kLive);
    size_t i = 0;
    for (void*& p : live) p = Take(a, sizes[i++ & (kSizes - 1)]);
    for (auto _ : state) {
        void*& p = live[slots[i & (kSizes - 1)]];
        a.Free(p);
        p = Take(a, sizes[i++ & (kSizes - 1)]);
        benchmark::DoNotOptimize(p);
    }
    ReportBlocks(state, a);
    for (void* p : live) a.Free(p);
    state.SetItemsProcessed(state.iterations());
}

template <class A>
void BM_Bulk(benchmark::State& state) {
    A a;
    const std::vector<unsigned>& sizes = Sizes();
    std::vector<void*> live(kBulk);
    auto round = [&] {
        for (size_t i = 0; i < kBulk; ++i) live[i] = Take(a, sizes[i & (kSizes - 1)]);
        benchmark::DoNotOptimize(live.data());
        for (void* p : live) a.Free(p);
    };
    round();
    for (auto _ : state) round();
    ReportBlocks(state, a);
    state.SetItemsProcessed(state.iterations() * kBulk);
}

BENCHMARK_TEMPLATE(BM_Pair, Arena)->Name("Pair/lamlc");
BENCHMARK_TEMPLATE(BM_Churn, Arena)->Name("Churn/lamlc");
BENCHMARK_TEMPLATE(BM_Bulk, Arena)->Name("Bulk/lamlc")->Unit(benchmark::kMillisecond);
#ifdef ORVA_BENCH_JEMALLOC
BENCHMARK_TEMPLATE(BM_Pair, Jemalloc)->Name("Pair/" ORVA_BENCH_MALLOC_NAME);
BENCHMARK_TEMPLATE(BM_Churn, Jemalloc)->Name("Churn/" ORVA_BENCH_MALLOC_NAME);
BENCHMARK_TEMPLATE(BM_Bulk, Jemalloc)->Name("Bulk/" ORVA_BENCH_MALLOC_NAME)->Unit(benchmark::kMillisecond);
#else
BENCHMARK_TEMPLATE(BM_Pair, Glibc)->Name("Pair/glibc");
BENCHMARK_TEMPLATE(BM_Churn, Glibc)->Name("Churn/glibc");
BENCHMARK_TEMPLATE(BM_Bulk, Glibc)->Name("Bulk/glibc")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Pair, Mimalloc)->Name("Pair/" ORVA_BENCH_MALLOC_NAME);
BENCHMARK_TEMPLATE(BM_Churn, Mimalloc)->Name("Churn/" ORVA_BENCH_MALLOC_NAME);
BENCHMARK_TEMPLATE(BM_Bulk, Mimalloc)->Name("Bulk/" ORVA_BENCH_MALLOC_NAME)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
