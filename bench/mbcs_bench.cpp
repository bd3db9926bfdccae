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

const unsigned char* U(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

// The separator behind thousands of trail bytes 0x5C, by a plain walk.
const void* WalkForSeparator(const char* s) {
    for (; *s != '\0'; s = _mbsinc(s)) {
        if (*s == '\\') return s;
    }
    return nullptr;
}

typedef const void* (*Search)(const char* text);

struct Pair {
    const char* name;
    const char* end;  // what stands at the text's end, and only there
    Search ours;
    const char* peerName;
    Search peer;
};

const Pair kPairs[] = {
    {"Chr_NonTrailByte", "|", [](const char* s) -> const void* { return _mbschr(U(s), '|'); }, "strchr",
     [](const char* s) -> const void* { return std::strchr(s, '|'); }},
    {"Chr_TrailValuedByte", "Q", [](const char* s) -> const void* { return _mbschr(U(s), 'Q'); }, "strchr",
     [](const char* s) -> const void* { return std::strchr(s, 'Q'); }},
    {"Chr_TwoByte", "\x81\x40", [](const char* s) -> const void* { return _mbschr(U(s), 0x8140); }, "strstr",
     [](const char* s) -> const void* { return std::strstr(s, "\x81\x40"); }},
    {"Str_TwoByteStart", "\x95\x5C\x8E\xA6|",
     [](const char* s) -> const void* { return _mbsstr(s, "\x95\x5C\x8E\xA6|"); }, "strstr",
     [](const char* s) -> const void* { return std::strstr(s, "\x95\x5C\x8E\xA6|"); }},
    {"Str_Ascii", "|end", [](const char* s) -> const void* { return _mbsstr(s, "|end"); }, "strstr",
     [](const char* s) -> const void* { return std::strstr(s, "|end"); }},
    {"Chr_SeparatorAmongTrails", "\\", [](const char* s) -> const void* { return _mbschr(U(s), '\\'); }, "walk",
     WalkForSeparator},
};

void Run(benchmark::State& state, const Pair& pair, Search search) {
    const std::string text = MixedText(pair.end);
    if (pair.ours(text.c_str()) != pair.peer(text.c_str())) state.SkipWithError("the two searches disagree");
    for (auto _ : state) benchmark::DoNotOptimize(search(text.c_str()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

}  // namespace

int main(int argc, char** argv) {
    for (const Pair& pair : kPairs) {
        benchmark::RegisterBenchmark((std::string("BM_") + pair.name + "_ours").c_str(),
                                     [&pair](benchmark::State& state) { Run(state, pair, pair.ours); });
        benchmark::RegisterBenchmark((std::string("BM_") + pair.name + "_" + pair.peerName).c_str(),
                                     [&pair](benchmark::State& state) { Run(state, pair, pair.peer); });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
