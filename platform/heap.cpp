// The global heap. Blocks come from the C heap; what makes them global blocks
// is the table of live blocks beside them. Every call looks its argument up in
// that table before it touches the block, so GlobalSize, GlobalLock and
// GlobalFree answer "not a block" for any other value (null, a stack address,
// an interior pointer, a freed block) without reading memory behind it.
//
// Blocks never move, so a movable block's handle is its address. The table is
// split into shards, each with its own spin lock and open-addressing array, so
// threads that work on different blocks rarely meet.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include <orvanest/platform/win32.h>

#include "internal/fault.h"

namespace {

constexpr uintptr_t kEmpty = 0;
constexpr uintptr_t kTomb = 1;
constexpr unsigned kShardBits = 6;
constexpr unsigned kShards = 1u << kShardBits;

struct Entry {
    uintptr_t key;  // block address, kEmpty or kTomb
    size_t size;    // size asked for
    uint32_t locks; // lock count of a movable block
    uint32_t flags;
};

struct Shard {
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    Entry* slots = nullptr;
    size_t capacity = 0;  // a power of two, or 0 before the first insert
    size_t used = 0;      // live entries
    size_t tombs = 0;     // tombstones
    char pad[64 - sizeof(std::atomic_flag) - sizeof(Entry*) - 3 * sizeof(size_t)];

    void Lock() {
        while (busy.test_and_set(std::memory_order_acquire)) {
            while (busy.test(std::memory_order_relaxed)) __builtin_ia32_pause();
        }
    }
    void Unlock() { busy.clear(std::memory_order_release); }
};

// Constant-initialised, so the heap works while other shared objects run
// their static initialisers, and never torn down, so it works to the end.
Shard g_shards[kShards];

inline size_t Hash(uintptr_t key) {
    uint64_t h = static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull;
    return static_cast<size_t>(h >> 16);
}

inline Shard& ShardOf(uintptr_t key) { return g_shards[(Hash(key) >> 40) & (kShards - 1)]; }

Entry* Find(Shard& s, uintptr_t key) {
    if (s.capacity == 0 || key <= kTomb) return nullptr;
    size_t mask = s.capacity - 1;
    for (size_t i = Hash(key) & mask;; i = (i + 1) & mask) {
        Entry& e = s.slots[i];
        if (e.key == key) return &e;
        if (e.key == kEmpty) return nullptr;
    }
}

void PlaceNew(Entry* slots, size_t capacity, const Entry& entry) {
    size_t mask = capacity - 1;
    size_t i = Hash(entry.key) & mask;
    while (slots[i].key > kTomb) i = (i + 1) & mask;
    slots[i] = entry;
}

// Makes room for one more entry: grows the array, or rebuilds it without its
// tombstones when they are what fills it. False when memory runs out.
bool Reserve(Shard& s) {
    if ((s.used + s.tombs + 1) * 2 <= s.capacity) return true;
    size_t capacity = s.capacity == 0 ? 64 : s.capacity;
    while ((s.used + 1) * 4 > capacity) capacity *= 2;
    Entry* slots = static_cast<Entry*>(std::calloc(capacity, sizeof(Entry)));
    if (slots == nullptr) return false;
    for (size_t i = 0; i < s.capacity; ++i) {
        if (s.slots[i].key > kTomb) PlaceNew(slots, capacity, s.slots[i]);
    }
    std::free(s.slots);
    s.slots = slots;
    s.capacity = capacity;
    s.tombs = 0;
    return true;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALALLOC, &code)) {
        SetLastError(code);
        return nullptr;
    }
    size_t bytes = dwBytes == 0 ? 1 : dwBytes;
    void* p = (uFlags & GMEM_ZEROINIT) ? std::calloc(1, bytes) : std::malloc(bytes);
    if (p == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    uintptr_t key = reinterpret_cast<uintptr_t>(p);
    Shard& s = ShardOf(key);
    s.Lock();
    bool ok = Reserve(s);
    if (ok) {
        PlaceNew(s.slots, s.capacity, Entry{key, dwBytes, 0, uFlags});
        ++s.used;
    }
    s.Unlock();
    if (!ok) {
        std::free(p);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return p;
}

LPVOID GlobalLock(HGLOBAL hMem) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALLOCK, &code)) {
        SetLastError(code);
        return nullptr;
    }
    uintptr_t key = reinterpret_cast<uintptr_t>(hMem);
    Shard& s = ShardOf(key);
    s.Lock();
    Entry* e = Find(s, key);
    if (e != nullptr && (e->flags & GMEM_MOVEABLE)) ++e->locks;
    s.Unlock();
    if (e == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return hMem;
}

BOOL GlobalUnlock(HGLOBAL hMem) {
    uintptr_t key = reinterpret_cast<uintptr_t>(hMem);
    Shard& s = ShardOf(key);
    s.Lock();
    Entry* e = Find(s, key);
    BOOL stillLocked = FALSE;
    bool notLocked = false;
    if (e != nullptr) {
        if (e->locks > 0) {
            --e->locks;
            stillLocked = e->locks > 0;
        } else {
            notLocked = true;
        }
    }
    s.Unlock();
    if (e == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    } else if (notLocked) {
        SetLastError(ERROR_NOT_LOCKED);
    } else if (!stillLocked) {
        SetLastError(NO_ERROR);
    }
    return stillLocked;
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
    DWORD code;
    if (orva::fault::Hit(ORVA_FAULT_GLOBALFREE, &code)) {
        SetLastError(code);
        return hMem;
    }
    uintptr_t key = reinterpret_cast<uintptr_t>(hMem);
    Shard& s = ShardOf(key);
    s.Lock();
    Entry* e = Find(s, key);
    if (e != nullptr) {
        e->key = kTomb;
        --s.used;
        ++s.tombs;
    }
    s.Unlock();
    if (e == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return hMem;
    }
    std::free(hMem);
    return nullptr;
}

SIZE_T GlobalSize(HGLOBAL hMem) {
    uintptr_t key = reinterpret_cast<uintptr_t>(hMem);
    Shard& s = ShardOf(key);
    s.Lock();
    Entry* e = Find(s, key);
    size_t size = e != nullptr ? e->size : 0;
    s.Unlock();
    if (e == nullptr) SetLastError(ERROR_INVALID_HANDLE);
    return size;
}

SIZE_T OrvaGlobalLiveBlocks(void) {
    size_t live = 0;
    for (Shard& s : g_shards) {
        s.Lock();
        live += s.used;
        s.Unlock();
    }
    return live;
}
