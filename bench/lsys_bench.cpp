// Floating-point classification and the structured-exception frame against
// the peers a user would pick: std::fpclassify and std::isnan for the tests,
// feholdexcept/fesetenv for the mask scope, and a frame that also saves the
// signal mask (sigsetjmp with savemask 1) for the frame's entry cost.
#include <benchmark/benchmark.h>
#include <setjmp.h>

#include <cfenv>
#include <cmath>
#include <cstring>

#include <orvanest/ORVANEST.h>

namespace {

const double kValues[8] = {1.5, -0.0, 1e-310, INFINITY, NAN, -3.25, 0.0, 1e300};

void BM_lsysSafeValueDouble(benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(lsysSafeValueDouble(kValues[i++ & 7]));
}
BENCHMARK(BM_lsysSafeValueDouble);

// The same answer by the standard classification.
void BM_StdFpclassifySafe(benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
        double v = kValues[i++ & 7];
        int c = std::fpclassify(v);
        benchmark::DoNotOptimize((c == FP_NORMAL || c == FP_ZERO) ? v : 0.0);
    }
}
BENCHMARK(BM_StdFpclassifySafe);

void BM_lsysIsDoubleNaN(benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(lsysIsDoubleNaN(kValues[i++ & 7]));
}
BENCHMARK(BM_lsysIsDoubleNaN);

void BM_StdIsnan(benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
        double v = kValues[i++ & 7];
        benchmark::DoNotOptimize(v);
        benchmark::DoNotOptimize(std::isnan(v));
    }
}
BENCHMARK(BM_StdIsnan);

void BM_AnnulScope(benchmark::State& state) {
    for (auto _ : state) {
        L_CAnnulException annul;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AnnulScope);

void BM_FeholdexceptFesetenv(benchmark::State& state) {
    for (auto _ : state) {
        std::fenv_t env;
        feholdexcept(&env);
        benchmark::ClobberMemory();
        fesetenv(&env);
    }
}
BENCHMARK(BM_FeholdexceptFesetenv);

// ---- frames ------------------------------------------------------------------------

int g_counter = 0;
void Body(void*) { benchmark::DoNotOptimize(++g_counter); }
LONG Filter(EXCEPTION_POINTERS*, void*) { return EXCEPTION_CONTINUE_SEARCH; }

void BM_OrvaSehTry(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(OrvaSehTry(Body, nullptr, Filter, nullptr));
}
BENCHMARK(BM_OrvaSehTry);

// A frame that also saves and restores the signal mask costs a system call.
void BM_SigsetjmpSavingTheMask(benchmark::State& state) {
    for (auto _ : state) {
        sigjmp_buf jump;
        if (sigsetjmp(jump, 1) == 0) Body(nullptr);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SigsetjmpSavingTheMask);

void BM_PlainCall(benchmark::State& state) {
    void (*volatile body)(void*) = Body;
    for (auto _ : state) body(nullptr);
}
BENCHMARK(BM_PlainCall);

}  // namespace

BENCHMARK_MAIN();
