// The bit table driven by arbitrary bytes against a vector of bits. The
// input gives the table's size (up to 4096 bits, so that searches cross the
// 128-byte windows), its first value, then a list of operations: single and
// running writes, reads and the logical modes, searches (one, or sixteen a
// word apart) from any start in either direction for 0, 1 or another value,
// and counts over ranges in either order. Starts past the end and bad
// modes are asked as well. Every answer and every last error must be the
// model's; at the end the whole table is read back bit by bit.
#include <orvanest/ORVANEST.h>

#include <vector>

#include "fuzz_input.h"

namespace {

constexpr DWORD kNone = 0xFFFFFFFEu;
constexpr DWORD kFail = 0xFFFFFFFFu;
constexpr DWORD kUntouched = 42;  // the last error when a call sets none

DWORD Word(orvafuzz::Input& input) { return input.Byte() | DWORD{input.Byte()} << 8; }

// 0, 1, or another value, negative or not.
int Value(uint8_t b) { return b % 4 < 2 ? b % 4 : b % 4 == 2 ? -1 - b / 4 : 2 + b / 4; }

// The nearest index from start, itself included, whose bit is value.
DWORD Search(const std::vector<int>& bits, DWORD start, int value, bool up) {
    if (start >= bits.size()) return kFail;
    if (value != 0 && value != 1) return kNone;
    if (up) {
        for (DWORD i = start; i < bits.size(); ++i)
            if (bits[i] == value) return i;
    } else {
        for (DWORD i = start + 1; i-- > 0;)
            if (bits[i] == value) return i;
    }
    return kNone;
}

// The count walks from hit to hit, so a range starting past the end fails,
// and so does one ending past it when the last bit is a hit: the walk goes
// on from one past the last bit.
DWORD Count(const std::vector<int>& bits, DWORD from, DWORD to, int value) {
    const DWORD low = from < to ? from : to;
    const DWORD high = from < to ? to : from;
    const DWORD count = static_cast<DWORD>(bits.size());
    if (low >= count) return kFail;
    if (value != 0 && value != 1) return 0;
    if (high >= count && bits[count - 1] == value) return kFail;
    DWORD hits = 0;
    for (DWORD i = low; i <= high && i < count; ++i) hits += bits[i] == value;
    return hits;
}

UINT Check(std::vector<int>& bits, DWORD index, UINT mode, int value) {
    if (index >= bits.size() || mode < 1 || mode > 6) return kFail;
    const int b = bits[index];
    switch (mode) {
    case 1:
        bits[index] = value == 1 ? 1 : 0;
        return static_cast<UINT>(value);
    case 2: return b;
    case 3: return b == 1 && value == 1;
    case 4: return b == 1 || value == 1;
    case 5: return value != b;
    default: return b == 0;
    }
}

// A failure carries LERR_INVALIDARG; every other answer leaves the last
// error alone.
void CheckError(bool failed) { ORVAFUZZ_CHECK(GetLastError() == (failed ? LERR_INVALIDARG : kUntouched)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const DWORD count = 1 + Word(input) % 4096;
    const int initial = Value(input.Byte());
    void* table = lbittblCreate(count, initial);
    ORVAFUZZ_CHECK(table != nullptr);
    std::vector<int> bits(count, initial == 1 ? 1 : 0);
    // Indexes reach a little past the end, and count from either end, so
    // that the last bits are as easy to reach as the first.
    auto index = [&] {
        const DWORD w = Word(input);
        const DWORD i = (w & 0x7FFF) % (count + 8);
        return w & 0x8000 ? count + 7 - i : i;
    };

    while (!input.Empty()) {
        SetLastError(kUntouched);
        const uint8_t op = input.Byte() % 5;
        switch (op) {
        case 0: {  // any mode, including the bad ones
            const DWORD i = index();
            const UINT mode = input.Byte() % 8;
            const int value = Value(input.Byte());
            const UINT want = Check(bits, i, mode, value);
            ORVAFUZZ_CHECK(lbittblCheckStatus(table, i, mode, value) == want);
            CheckError(i >= count || mode < 1 || mode > 6);  // mode 1 may give back -1 as its value
            break;
        }
        case 1: {  // a run of writes, to make long stretches without a hit
            const DWORD from = index();
            const DWORD run = 1 + input.Byte() * 8u;
            const int value = Value(input.Byte());
            for (DWORD i = from; i < count && i < from + run; ++i) {
                ORVAFUZZ_CHECK(lbittblCheckStatus(table, i, 1, value) == Check(bits, i, 1, value));
            }
            break;
        }
        case 2:
        case 3: {  // one search, or sixteen a word apart, so that some start
                   // at each place a word can take within a 128-byte window
            const DWORD start = index();
            const int value = Value(input.Byte());
            const int direction = input.Byte() % 3 - 1;  // 1 goes up, anything else down
            for (DWORD k = 0; k < (op == 2 ? 1 : 16); ++k) {
                const DWORD from = start + 64 * k;
                const DWORD want = Search(bits, from, value, direction == 1);
                ORVAFUZZ_CHECK(lbittblGetEntry(table, from, value, direction) == want);
                CheckError(want == kFail);
            }
            break;
        }
        default: {
            const DWORD from = index();
            const DWORD to = index();
            const int value = Value(input.Byte());
            const DWORD want = Count(bits, from, to, value);
            ORVAFUZZ_CHECK(lbittblGetEntryNum(table, from, to, value) == want);
            CheckError(want == kFail);
            break;
        }
        }
    }
    for (DWORD i = 0; i < count; ++i) ORVAFUZZ_CHECK(lbittblCheckStatus(table, i, 2, 0) == static_cast<UINT>(bits[i]));
    ORVAFUZZ_CHECK(lbittblDestroy(table) == 1);
    return 0;
}
