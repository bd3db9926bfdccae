// The measurements that the container benchmarks share. A peer is a class
// built from an element count n that owns its elements and offers
//   InsertAll()                   put all n in, in its own order
//   PrepareDelete()               untimed set-up before DeleteAll
//   DeleteAll(order)              take element order[i] out, for every i
//   Walk()                        visit all in order, giving a checksum
//   Reset()                       empty it again (untimed)
// Insertion and deletion are timed by hand per whole pass, so that the
// untimed refill does not count; every figure is per element.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

namespace container_bench {

using Clock = std::chrono::steady_clock;

// Runs `pass` once per iteration with `before` and `after` outside the time.
template <class Before, class Pass, class After>
void TimedPasses(benchmark::State& state, size_t n, Before before, Pass pass, After after) {
    for (auto _ : state) {
        before();
        auto start = Clock::now();
        pass();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        after();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
}

template <class C>
void Insert(benchmark::State& state) {
    size_t n = static_cast<size_t>(state.range(0));
    C c(n);
    TimedPasses(state, n, [] {}, [&] { c.InsertAll(); }, [&] { c.Reset(); });
}

template <class C>
void Delete(benchmark::State& state) {
    size_t n = static_cast<size_t>(state.range(0));
    C c(n);
    std::vector<size_t> order(n);
    for (size_t i = 0; i < n; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(2));
    TimedPasses(
        state, n,
        [&] {
            c.InsertAll();
            c.PrepareDelete();
        },
        [&] { c.DeleteAll(order); }, [&] { c.Reset(); });
}

template <class C>
void Walk(benchmark::State& state) {
    size_t n = static_cast<size_t>(state.range(0));
    C c(n);
    c.InsertAll();
    for (auto _ : state) benchmark::DoNotOptimize(c.Walk());
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(n));
    c.Reset();
}

// Registers fn under name for N = 1,000 and 100,000.
inline void Add(const char* name, void (*fn)(benchmark::State&), bool manualTime = false) {
    auto* b = benchmark::RegisterBenchmark(name, fn);
    b->Arg(1000)->Arg(100000);
    if (manualTime) b->UseManualTime();
}

}  // namespace container_bench
