// Binary search over any array of fixed-size elements, sorted ascending.
//
// It touches nothing shared, takes no lock and tests no argument. On a miss
// it tells where the key belongs, which is what keeps a sorted extensible
// array sorted. The halving runs on signed 64-bit bounds, so that an empty
// array (high = -1) ends the loop at once and no sum of bounds can wrap.
//
// Nothing here marks, though the file is the source LAL.
#include <cstdint>
#include <cstring>

#include <orvanest/LAL.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAL

namespace {

// Without a comparator the first 32-bit word of the key and of the element
// are compared as unsigned numbers.
int CompareFirstWords(void* key, void* element) {
    DWORD k, e;
    std::memcpy(&k, key, sizeof k);
    std::memcpy(&e, element, sizeof e);
    return k < e ? -1 : (k > e ? 1 : 0);
}

}  // namespace

int lalBsearch(void* key, void* base, UINT count, UINT size, UINT* index, LAL_COMPAREPROC compare) {
    if (compare == nullptr) compare = CompareFirstWords;
    auto* elements = static_cast<char*>(base);
    int64_t low = 0;
    int64_t high = static_cast<int64_t>(count) - 1;
    while (low <= high) {
        int64_t middle = (low + high) / 2;
        int result = compare(key, elements + static_cast<size_t>(middle) * size);
        if (result == 0) {
            *index = static_cast<UINT>(middle);
            return 1;
        }
        if (result < 0) {
            high = middle - 1;
        } else {
            low = middle + 1;
        }
    }
    *index = static_cast<UINT>(low);
    return 0;
}
