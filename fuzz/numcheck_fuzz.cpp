// The number checks on arbitrary text: each position is null or a place in
// the text (its terminator included), a valid text reports its first
// character that is no white space, and lschkGdigit agrees with the two
// checks it stands on.
#include <orvanest/ORVANEST.h>

#include "fuzz_input.h"

namespace {

void CheckPosition(const orvafuzz::Text& text, int result, char* position) {
    if (position == nullptr) {
        ORVAFUZZ_CHECK(result == 0 && lstrSkipSpace(text.get()) == nullptr);
        return;
    }
    ORVAFUZZ_CHECK(position >= text.get() && position <= text.get() + text.length);
    if (result == 1) ORVAFUZZ_CHECK(position == lstrSkipSpace(text.get()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const DWORD limit = input.Byte() % 12;
    orvafuzz::Text text = input.NextText(300);
    char* const untouched = reinterpret_cast<char*>(1);
    char* position = untouched;

    int digit = lschkDigit(text.get(), &position);
    CheckPosition(text, digit, position);
    int fixed = lschkFdigit(text.get(), &position);
    CheckPosition(text, fixed, position);
    ORVAFUZZ_CHECK(!digit || fixed);  // a whole number is a fixed-point one

    position = untouched;
    int exponent = lschkEdigit(text.get(), &position);
    if (text.length > 256) {
        ORVAFUZZ_CHECK(exponent == 0 && position == untouched);
    } else {
        CheckPosition(text, exponent, position);
    }
    int general = lschkGdigit(text.get(), &position);
    CheckPosition(text, general, position);
    ORVAFUZZ_CHECK(general == (fixed || exponent));

    int hex = lschkHex(text.get(), limit, &position);
    CheckPosition(text, hex, position);
    lschkAlphaNumeric(text.get());
    lschkDBCSString(text.get());
    lschkANK(text.get());
    return 0;
}
