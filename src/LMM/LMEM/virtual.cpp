// Virtual blocks of the base allocator: a region of address space reserved at
// once and committed a page at a time. The region's first page holds its
// node, and the caller's data starts right behind it; the node lives in the
// thread's virtualAllocTree, ordered by dataStart, so that any address of the
// data leads back to it. A block is known only to the thread that made it.
#include <cstddef>

#include "LMM/LMEM/accounting.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLMEM

namespace {

using Node = tagLMM_VirtualAllocNode;

// The tree reads its default key in the word right behind the four link
// words: that must be dataStart.
static_assert(offsetof(Node, dataStart) == 4 * sizeof(void*));

// The largest region whose size still fits the node's 32-bit fields.
SIZE_T LargestRegion() {
    SIZE_T page = lmem::PageSize();
    return SIZE_T{0xFFFFFFFF} / page * page;
}

// The search of the thread's tree for the block at or below p: result and
// node as lavlSearch gives them.
int SearchTree(void* tree, void* p, int mode, Node** found) {
    Node key{};
    key.dataStart = p;
    void* node = nullptr;
    int result = lavlSearch(tree, &key, &node, mode);
    *found = static_cast<Node*>(node);
    return result;
}

}  // namespace

void* lmemVirtualAllocFunc(DWORD size, DWORD) {
    void* tree = lde::Context()->virtualAllocTree;
    if (tree == nullptr) {  // a thread whose attach did not finish
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return nullptr;
    }
    SIZE_T want = SIZE_T{size} + sizeof(Node);
    if (want > LargestRegion()) LDE_THROW_TOO_LARGE();
    void* region = VirtualAlloc(nullptr, want, MEM_RESERVE, PAGE_NOACCESS);
    if (region == nullptr) LDE_THROW_MEMORY();
    MEMORY_BASIC_INFORMATION info;
    VirtualQuery(region, &info, sizeof info);
    auto reserved = static_cast<DWORD>(info.RegionSize);

    if (VirtualAlloc(region, sizeof(Node), MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        // Give the address space back before raising, keeping the commit's
        // reason in the last error.
        DWORD code = GetLastError();
        VirtualFree(region, 0, MEM_RELEASE);
        SetLastError(code);
        LDE_THROW_MEMORY();
    }
    DWORD page = lmem::PageSize();
    auto* node = static_cast<Node*>(region);
    node->dataStart = node + 1;
    node->dataSize = reserved - static_cast<DWORD>(sizeof(Node));
    node->dataLast = static_cast<char*>(node->dataStart) + node->dataSize - 1;
    node->reservedSize = reserved;
    node->committedSize = page;

    if (lavlIns(tree, node) == 0) {
        LDE_PASS();
        ldbgCloseSetErr();
        VirtualFree(region, 0, MEM_RELEASE);
        ldbgOpenSetErr();
        return nullptr;
    }
    lmem::Grow(lde::g_virtualReserved, lde::g_virtualReservedMax, reserved);
    lmem::Grow(lde::g_virtualCommit, lde::g_virtualCommitMax, page);
    return node->dataStart;
}

int lmemVirtualFree(void* p) {
    if (p == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }
    void* tree = lde::Context()->virtualAllocTree;
    Node* node;
    // Only a block's dataStart will do; the last error stays what it was.
    if (SearchTree(tree, p, 0, &node) != 0) {
        LDE_MARK();
        return 0;
    }
    if (lavlDel(tree, node) == 0) {
        LDE_PASS();
        return 0;
    }
    lde::g_virtualReserved -= node->reservedSize;
    lde::g_virtualCommit -= node->committedSize;
    return VirtualFree(node, 0, MEM_RELEASE);
}

tagLMM_VirtualAllocNode* lmemGetVirtualAllocNode(void* p) { return lmem::FindNode(p); }

tagLMM_VirtualAllocNode* lmem::FindNode(void* p) {
    if (p == nullptr) return nullptr;
    void* tree = lde::Context()->virtualAllocTree;
    if (tree == nullptr) return nullptr;
    Node* node;
    switch (SearchTree(tree, p, 2, &node)) {
    case 0:
        return node;
    case 1: {
        auto a = reinterpret_cast<ULONG_PTR>(p);
        bool inside = a >= reinterpret_cast<ULONG_PTR>(node->dataStart) && a <= reinterpret_cast<ULONG_PTR>(node->dataLast);
        return inside ? node : nullptr;
    }
    default:
        return nullptr;
    }
}

void* lmemVirtualCommit(void* p, DWORD size) {
    Node* node = lmem::FindNode(p);
    if (node == nullptr) return nullptr;
    if (VirtualAlloc(p, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) LDE_THROW_MEMORY();
    // One page per call, whether the range was one page or many, committed
    // before or not: the counters count calls in pages.
    DWORD page = lmem::PageSize();
    lmem::Grow(lde::g_virtualCommit, lde::g_virtualCommitMax, page);
    node->committedSize += page;
    return p;
}
