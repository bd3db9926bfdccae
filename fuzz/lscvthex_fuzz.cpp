// Hexadecimal text to words and doubles on arbitrary bytes. Besides memory
// errors, checks that text of plain hexadecimal digits reads as strtoul
// reads its last 8 digits, that a prefix or suffix changes nothing, and
// that the bytes of the input, taken as a double, come back bit for bit
// through lscvtDblToHex and lscvtHexToDbl.
#include <orvanest/ORVANEST.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint64_t bits = 0;
    std::memcpy(&bits, data, size < sizeof bits ? size : sizeof bits);
    orvafuzz::Input input(data, size);
    orvafuzz::Text text = input.NextText();

    DWORD word = lscvtHexToDword(text.get());
    double number = lscvtHexToDbl(text.get());
    (void)number;

    const std::string s(text.get());
    if (!s.empty() && s.size() <= 8 && s.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        ORVAFUZZ_CHECK(word == std::strtoul(s.c_str(), nullptr, 16));
        ORVAFUZZ_CHECK(lscvtHexToDword(("0x" + s).c_str()) == word);
        ORVAFUZZ_CHECK(lscvtHexToDword((s + "h").c_str()) == word);
    }

    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (std::isfinite(value)) {
        char hex[17];
        ORVAFUZZ_CHECK(lscvtDblToHex(hex, value) == hex);
        ORVAFUZZ_CHECK(std::strlen(hex) == 16);
        double back = lscvtHexToDbl(hex);
        ORVAFUZZ_CHECK(std::memcmp(&back, &value, sizeof value) == 0);
        char word8[9];
        lscvtDwordToHex(word8, static_cast<DWORD>(bits));
        ORVAFUZZ_CHECK(lscvtHexToDword(word8) == static_cast<DWORD>(bits));
    }
    return 0;
}
