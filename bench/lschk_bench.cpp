// Wildcard matching of file names against the peer a user would pick on
// POSIX: lschkIsMatchWild (flag 1, case ignored) against fnmatch(3) with
// FNM_CASEFOLD, over the same 1,000 typical file names, for four patterns;
// and lschkIsMatchWildEx on a list of five patterns against splitting the
// list at ';' and calling fnmatch for each item. Each iteration matches the
// whole set of names; the counter "matches" shows that both sides agree.
#include <benchmark/benchmark.h>

#include <fnmatch.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

// Names as a desktop's folders hold them: camera files, documents, source,
// archives, a few with Japanese names (code page 932), mixed case.
const std::vector<std::string>& Names() {
    static const std::vector<std::string> names = [] {
        const char* stems[] = {"report", "Budget", "notes", "README", "setup", "photo", "Invoice", "draft",
                               "summary", "data", "backup", "archive", "letter", "main", "index", "agenda",
                               "\x95\x5C\x8E\xA6",        // 表示
                               "\x93\xFA\x96\x7B\x8C\xEA",  // 日本語
                               "\x83\x5C\x83\x74\x83\x67"};  // ソフト
        const char* exts[] = {".txt", ".TXT", ".doc", ".docx", ".xls", ".csv", ".jpg", ".JPG", ".png",
                              ".cpp", ".h", ".zip", ".tar.gz", ".pdf", ".md", ".exe", ".bak", ""};
        std::mt19937 rng(1000);
        std::vector<std::string> out;
        char buffer[64];
        for (int i = 0; i < 1000; ++i) {
            switch (rng() % 4) {
            case 0:  // camera files
                std::snprintf(buffer, sizeof buffer, "%s_%04u.JPG", rng() % 2 ? "IMG" : "DSC",
                              static_cast<unsigned>(rng() % 10000));
                out.emplace_back(buffer);
                break;
            case 1:  // numbered documents
                std::snprintf(buffer, sizeof buffer, "%s_%u%s", stems[rng() % 19], static_cast<unsigned>(rng() % 2024),
                              exts[rng() % 18]);
                out.emplace_back(buffer);
                break;
            case 2:  // versions and copies
                std::snprintf(buffer, sizeof buffer, "%s (%u)%s", stems[rng() % 19], static_cast<unsigned>(rng() % 9),
                              exts[rng() % 18]);
                out.emplace_back(buffer);
                break;
            default:
                out.emplace_back(std::string(stems[rng() % 19]) + exts[rng() % 18]);
                break;
            }
        }
        return out;
    }();
    return names;
}

const char* const kPatterns[] = {"*.txt", "IMG_????.JPG", "*a*e*s*", "*"};
const char* const kList = "*.doc;*.txt;IMG_????.JPG;*.csv;*a*e*s*";

void BM_Wild_lschkIsMatchWild(benchmark::State& state) {
    std::vector<std::string> names = Names();
    std::string pattern = kPatterns[state.range(0)];
    state.SetLabel(pattern);
    int matches = 0;
    for (auto _ : state) {
        matches = 0;
        for (std::string& name : names) matches += lschkIsMatchWild(name.data(), pattern.data(), 1) == 0;
        benchmark::DoNotOptimize(matches);
    }
    state.counters["matches"] = matches;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(names.size()));
}
BENCHMARK(BM_Wild_lschkIsMatchWild)->DenseRange(0, 3);

void BM_Wild_fnmatch(benchmark::State& state) {
    const std::vector<std::string>& names = Names();
    const char* pattern = kPatterns[state.range(0)];
    state.SetLabel(pattern);
    int matches = 0;
    for (auto _ : state) {
        matches = 0;
        for (const std::string& name : names) matches += fnmatch(pattern, name.c_str(), FNM_CASEFOLD) == 0;
        benchmark::DoNotOptimize(matches);
    }
    state.counters["matches"] = matches;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(names.size()));
}
BENCHMARK(BM_Wild_fnmatch)->DenseRange(0, 3);

void BM_WildList_lschkIsMatchWildEx(benchmark::State& state) {
    std::vector<std::string> names = Names();
    std::string list = kList;
    int matches = 0;
    for (auto _ : state) {
        matches = 0;
        for (std::string& name : names) matches += lschkIsMatchWildEx(name.data(), list.data(), 1) == 0;
        benchmark::DoNotOptimize(matches);
    }
    state.counters["matches"] = matches;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(names.size()));
}
BENCHMARK(BM_WildList_lschkIsMatchWildEx);

// What a user writes with fnmatch: copy the list, cut it at each ';', try
// each item.
bool FnmatchList(const char* name, const char* list) {
    char copy[256];
    std::strncpy(copy, list, sizeof copy - 1);
    copy[sizeof copy - 1] = '\0';
    char* save = nullptr;
    for (char* item = strtok_r(copy, ";", &save); item != nullptr; item = strtok_r(nullptr, ";", &save)) {
        if (fnmatch(item, name, FNM_CASEFOLD) == 0) return true;
    }
    return false;
}

void BM_WildList_SplitAndFnmatch(benchmark::State& state) {
    const std::vector<std::string>& names = Names();
    int matches = 0;
    for (auto _ : state) {
        matches = 0;
        for (const std::string& name : names) matches += FnmatchList(name.c_str(), kList);
        benchmark::DoNotOptimize(matches);
    }
    state.counters["matches"] = matches;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(names.size()));
}
BENCHMARK(BM_WildList_SplitAndFnmatch);

}  // namespace

BENCHMARK_MAIN();
