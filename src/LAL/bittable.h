// The bit table's record and the in-line parts of its search, shared by the
// exported functions and by the size-class pools, whose tables are always
// valid and which call the same search without the checks of the exported
// entry points.
#pragma once

#include <cstring>

#include <orvanest/platform/win32.h>

namespace lal {

struct BitTable {
    DWORD count;     // bits, never 0
    BYTE* bits;      // first byte of the bits
    BYTE* lastByte;  // last byte of the block
    DWORD byteSize;  // count rounded up to 32 bits, in bytes
};

constexpr DWORD kBitNotFound = 0xFFFFFFFEu;

inline uint64_t Load64(const BYTE* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return __builtin_bswap64(w);
}

// The 64 bits of bytes [pos, pos + 8) in index order, for a word that runs
// off either end of the table: bytes outside it read as 0, and callers mask
// the bits that stand for them.
uint64_t EdgeWord(const BitTable* t, long pos);

inline uint64_t WordAt(const BitTable* t, long pos) {
    // A negative pos reads as a huge unsigned one and takes the edge road.
    return static_cast<unsigned long>(pos) + 8 <= t->byteSize ? Load64(t->bits + pos) : EdgeWord(t, pos);
}

// The index of the first hit in word w at byte pos going up, or none when it
// lies beyond last: bits come in index order, so no later one can be nearer.
inline DWORD FirstUp(long pos, uint64_t w, DWORD last) {
    DWORD index = static_cast<DWORD>(pos * 8 + __builtin_clzll(w));
    return index <= last ? index : kBitNotFound;
}

inline DWORD FirstDown(long end, uint64_t w) { return static_cast<DWORD>((end - 7) * 8 + 63 - __builtin_ctzll(w)); }

// The searches after the first word held no hit.
DWORD ContinueUp(const BitTable* t, long pos, DWORD last, uint64_t flip);
DWORD ContinueDown(const BitTable* t, long end, uint64_t flip);

// The nearest bit equal to value (0 or 1) from a valid start, upwards or
// downwards; kBitNotFound when there is none. The word around start answers
// most searches at once; the rest go on out of line.
inline DWORD NearestUp(const BitTable* t, DWORD start, int value) {
    const uint64_t flip = value == 1 ? 0 : ~uint64_t{0};
    long pos = static_cast<long>(start >> 3);
    uint64_t w = (WordAt(t, pos) ^ flip) & (~uint64_t{0} >> (start & 7));
    return w != 0 ? FirstUp(pos, w, t->count - 1) : ContinueUp(t, pos, t->count - 1, flip);
}

inline DWORD NearestDown(const BitTable* t, DWORD start, int value) {
    const uint64_t flip = value == 1 ? 0 : ~uint64_t{0};
    long end = static_cast<long>(start >> 3);  // the word's last byte
    uint64_t w = (WordAt(t, end - 7) ^ flip) & (~uint64_t{0} << (7 - (start & 7)));
    if (end < 7) w &= ~uint64_t{0} >> ((7 - end) * 8);
    return w != 0 ? FirstDown(end, w) : ContinueDown(t, end, flip);
}

inline BYTE MaskOf(DWORD index) { return static_cast<BYTE>(0x80 >> (index % 8)); }

// Sets the bit of a valid index for value 1 and clears it for any other.
inline void WriteBit(BitTable* t, DWORD index, int value) {
    BYTE& byte = t->bits[index / 8];
    if (value == 1) {
        byte |= MaskOf(index);
    } else {
        byte &= static_cast<BYTE>(~MaskOf(index));
    }
}

inline UINT ReadBit(const BitTable* t, DWORD index) { return (t->bits[index / 8] & MaskOf(index)) != 0 ? 1 : 0; }

}  // namespace lal
