// The intrusive AVL tree: its record, made and freed straight from the
// global heap so that thread attach can make trees before any allocator of
// the library is set up.
#include <orvanest/LAL.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAVL

namespace {

// A link: four pointer-wide words; the key word follows at +32 on x86-64.
struct AvlLink {
    AvlLink* parent;
    AvlLink* right;
    AvlLink* left;
    ULONG_PTR balance;  // 0 even, 1 left higher, 2 right higher
};

struct AvlTree {
    DWORD linkOffset;
    AvlLink* root;
    DWORD entryNum;
    LAL_COMPAREPROC compare;
};

}  // namespace

void* lavlCreate(DWORD linkOffset, LAL_COMPAREPROC compare) {
    auto* tree = static_cast<AvlTree*>(GlobalAlloc(GMEM_ZEROINIT, sizeof(AvlTree)));
    if (tree == nullptr) LDE_THROW_MEMORY();
    tree->linkOffset = linkOffset;
    tree->compare = compare;
    return tree;
}

int lavlDestroy(void* tree) {
    if (tree == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    return GlobalFree(tree) == nullptr ? 1 : 0;
}
