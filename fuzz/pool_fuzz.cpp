// A size-class pool driven by arbitrary bytes against a model of where each
// request must land. The input gives one to four classes of small slots
// (now and then one slot size past the pool's lookup table, so that classes
// are searched in order), then requests of 1 to 300 bytes, releases of live
// blocks (a slot through any pointer inside it) and compactions. A request
// takes the lowest free slot of the first class whose slots hold it; a full
// class, or none, sends it to the overflow blocks: a free one of the size
// or the next larger, else the largest smaller one grown, else a new one.
// What is written into a block must stay until it is released, and the
// heap's count of live blocks must move by exactly what the model says,
// back to where it began once the pool is destroyed.
#include <orvanest/ORVANEST.h>

#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "fuzz_input.h"

namespace {

struct Class {
    DWORD slotSize;
    std::vector<bool> used;
    size_t offset;  // of the first slot from the start of the pool's slots
};

struct Live {
    BYTE* p;
    DWORD size;       // asked for, and written
    DWORD blockSize;  // an overflow block's own size; 0 for a slot
    BYTE seed;
};

void Fill(BYTE* p, DWORD size, BYTE seed) {
    for (DWORD i = 0; i < size; ++i) p[i] = static_cast<BYTE>(seed + i);
}

bool Holds(const BYTE* p, DWORD size, BYTE seed) {
    for (DWORD i = 0; i < size; ++i)
        if (p[i] != static_cast<BYTE>(seed + i)) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    const SIZE_T heapAtStart = OrvaGlobalLiveBlocks();
    tagLMM_MembufsBlock plan[4];
    const DWORD num = 1 + input.Byte() % 4;
    std::vector<Class> classes;
    size_t offset = 0;
    for (DWORD k = 0; k < num; ++k) {
        const uint8_t b = input.Byte();
        plan[k].slotSize = b < 250 ? 1 + b % 64 : 4096 + b;
        plan[k].slotNum = 1 + input.Byte() % 70;
        classes.push_back({plan[k].slotSize, std::vector<bool>(plan[k].slotNum), offset});
        offset += size_t{plan[k].slotSize} * plan[k].slotNum;
    }
    void* pool = lmembufsCreate(plan, num);
    ORVAFUZZ_CHECK(pool != nullptr);

    BYTE* base = nullptr;  // the first slot; known once a request lands in a slot
    std::vector<Live> live;
    std::map<DWORD, std::set<BYTE*>> freeBlocks;  // released overflow blocks by size
    BYTE seed = 0;
    while (!input.Empty()) {
        const uint8_t op = input.Byte() % 8;
        const SIZE_T heapBefore = OrvaGlobalLiveBlocks();
        if (op < 4 || live.empty()) {
            const DWORD want = op < 3 ? 1 + input.Byte() % 72 : 1 + (input.Byte() | DWORD{input.Byte()} << 8) % 300;
            auto* p = static_cast<BYTE*>(lmembufsAlloc(pool, want));
            ORVAFUZZ_CHECK(p != nullptr);
            Live item{p, want, 0, ++seed};
            Class* c = nullptr;
            for (Class& each : classes) {
                if (each.slotSize >= want) {
                    c = &each;
                    break;
                }
            }
            DWORD slot = 0;
            while (c != nullptr && slot < c->used.size() && c->used[slot]) ++slot;
            if (c != nullptr && slot < c->used.size()) {
                if (base == nullptr) base = p - c->offset - size_t{slot} * c->slotSize;
                ORVAFUZZ_CHECK(p == base + c->offset + size_t{slot} * c->slotSize);
                ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore);
                c->used[slot] = true;
            } else if (auto fit = freeBlocks.lower_bound(want); fit != freeBlocks.end()) {
                ORVAFUZZ_CHECK(fit->second.erase(p) == 1);  // any block of the nearest size
                ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore);
                item.blockSize = fit->first;
                if (fit->second.empty()) freeBlocks.erase(fit);
            } else if (!freeBlocks.empty()) {
                // The largest smaller block, the last of its size, is grown:
                // the heap keeps its count, and the block may move.
                auto largest = std::prev(freeBlocks.end());
                largest->second.erase(std::prev(largest->second.end()));
                if (largest->second.empty()) freeBlocks.erase(largest);
                ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore);
                item.blockSize = want;
            } else {
                ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore + 1);
                item.blockSize = want;
            }
            Fill(p, want, item.seed);
            live.push_back(item);
        } else if (op < 7) {
            const size_t k = input.Byte() % live.size();
            const Live item = live[k];
            live.erase(live.begin() + static_cast<long>(k));
            ORVAFUZZ_CHECK(Holds(item.p, item.size, item.seed));
            const uint8_t inside = input.Byte();
            BYTE* at = item.blockSize == 0 ? item.p + inside % item.size : item.p;
            ORVAFUZZ_CHECK(lmembufsFree(pool, at) == 1);
            ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore);
            if (item.blockSize == 0) {
                for (Class& c : classes) {
                    BYTE* first = base + c.offset;
                    if (item.p >= first && item.p < first + c.slotSize * c.used.size())
                        c.used[(item.p - first) / c.slotSize] = false;
                }
            } else {
                freeBlocks[item.blockSize].insert(item.p);
            }
        } else {
            size_t released = 0;
            for (const auto& [blockSize, blocks] : freeBlocks) released += blocks.size();
            ORVAFUZZ_CHECK(lmembufsCompact(pool) == 1);
            ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapBefore - released);
            freeBlocks.clear();
        }
    }
    for (const Live& item : live) ORVAFUZZ_CHECK(Holds(item.p, item.size, item.seed));
    ORVAFUZZ_CHECK(lmembufsDestroy(pool) == 1);
    ORVAFUZZ_CHECK(OrvaGlobalLiveBlocks() == heapAtStart);
    return 0;
}
