// Wildcard matching on arbitrary bytes: text and pattern (or pattern list)
// of any length and content. Besides memory errors, checks what must hold
// for every input: results are 0, -1 or -2; the caller's strings are left
// alone; a pattern without wildcards matches exactly its own text; "*"
// matches every text it accepts; a list of one item answers as that item.
#include <orvanest/ORVANEST.h>

#include <string>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const DWORD flag = input.Byte() & 3;
    orvafuzz::Text text = input.NextText();
    orvafuzz::Text pattern = input.NextText();
    const std::string textBefore(text.get());
    const std::string patternBefore(pattern.get());

    int single = lschkIsMatchWild(text.get(), pattern.get(), flag);
    ORVAFUZZ_CHECK(single == 0 || single == -1 || single == -2);
    ORVAFUZZ_CHECK(textBefore == text.get() && patternBefore == pattern.get());

    int list = lschkIsMatchWildEx(text.get(), pattern.get(), flag);
    ORVAFUZZ_CHECK(list == 0 || list == -1 || list == -2);
    ORVAFUZZ_CHECK(textBefore == text.get() && patternBefore == pattern.get());
    const bool plainItem = pattern.length > 0 && pattern.length < 256 && patternBefore.find(';') == std::string::npos;
    if (plainItem) ORVAFUZZ_CHECK(list == single);

    const bool fits = text.length > 0 && text.length < 256;
    if (fits) {
        char star[] = "*";
        ORVAFUZZ_CHECK(lschkIsMatchWild(text.get(), star, flag) == 0);
        if (textBefore.find_first_of("*?") == std::string::npos) {
            std::string self = textBefore;
            ORVAFUZZ_CHECK(lschkIsMatchWild(text.get(), self.data(), flag) == 0);
        }
    }
    return 0;
}
