// The extensible array: fixed-size elements in one contiguous block that
// grows and shrinks by whole steps as elements come and go.
//
// The block's size is a function of the element count alone: the first block
// holds firstNum elements, and beyond that the block holds the smallest
// number firstNum + k * stepNum that fits. Every change of that size takes a
// fresh block and moves the data once, straight to its final place; while the
// size stays, only the elements behind the point of change shift. Appending
// inside the block is one copy and never reaches the size step.
//
// Every operation runs under the library's one critical section, taken by a
// scope object so that an exception passing through leaves it released. The
// section is re-entrant, which the sorted insertion relies on when it calls
// the plain one, and the changing operations when they call the size step.
// A caller that reads the block between laearLock and laearUnlock is guarded
// by the lock count, not by the section.
//
// Exhausted memory raises L_CMemoryException from the allocator. When it
// does so inside the size step, the array is left exactly as it was before
// the operation: block, capacity and count. The count has been raised or
// lowered by then, so it is put back before the exception goes on; an
// array therefore never claims more elements than its block holds. A failed
// commit of a fresh virtual block gives the old block back the same way.
//
// Sizes are worked out in 64 bits. A block that 32 bits cannot describe
// cannot be had, and asking for one raises L_CMemoryException as exhaustion
// does, rather than wrapping round to a small block.
//
// Marks under the source LAEAR; the binary search lives in LAL.cpp.
#include <cstdint>
#include <cstring>

#include <orvanest/LAL.h>
#include <orvanest/LMM.h>

#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAEAR

namespace {

constexpr UINT kLast = 0xFFFFFFFFu;  // the index that means "the last one"

struct AearRecord {
    void* link[2];  // membership in the creating thread's aearList
    char* block;
    char* blockEnd;
    DWORD capacity;     // bytes of block
    UINT maxNum;        // the highest num ever held; only rises
    UINT num;           // elements
    int lockCount;      // > 0: locked
    DWORD elementSize;  // these three are fixed at creation and never 0
    DWORD firstNum;
    DWORD stepNum;
};

inline AearRecord* RecordOf(void* array) { return static_cast<AearRecord*>(array); }

inline char* At(char* block, const AearRecord* a, UINT index) {
    return block + static_cast<size_t>(index) * a->elementSize;
}
inline size_t Bytes(const AearRecord* a, UINT count) { return static_cast<size_t>(count) * a->elementSize; }

// Holds the library's critical section for one operation.
class LibraryLockScope {
public:
    LibraryLockScope() { EnterCriticalSection(&lde::g_libraryLock); }
    ~LibraryLockScope() { LeaveCriticalSection(&lde::g_libraryLock); }
    LibraryLockScope(const LibraryLockScope&) = delete;
    LibraryLockScope& operator=(const LibraryLockScope&) = delete;
};

// The capacity that num elements want: the first block, or the first block
// and as many whole steps as the elements beyond it need.
DWORD WantedCapacity(const AearRecord* a) {
    uint64_t firstBytes = uint64_t{a->firstNum} * a->elementSize;
    uint64_t stepBytes = uint64_t{a->stepNum} * a->elementSize;
    uint64_t used = uint64_t{a->num} * a->elementSize;
    uint64_t wanted = firstBytes;
    if (used > firstBytes) wanted += ((used - firstBytes - 1) / stepBytes + 1) * stepBytes;
    if (wanted > 0xFFFFFFFFull) LDE_THROW_TOO_LARGE();
    return static_cast<DWORD>(wanted);
}

// Sets the count and brings the block to it. When the size step raises, the
// block is still the old one, and the count goes back to what it was before
// the exception goes on: the array never claims more elements than its
// block holds.
void Renew(AearRecord* a, UINT num) {
    const UINT oldNum = a->num;
    a->num = num;
    try {
        laearRenewBlock(a);
    } catch (...) {
        a->num = oldNum;
        throw;
    }
}

void RaiseMax(AearRecord* a) {
    if (a->num > a->maxNum) a->maxNum = a->num;
}

// Null handle: last error 6; the caller marks at its own position.
bool RefuseNull(void* array) {
    if (array != nullptr) return false;
    SetLastError(ERROR_INVALID_HANDLE);
    return true;
}

// The refusals of every operation that changes the array: a null handle,
// then a lock. Called with the library's lock held.
bool RefuseChange(void* array) {
    if (RefuseNull(array)) return true;
    if (RecordOf(array)->lockCount <= 0) return false;
    SetLastError(LERR_LOCKED);
    return true;
}

}  // namespace

void* laearCreate(DWORD elementSize, DWORD firstNum, DWORD stepNum) {
    LibraryLockScope lock;
    if (elementSize == 0 || firstNum == 0 || stepNum == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    void* list = lde::Context()->aearList;
    if (list == nullptr) {  // a thread whose attach did not finish
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return nullptr;
    }
    uint64_t firstBytes = uint64_t{firstNum} * elementSize;
    if (firstBytes > 0xFFFFFFFFull) LDE_THROW_TOO_LARGE();

    auto* a = static_cast<AearRecord*>(lmemAllocFunc(sizeof(AearRecord), LDE_POS()));
    try {
        a->block = static_cast<char*>(lmemAllocFunc(static_cast<DWORD>(firstBytes), LDE_POS()));
    } catch (...) {
        lmemFree(a);  // a failed creation leaves nothing behind
        throw;
    }
    a->capacity = static_cast<DWORD>(firstBytes);
    a->blockEnd = a->block + a->capacity;
    a->elementSize = elementSize;
    a->firstNum = firstNum;
    a->stepNum = stepNum;
    if (ldlistIns(list, a, reinterpret_cast<void*>(~ULONG_PTR{0})) == 0) {
        LDE_PASS();
        ldbgCloseSetErr();
        lmemFree(a->block);
        lmemFree(a);
        ldbgOpenSetErr();
        return nullptr;
    }
    return a;
}

int laearDestroy(void* array) {
    if (RefuseNull(array)) {
        LDE_MARK();
        return 0;
    }
    LibraryLockScope lock;
    AearRecord* a = RecordOf(array);
    lmemFree(a->block);
    // The calling thread's list: on another thread than the creator this
    // unlinks the record all the same but counts it off the wrong list.
    ldlistDel(lde::Context()->aearList, a);
    lmemFree(a);
    return 1;
}

void* laearLock(void* array) {
    LibraryLockScope lock;
    AearRecord* a = RecordOf(array);
    ++a->lockCount;
    return a->block;
}

int laearUnlock(void* array) {
    if (RefuseNull(array)) {
        LDE_MARK();
        return 0;
    }
    LibraryLockScope lock;
    AearRecord* a = RecordOf(array);
    if (a->lockCount <= 0) {
        SetLastError(LERR_NOTLOCKED);
        LDE_MARK();
        return 0;
    }
    --a->lockCount;
    return 1;
}

UINT laearGetNum(void* array) {
    if (RefuseNull(array)) return 0;  // with no mark
    LibraryLockScope lock;
    return RecordOf(array)->num;
}

int laearRenewBlock(void* array) {
    if (RefuseNull(array)) {
        LDE_MARK();
        return 0;
    }
    LibraryLockScope lock;
    AearRecord* a = RecordOf(array);
    DWORD wanted = WantedCapacity(a);
    if (wanted == a->capacity) return 1;

    // The old block stays as it is: the caller has kept its address and
    // brings the data over itself.
    auto* fresh = static_cast<char*>(lmemAllocFunc(wanted, LDE_POS()));
    char* oldBlock = a->block;
    char* oldEnd = a->blockEnd;
    DWORD oldCapacity = a->capacity;
    a->block = fresh;
    a->blockEnd = fresh + wanted;
    a->capacity = wanted;

    // A virtual block has only its first page committed; the data that is
    // about to arrive needs its pages now. A failed commit gives the array
    // its old block back before the exception goes on, so the step either
    // happens whole or not at all.
    DWORD used = static_cast<DWORD>(Bytes(a, a->num));
    if (used != 0 && lmemGetVirtualAllocNode(fresh) != nullptr) {
        try {
            if (lmemVirtualCommit(fresh, used) == nullptr) LDE_THROW_STANDARD();
        } catch (...) {
            a->block = oldBlock;
            a->blockEnd = oldEnd;
            a->capacity = oldCapacity;
            lmemFree(fresh);
            throw;
        }
    }
    return 1;
}

int laearIns(void* array, void const* element, UINT index) {
    LibraryLockScope lock;
    if (RefuseChange(array)) {
        LDE_MARK();
        return 0;
    }
    AearRecord* a = RecordOf(array);
    const size_t size = a->elementSize;

    // Appending inside the block: one copy, no size step (and no division).
    if (index == kLast && (static_cast<size_t>(a->num) + 1) * size <= a->capacity) {
        std::memcpy(At(a->block, a, a->num), element, size);
        ++a->num;
        RaiseMax(a);
        return 1;
    }

    char* oldBlock = a->block;
    const UINT oldNum = a->num;
    if (index == kLast) index = oldNum;
    Renew(a, index > oldNum ? index + 1 : oldNum + 1);
    RaiseMax(a);

    char* block = a->block;
    const bool moved = block != oldBlock;
    if (index + 1 == a->num) {
        // At the end or beyond it; a gap keeps whatever the block holds.
        if (moved) std::memcpy(block, oldBlock, Bytes(a, oldNum));
    } else if (index == 0) {
        std::memmove(block + size, oldBlock, Bytes(a, oldNum));
    } else {
        if (moved) std::memcpy(block, oldBlock, Bytes(a, index));
        std::memmove(At(block, a, index + 1), At(oldBlock, a, index), Bytes(a, oldNum - index));
    }
    std::memcpy(At(block, a, index), element, size);
    if (moved) lmemFree(oldBlock);
    return 1;
}

UINT laearInsSort(void* array, void* element, LAL_COMPAREPROC compare) {
    constexpr UINT kFailed = 0xFFFFFFFEu;
    LibraryLockScope lock;
    if (RefuseChange(array)) {
        LDE_MARK();
        return kFailed;
    }
    AearRecord* a = RecordOf(array);
    UINT position = 0;
    if (lalBsearch(element, a->block, a->num, a->elementSize, &position, compare) != 0) return kLast;
    if (laearIns(array, element, position) == 0) {
        LDE_PASS();
        return kFailed;
    }
    return position;
}

int laearDel(void* array, UINT index) {
    LibraryLockScope lock;
    if (RefuseChange(array)) {
        LDE_MARK();
        return 0;
    }
    AearRecord* a = RecordOf(array);
    if (index == kLast) index = a->num - 1;  // on an empty array: kLast again
    if (index >= a->num) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }

    char* oldBlock = a->block;
    const UINT oldNum = a->num;
    Renew(a, oldNum - 1);

    char* block = a->block;
    const bool moved = block != oldBlock;
    if (index == 0) {
        std::memmove(block, At(oldBlock, a, 1), Bytes(a, oldNum - 1));
    } else if (index == oldNum - 1) {
        if (moved) std::memcpy(block, oldBlock, Bytes(a, index));
    } else {
        if (moved) std::memcpy(block, oldBlock, Bytes(a, index));
        std::memmove(At(block, a, index), At(oldBlock, a, index + 1), Bytes(a, oldNum - index - 1));
    }
    if (moved) lmemFree(oldBlock);
    return 1;
}

int laearSetNum(void* array, UINT num) {
    LibraryLockScope lock;
    if (RefuseChange(array)) {
        LDE_MARK();
        return 0;
    }
    AearRecord* a = RecordOf(array);
    char* oldBlock = a->block;
    const UINT oldNum = a->num;
    Renew(a, num);
    RaiseMax(a);

    // The same block: new elements hold whatever it holds there. A fresh
    // block: the elements that stay come over, new ones read as zero.
    if (a->block == oldBlock) return 1;
    std::memcpy(a->block, oldBlock, Bytes(a, num < oldNum ? num : oldNum));
    lmemFree(oldBlock);
    return 1;
}
