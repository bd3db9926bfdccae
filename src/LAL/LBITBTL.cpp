// The bit table: a fixed array of bits with a search for the nearest bit of
// a value.
//
// Bit i lies in byte i / 8 under the mask 0x80 >> (i % 8), so the bits read
// in index order when the bytes are read as one big-endian number. The
// search uses that: eight bytes loaded and byte-swapped are 64 bits in index
// order, where the nearest hit is a count of leading (going up) or trailing
// (going down) zeros. Long runs without a hit are skipped 64 bytes at a time
// with one vector comparison. The answer is always the one a bit-by-bit walk
// gives; bits beyond `count` are masked off and never found, and no read goes
// past the `byteSize` bytes of the table.
#include <emmintrin.h>

#include <cstring>

#include <orvanest/LAL.h>
#include <orvanest/LMM.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLBITBTL

namespace {

struct BitTable {
    DWORD count;     // bits, never 0
    BYTE* bits;      // first byte of the bits
    BYTE* lastByte;  // last byte of the block
    DWORD byteSize;  // count rounded up to 32 bits, in bytes
};

constexpr DWORD kNotFound = 0xFFFFFFFEu;
constexpr DWORD kFailed = 0xFFFFFFFFu;
constexpr int kBlockBytes = 64;

inline BitTable* TableOf(void* table) { return static_cast<BitTable*>(table); }

inline uint64_t Load64(const BYTE* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return __builtin_bswap64(w);
}

// The 64 bits of bytes [pos, pos + 8) in index order. Bytes outside the
// table (before 0 or from byteSize on) read as 0; callers mask those bits.
inline uint64_t Word(const BitTable* t, long pos) {
    if (pos >= 0 && pos + 8 <= static_cast<long>(t->byteSize)) return Load64(t->bits + pos);
    BYTE buffer[8] = {};
    for (int i = 0; i < 8; ++i) {
        long at = pos + i;
        if (at >= 0 && at < static_cast<long>(t->byteSize)) buffer[i] = t->bits[at];
    }
    return Load64(buffer);
}

// True when none of the 64 bytes at p holds a bit equal to the wanted value:
// all zero when 1 is wanted, all ones when 0 is wanted.
inline bool NoHitIn64(const BYTE* p, bool one) {
    const __m128i* v = reinterpret_cast<const __m128i*>(p);
    __m128i a = _mm_loadu_si128(v), b = _mm_loadu_si128(v + 1);
    __m128i c = _mm_loadu_si128(v + 2), d = _mm_loadu_si128(v + 3);
    if (one) {
        __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
        return _mm_movemask_epi8(_mm_cmpeq_epi8(any, _mm_setzero_si128())) == 0xFFFF;
    }
    __m128i all = _mm_and_si128(_mm_and_si128(a, b), _mm_and_si128(c, d));
    return _mm_movemask_epi8(_mm_cmpeq_epi8(all, _mm_set1_epi8(-1))) == 0xFFFF;
}

// Upwards from `start` to `last`, both valid indices.
DWORD SearchUp(const BitTable* t, DWORD start, DWORD last, bool one) {
    const uint64_t flip = one ? 0 : ~uint64_t{0};
    const long lastByte = static_cast<long>(last >> 3);
    long pos = static_cast<long>(start >> 3);
    uint64_t w = (Word(t, pos) ^ flip) & (~uint64_t{0} >> (start & 7));
    for (;;) {
        long firstIndex = pos * 8;
        if (firstIndex + 63 > static_cast<long>(last)) w &= ~uint64_t{0} << (63 - (last - firstIndex));
        if (w != 0) return static_cast<DWORD>(firstIndex + __builtin_clzll(w));
        pos += 8;
        while (pos + kBlockBytes <= static_cast<long>(t->byteSize) && NoHitIn64(t->bits + pos, one)) {
            pos += kBlockBytes;
        }
        if (pos > lastByte) return kNotFound;
        w = Word(t, pos) ^ flip;
    }
}

// Downwards from `start` to index 0.
DWORD SearchDown(const BitTable* t, DWORD start, bool one) {
    const uint64_t flip = one ? 0 : ~uint64_t{0};
    long end = static_cast<long>(start >> 3);  // the word's last byte
    uint64_t w = (Word(t, end - 7) ^ flip) & (~uint64_t{0} << (7 - (start & 7)));
    for (;;) {
        long base = end - 7;
        if (base < 0) w &= ~uint64_t{0} >> (-base * 8);
        if (w != 0) return static_cast<DWORD>(base * 8 + 63 - __builtin_ctzll(w));
        end -= 8;
        while (end - (kBlockBytes - 1) >= 0 && NoHitIn64(t->bits + end - (kBlockBytes - 1), one)) {
            end -= kBlockBytes;
        }
        if (end < 0) return kNotFound;
        w = Word(t, end - 7) ^ flip;
    }
}

}  // namespace

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
        bits = static_cast<BYTE*>(lmemAllocFunc(byteSize, LDE_POS()));
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
    BYTE& byte = t->bits[index / 8];
    const BYTE mask = static_cast<BYTE>(0x80 >> (index % 8));
    const UINT b = (byte & mask) != 0 ? 1 : 0;
    switch (mode) {
    case 1:
        if (value == 1) {
            byte |= mask;
        } else {
            byte &= static_cast<BYTE>(~mask);
        }
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
    if (value != 0 && value != 1) return kNotFound;
    return direction == 1 ? SearchUp(t, start, t->count - 1, value == 1) : SearchDown(t, start, value == 1);
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
        if (found == kNotFound || found > high) break;
        ++hits;
        position = found + 1;
    }
    return hits;
}
