// Number text and the library's printf against the peers a user would pick:
// snprintf and fmt::format_to. The digit functions run over 4,096 values,
// log-uniform from 1e-8 to 1e8, with half of them negative: F at two
// decimals ("%.2f"), E and G at six. The printf runs one mixed format of an
// integer, a string, a zero-padded hexadecimal word and a character.
#include <benchmark/benchmark.h>

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

const std::vector<double>& Values() {
    static const std::vector<double> values = [] {
        std::mt19937_64 random(17);
        std::uniform_real_distribution<double> exponent(-8.0, 8.0);
        std::vector<double> v(4096);
        for (size_t i = 0; i < v.size(); ++i) v[i] = std::pow(10.0, exponent(random)) * (i % 2 ? -1.0 : 1.0);
        return v;
    }();
    return values;
}

template <typename Format>
void Run(benchmark::State& state, Format format) {
    const std::vector<double>& v = Values();
    char buffer[512];
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(format(buffer, v[i++ & 4095]));
        benchmark::ClobberMemory();
    }
}

void F_Orvanest(benchmark::State& s) { Run(s, [](char* b, double x) { return lscvtFdigit(x, b, 0, 2, 0); }); }
void F_Snprintf(benchmark::State& s) { Run(s, [](char* b, double x) { return std::snprintf(b, 512, "%.2f", x); }); }
void F_Fmt(benchmark::State& s) { Run(s, [](char* b, double x) { return fmt::format_to(b, "{:.2f}", x) - b; }); }
void E_Orvanest(benchmark::State& s) { Run(s, [](char* b, double x) { return lscvtEdigit(x, b, 0, 6, 0); }); }
void E_Snprintf(benchmark::State& s) { Run(s, [](char* b, double x) { return std::snprintf(b, 512, "%e", x); }); }
void E_Fmt(benchmark::State& s) { Run(s, [](char* b, double x) { return fmt::format_to(b, "{:e}", x) - b; }); }
void G_Orvanest(benchmark::State& s) { Run(s, [](char* b, double x) { return lscvtGdigit(x, b, 0, 6, 0); }); }
void G_Snprintf(benchmark::State& s) { Run(s, [](char* b, double x) { return std::snprintf(b, 512, "%g", x); }); }
void G_Fmt(benchmark::State& s) { Run(s, [](char* b, double x) { return fmt::format_to(b, "{:g}", x) - b; }); }

BENCHMARK(F_Orvanest);
BENCHMARK(F_Snprintf);
BENCHMARK(F_Fmt);
BENCHMARK(E_Orvanest);
BENCHMARK(E_Snprintf);
BENCHMARK(E_Fmt);
BENCHMARK(G_Orvanest);
BENCHMARK(G_Snprintf);
BENCHMARK(G_Fmt);

template <typename Format>
void RunPrintf(benchmark::State& state, Format format) {
    char buffer[256];
    int n = 0;
    for (auto _ : state) {
        n = format(buffer, n & 0xFFFF);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
}

void Printf_Orvanest(benchmark::State& s) {
    RunPrintf(s, [](char* b, int k) { return lstrWsprintf(b, "%d: %s = %08x (%c)", 1234 + k, "name", 0xBEEF + k, 'q'); });
}
void Printf_Snprintf(benchmark::State& s) {
    RunPrintf(s, [](char* b, int k) {
        return std::snprintf(b, 256, "%d: %s = %08x (%c)", 1234 + k, "name", 0xBEEF + k, 'q');
    });
}
void Printf_Fmt(benchmark::State& s) {
    RunPrintf(s, [](char* b, int k) {
        char* end = fmt::format_to(b, "{}: {} = {:08x} ({})", 1234 + k, "name", 0xBEEF + k, 'q');
        *end = '\0';
        return static_cast<int>(end - b);
    });
}

BENCHMARK(Printf_Orvanest);
BENCHMARK(Printf_Snprintf);
BENCHMARK(Printf_Fmt);

}  // namespace

BENCHMARK_MAIN();
