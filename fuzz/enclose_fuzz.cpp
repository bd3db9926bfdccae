// lstrFindEncloseEnd on arbitrary text and quotes: the answer is null or a
// place inside the text where the quote stands as a whole character, with no
// second quote right behind it.
#include <orvanest/ORVANEST.h>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    unsigned short quote = input.Byte();
    if (quote & 0x80) quote = static_cast<unsigned short>(quote << 8 | input.Byte());
    orvafuzz::Text text = input.NextText();
    const char* end = lstrFindEncloseEnd(text.get(), quote);
    if (end == nullptr) return 0;
    ORVAFUZZ_CHECK(end >= text.get() && end < text.get() + text.length);
    const char* next = orvacrt::_mbsinc(end);
    const unsigned code = next - end == 2 ? (static_cast<unsigned char>(end[0]) << 8 | static_cast<unsigned char>(end[1]))
                                          : static_cast<unsigned char>(end[0]);
    ORVAFUZZ_CHECK(code == quote);
    ORVAFUZZ_CHECK(orvacrt::_ismbstrail(text.get(), end) == 0);
    return 0;
}
