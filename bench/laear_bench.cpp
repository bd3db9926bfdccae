// Appending to an extensible array against std::vector::push_back, the peer
// a host would pick instead. Each iteration builds a container of n
// elements from empty and destroys it. The array grows by a fixed number of
// elements at a time (first block 16 elements, steps of 64, 1024 or 16384),
// so its copying grows with n * n / step, while the vector doubles; the
// runs show where that begins to tell. Elements of 4 and 32 bytes.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <orvanest/ORVANEST.h>

#include <cstdint>
#include <vector>

namespace {

template <size_t Bytes>
struct Element {
    uint32_t words[Bytes / 4];
};

template <size_t Bytes>
void BM_LaearAppend(benchmark::State& state) {
    const auto n = static_cast<UINT>(state.range(0));
    const auto step = static_cast<DWORD>(state.range(1));
    Element<Bytes> e{};
    for (auto _ : state) {
        void* a = laearCreate(Bytes, 16, step);
        for (UINT i = 0; i < n; ++i) {
            e.words[0] = i;
            laearIns(a, &e, 0xFFFFFFFFu);
        }
        benchmark::DoNotOptimize(laearLock(a));
        laearUnlock(a);
        laearDestroy(a);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

template <size_t Bytes>
void BM_VectorPushBack(benchmark::State& state) {
    const auto n = static_cast<UINT>(state.range(0));
    Element<Bytes> e{};
    for (auto _ : state) {
        std::vector<Element<Bytes>> v;
        for (UINT i = 0; i < n; ++i) {
            e.words[0] = i;
            v.push_back(e);
        }
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void ArrayArgs(benchmark::internal::Benchmark* b) {
    for (int64_t n : {1000, 100000}) {
        for (int64_t step : {64, 1024, 16384}) b->Args({n, step});
    }
}

BENCHMARK_TEMPLATE(BM_LaearAppend, 4)->Apply(ArrayArgs);
BENCHMARK_TEMPLATE(BM_VectorPushBack, 4)->Arg(1000)->Arg(100000);
BENCHMARK_TEMPLATE(BM_LaearAppend, 32)->Apply(ArrayArgs);
BENCHMARK_TEMPLATE(BM_VectorPushBack, 32)->Arg(1000)->Arg(100000);

}  // namespace

// glibc serves large blocks from fresh mappings below a threshold that moves
// with what the process has freed, so without this the cost of a run would
// hang on page faults and on which benchmark ran before it. With the
// threshold fixed high, every contender recycles the same heap.
int main(int argc, char** argv) {
    mallopt(M_MMAP_THRESHOLD, 256 << 20);
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
