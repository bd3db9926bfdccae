// lstrCutShortDir on arbitrary paths and limits, writing into a block of
// exactly the path's size: the text is never longer than the limit (or the
// path), the length it gives is the length it wrote, and the three forms
// agree. Path pieces are bounded to what _splitpath's parts hold.
#include <orvanest/ORVANEST.h>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const int limit = input.Byte();
    orvafuzz::Text path = input.NextText(250);
    std::unique_ptr<char[]> out(new char[path.length + 1]);
    int length = lstrCutShortDir(path.get(), limit, out.get());
    ORVAFUZZ_CHECK(length >= 0 && static_cast<size_t>(length) == std::strlen(out.get()));
    if (static_cast<size_t>(limit) >= path.length) {
        ORVAFUZZ_CHECK(std::strcmp(out.get(), path.get()) == 0);
    } else {
        ORVAFUZZ_CHECK(length <= limit);
    }
    CString ref;
    ORVAFUZZ_CHECK(lstrCutShortDir(path.get(), limit, ref) == length);
    ORVAFUZZ_CHECK(std::strcmp(ref, out.get()) == 0);
    ORVAFUZZ_CHECK(std::strcmp(lstrCutShortDir(path.get(), limit), out.get()) == 0);
    return 0;
}
