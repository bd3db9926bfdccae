// The global heap. Blocks come from the C heap with a small header in front
// (the size asked for, the lock count, the flags); what makes them global
// blocks is a map of block starts beside them. Every call looks its argument
// up in that map before it touches the block, so GlobalSize, GlobalLock and
// GlobalFree answer "not a block" for any other value (null, a stack address,
// an interior pointer, a freed block, a wild address) without reading memory
// behind it.
//
// The map holds one bit per 16 bytes of address space that has ever held a
// block, in a three-level radix tree: a fixed top array of 4 GiB slices, a
// middle node per slice in use, and a leaf of 4096 bits per 64 KiB in use. A
// lookup is three dependent loads and no lock; a leaf's bits for blocks that
// lie close together share cache lines, so a run of allocations and frees
// touches little memory besides the blocks themselves. Nodes are made on
// first need and never freed, so a lookup with a stale pointer meets no freed
// memory: the cost is a 512-byte leaf per 64 KiB of address space that ever
// held a block.
//
// A block's bit is set (with release) after its header is written and
// cleared (by an atomic read-modify-write, so of two threads freeing one block
// only one succeeds) before it goes back to the C heap. While the process has
// a single thread (as the C library tells), the bit is set and cleared with
// plain stores: no one else can look, and the first new thread starts after
// everything this one wrote. Blocks never move, so a movable block's handle
// is its address. Calling GlobalSize on a block while another thread frees it
// is a race of the caller's, as on Windows.
#include <sys/single_threaded.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <orvanest/platform/win32.h>

#include "internal/fault.h"

namespace {

// ---- the header in front of a block ---------------------------------------------------

struct Header {
    size_t size;                  // size asked for
    std::atomic<uint32_t> locks;  // lock count of a movable block
    uint32_t flags;               // GMEM_* given at allocation
};

// Blocks start on 16-byte boundaries: the C heap's alignment, kept by a
// 16-byte header.
constexpr unsigned kGrainBits = 4;
static_assert(sizeof(Header) == size_t{1} << kGrainBits);
static_assert(alignof(std::max_align_t) >= sizeof(Header));

inline Header* HeaderOf(uintptr_t block) { return reinterpret_cast<Header*>(block) - 1; }

// ---- the map of block starts -------------------------------------------------------

constexpr unsigned kLeafBits = 16;  // a leaf covers 64 KiB
constexpr unsigned kMidBits = 16;   // a middle node covers 4 GiB
constexpr unsigned kTopBits = 16;   // the top covers a 48-bit address space
constexpr unsigned kAddressBits = kTopBits + kMidBits + kLeafBits;
constexpr size_t kLeafWords = (size_t{1} << (kLeafBits - kGrainBits)) / 64;

struct Leaf {
    std::atomic<uint64_t> words[kLeafWords];
};
struct Mid {
    std::atomic<Leaf*> leaves[size_t{1} << kMidBits];
};

// Constant-initialised to null, so the heap works while other shared objects
// run their static initialisers, and never torn down, so it works to the end.
std::atomic<Mid*> g_top[size_t{1} << kTopBits];

// Where the bit of a block start lives.
struct Bit {
    std::atomic<uint64_t>* word;
    uint64_t mask;
};

inline Bit BitIn(Leaf* leaf, uintptr_t a) {
    size_t grain = (a & ((uintptr_t{1} << kLeafBits) - 1)) >> kGrainBits;
    return {&leaf->words[grain / 64], uint64_t{1} << (grain % 64)};
}

// The bit of address a, or a null word when no block ever started near it
// or a cannot start a block at all.
inline Bit Lookup(uintptr_t a) {
    if ((a >> kAddressBits) != 0 || (a & ((uintptr_t{1} << kGrainBits) - 1)) != 0) return {nullptr, 0};
    Mid* mid = g_top[a >> (kMidBits + kLeafBits)].load(std::memory_order_acquire);
    if (mid == nullptr) return {nullptr, 0};
    Leaf* leaf = mid->leaves[(a >> kLeafBits) & ((uintptr_t{1} << kMidBits) - 1)].load(std::memory_order_acquire);
    if (leaf == nullptr) return {nullptr, 0};
    return BitIn(leaf, a);
}

// Publishes a new node in slot unless another thread was first; the node in
// the slot afterwards, or null when memory ran out.
template <class Node>
Node* Publish(std::atomic<Node*>& slot) {
    Node* node = slot.load(std::memory_order_acquire);
    if (node != nullptr) return node;
    auto* fresh = static_cast<Node*>(std::calloc(1, sizeof(Node)));
    if (fresh == nullptr) return nullptr;
    if (slot.compare_exchange_strong(node, fresh, std::memory_order_acq_rel, std::memory_order_acquire)) return fresh;
    std::free(fresh);
    return node;
}

// The bit of a block start at a, making the nodes on the way; a null word
// when memory ran out.
[[gnu::noinline]] Bit Make(uintptr_t a) {
    if ((a >> kAddressBits) != 0) return {nullptr, 0};
    Mid* mid = Publish(g_top[a >> (kMidBits + kLeafBits)]);
    if (mid == nullptr) return {nullptr, 0};
    Leaf* leaf = Publish(mid->leaves[(a >> kLeafBits) & ((uintptr_t{1} << kMidBits) - 1)]);
    if (leaf == nullptr) return {nullptr, 0};
    return BitIn(leaf, a);
}

inline bool IsStart(uintptr_t a) {
    Bit b = Lookup(a);
    return b.word != nullptr && (b.word->load(std::memory_order_acquire) & b.mask) != 0;
}

inline void SetBit(Bit b) {
    if (__libc_single_threaded) {
        b.word->store(b.word->load(std::memory_order_relaxed) | b.mask, std::memory_order_release);
    } else {
        b.word->fetch_or(b.mask, std::memory_order_release);
    }
}

// Clears the bit; true when it was set, that is when the block was live.
inline bool ClearBit(Bit b) {
    if (__libc_single_threaded) {
        uint64_t old = b.word->load(std::memory_order_relaxed);
        if ((old & b.mask) == 0) return false;
        b.word->store(old & ~b.mask, std::memory_order_relaxed);
        return true;
    }
    return (b.word->fetch_and(~b.mask, std::memory_order_acq_rel) & b.mask) != 0;
}

// ---- the memory of a block -------------------------------------------------------------

// Zero-filled memory. The C library's calloc never serves from the thread's
// cache of freed blocks, so for small blocks malloc and a memset are faster;
// large blocks come fresh from the kernel already zeroed, which only calloc
// knows and uses.
constexpr size_t kCallocFrom = 64 * 1024;
inline void* ZeroedMemory(size_t bytes) {
    if (bytes >= kCallocFrom) return std::calloc(1, bytes);
    void* p = std::malloc(bytes);
    // The compiler would fold malloc and memset back into calloc; hiding the
    // pointer from it keeps the two.
    asm("" : "+r"(p));
    if (p != nullptr) std::memset(p, 0, bytes);
    return p;
}

// For a C heap whose blocks are not 16-byte aligned after all (a replaced
// malloc may do that): the same memory from the aligned allocator.
[[gnu::noinline]] void* Realign(void* raw, size_t bytes, bool zero) {
    std::free(raw);
    size_t rounded = (bytes + sizeof(Header) - 1) & ~(sizeof(Header) - 1);
    void* p = std::aligned_alloc(sizeof(Header), rounded);
    if (p != nullptr && zero) std::memset(p, 0, bytes);
    return p;
}

[[gnu::noinline]] HGLOBAL OutOfMemory(void* raw) {
    std::free(raw);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// Blocks live now, for tests that check that nothing was left behind.
std::atomic<size_t> g_liveBlocks{0};

inline void CountLive(long delta) {
    if (__libc_single_threaded) {
        g_liveBlocks.store(g_liveBlocks.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
    } else {
        g_liveBlocks.fetch_add(delta, std::memory_order_relaxed);
    }
}

// The answer for a value that is no live block, kept out of the fast paths.
[[gnu::noinline]] void NotABlock() { SetLastError(ERROR_INVALID_HANDLE); }

}  // namespace

HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALALLOC, &code)) {
        SetLastError(code);
        return nullptr;
    }
    if (dwBytes > SIZE_MAX - sizeof(Header)) return OutOfMemory(nullptr);
    size_t bytes = sizeof(Header) + dwBytes;
    void* raw = (uFlags & GMEM_ZEROINIT) ? ZeroedMemory(bytes) : std::malloc(bytes);
    if ((reinterpret_cast<uintptr_t>(raw) & (sizeof(Header) - 1)) != 0) {
        raw = Realign(raw, bytes, (uFlags & GMEM_ZEROINIT) != 0);
    }
    if (raw == nullptr) return OutOfMemory(nullptr);
    auto* h = static_cast<Header*>(raw);
    h->size = dwBytes;
    h->locks.store(0, std::memory_order_relaxed);
    h->flags = uFlags;
    uintptr_t block = reinterpret_cast<uintptr_t>(h + 1);
    Bit b = Lookup(block);
    if (b.word == nullptr) b = Make(block);
    if (b.word == nullptr) return OutOfMemory(raw);
    SetBit(b);
    CountLive(1);
    return reinterpret_cast<HGLOBAL>(block);
}

LPVOID GlobalLock(HGLOBAL hMem) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALLOCK, &code)) {
        SetLastError(code);
        return nullptr;
    }
    uintptr_t block = reinterpret_cast<uintptr_t>(hMem);
    if (!IsStart(block)) {
        NotABlock();
        return nullptr;
    }
    Header* h = HeaderOf(block);
    if (h->flags & GMEM_MOVEABLE) h->locks.fetch_add(1, std::memory_order_relaxed);
    return hMem;
}

BOOL GlobalUnlock(HGLOBAL hMem) {
    uintptr_t block = reinterpret_cast<uintptr_t>(hMem);
    if (!IsStart(block)) {
        NotABlock();
        return FALSE;
    }
    std::atomic<uint32_t>& locks = HeaderOf(block)->locks;
    uint32_t n = locks.load(std::memory_order_relaxed);
    do {
        if (n == 0) {
            SetLastError(ERROR_NOT_LOCKED);
            return FALSE;
        }
    } while (!locks.compare_exchange_weak(n, n - 1, std::memory_order_relaxed));
    if (n - 1 > 0) return TRUE;
    SetLastError(NO_ERROR);
    return FALSE;
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALFREE, &code)) {
        SetLastError(code);
        return hMem;
    }
    uintptr_t block = reinterpret_cast<uintptr_t>(hMem);
    Bit b = Lookup(block);
    if (b.word == nullptr || !ClearBit(b)) {
        NotABlock();
        return hMem;
    }
    CountLive(-1);
    std::free(HeaderOf(block));
    return nullptr;
}

SIZE_T GlobalSize(HGLOBAL hMem) {
    uintptr_t block = reinterpret_cast<uintptr_t>(hMem);
    if (!IsStart(block)) {
        NotABlock();
        return 0;
    }
    return HeaderOf(block)->size;
}

SIZE_T OrvaGlobalLiveBlocks(void) { return g_liveBlocks.load(std::memory_order_relaxed); }
