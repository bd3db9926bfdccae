// Size-class pools against general allocators on the work they are made for:
// a churn of slot-sized requests (16, 32, 64 and 128 bytes) that keeps 1,000
// blocks alive, releasing a random one and asking for a new one each round.
// glibc is reached by its own entry points because mimalloc, linked in here,
// takes over malloc.
#include <benchmark/benchmark.h>
#include <mimalloc.h>

#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

extern "C" void* __libc_malloc(size_t);
extern "C" void __libc_free(void*);

namespace {

constexpr size_t kLive = 1000;
constexpr size_t kRounds = 1 << 16;

struct Plan {
    std::vector<DWORD> sizes;
    std::vector<size_t> victims;
    Plan() {
        std::mt19937 rng(1234);
        const DWORD classes[] = {16, 32, 64, 128};
        for (size_t i = 0; i < kRounds; ++i) {
            sizes.push_back(classes[rng() % 4] - rng() % 8);
            victims.push_back(rng() % kLive);
        }
    }
};
const Plan& ThePlan() {
    static Plan plan;
    return plan;
}

template <class Alloc, class Free>
void Churn(benchmark::State& state, Alloc alloc, Free release) {
    const Plan& plan = ThePlan();
    std::vector<void*> live(kLive);
    for (size_t i = 0; i < kLive; ++i) {
        live[i] = alloc(plan.sizes[i]);
        static_cast<char*>(live[i])[0] = 1;
    }
    size_t round = 0;
    for (auto _ : state) {
        size_t r = round++ & (kRounds - 1);
        void*& slot = live[plan.victims[r]];
        release(slot);
        slot = alloc(plan.sizes[r]);
        static_cast<char*>(slot)[0] = 1;
    }
    for (void* p : live) release(p);
}

void BM_Churn_Membufs(benchmark::State& state) {
    tagLMM_MembufsBlock plan[] = {{16, 2048}, {32, 2048}, {64, 2048}, {128, 2048}};
    void* pool = lmembufsCreate(plan, 4);
    Churn(state, [pool](DWORD size) { return lmembufsAlloc(pool, size); },
          [pool](void* p) { lmembufsFree(pool, p); });
    lmembufsDestroy(pool);
}

void BM_Churn_Glibc(benchmark::State& state) {
    Churn(state, [](DWORD size) { return __libc_malloc(size); }, [](void* p) { __libc_free(p); });
}

void BM_Churn_Mimalloc(benchmark::State& state) {
    Churn(state, [](DWORD size) { return mi_malloc(size); }, [](void* p) { mi_free(p); });
}

}  // namespace

BENCHMARK(BM_Churn_Membufs);
BENCHMARK(BM_Churn_Glibc);
BENCHMARK(BM_Churn_Mimalloc);

BENCHMARK_MAIN();
