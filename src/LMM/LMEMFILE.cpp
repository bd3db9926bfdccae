// The memory file: a growing block with the behaviour of a file (a current
// position, sequential reads and writes, seek, and a size that grows only by
// writing or by setting it), plus two ways into the block itself that
// exclude each other: a lock, which hands out the block, and a reservation,
// which hands out free room behind the data to fill and then to claim.
//
// capacity is memory held and size is data. The block grows by whole steps
// of growStep and never shrinks; growth takes a fresh block and copies the
// whole old capacity, not only the data, so that bytes left behind by a
// shrinking set-size come back when the size grows again. Because growth
// moves the block, a lock or a reservation refuses everything that could
// grow it: the address handed out must stay good.
//
// A file is used by its own thread and takes no lock. Sizes and positions are
// 32-bit; a need that 32 bits cannot describe raises L_CMemoryException as
// exhaustion does, rather than wrapping round to a small block. Growth
// raises before it touches the old block, so a failed growth leaves the file
// as it was.
//
// Marks under the source LMEMFILE.
#include <cstdint>
#include <cstring>

#include <orvanest/LMM.h>

#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLMEMFILE

namespace {

struct MemFile {
    void* link[2];  // membership in the creating thread's memfileList
    char* buffer;
    DWORD growStep;  // fixed at creation, never 0
    DWORD position;  // <= size after every operation
    DWORD capacity;  // bytes of buffer: the first size plus whole steps
    DWORD size;      // <= capacity
    int lockCount;   // > 0: locked; never together with reserved
    int reserved;
    DWORD reservedSize;
};

inline MemFile* FileOf(void* file) { return static_cast<MemFile*>(file); }

// Null handle: last error 6 and a mark.
bool RefuseNull(void* file) {
    if (file != nullptr) return false;
    SetLastError(ERROR_INVALID_HANDLE);
    return true;
}

// The refusals of everything that reads, writes or may grow the block:
// first a lock, then a reservation.
bool RefuseState(const MemFile* f) {
    if (f->lockCount > 0) {
        SetLastError(LERR_LOCKED);
        return true;
    }
    if (f->reserved != 0) {
        SetLastError(LERR_RESERVED);
        return true;
    }
    return false;
}

// The refusals of setting the size and reserving: a null handle, a lock, a
// reservation. Reading and writing test their data pointer after the handle.
bool RefuseBusy(void* file) { return RefuseNull(file) || RefuseState(FileOf(file)); }

bool RefuseTransfer(void* file, const void* data) {
    if (RefuseNull(file)) return true;
    if (data == nullptr) {
        SetLastError(LERR_INVALIDARG);
        return true;
    }
    return RefuseState(FileOf(file));
}

// The end of a piece of `length` bytes at `start`, as a 32-bit need.
DWORD NeedFor(DWORD start, DWORD length) {
    uint64_t need = uint64_t{start} + length;
    if (need > 0xFFFFFFFFull) LDE_THROW_TOO_LARGE();
    return static_cast<DWORD>(need);
}

// The growth rule: the old capacity plus the fewest whole steps that reach
// `needed`. The fresh block is committed over the old capacity when it is a
// virtual block (nothing happens for a global one), the whole old capacity
// comes over, and the old block goes.
void Grow(MemFile* f, DWORD needed) {
    if (f->capacity >= needed) return;
    uint64_t steps = (uint64_t{needed} - f->capacity + f->growStep - 1) / f->growStep;
    uint64_t wanted = f->capacity + steps * f->growStep;
    if (wanted > 0xFFFFFFFFull) LDE_THROW_TOO_LARGE();

    auto* fresh = static_cast<char*>(lmemAllocFunc(static_cast<DWORD>(wanted), LDE_POS()));
    try {
        lmemVirtualCommit(fresh, f->capacity);
    } catch (...) {
        lmemFree(fresh);  // the file keeps its old block
        throw;
    }
    std::memcpy(fresh, f->buffer, f->capacity);
    char* old = f->buffer;
    f->buffer = fresh;
    f->capacity = static_cast<DWORD>(wanted);
    lmemFree(old);
}

}  // namespace

void* lmemfileCreate(DWORD firstSize, DWORD growStep) {
    if (firstSize == 0 || growStep == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    void* list = lde::Context()->memfileList;
    if (RefuseNull(list)) {  // a thread whose attach did not finish
        LDE_MARK();
        return nullptr;
    }
    auto* f = static_cast<MemFile*>(lmemAllocFunc(sizeof(MemFile), LDE_POS()));
    try {
        f->buffer = static_cast<char*>(lmemAllocFunc(firstSize, LDE_POS()));
    } catch (...) {
        lmemFree(f);  // a failed creation leaves nothing behind
        throw;
    }
    f->capacity = firstSize;
    f->growStep = growStep;
    if (ldlistIns(list, f, reinterpret_cast<void*>(~ULONG_PTR{0})) == 0) {
        LDE_PASS();
        ldbgCloseSetErr();
        lmemFree(f->buffer);
        lmemFree(f);
        ldbgOpenSetErr();
        return nullptr;
    }
    return f;
}

int lmemfileDestroy(void* file) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return 0;
    }
    MemFile* f = FileOf(file);
    lmemFree(f->buffer);
    ldlistDel(lde::Context()->memfileList, f);
    lmemFree(f);
    return 1;
}

int lmemfileRead(void* file, void* data, DWORD length) {
    if (RefuseTransfer(file, data)) {
        LDE_MARK();
        return -1;
    }
    MemFile* f = FileOf(file);
    DWORD left = f->size - f->position;
    DWORD n = length < left ? length : left;
    std::memcpy(data, f->buffer + f->position, n);
    f->position += n;
    return static_cast<int>(n);
}

int lmemfileWrite(void* file, void* data, DWORD length) {
    if (RefuseTransfer(file, data)) {
        LDE_MARK();
        return 0;
    }
    MemFile* f = FileOf(file);
    Grow(f, NeedFor(f->position, length));
    std::memcpy(f->buffer + f->position, data, length);
    f->position += length;
    if (f->position > f->size) f->size = f->position;
    return 1;
}

int lmemfileSeek(void* file, int offset, DWORD origin) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return -1;
    }
    MemFile* f = FileOf(file);
    int64_t base;
    switch (origin) {
    case 0:
        base = 0;
        break;
    case 1:
        base = f->position;
        break;
    case 2:
        base = f->size;
        break;
    default:
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return -1;
    }
    // Exactly the end is a legal place; past it is not, and a seek never
    // grows anything.
    int64_t target = base + offset;
    if (target < 0 || target > int64_t{f->size}) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return -1;
    }
    f->position = static_cast<DWORD>(target);
    return static_cast<int>(f->position);
}

void* lmemfileLock(void* file) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return nullptr;
    }
    MemFile* f = FileOf(file);
    if (f->reserved != 0) {
        SetLastError(LERR_RESERVED);
        LDE_MARK();
        return nullptr;
    }
    ++f->lockCount;
    return f->buffer;
}

int lmemfileUnlock(void* file) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return 0;
    }
    MemFile* f = FileOf(file);
    if (f->lockCount <= 0) {
        SetLastError(LERR_NOTLOCKED);
        LDE_MARK();
        return 0;
    }
    --f->lockCount;
    return 1;
}

DWORD lmemfileGetSize(void* file) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    return FileOf(file)->size;
}

DWORD lmemfileGetCurrentPos(void* file) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    return FileOf(file)->position;
}

int lmemfileGrowBuf(void* file, DWORD needed) {
    MemFile* f = FileOf(file);
    if (RefuseState(f)) {
        LDE_MARK();
        return 0;
    }
    Grow(f, needed);
    return 1;
}

int lmemfileSetSize(void* file, DWORD newSize) {
    if (RefuseBusy(file)) {
        LDE_MARK();
        return 0;
    }
    MemFile* f = FileOf(file);
    // Within the capacity nothing is cleared or written: a shrink followed
    // by a growth brings the old bytes back.
    Grow(f, newSize);
    f->size = newSize;
    f->position = newSize;
    return 1;
}

void* lmemfileReserveBuf(void* file, DWORD length) {
    if (RefuseBusy(file)) {
        LDE_MARK();
        return nullptr;
    }
    MemFile* f = FileOf(file);
    Grow(f, NeedFor(f->size, length));
    f->reserved = 1;
    f->reservedSize = length;
    return f->buffer + f->size;  // behind the data, wherever the position is
}

int lmemfileReleaseBuf(void* file, DWORD used) {
    if (RefuseNull(file)) {
        LDE_MARK();
        return 0;
    }
    MemFile* f = FileOf(file);
    if (f->reserved == 0) {
        SetLastError(LERR_NOTRESERVED);
        LDE_MARK();
        return 0;
    }
    // Claiming more than was reserved is refused quietly, and the
    // reservation stands for a second try.
    if (used > f->reservedSize) return 0;
    f->reserved = 0;
    if (lmemfileSetSize(file, f->size + used) == 0) {
        LDE_PASS();
        return 0;
    }
    return 1;
}
