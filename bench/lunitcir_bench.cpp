// The unit circle and the degree functions against libm: sine and cosine of
// whole degrees, read from the table by lunitcirSin/lunitcirCos (division
// 360) and lcalcSin/lcalcCos (angles on the 1/64-degree grid), and computed
// by sin and cos of the angle in radians.
#include <benchmark/benchmark.h>

#include <cmath>

#include <orvanest/ORVANEST.h>

namespace {

struct Tables {
    Tables() { lunitcirInit(); }
    ~Tables() { lunitcirFree(); }
};

// One iteration takes all 360 whole degrees; the rate counter ("items")
// gives the time per call.
template <typename Function>
void Run(benchmark::State& state, Function f) {
    static Tables tables;
    for (auto _ : state) {
        for (int k = 0; k < 360; ++k) benchmark::DoNotOptimize(f(k));
    }
    state.SetItemsProcessed(state.iterations() * 360);
}

constexpr double kRadiansPerDegree = 0.017453292519943295;

void Sin_Lunitcir(benchmark::State& s) { Run(s, [](int k) { return lunitcirSin(k, 360); }); }
void Sin_Lcalc(benchmark::State& s) { Run(s, [](int k) { return lcalcSin(static_cast<double>(k)); }); }
void Sin_Libm(benchmark::State& s) { Run(s, [](int k) { return std::sin(k * kRadiansPerDegree); }); }
void Cos_Lunitcir(benchmark::State& s) { Run(s, [](int k) { return lunitcirCos(k, 360); }); }
void Cos_Lcalc(benchmark::State& s) { Run(s, [](int k) { return lcalcCos(static_cast<double>(k)); }); }
void Cos_Libm(benchmark::State& s) { Run(s, [](int k) { return std::cos(k * kRadiansPerDegree); }); }

BENCHMARK(Sin_Lunitcir);
BENCHMARK(Sin_Lcalc);
BENCHMARK(Sin_Libm);
BENCHMARK(Cos_Lunitcir);
BENCHMARK(Cos_Lcalc);
BENCHMARK(Cos_Libm);

}  // namespace

BENCHMARK_MAIN();
