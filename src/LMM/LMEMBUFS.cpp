// Size-class buffers: a pool with a fixed plan of slot classes, and overflow
// blocks for what fits no class or finds its class full.
//
// One data block holds every class's slots, one class behind the other, and
// each class has a bit table in which a set bit marks a used slot; a request
// takes the lowest free slot and a release clears its bit. Beside each table
// the pool keeps a summary with one bit per 64-bit word of the table, set
// while that word has a free slot, and the lowest free slot itself, so the
// next one is two count instructions away however full the class is.
// Overflow blocks carry an AVL link and live in `usedTree` while the caller
// has them and in `freeTree` after release, ordered by size, for reuse until
// compaction.
#include <cstring>

#include <orvanest/LAL.h>
#include <orvanest/LMM.h>

#include "LAL/bittable.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLMEMBUFS

namespace {

constexpr ULONG_PTR kAnyEnd = ~ULONG_PTR{0};  // with start 0: a key equal to any block of its size

struct ClassEntry {
    DWORD slotSize;
    DWORD slotNum;
    BYTE* first;  // the class's first slot
    BYTE* last;   // its last byte
    void* bits;   // set while the slot is used
    uint64_t reciprocal;  // divides by slotSize with one multiplication; 0 for slots of 1 byte
    BYTE* words;  // the bit table's own words
    uint64_t* open;  // bit w % 64 of open[w / 64] is set while table word w has a free slot
    DWORD openNum;   // summary words
    DWORD next;      // the lowest free slot, kept ready; kBitNotFound while the class is full
};

// Summary words for a class of n slots: one bit per 64 slots.
inline DWORD SummaryWords(DWORD slotNum) { return static_cast<DWORD>((uint64_t{slotNum} + 4095) / 4096); }

// Sizes up to this many bytes find their class through a table in the pool
// record; a plan with larger slots searches the classes in order.
constexpr DWORD kMaxLookupSize = 4096;

struct Pool {
    DWORD classNum;
    ClassEntry* classes;
    void** trees;  // usedTree, freeTree
    void* usedTree;
    void* freeTree;
    BYTE* classBySize;  // [size] = the first class that holds it, for sizes up to lookupLimit
                        // (the summaries and this table follow the entries in the record's block)
    DWORD lookupLimit;  // the largest slot size when it has a table, else 0
    BYTE* data;         // the slots of all classes
    ULONG_PTR dataSize;
    ClassEntry entries[1];  // classNum entries; the first one's slots open the data block
};

// The header in front of an overflow block's data.
struct OverflowBlock {
    void* link[4];  // AVL link, owned by whichever tree holds the block
    BYTE* start;    // the data: the byte behind this header
    BYTE* end;      // start + size
    DWORD size;
};

inline Pool* PoolOf(void* pool) { return static_cast<Pool*>(pool); }
inline ULONG_PTR Address(const void* p) { return reinterpret_cast<ULONG_PTR>(p); }

int CompareUsed(void* key, void* node) {
    ULONG_PTR a = Address(static_cast<OverflowBlock*>(key)->start);
    ULONG_PTR b = Address(static_cast<OverflowBlock*>(node)->start);
    return a < b ? -1 : a > b ? 1 : 0;
}

int CompareFree(void* key, void* node) {
    auto* k = static_cast<OverflowBlock*>(key);
    auto* n = static_cast<OverflowBlock*>(node);
    if (k->size != n->size) return k->size < n->size ? -1 : 1;
    if (k->start == nullptr && Address(k->end) == kAnyEnd) return 0;
    return Address(k->start) < Address(n->start) ? -1 : Address(k->start) > Address(n->start) ? 1 : 0;
}

void SetData(OverflowBlock* block, DWORD size) {
    block->start = reinterpret_cast<BYTE*>(block + 1);
    block->end = block->start + size;
    block->size = size;
}

// Releases every overflow block of a tree; 0 when any step failed.
int EmptyTree(void* tree) {
    int result = 1;
    for (void* node; (node = lavlGetFirstNode(tree, nullptr, 0)) != nullptr;) {
        if (lavlDel(tree, node) == 0) {
            result = 0;
            break;
        }
        if (lmemFree(node) == 0) result = 0;
    }
    return result;
}

// The release of a pool made in part: every part, null or not, goes to its
// release operation, between the brackets that restore the latest mark.
void ReleasePartial(Pool* pool, DWORD tablesMade, void* usedTree, void* freeTree, BYTE* data) {
    ldbgCloseSetErr();
    for (DWORD i = 0; i < tablesMade; ++i) lbittblDestroy(pool->entries[i].bits);
    lavlDestroy(usedTree);
    lavlDestroy(freeTree);
    lmemFree(pool);
    lmemFree(data);
    ldbgOpenSetErr();
}

// The sum is taken in 64 bits: a plan whose slots need more than a block
// can hold is not cut down to a smaller data block.
bool ArgumentsPass(tagLMM_MembufsBlock* blocks, DWORD num, uint64_t* dataSize, DWORD* maxSlot) {
    if (blocks == nullptr || num == 0) return false;
    uint64_t sum = 0;
    DWORD largest = 0;
    for (DWORD i = 0; i < num; ++i) {
        if (blocks[i].slotSize == 0 || blocks[i].slotNum == 0) return false;
        sum += uint64_t{blocks[i].slotSize} * blocks[i].slotNum;
        if (blocks[i].slotSize > largest) largest = blocks[i].slotSize;
    }
    *dataSize = sum;
    *maxSlot = largest;
    return true;
}

// The first class, in the caller's order, whose slots hold size bytes, or
// null. The pool's table gives the same answer as the search in order.
inline ClassEntry* ClassForSize(Pool* pool, DWORD size) {
    if (size <= pool->lookupLimit) return &pool->classes[pool->classBySize[size]];  // the largest slot holds it
    if (pool->lookupLimit != 0) return nullptr;  // larger than every slot
    DWORD k = 0;
    while (k < pool->classNum && pool->classes[k].slotSize < size) ++k;
    return k < pool->classNum ? &pool->classes[k] : nullptr;
}

// Fills the table of classes by size with the answers of a search in order.
void FillLookup(Pool* pool) {
    for (DWORD size = 1; size <= pool->lookupLimit; ++size) {
        DWORD k = 0;
        while (k < pool->classNum && pool->classes[k].slotSize < size) ++k;
        pool->classBySize[size] = static_cast<BYTE>(k);
    }
}

// The first 0 bit of a table word that has one, in index order.
inline DWORD FirstFreeOf(const ClassEntry* entry, DWORD word) {
    const uint64_t raw = lal::RawWord(entry->words, static_cast<long>(word) * 8);
    return word * 64 + static_cast<DWORD>(__builtin_clzll(~__builtin_bswap64(raw)));
}

// The lowest free slot in the open words of summary word s and later ones,
// or kBitNotFound.
__attribute__((noinline)) DWORD LowestFreeFrom(const ClassEntry* entry, DWORD s) {
    for (; s < entry->openNum; ++s) {
        if (entry->open[s] == 0) continue;
        return FirstFreeOf(entry, s * 64 + static_cast<DWORD>(__builtin_ctzll(entry->open[s])));
    }
    return lal::kBitNotFound;
}

// Marks the class's lowest free slot used and finds the next one. The slots
// below it are all used, so every open word lies at or above its word: the
// next one is the first 0 of the lowest open word, which is its own word
// unless that has just become full. The summary is updated without a branch
// on that, which a churn of requests could not predict. The pool's own
// tables are valid by construction, so it reads and writes their words
// without the checks of the exported entry points.
inline DWORD TakeLowestFree(ClassEntry* entry) {
    const DWORD index = entry->next;
    const DWORD word = index >> 6;
    BYTE* at = entry->words + static_cast<size_t>(word) * 8;
    const uint64_t raw = lal::RawWord(at, 0) | lal::RawMask(index);
    std::memcpy(at, &raw, sizeof raw);
    const uint64_t full = raw == ~uint64_t{0} ? 1 : 0;
    const uint64_t summary = entry->open[word >> 6] & ~(full << (word & 63));
    entry->open[word >> 6] = summary;
    entry->next = summary != 0 ? FirstFreeOf(entry, (word & ~DWORD{63}) + static_cast<DWORD>(__builtin_ctzll(summary)))
                               : LowestFreeFrom(entry, (word >> 6) + 1);
    return index;
}

// Frees a slot of a class; a slot that is free already stays free.
inline void GiveBack(ClassEntry* entry, DWORD index) {
    const DWORD word = index >> 6;
    BYTE* at = entry->words + static_cast<size_t>(word) * 8;
    const uint64_t raw = lal::RawWord(at, 0) & ~lal::RawMask(index);
    std::memcpy(at, &raw, sizeof raw);
    entry->open[word >> 6] |= uint64_t{1} << (word & 63);
    entry->next = index < entry->next ? index : entry->next;
}

// Bits past the last slot in the table's last word are marked used, so that
// a word is full exactly when all its slots are; the table's own search
// never looks past its count, so they are invisible to it. Every word with
// slots starts open, and slot 0 is the first free one.
void OpenClass(ClassEntry* entry, uint64_t* summary) {
    auto* table = static_cast<lal::BitTable*>(entry->bits);
    for (DWORD index = entry->slotNum; index % 64 != 0; ++index) lal::WriteBit(table, index, 1);
    const auto words = static_cast<DWORD>((uint64_t{entry->slotNum} + 63) / 64);
    for (DWORD w = 0; w < words; ++w) summary[w >> 6] |= uint64_t{1} << (w & 63);
    entry->words = table->bits;
    entry->open = summary;
    entry->openNum = SummaryWords(entry->slotNum);
    entry->next = 0;
}

// (offset / slotSize) for offsets within the data block, which are below
// 2^32: the product with the rounded-up reciprocal of 2^64 is exact there.
inline DWORD SlotIndex(const ClassEntry* entry, const BYTE* p) {
    const uint64_t offset = Address(p) - Address(entry->first);
    if (entry->reciprocal == 0) return static_cast<DWORD>(offset);  // 2^64 itself does not fit
    return static_cast<DWORD>((static_cast<unsigned __int128>(offset) * entry->reciprocal) >> 64);
}

// The class whose slots hold p, or null. The classes lie one behind the
// other in one block, so it is the count of classes that end before p.
inline ClassEntry* ClassOfSlot(Pool* pool, const BYTE* p) {
    if (Address(p) - Address(pool->data) >= pool->dataSize) return nullptr;
    DWORD k = 0;
    for (DWORD i = 0; i < pool->classNum; ++i) k += pool->classes[i].last < p;
    return &pool->classes[k];
}

// A request that no slot takes: a free block of that size or the next
// larger, else the largest smaller one grown, else a new block.
// Kept out of line so that the slot road stays short.
__attribute__((noinline)) void* AllocOverflow(Pool* pool, DWORD size) {
    if (uint64_t{size} + sizeof(OverflowBlock) > 0xFFFFFFFFu) LDE_THROW_TOO_LARGE();  // no room for the header
    OverflowBlock key{};
    key.end = reinterpret_cast<BYTE*>(kAnyEnd);
    key.size = size;
    void* found = nullptr;
    int result = lavlSearch(pool->freeTree, &key, &found, 1);
    if (result == 0 || result == 1) {
        if (lavlDel(pool->freeTree, found) == 0 || lavlIns(pool->usedTree, found) == 0) {
            LDE_PASS();
            return nullptr;
        }
        return static_cast<OverflowBlock*>(found)->start;
    }
    if (result != 2) {
        LDE_PASS();
        return nullptr;
    }
    result = lavlSearch(pool->freeTree, &key, &found, 2);
    OverflowBlock* block;
    if (result == 1) {
        if (lavlDel(pool->freeTree, found) == 0) {
            LDE_PASS();
            return nullptr;
        }
        try {
            block = static_cast<OverflowBlock*>(lmemReAlloc(found, sizeof(OverflowBlock) + size));
        } catch (...) {
            // The old block is whole when growing fails: it goes back among
            // the free ones rather than being lost to the pool.
            lavlIns(pool->freeTree, found);
            throw;
        }
    } else if (result == 2) {
        block = static_cast<OverflowBlock*>(lmemAllocFunc(sizeof(OverflowBlock) + size, LDE_POS()));
    } else {
        LDE_PASS();
        return nullptr;
    }
    SetData(block, size);
    if (lavlIns(pool->usedTree, block) == 0) {
        LDE_PASS();
        return nullptr;
    }
    return block->start;
}

// Puts an overflow block that the caller has among the free ones; kept out
// of line so that the slot road stays short.
__attribute__((noinline)) int FreeOverflow(Pool* pl, BYTE* at) {
    OverflowBlock key{};
    key.start = at;
    void* found = nullptr;
    if (lavlSearch(pl->usedTree, &key, &found, 0) != 0) {
        LDE_PASS();
        return 0;
    }
    if (lavlDel(pl->usedTree, found) == 0 || lavlIns(pl->freeTree, found) == 0) {
        LDE_PASS();
        return 0;
    }
    return 1;
}

// A request whose class is known (null: none holds it): the lowest free
// slot, or an overflow block when the class is full; a larger class is not
// tried.
inline void* AllocInClass(Pool* pool, ClassEntry* entry, DWORD size) {
    if (entry != nullptr && entry->next != lal::kBitNotFound) {
        return entry->first + static_cast<size_t>(TakeLowestFree(entry)) * entry->slotSize;
    }
    return AllocOverflow(pool, size);
}

// Where the parts of the pool record lie in its one block: the class
// entries, each class's summary, then the table by size.
struct RecordLayout {
    uint64_t summaries, sizeTable, size;
    DWORD lookupLimit;
    RecordLayout(const tagLMM_MembufsBlock* blocks, DWORD num, DWORD maxSlot) {
        lookupLimit = maxSlot <= kMaxLookupSize && num < 255 ? maxSlot : 0;  // class numbers fit its bytes
        summaries = offsetof(Pool, entries) + uint64_t{num} * sizeof(ClassEntry);
        uint64_t summaryWords = 0;
        for (DWORD i = 0; i < num; ++i) summaryWords += SummaryWords(blocks[i].slotNum);
        sizeTable = summaries + summaryWords * 8;
        size = sizeTable + (lookupLimit != 0 ? lookupLimit + 1 : 0);
    }
};

void FillTables(Pool* pool, const RecordLayout& layout, BYTE* data, DWORD dataSize) {
    pool->lookupLimit = layout.lookupLimit;
    pool->classBySize = reinterpret_cast<BYTE*>(pool) + layout.sizeTable;
    FillLookup(pool);
    pool->data = data;
    pool->dataSize = dataSize;
}

}  // namespace

void* lmembufsCreate(struct tagLMM_MembufsBlock* blocks, DWORD num) {
    uint64_t dataSize = 0;
    DWORD maxSlot = 0;
    if (!ArgumentsPass(blocks, num, &dataSize, &maxSlot)) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        ReleasePartial(nullptr, 0, nullptr, nullptr, nullptr);
        return nullptr;
    }
    const RecordLayout layout(blocks, num, maxSlot);
    // Slots or a record beyond what one block can hold cannot be had; this
    // raises before anything is taken.
    if (dataSize > 0xFFFFFFFFu || layout.size > 0xFFFFFFFFu) LDE_THROW_TOO_LARGE();
    Pool* pool = nullptr;
    BYTE* data = nullptr;
    void* usedTree = nullptr;
    void* freeTree = nullptr;
    DWORD tablesMade = 0;
    try {
        pool = static_cast<Pool*>(lmemAllocFunc(static_cast<DWORD>(layout.size), LDE_POS()));
        data = static_cast<BYTE*>(lmemAllocFunc(static_cast<DWORD>(dataSize), LDE_POS()));
        usedTree = lavlCreate(0, CompareUsed);
        freeTree = lavlCreate(0, CompareFree);
        pool->classNum = num;
        pool->classes = pool->entries;
        pool->trees = &pool->usedTree;
        auto* summary = reinterpret_cast<uint64_t*>(reinterpret_cast<BYTE*>(pool) + layout.summaries);
        BYTE* next = data;
        for (; tablesMade < num; ++tablesMade) {
            ClassEntry& entry = pool->entries[tablesMade];
            entry.bits = lbittblCreate(blocks[tablesMade].slotNum, 0);
            entry.slotSize = blocks[tablesMade].slotSize;
            entry.slotNum = blocks[tablesMade].slotNum;
            entry.first = next;
            next += entry.slotSize * entry.slotNum;
            entry.last = next - 1;
            entry.reciprocal = ~uint64_t{0} / entry.slotSize + 1;
            OpenClass(&entry, summary);
            summary += entry.openNum;
        }
        FillTables(pool, layout, data, static_cast<DWORD>(dataSize));
    } catch (...) {
        if (pool != nullptr) ReleasePartial(pool, tablesMade, usedTree, freeTree, data);
        throw;
    }
    pool->usedTree = usedTree;
    pool->freeTree = freeTree;
    return pool;
}

int lmembufsDestroy(void* pool) {
    if (pool == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    Pool* p = PoolOf(pool);
    int result = 1;
    for (DWORD i = 0; i < p->classNum; ++i) {
        if (lbittblDestroy(p->classes[i].bits) == 0) {
            LDE_PASS();
            result = 0;
        }
    }
    if (lmemFree(p->classes[0].first) == 0) {
        LDE_PASS();
        result = 0;
    }
    if (EmptyTree(p->usedTree) == 0) result = 0;
    if (EmptyTree(p->freeTree) == 0) result = 0;
    if (lavlDestroy(p->usedTree) == 0) result = 0;
    if (lavlDestroy(p->freeTree) == 0) result = 0;
    if (lmemFree(p) == 0) {
        LDE_PASS();
        result = 0;
    }
    return result;
}

void* lmembufsAlloc(void* pool, DWORD size) {
    if (pool == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return nullptr;
    }
    Pool* p = PoolOf(pool);
    // Sizes from 1 up to the largest slot find their class in the table; the
    // one comparison also lets size 0 through to the refusal below.
    if (size - 1 < p->lookupLimit) return AllocInClass(p, &p->classes[p->classBySize[size]], size);
    if (size == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    return AllocInClass(p, ClassForSize(p, size), size);
}

int lmembufsFree(void* pool, void* p) {
    if (pool == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    Pool* pl = PoolOf(pool);
    auto* at = static_cast<BYTE*>(p);
    if (ClassEntry* entry = ClassOfSlot(pl, at)) {
        GiveBack(entry, SlotIndex(entry, at));
        return 1;
    }
    return FreeOverflow(pl, at);
}

int lmembufsCompact(void* pool) {
    if (pool == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    return EmptyTree(PoolOf(pool)->freeTree);
}

int lmembufsDispInfo(void*) { return 1; }
