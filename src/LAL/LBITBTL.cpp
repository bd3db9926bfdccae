// The bit table: a fixed array of bits with a search for the nearest bit of
// a value.
//
// Bit i lies in byte i / 8 under the mask 0x80 >> (i % 8), so the bits read
// in index order when the bytes are read as one big-endian number. The
// search uses that: eight bytes loaded and byte-swapped are 64 bits in index
// order, where the nearest hit is a count of leading (going up) or trailing
// (going down) zeros. Words are read at aligned places (see bittable.h). After a few hundred bytes without a hit, the rest of
// a long run is skipped 64 or 128 bytes at a time with vector comparisons
// (AVX2 where the processor has it). The answer is always the one a bit-by-bit walk
// gives; bits beyond `count` are masked off and never found, and no read goes
// past the `byteSize` bytes of the table.
#include <immintrin.h>

#include <cstring>

#include <orvanest/LAL.h>
#include <orvanest/LMM.h>

#include "LAL/bittable.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLBITBTL

namespace {

using lal::BitTable;
using lal::kBitNotFound;

constexpr DWORD kFailed = 0xFFFFFFFFu;

inline BitTable* TableOf(void* table) { return static_cast<BitTable*>(table); }

// Runs without a hit are skipped a block at a time with vector compares: a
// block has no hit when its bytes are all zero (1 wanted) or all ones (0
// wanted). Each skipper gives the first block position, going up from pos or
// down to the block that ends at pos, that may hold a hit or is too near the
// edge of the table for a whole block.
using SkipUpFn = long (*)(const BYTE* bits, long pos, long byteSize, bool one);
using SkipDownFn = long (*)(const BYTE* bits, long end, bool one);

// True when the 64 bytes at p hold no hit.
inline bool NoHitSse2(const BYTE* p, bool one) {
    const __m128i* v = reinterpret_cast<const __m128i*>(p);
    __m128i a = _mm_loadu_si128(v), b = _mm_loadu_si128(v + 1);
    __m128i c = _mm_loadu_si128(v + 2), d = _mm_loadu_si128(v + 3);
    __m128i x = one ? _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))
                    : _mm_and_si128(_mm_and_si128(a, b), _mm_and_si128(c, d));
    __m128i want = one ? _mm_setzero_si128() : _mm_set1_epi8(-1);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(x, want)) == 0xFFFF;
}

// True when the 128 bytes at p hold no hit.
__attribute__((target("avx2"))) inline bool NoHitAvx2(const BYTE* p, bool one) {
    const __m256i* v = reinterpret_cast<const __m256i*>(p);
    __m256i a = _mm256_loadu_si256(v), b = _mm256_loadu_si256(v + 1);
    __m256i c = _mm256_loadu_si256(v + 2), d = _mm256_loadu_si256(v + 3);
    __m256i x = one ? _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d))
                    : _mm256_and_si256(_mm256_and_si256(a, b), _mm256_and_si256(c, d));
    __m256i want = one ? _mm256_setzero_si256() : _mm256_set1_epi8(-1);
    return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, want))) == 0xFFFFFFFFu;
}

long SkipUpSse2(const BYTE* bits, long pos, long byteSize, bool one) {
    while (pos + 64 <= byteSize && NoHitSse2(bits + pos, one)) pos += 64;
    return pos;
}

long SkipDownSse2(const BYTE* bits, long end, bool one) {
    while (end - 63 >= 0 && NoHitSse2(bits + end - 63, one)) end -= 64;
    return end;
}

__attribute__((target("avx2"))) long SkipUpAvx2(const BYTE* bits, long pos, long byteSize, bool one) {
    while (pos + 128 <= byteSize && NoHitAvx2(bits + pos, one)) pos += 128;
    return SkipUpSse2(bits, pos, byteSize, one);
}

__attribute__((target("avx2"))) long SkipDownAvx2(const BYTE* bits, long end, bool one) {
    while (end - 127 >= 0 && NoHitAvx2(bits + end - 127, one)) end -= 128;
    return SkipDownSse2(bits, end, one);
}

const bool g_haveAvx2 = __builtin_cpu_supports("avx2");
const SkipUpFn g_skipUp = g_haveAvx2 ? SkipUpAvx2 : SkipUpSse2;
const SkipDownFn g_skipDown = g_haveAvx2 ? SkipDownAvx2 : SkipDownSse2;

// Near hits are found word by word; after this many bytes without a hit
// the search turns to skipping vector blocks.
constexpr long kBytesBeforeSkipping = 256;

}  // namespace

namespace lal {

// The search upwards after the word at pos held no hit: word by word near
// start, then skipping vector blocks; the block ends in a whole word.
__attribute__((noinline)) DWORD ContinueUp(const BitTable* t, long pos, DWORD last, uint64_t flip) {
    const BYTE* const bits = t->bits;
    const long blockBytes = BlockBytes(t->byteSize);
    const long lastWord = static_cast<long>(last >> 6) * 8;
    const long skipAt = pos + kBytesBeforeSkipping;
    for (;;) {
        pos += 8;
        if (pos > lastWord) return kBitNotFound;
        uint64_t w = WordAt(bits, pos) ^ flip;
        if (w != 0) return FirstUp(pos, w, last);
        if (pos == skipAt) pos = g_skipUp(bits, pos + 8, blockBytes, flip == 0) - 8;
    }
}

// The search downwards after the word at pos held no hit.
__attribute__((noinline)) DWORD ContinueDown(const BitTable* t, long pos, uint64_t flip) {
    const BYTE* const bits = t->bits;
    const long skipAt = pos - kBytesBeforeSkipping;
    for (;;) {
        pos -= 8;
        if (pos < 0) return kBitNotFound;
        uint64_t w = WordAt(bits, pos) ^ flip;
        if (w != 0) return FirstDown(pos, w);
        if (pos == skipAt) pos = g_skipDown(bits, pos - 1, flip == 0) + 1;
    }
}

}  // namespace lal

void* lbittblCreate(DWORD count, int initial) {
    if (count == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    DWORD byteSize = (count + 31) / 32 * 4;
    auto* table = static_cast<BitTable*>(lmemAllocFunc(sizeof(BitTable), LDE_POS()));
    BYTE* bits;
    try {
        bits = static_cast<BYTE*>(lmemAllocFunc(lal::BlockBytes(byteSize), LDE_POS()));
    } catch (...) {
        lmemFree(table);  // never half a table
        throw;
    }
    std::memset(bits, initial == 1 ? 0xFF : 0x00, byteSize);
    table->count = count;
    table->bits = bits;
    table->lastByte = bits + byteSize - 1;
    table->byteSize = byteSize;
    return table;
}

int lbittblDestroy(void* table) {
    if (table == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    lmemFree(TableOf(table)->bits);
    lmemFree(table);
    return 1;
}

UINT lbittblCheckStatus(void* table, DWORD index, UINT mode, int value) {
    if (table == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    BitTable* t = TableOf(table);
    if (index > t->count - 1 || mode < 1 || mode > 6) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    const UINT b = lal::ReadBit(t, index);
    switch (mode) {
    case 1:
        lal::WriteBit(t, index, value);
        return static_cast<UINT>(value);
    case 2:
        return b;
    case 3:
        return b == 1 && value == 1 ? 1 : 0;
    case 4:
        return b == 1 || value == 1 ? 1 : 0;
    case 5:
        return b == 0 ? (value != 0 ? 1 : 0) : (value != 1 ? 1 : 0);
    default:
        return b == 0 ? 1 : 0;
    }
}

DWORD lbittblGetEntry(void* table, DWORD start, int value, int direction) {
    if (table == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return kFailed;
    }
    BitTable* t = TableOf(table);
    if (start > t->count - 1) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return kFailed;
    }
    if (value != 0 && value != 1) return kBitNotFound;
    return direction == 1 ? lal::NearestUp(t, start, value) : lal::NearestDown(t, start, value);
}

DWORD lbittblGetEntryNum(void* table, DWORD from, DWORD to, int value) {
    DWORD low = from < to ? from : to;
    DWORD high = from < to ? to : from;
    DWORD hits = 0;
    for (DWORD position = low; position <= high;) {
        DWORD found = lbittblGetEntry(table, position, value, 1);
        if (found == kFailed) {
            LDE_PASS();
            return kFailed;
        }
        if (found == kBitNotFound || found > high) break;
        ++hits;
        position = found + 1;
    }
    return hits;
}
