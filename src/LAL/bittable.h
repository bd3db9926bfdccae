// The bit table's record and the in-line parts of its search, shared by the
// exported functions and by the size-class pools, whose tables are always
// valid and which call the same search without the checks of the exported
// entry points.
//
// The bits are read and written as aligned 64-bit words (the block is taken
// in whole words), so a write and the next search meet in the same word and
// the processor can hand the stored value straight to the load.
#pragma once

#include <cstring>

#include <orvanest/platform/win32.h>

namespace lal {

struct BitTable {
    DWORD count;     // bits, never 0
    BYTE* bits;      // first byte of the bits; the block runs to a whole word
    BYTE* lastByte;  // last byte of the table
    DWORD byteSize;  // count rounded up to 32 bits, in bytes
};

constexpr DWORD kBitNotFound = 0xFFFFFFFEu;

// Bytes of the block: byteSize rounded up to whole 64-bit words.
inline DWORD BlockBytes(DWORD byteSize) { return (byteSize + 7) / 8 * 8; }

inline uint64_t RawWord(const BYTE* bits, long pos) {
    uint64_t w;
    std::memcpy(&w, bits + pos, sizeof w);
    return w;
}

// The 64 bits of the aligned word at byte pos, in index order (bit 63 is the
// word's first index).
inline uint64_t WordAt(const BYTE* bits, long pos) { return __builtin_bswap64(RawWord(bits, pos)); }

// The index of the first hit in the word at byte pos going up, or none when
// it lies beyond last: bits come in index order, so no later one is nearer.
inline DWORD FirstUp(long pos, uint64_t w, DWORD last) {
    DWORD index = static_cast<DWORD>(pos * 8 + __builtin_clzll(w));
    return index <= last ? index : kBitNotFound;
}

inline DWORD FirstDown(long pos, uint64_t w) { return static_cast<DWORD>(pos * 8 + 63 - __builtin_ctzll(w)); }

// The searches after the word at pos held no hit, chosen for the processor.
using ContinueUpFn = DWORD (*)(const BitTable* t, long pos, DWORD last, uint64_t flip);
using ContinueDownFn = DWORD (*)(const BitTable* t, long pos, uint64_t flip);
extern const ContinueUpFn ContinueUp;
extern const ContinueDownFn ContinueDown;

// The nearest bit equal to value (0 or 1) from a valid start, upwards or
// downwards; kBitNotFound when there is none. The word around start answers
// most searches at once; the rest go on out of line.
inline DWORD NearestUp(const BitTable* t, DWORD start, int value) {
    const uint64_t flip = static_cast<uint64_t>(value) - 1;  // all ones when looking for a 0
    long pos = static_cast<long>(start >> 6) * 8;
    uint64_t w = (WordAt(t->bits, pos) ^ flip) & (~uint64_t{0} >> (start & 63));
    return w != 0 ? FirstUp(pos, w, t->count - 1) : ContinueUp(t, pos, t->count - 1, flip);
}

inline DWORD NearestDown(const BitTable* t, DWORD start, int value) {
    const uint64_t flip = static_cast<uint64_t>(value) - 1;  // all ones when looking for a 0
    long pos = static_cast<long>(start >> 6) * 8;
    uint64_t w = (WordAt(t->bits, pos) ^ flip) & (~uint64_t{0} << (63 - (start & 63)));
    return w != 0 ? FirstDown(pos, w) : ContinueDown(t, pos, flip);
}

// Where bit index lies in the raw (memory-order) value of its word: byte
// (index / 8) % 8 of the word, under the mask 0x80 >> (index % 8), which is
// bit 8 * ((index / 8) % 8) + 7 - index % 8, that is (index % 64) ^ 7.
inline uint64_t RawMask(DWORD index) { return uint64_t{1} << ((index ^ 7) & 63); }

// Sets the bit of a valid index for value 1 and clears it for any other.
inline void WriteBit(BitTable* t, DWORD index, int value) {
    BYTE* word = t->bits + (index >> 6) * 8;
    uint64_t w = RawWord(word, 0);
    w = value == 1 ? (w | RawMask(index)) : (w & ~RawMask(index));
    std::memcpy(word, &w, sizeof w);
}

inline UINT ReadBit(const BitTable* t, DWORD index) {
    return (RawWord(t->bits, (index >> 6) * 8) & RawMask(index)) != 0 ? 1 : 0;
}

}  // namespace lal
