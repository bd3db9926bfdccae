// The library's printf on arbitrary formats with a fixed pool of arguments.
//
// A variadic call cannot be given arguments whose types follow the fuzzed
// format, so the format is cut into pieces of at most one conversion each,
// by the same rules the function reads it with, and each piece is formatted
// with one argument of the type its conversion takes (from the pool,
// chosen by the input). Widths and precisions beyond three digits are
// skipped: the destination's size is the caller's duty. Besides memory
// errors, checks that the result is the length of the text, or -1 only for
// an infinity or a NaN.
#include <orvanest/ORVANEST.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "fuzz_input.h"

namespace {

const char* const kStrings[] = {"", "x", "text", "\x82\xA0\x82\xA2", "a longer string of some forty characters"};
const int kIntegers[] = {0, 1, -1, 42, 2147483647, -2147483647 - 1, 0x1C1};
const double kDoubles[] = {0.0, -0.0, 1.5, -2.675, 1e-300, 1.7976931348623157e308, 123456789.0, 5e-324,
                           std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()};

bool IsFlag(char c) { return c == '-' || c == '+' || c == '0' || c == '#' || c == ' '; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

struct Piece {
    std::string format;
    char letter;  // 0: no argument
};

// Cuts the format behind each conversion letter; false when a run of
// digits is longer than three.
bool Cut(const std::string& f, std::vector<Piece>* pieces) {
    std::string current;
    size_t i = 0;
    while (i < f.size()) {
        if (f[i] != '%') {
            current += f[i++];
            continue;
        }
        if (i + 1 < f.size() && f[i + 1] == '%') {
            current += "%%";
            i += 2;
            continue;
        }
        size_t j = i + 1;
        while (j < f.size() && IsFlag(f[j])) ++j;
        for (;;) {
            size_t run = j;
            while (j < f.size() && IsDigit(f[j])) ++j;
            if (j - run > 3) return false;
            if (j < f.size() && f[j] == '.') {
                ++j;
                continue;
            }
            break;
        }
        char letter = j < f.size() ? f[j] : '\0';
        if (letter != '\0' && std::strchr("diouxXcsfeEgG", letter) != nullptr) {
            current += f.substr(i, j + 1 - i);
            pieces->push_back({current, letter});
            current.clear();
            i = j + 1;
        } else {
            current += f.substr(i, j - i);  // dropped by the function; the walk resumes at j
            i = j;
        }
    }
    pieces->push_back({current, 0});
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const uint8_t choice = input.Byte();
    orvafuzz::Text format = input.NextText(256);
    std::vector<Piece> pieces;
    if (!Cut(format.get(), &pieces)) return 0;
    std::vector<char> out(format.length + 8192);
    for (size_t k = 0; k < pieces.size(); ++k) {
        const Piece& p = pieces[k];
        const size_t pick = choice + k;
        int n;
        bool mayFail = false;
        if (p.letter == 0) {
            n = lstrWsprintf(out.data(), p.format.c_str());
        } else if (p.letter == 's') {
            n = lstrWsprintf(out.data(), p.format.c_str(), kStrings[pick % 5]);
        } else if (std::strchr("feEgG", p.letter) != nullptr) {
            double v = kDoubles[pick % 10];
            mayFail = !std::isfinite(v);
            n = lstrWsprintf(out.data(), p.format.c_str(), v);
        } else {
            n = lstrWsprintf(out.data(), p.format.c_str(), kIntegers[pick % 7]);
        }
        if (n == -1) {
            ORVAFUZZ_CHECK(mayFail);
        } else {
            ORVAFUZZ_CHECK(!mayFail);
            ORVAFUZZ_CHECK(n == static_cast<int>(std::strlen(out.data())));
        }
    }
    return 0;
}
