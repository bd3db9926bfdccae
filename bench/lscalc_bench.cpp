// The formula evaluator against the peer a user would pick, muparser, on a
// short and a long formula. muparser is given the text and evaluates it once
// per call (SetExpr then Eval), as lscalcFormToReal takes the text each
// time; the counter "value" shows that both compute the same.
#include <benchmark/benchmark.h>

#include <muParser.h>

#include <string>

#include <orvanest/ORVANEST.h>

namespace {

const char kShort[] = "2*(3+4)-1e3/7";
const char kLong[] =
    "((1.5+2.25)*3-4/5)*(6-7.5)/(8+9*10)-11+12*13/14-(15-16*17)+0.125*(2.5e2-3.75)/(1+2*(3+4*(5-6)))"
    "-(((7.25)))*8+9/3-1e-3*42";

void Orvanest(benchmark::State& state, const char* formula) {
    std::string text = formula;
    double value = 0;
    for (auto _ : state) {
        int r = lscalcFormToReal(&value, text.data());
        benchmark::DoNotOptimize(r);
        benchmark::DoNotOptimize(value);
    }
    state.counters["value"] = value;
}

void MuParser(benchmark::State& state, const char* formula) {
    mu::Parser parser;
    double value = 0;
    for (auto _ : state) {
        parser.SetExpr(formula);
        value = parser.Eval();
        benchmark::DoNotOptimize(value);
    }
    state.counters["value"] = value;
}

BENCHMARK_CAPTURE(Orvanest, short, kShort);
BENCHMARK_CAPTURE(MuParser, short, kShort);
BENCHMARK_CAPTURE(Orvanest, long, kLong);
BENCHMARK_CAPTURE(MuParser, long, kLong);

}  // namespace

BENCHMARK_MAIN();
