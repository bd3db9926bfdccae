// The bit table: a fixed array of bits with a search for the nearest bit of
// a value.
//
// Bit i lies in byte i / 8 under the mask 0x80 >> (i % 8), so the bits read
// in index order when the bytes are read as one big-endian number. The
// search uses that: eight bytes loaded and byte-swapped are 64 bits in index
// order, where the nearest hit is a count of leading (going up) or trailing
// (going down) zeros. Words are read at aligned places (see bittable.h).
// When the word around the start has no hit, the search goes on 128 bytes
// at a time with vector compares (AVX-512 or AVX2 where the processor has
// them), which finds a hit at any distance within a window without a branch
// that a random distance would mispredict. The answer is always the one a bit-by-bit walk gives; bits beyond
// `count` are never found, and no read goes past the table's block.
#include <immintrin.h>

#include <algorithm>
#include <cstdlib>
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

// The bytes that hold a hit among the 128 bytes at p: bit i of lo (i < 64)
// or of hi (i - 64) for byte i. A few compares and no branch, so that a hit
// at any distance within the window costs the same.
struct Window {
    uint64_t lo, hi;
};

inline uint64_t HitBytes64Sse2(const BYTE* p, __m128i noHit) {
    const __m128i* v = reinterpret_cast<const __m128i*>(p);
    uint64_t m = 0;
    for (int i = 0; i < 4; ++i) {
        const unsigned same = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(v + i), noHit)));
        m |= static_cast<uint64_t>(~same & 0xFFFFu) << (16 * i);
    }
    return m;
}

inline Window HitBytesSse2(const BYTE* p, bool one) {
    const __m128i noHit = one ? _mm_setzero_si128() : _mm_set1_epi8(-1);
    return {HitBytes64Sse2(p, noHit), HitBytes64Sse2(p + 64, noHit)};
}

__attribute__((target("avx2"))) inline uint64_t HitBytes64Avx2(const BYTE* p, __m256i noHit) {
    const __m256i* v = reinterpret_cast<const __m256i*>(p);
    const auto low = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_loadu_si256(v), noHit)));
    const auto high = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_loadu_si256(v + 1), noHit)));
    return ~(uint64_t{high} << 32 | low);
}

__attribute__((target("avx2"))) inline Window HitBytesAvx2(const BYTE* p, bool one) {
    const __m256i noHit = one ? _mm256_setzero_si256() : _mm256_set1_epi8(-1);
    return {HitBytes64Avx2(p, noHit), HitBytes64Avx2(p + 64, noHit)};
}

__attribute__((target("avx512bw"))) inline Window HitBytesAvx512(const BYTE* p, bool one) {
    const __m512i noHit = one ? _mm512_setzero_si512() : _mm512_set1_epi8(-1);
    return {_mm512_cmpneq_epi8_mask(_mm512_loadu_si512(p), noHit),
            _mm512_cmpneq_epi8_mask(_mm512_loadu_si512(p + 64), noHit)};
}

constexpr long kWindowBytes = 128;
constexpr uint64_t kTop = uint64_t{1} << 63;

// The first byte of a window that holds a hit; the window has one. Chosen
// without a branch: when lo is empty, its count is 63 and the count in hi
// adds on.
inline long FirstHitByte(Window w) {
    const uint64_t inHi = w.lo == 0 ? ~uint64_t{0} : 0;
    return __builtin_ctzll(w.lo | kTop) + ((1 + __builtin_ctzll(w.hi | kTop)) & inHi);
}

// The last byte of a window that holds a hit; the window has one.
inline long LastHitByte(Window w) {
    const uint64_t inLo = w.hi == 0 ? ~uint64_t{0} : 0;
    return 127 - __builtin_clzll(w.hi | 1) - ((1 + __builtin_clzll(w.lo | 1)) & inLo);
}

// The first and last hit in a byte that holds one, in index order.
inline DWORD FirstInByte(long pos, BYTE b) { return static_cast<DWORD>(pos * 8 + __builtin_clz(b) - 24); }
inline DWORD LastInByte(long pos, BYTE b) { return static_cast<DWORD>(pos * 8 + 7 - __builtin_ctz(b)); }

// The search upwards after the word at pos held no hit: kNearWords words
// one by one, then 128 bytes at a time while a whole window fits in the
// block, then word by word; the block ends in a whole word.
template <Window (*Hits)(const BYTE*, bool), long kNearWords>
__attribute__((always_inline)) inline DWORD SearchOnUp(const BitTable* t, long pos, DWORD last, uint64_t flip) {
    const BYTE* const bits = t->bits;
    const long blockBytes = lal::BlockBytes(t->byteSize);
    const long lastWord = static_cast<long>(last >> 6) * 8;
    const bool one = flip == 0;
    pos += 8;
    for (const long nearEnd = std::min(pos + kNearWords * 8, lastWord + 8); pos < nearEnd; pos += 8) {
        const uint64_t w = lal::WordAt(bits, pos) ^ flip;
        if (w != 0) return lal::FirstUp(pos, w, last);
    }
    for (; pos + kWindowBytes <= blockBytes && pos <= lastWord; pos += kWindowBytes) {
        const Window w = Hits(bits + pos, one);
        if ((w.lo | w.hi) != 0) {
            const long at = pos + FirstHitByte(w);
            const DWORD index = FirstInByte(at, static_cast<BYTE>(bits[at] ^ flip));
            return index <= last ? index : kBitNotFound;
        }
    }
    for (; pos <= lastWord; pos += 8) {
        const uint64_t w = lal::WordAt(bits, pos) ^ flip;
        if (w != 0) return lal::FirstUp(pos, w, last);
    }
    return kBitNotFound;
}

// The search downwards after the word at pos held no hit: kNearWords words,
// then the 128 bytes below, window by window, then word by word.
template <Window (*Hits)(const BYTE*, bool), long kNearWords>
__attribute__((always_inline)) inline DWORD SearchOnDown(const BitTable* t, long pos, uint64_t flip) {
    const BYTE* const bits = t->bits;
    const bool one = flip == 0;
    for (const long nearEnd = std::max(pos - kNearWords * 8, 0L); pos > nearEnd; pos -= 8) {
        const uint64_t w = lal::WordAt(bits, pos - 8) ^ flip;
        if (w != 0) return lal::FirstDown(pos - 8, w);
    }
    for (; pos >= kWindowBytes; pos -= kWindowBytes) {
        const Window w = Hits(bits + pos - kWindowBytes, one);
        if ((w.lo | w.hi) != 0) {
            const long at = pos - kWindowBytes + LastHitByte(w);
            return LastInByte(at, static_cast<BYTE>(bits[at] ^ flip));
        }
    }
    for (pos -= 8; pos >= 0; pos -= 8) {
        const uint64_t w = lal::WordAt(bits, pos) ^ flip;
        if (w != 0) return lal::FirstDown(pos, w);
    }
    return kBitNotFound;
}

// Words tested one by one before the windows begin: with narrower vectors a
// window costs more than a few words, and most hits in a dense table are
// near; with AVX-512 a window is two compares and wins at once.
constexpr long kNearSse2 = 16, kNearAvx2 = 16;

DWORD SearchOnUpSse2(const BitTable* t, long pos, DWORD last, uint64_t flip) {
    return SearchOnUp<HitBytesSse2, kNearSse2>(t, pos, last, flip);
}
DWORD SearchOnDownSse2(const BitTable* t, long pos, uint64_t flip) {
    return SearchOnDown<HitBytesSse2, kNearSse2>(t, pos, flip);
}
__attribute__((target("avx2"))) DWORD SearchOnUpAvx2(const BitTable* t, long pos, DWORD last, uint64_t flip) {
    return SearchOnUp<HitBytesAvx2, kNearAvx2>(t, pos, last, flip);
}
__attribute__((target("avx2"))) DWORD SearchOnDownAvx2(const BitTable* t, long pos, uint64_t flip) {
    return SearchOnDown<HitBytesAvx2, kNearAvx2>(t, pos, flip);
}
__attribute__((target("avx512bw"))) DWORD SearchOnUpAvx512(const BitTable* t, long pos, DWORD last, uint64_t flip) {
    return SearchOnUp<HitBytesAvx512, 0>(t, pos, last, flip);
}
__attribute__((target("avx512bw"))) DWORD SearchOnDownAvx512(const BitTable* t, long pos, uint64_t flip) {
    return SearchOnDown<HitBytesAvx512, 0>(t, pos, flip);
}

// The widest vectors the processor has, unless ORVANEST_VECTOR names a
// narrower level ("avx2" or "sse2"), so that every road can be tested on one
// machine.
bool VectorAllowed(const char* level) {
    const char* cap = std::getenv("ORVANEST_VECTOR");
    if (cap == nullptr) return true;
    if (std::strcmp(cap, "sse2") == 0) return false;
    return std::strcmp(cap, "avx2") != 0 || std::strcmp(level, "avx2") == 0;
}

const bool g_haveAvx512 = __builtin_cpu_supports("avx512bw") && VectorAllowed("avx512bw");
const bool g_haveAvx2 = __builtin_cpu_supports("avx2") && VectorAllowed("avx2");

}  // namespace

namespace lal {

const ContinueUpFn ContinueUp = g_haveAvx512 ? SearchOnUpAvx512 : g_haveAvx2 ? SearchOnUpAvx2 : SearchOnUpSse2;
const ContinueDownFn ContinueDown = g_haveAvx512 ? SearchOnDownAvx512
                                   : g_haveAvx2  ? SearchOnDownAvx2
                                                 : SearchOnDownSse2;

}  // namespace lal

void* lbittblCreate(DWORD count, int initial) {
    if (count == 0) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    const auto byteSize = static_cast<DWORD>((uint64_t{count} + 31) / 32 * 4);  // no wrap near 2^32 bits
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

namespace {

// The refusals of lbittblGetEntry, out of line so that the search itself
// needs no stack frame.
__attribute__((noinline, cold)) DWORD RefuseHandle() {
    SetLastError(ERROR_INVALID_HANDLE);
    LDE_MARK();
    return kFailed;
}

__attribute__((noinline, cold)) DWORD RefuseStart() {
    SetLastError(LERR_INVALIDARG);
    LDE_MARK();
    return kFailed;
}

}  // namespace

DWORD lbittblGetEntry(void* table, DWORD start, int value, int direction) {
    if (table == nullptr) return RefuseHandle();
    BitTable* t = TableOf(table);
    if (start > t->count - 1) return RefuseStart();
    if (value != 0 && value != 1) return kBitNotFound;
    if (__builtin_expect(direction == 1, 1)) return lal::NearestUp(t, start, value);
    return lal::NearestDown(t, start, value);
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
