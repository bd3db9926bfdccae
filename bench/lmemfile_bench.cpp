// Writing small pieces to a memory file against appending them to a
// std::vector<char>, the peer a host would pick instead. Each iteration
// writes 1 MiB in pieces of 16 or 256 bytes into a fresh container and
// destroys it. The memory file starts at 4 KiB and grows by a fixed step
// (64 KiB or 1 MiB), copying its whole capacity at every step; the vector
// doubles. A third contender fills the same file through reservations, the
// way a producer avoids the copy of its own data.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <orvanest/ORVANEST.h>

#include <cstring>
#include <vector>

namespace {

constexpr DWORD kTotal = 1 << 20;

void BM_LmemfileWrite(benchmark::State& state) {
    const auto piece = static_cast<DWORD>(state.range(0));
    const auto step = static_cast<DWORD>(state.range(1));
    std::vector<char> data(piece, 'x');
    for (auto _ : state) {
        void* f = lmemfileCreate(4096, step);
        for (DWORD written = 0; written < kTotal; written += piece) lmemfileWrite(f, data.data(), piece);
        benchmark::DoNotOptimize(lmemfileGetSize(f));
        lmemfileDestroy(f);
    }
    state.SetBytesProcessed(state.iterations() * kTotal);
}

void BM_LmemfileReserve(benchmark::State& state) {
    const auto piece = static_cast<DWORD>(state.range(0));
    const auto step = static_cast<DWORD>(state.range(1));
    std::vector<char> data(piece, 'x');
    for (auto _ : state) {
        void* f = lmemfileCreate(4096, step);
        for (DWORD written = 0; written < kTotal; written += piece) {
            std::memcpy(lmemfileReserveBuf(f, piece), data.data(), piece);
            lmemfileReleaseBuf(f, piece);
        }
        benchmark::DoNotOptimize(lmemfileGetSize(f));
        lmemfileDestroy(f);
    }
    state.SetBytesProcessed(state.iterations() * kTotal);
}

void BM_VectorAppend(benchmark::State& state) {
    const auto piece = static_cast<DWORD>(state.range(0));
    std::vector<char> data(piece, 'x');
    for (auto _ : state) {
        std::vector<char> v;
        for (DWORD written = 0; written < kTotal; written += piece) v.insert(v.end(), data.begin(), data.end());
        benchmark::DoNotOptimize(v.data());
    }
    state.SetBytesProcessed(state.iterations() * kTotal);
}

void FileArgs(benchmark::internal::Benchmark* b) {
    for (int64_t piece : {16, 256}) {
        for (int64_t step : {64 << 10, 1 << 20}) b->Args({piece, step});
    }
}

BENCHMARK(BM_LmemfileWrite)->Apply(FileArgs);
BENCHMARK(BM_LmemfileReserve)->Apply(FileArgs);
BENCHMARK(BM_VectorAppend)->Arg(16)->Arg(256);

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
