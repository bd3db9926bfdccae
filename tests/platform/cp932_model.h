// A plain model of code page 932 text for tests: the lead/trail rule written
// out as a walk from the start (no searching tricks), and a seeded generator
// of mixed text that is rich in the bytes that trip byte-wise code: trail
// bytes 0x5C, 0x40, 0x81 and lead-valued trails, half-width kana, separators
// and, on request, lone lead bytes.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace cp932model {

inline bool Lead(unsigned char b) { return (b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC); }
inline bool Trail(unsigned char b) { return (b >= 0x40 && b <= 0x7E) || (b >= 0x80 && b <= 0xFC); }

// Byte kinds by a walk from the start.
enum Kind { kSingle, kLead, kTrail, kLoneLead };

inline std::vector<Kind> Kinds(const std::string& s) {
    std::vector<Kind> kinds(s.size(), kSingle);
    for (size_t i = 0; i < s.size();) {
        unsigned char b = static_cast<unsigned char>(s[i]);
        if (Lead(b) && i + 1 < s.size() && Trail(static_cast<unsigned char>(s[i + 1]))) {
            kinds[i] = kLead;
            kinds[i + 1] = kTrail;
            i += 2;
        } else {
            kinds[i] = Lead(b) ? kLoneLead : kSingle;
            i += 1;
        }
    }
    return kinds;
}

inline bool IsStart(const std::vector<Kind>& kinds, size_t i) { return i >= kinds.size() || kinds[i] != kTrail; }

// The width of the character at i of a walk (2 for a pair, else 1).
inline size_t WidthAt(const std::vector<Kind>& kinds, size_t i) {
    return i < kinds.size() && kinds[i] == kLead ? 2 : 1;
}

// Pieces text is made of, each a whole character (or a lone lead byte).
inline const std::vector<std::string>& Pieces() {
    static const std::vector<std::string> pieces = {
        "a", "b", "A", "Z", "_", "1", "9", ".", " ", "\t", "\\", "/", ":", "e", "E", "x",
        "\xB1",      // half-width kana a
        "\xDF",      // half-width kana handakuten
        "\x95\x5C",  // 表: trail 0x5C
        "\x83\x5C",  // ソ: trail 0x5C
        "\x83\x40",  // ァ: trail 0x40
        "\x81\x40",  // full-width space
        "\x8B\x81",  // 求: trail 0x81, a lead value
        "\x89\xE0",  // 霞: trail 0xE0, a lead value
        "\x88\x9F",  // 亜: trail 0x9F, a lead value
        "\x82\x61",  // Ｂ: trail 'a'
        "\x82\x81",  // ａ
        "\x89\x45",  // 右: trail 'E'
        "\x93\xFA",  // 日
        "\xE0\x40",  // 漾: lead 0xE0
        "\xFC\xFC",  // highest lead and trail
    };
    return pieces;
}

class TextGen {
public:
    explicit TextGen(unsigned seed) : rng_(seed) {}

    // count characters from pieces; with loneLeads, now and then a lead byte
    // with no trail behind it.
    std::string Text(size_t count, bool loneLeads = false) {
        std::string s;
        const auto& pieces = Pieces();
        for (size_t i = 0; i < count; ++i) {
            if (loneLeads && Below(20) == 0) {
                s += static_cast<char>(0x81 + Below(0x1F));
                s += ' ';  // no trail byte can follow
                continue;
            }
            s += pieces[Below(pieces.size())];
        }
        return s;
    }

    size_t Below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }
    std::mt19937& Engine() { return rng_; }

private:
    std::mt19937 rng_;
};

}  // namespace cp932model
