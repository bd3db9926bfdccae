// The code page 932 searches on long mixed text (256 KiB of English words,
// paths and Japanese), against the byte searches of the C library, which a
// user would otherwise call (and which may answer wrong on such text). In
// every pair the wanted text stands only at the very end, so both sides
// scan the whole text and give the same answer:
//   '|'    a byte that is never a trail byte: _mbschr vs strchr
//   'Q'    a trail-valued byte that the text does not hold: _mbschr vs strchr
//   0x8140 a two-byte character (the full-width space): _mbschr vs strstr of its two bytes
//   "表示|" a text that starts with a two-byte character: _mbsstr vs strstr
//   "|end" an ASCII text: _mbsstr vs strstr
// and, on text full of trail bytes 0x5C, the separator '\' (where strchr
// stops at the first trail byte, a wrong answer), against the plain walk by
// characters a user would write instead.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>

#include <orvanest/ORVANEST.h>

namespace {

using orvacrt::_mbschr;
using orvacrt::_mbsinc;
using orvacrt::_mbsstr;

constexpr size_t kTextSize = 256 * 1024;

// Mixed text without '|', 'Q', '\' (as a character), 0x81 0x40 or "表示|";
// with separators as '/', and many trail bytes 0x5C (表, ソ, 能).
std::string MixedText(const char* end) {
    const char* pieces[] = {"the ", "quick ", "brown ", "fox ", "jumps ", "over ", "lazy ", "dog. ", "path/to/file ",
                            "C:/data/report.txt ", "12345 ",
                            "\x95\x5C",                  // 表
                            "\x83\x5C\x83\x74\x83\x67",  // ソフト
                            "\x93\xFA\x96\x7B\x8C\xEA",  // 日本語
                            "\x94\x5C",                  // 能
                            "\x82\xA0\x82\xA2\x82\xA4",  // あいう
                            "\x8A\xBF\x8E\x9A",          // 漢字
                            "\xB1\xB2\xB3"};             // ｱｲｳ
    std::mt19937 rng(932);
    std::string text;
    while (text.size() < kTextSize) text += pieces[rng() % (sizeof pieces / sizeof pieces[0])];
    text += end;
    return text;
}

void Check(benchmark::State& state, const void* ours, const void* theirs) {
    if (ours != theirs) state.SkipWithError("the two searches disagree");
}

void BM_Chr_NonTrailByte_mbschr(benchmark::State& state) {
    const std::string text = MixedText("|");
    const auto* s = reinterpret_cast<const unsigned char*>(text.c_str());
    Check(state, _mbschr(s, '|'), std::strchr(text.c_str(), '|'));
    for (auto _ : state) benchmark::DoNotOptimize(_mbschr(s, '|'));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_NonTrailByte_mbschr);

void BM_Chr_NonTrailByte_strchr(benchmark::State& state) {
    const std::string text = MixedText("|");
    for (auto _ : state) benchmark::DoNotOptimize(std::strchr(text.c_str(), '|'));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_NonTrailByte_strchr);

void BM_Chr_TrailValuedByte_mbschr(benchmark::State& state) {
    const std::string text = MixedText("Q");
    const auto* s = reinterpret_cast<const unsigned char*>(text.c_str());
    Check(state, _mbschr(s, 'Q'), std::strchr(text.c_str(), 'Q'));
    for (auto _ : state) benchmark::DoNotOptimize(_mbschr(s, 'Q'));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_TrailValuedByte_mbschr);

void BM_Chr_TrailValuedByte_strchr(benchmark::State& state) {
    const std::string text = MixedText("Q");
    for (auto _ : state) benchmark::DoNotOptimize(std::strchr(text.c_str(), 'Q'));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_TrailValuedByte_strchr);

void BM_Chr_TwoByte_mbschr(benchmark::State& state) {
    const std::string text = MixedText("\x81\x40");
    const auto* s = reinterpret_cast<const unsigned char*>(text.c_str());
    Check(state, _mbschr(s, 0x8140), std::strstr(text.c_str(), "\x81\x40"));
    for (auto _ : state) benchmark::DoNotOptimize(_mbschr(s, 0x8140));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_TwoByte_mbschr);

void BM_Chr_TwoByte_strstr(benchmark::State& state) {
    const std::string text = MixedText("\x81\x40");
    for (auto _ : state) benchmark::DoNotOptimize(std::strstr(text.c_str(), "\x81\x40"));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_TwoByte_strstr);

const char* const kKanjiNeedle = "\x95\x5C\x8E\xA6|";  // 表示|

void BM_Str_TwoByteStart_mbsstr(benchmark::State& state) {
    const std::string text = MixedText(kKanjiNeedle);
    Check(state, _mbsstr(text.c_str(), kKanjiNeedle), std::strstr(text.c_str(), kKanjiNeedle));
    for (auto _ : state) benchmark::DoNotOptimize(_mbsstr(text.c_str(), kKanjiNeedle));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Str_TwoByteStart_mbsstr);

void BM_Str_TwoByteStart_strstr(benchmark::State& state) {
    const std::string text = MixedText(kKanjiNeedle);
    for (auto _ : state) benchmark::DoNotOptimize(std::strstr(text.c_str(), kKanjiNeedle));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Str_TwoByteStart_strstr);

void BM_Str_Ascii_mbsstr(benchmark::State& state) {
    const std::string text = MixedText("|end");
    Check(state, _mbsstr(text.c_str(), "|end"), std::strstr(text.c_str(), "|end"));
    for (auto _ : state) benchmark::DoNotOptimize(_mbsstr(text.c_str(), "|end"));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Str_Ascii_mbsstr);

void BM_Str_Ascii_strstr(benchmark::State& state) {
    const std::string text = MixedText("|end");
    for (auto _ : state) benchmark::DoNotOptimize(std::strstr(text.c_str(), "|end"));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Str_Ascii_strstr);

// The separator behind thousands of trail bytes 0x5C.
const char* WalkForSeparator(const char* s) {
    for (; *s != '\0'; s = _mbsinc(s)) {
        if (*s == '\\') return s;
    }
    return nullptr;
}

void BM_Chr_SeparatorAmongTrails_mbschr(benchmark::State& state) {
    const std::string text = MixedText("\\");
    const auto* s = reinterpret_cast<const unsigned char*>(text.c_str());
    Check(state, _mbschr(s, '\\'), WalkForSeparator(text.c_str()));
    for (auto _ : state) benchmark::DoNotOptimize(_mbschr(s, '\\'));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_SeparatorAmongTrails_mbschr);

void BM_Chr_SeparatorAmongTrails_walk(benchmark::State& state) {
    const std::string text = MixedText("\\");
    for (auto _ : state) benchmark::DoNotOptimize(WalkForSeparator(text.c_str()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Chr_SeparatorAmongTrails_walk);

}  // namespace

BENCHMARK_MAIN();
