// Inspection of arenas: the soundness test of all the thread's arenas and
// the byte counts of one.
//
// The test reports damage and repairs nothing. It walks addresses as
// integers and looks at a chunk's links only after the chunk's word has
// passed, so a bad size ends the walk instead of leading it out of a block.
#include <cstring>

#include "LMM/LAMLC/arena.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAMLC

using lamlc::Arena;
using lamlc::BusyScope;

namespace {

// The links of a listed free chunk agree with its neighbours and its head.
bool LinksHold(const Arena* a, const AmlcChunk* c, DWORD size) {
    if (c->prev != nullptr ? c->prev->next != c : a->freeList[size / kAmlcStep] != c) return false;
    return c->next == nullptr || c->next->prev == c;
}

// Rule 1: the data of every block is a gapless row of sound chunks.
bool BlockHolds(const Arena* a, const AmlcBlock* b) {
    const uintptr_t end = reinterpret_cast<uintptr_t>(b->last) + 1;
    uintptr_t at = reinterpret_cast<uintptr_t>(b->first);
    while (at < end) {
        const auto* c = reinterpret_cast<const AmlcChunk*>(at);
        const DWORD word = c->word;
        const DWORD size = lamlc::SizeOf(word);
        if (!lamlc::IsFree(word)) {
            if (size == 0 || (word & kAmlcFreeBits) != 0) return false;
            at += lamlc::Rounded(size);
            continue;
        }
        if ((word & kAmlcFreeBits) != kAmlcFreeBits || size == 0 || size % kAmlcStep != 0) return false;
        const bool carveArea = b == a->curBlock && at == reinterpret_cast<uintptr_t>(a->carve);
        if (size < kAmlcFloor) {
            if (at + size != end) return false;  // too small to link: only a block's tail
        } else if (!carveArea) {
            if (size > kAmlcLargest || !LinksHold(a, c, size)) return false;
        }
        at += size;
    }
    return at == end;
}

// Rules 2 and 3: lists too small to hold a chunk stay empty, and every list
// is linked both ways and holds chunks of its own size only. The count bound
// keeps a damaged, circular list from holding the test up.
bool ListsHold(const Arena* a, size_t maxChunks) {
    for (DWORD i = 0; i <= kAmlcLists; ++i) {
        const AmlcChunk* c = a->freeList[i];
        if (c == nullptr) continue;
        if (i * kAmlcStep < kAmlcFloor || c->prev != nullptr) return false;
        for (size_t n = 0; c != nullptr; c = c->next) {
            if (++n > maxChunks) return false;
            if (c->next != nullptr && c->next->prev != c) return false;
            if (!lamlc::IsFree(c->word) || lamlc::SizeOf(c->word) / kAmlcStep != i) return false;
        }
    }
    return true;
}

bool ArenaHolds(const Arena* a) {
    size_t maxChunks = 0;
    for (void* n = ldlistGetFirstNode(a->blockList, 0); n != nullptr; n = ldlistGetNextNode(a->blockList, n, 1)) {
        const auto* b = static_cast<const AmlcBlock*>(n);
        if (!BlockHolds(a, b)) return false;
        maxChunks += static_cast<size_t>(b->last + 1 - b->first) / kAmlcFloor;
    }
    return ListsHold(a, maxChunks);
}

}  // namespace

// Tests every arena of the thread, even after one has failed.
int lamlcCheck(void) {
    tagLDE_ThreadContext* ctx = lde::Context();
    BusyScope busy(ctx->amlcBusy);
    if (ctx->amlcList == nullptr) return 1;
    int result = 1;
    for (void* arena = ldlistGetFirstNode(ctx->amlcList, 0); arena != nullptr;
         arena = ldlistGetNextNode(ctx->amlcList, arena, 1)) {
        if (!ArenaHolds(static_cast<const Arena*>(arena))) result = 0;
    }
    return result;
}

// Counts by R(size), so a free tail below the floor counts as the floor.
int lamlcWatch(void* arena, struct tagLMM_AmlcWatch* watch) {
    const Arena* a = static_cast<const Arena*>(arena);
    std::memset(watch, 0, sizeof *watch);
    watch->bigCount = ldlistGetEntryNum(a->bigList);
    for (void* n = ldlistGetFirstNode(a->blockList, 0); n != nullptr; n = ldlistGetNextNode(a->blockList, n, 1)) {
        const auto* b = static_cast<const AmlcBlock*>(n);
        watch->blockBytes += static_cast<DWORD>(b->last + 1 - b->first);
        for (const char* c = b->first; c < b->last;) {
            const DWORD word = lamlc::WordOf(c);
            const DWORD size = lamlc::SizeOf(word);
            const DWORD r = lamlc::Rounded(size);
            if (lamlc::IsFree(word)) {
                watch->freeBytes += r;
            } else {
                watch->usedBytes += size;
                watch->slackBytes += r - size;
            }
            c += r;
        }
    }
    return 1;
}
