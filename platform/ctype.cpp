// The runtime's case-blind byte comparison. The byte classes themselves are
// inline in crt_ctype.h; this is the one that needs a loop.
#include <orvanest/platform/crt_ctype.h>

namespace orvacrt {

int _memicmp(const void* first, const void* second, size_t count) {
    const unsigned char* a = static_cast<const unsigned char*>(first);
    const unsigned char* b = static_cast<const unsigned char*>(second);
    for (size_t i = 0; i < count; ++i) {
        int ca = tolower(a[i]);
        int cb = tolower(b[i]);
        if (ca != cb) return ca - cb;
    }
    return 0;
}

}  // namespace orvacrt
