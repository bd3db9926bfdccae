// A plain model of code page 932 text for tests: the lead/trail rule as a walk
// from the start, and a seeded generator of mixed text rich in the bytes that
// trip byte-wise code (trail bytes 0x5C, 0x40, 0x81 and other lead values,
// half-width kana, separators) and, on request, lone lead bytes.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace cp932model {

inline bool Lead(unsigned char b) { return (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC); }
inline bool Trail(unsigned char b) { return (b >= 0x40 && b <= 0x7E) || (b >= 0x80 && b <= 0xFC); }

enum Kind { kSingle, kLead, kTrail, kLoneLead };

inline std::vector<Kind> Kinds(const std::string& s) {
    std::vector<Kind> kinds(s.size(), kSingle);
    for (size_t i = 0; i < s.size(); ++i) {
        if (!Lead(static_cast<unsigned char>(s[i]))) continue;
        if (i + 1 < s.size() && Trail(static_cast<unsigned char>(s[i + 1]))) {
            kinds[i] = kLead;
            kinds[++i] = kTrail;
        } else {
            kinds[i] = kLoneLead;
        }
    }
    return kinds;
}

inline bool IsStart(const std::vector<Kind>& kinds, size_t i) { return i >= kinds.size() || kinds[i] != kTrail; }
inline size_t WidthAt(const std::vector<Kind>& kinds, size_t i) {
    return i < kinds.size() && kinds[i] == kLead ? 2 : 1;
}

class TextGen {
public:
    explicit TextGen(unsigned seed) : rng_(seed) {}

    // count whole characters; with loneLeads, now and then a lead byte and a blank.
    std::string Text(size_t count, bool loneLeads = false) {
        static const char* const pieces[] = {
            "a", "b", "A", "Z", "_", "1", "9", ".", " ", "\t", "\\", "/", ":", "e", "E", "x",
            "\xB1", "\xDF",                                  // half-width kana
            "\x95\x5C", "\x83\x5C", "\x83\x40", "\x81\x40",  // trails 0x5C and 0x40
            "\x8B\x81", "\x89\xE0", "\x88\x9F",              // trails with lead values
            "\x82\x61", "\x82\x81", "\x89\x45", "\x93\xFA",  // trails 'a', 0x81, 'E'
            "\xE0\x40", "\xFC\xFC",                          // the upper lead range
        };
        std::string s;
        for (size_t i = 0; i < count; ++i) {
            if (loneLeads && Below(20) == 0) {
                s += static_cast<char>(0x81 + Below(0x1F));
                s += ' ';
            } else {
                s += pieces[Below(std::size(pieces))];
            }
        }
        return s;
    }

    size_t Below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }

private:
    std::mt19937 rng_;
};

}  // namespace cp932model
