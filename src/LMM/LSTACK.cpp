// A stack of variable-sized items on a size-class pool. Each item carries
// its size and the link to the item below in front of its payload, so the
// slot sizes that a caller asks for are payload sizes and grow by that
// header when the pool is made.
#include <cstring>

#include <orvanest/LMM.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSTACK

namespace {

struct StackItem {
    DWORD itemSize;  // payload size plus the header
    StackItem* next; // the item below
    BYTE payload[1];
};

constexpr DWORD kItemHeader = offsetof(StackItem, payload);

struct Stack {
    StackItem* top;  // null when empty
    void* pool;
};

inline Stack* StackOf(void* stack) { return static_cast<Stack*>(stack); }

}  // namespace

void* lstackCreate(struct tagLMM_MembufsBlock* blocks, DWORD num) {
    if (blocks != nullptr) {
        for (DWORD i = 0; i < num; ++i) {
            if (blocks[i].slotSize > 0xFFFFFFFFu - kItemHeader) LDE_THROW_TOO_LARGE();  // no room for the header
        }
    }
    auto* stack = static_cast<Stack*>(lmemAllocFunc(sizeof(Stack), LDE_POS()));
    if (blocks != nullptr) {
        for (DWORD i = 0; i < num; ++i) blocks[i].slotSize += kItemHeader;
    }
    void* pool;
    try {
        pool = lmembufsCreate(blocks, num);
    } catch (...) {
        lmemFree(stack);
        throw;
    }
    if (pool == nullptr) {
        LDE_PASS();
        ldbgCloseSetErr();
        lmemFree(stack);
        ldbgOpenSetErr();
        return nullptr;
    }
    stack->pool = pool;
    return stack;
}

int lstackPush(void* stack, void* data, DWORD size) {
    if (size == 0) {
        SetLastError(LERR_BADSIZE);
        LDE_MARK();
        return 0;
    }
    if (size > 0xFFFFFFFFu - kItemHeader) LDE_THROW_TOO_LARGE();  // no room for the header
    Stack* s = StackOf(stack);
    auto* item = static_cast<StackItem*>(lmembufsAlloc(s->pool, size + kItemHeader));
    if (item == nullptr) {
        LDE_PASS();
        return 0;
    }
    item->next = s->top;
    item->itemSize = size + kItemHeader;
    std::memcpy(item->payload, data, size);
    s->top = item;
    return 1;
}

DWORD lstackPop(void* stack, void* buffer, DWORD bufferSize) {
    Stack* s = StackOf(stack);
    StackItem* item = s->top;
    if (item == nullptr) {
        SetLastError(LERR_NODATA);
        LDE_MARK();
        return 0;
    }
    DWORD payloadSize = item->itemSize - kItemHeader;
    if (bufferSize < payloadSize) {
        SetLastError(LERR_BUFTOOSMALL);
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    std::memcpy(buffer, item->payload, payloadSize);
    s->top = item->next;
    if (lmembufsFree(s->pool, item) == 0) {
        LDE_PASS();
        return 0;
    }
    return payloadSize;
}

int lstackDestroy(void* stack) {
    if (stack == nullptr) {
        SetLastError(LERR_BADHANDLE);
        LDE_MARK();
        return 0;
    }
    int result = 1;
    if (lmembufsDestroy(StackOf(stack)->pool) == 0) {
        LDE_PASS();
        result = 0;
    }
    if (lmemFree(stack) == 0) {
        LDE_PASS();
        result = 0;
    }
    return result;
}
