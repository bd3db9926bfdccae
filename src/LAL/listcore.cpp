// The parts of the two list families that do not depend on the back link.
#include "LAL/listcore.h"

#include <orvanest/LMM.h>

namespace lal {

namespace {
// One movable, zero-filled, locked block; null when either step fails.
void* TakeBlock(size_t bytes, HGLOBAL* handle) {
    *handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
    if (*handle == nullptr) return nullptr;
    void* p = GlobalLock(*handle);
    if (p == nullptr) {
        GlobalFree(*handle);
        *handle = nullptr;
    }
    return p;
}
}  // namespace

ListRecord* CreateRecord(DWORD linkOffset, size_t linkWords, void (*raise)()) {
    HGLOBAL recordMemory, headMemory, tailMemory;
    auto* list = static_cast<ListRecord*>(TakeBlock(sizeof(ListRecord), &recordMemory));
    if (list == nullptr) raise();
    auto* head = static_cast<LinkHead*>(TakeBlock(linkWords * sizeof(void*), &headMemory));
    if (head == nullptr) {
        lmemGlobalFree(recordMemory);
        raise();
    }
    auto* tail = static_cast<LinkHead*>(TakeBlock(linkWords * sizeof(void*), &tailMemory));
    if (tail == nullptr) {
        lmemGlobalFree(headMemory);
        lmemGlobalFree(recordMemory);
        raise();
    }
    list->head = head;
    list->tail = tail;
    list->linkOffset = linkOffset;
    list->entryNum = 0;
    list->recordMemory = recordMemory;
    list->headMemory = headMemory;
    list->tailMemory = tailMemory;
    list->last = head;
    head->next = tail;
    if (linkWords > 1) reinterpret_cast<LinkHead**>(tail)[1] = head;  // tail.prev
    return list;
}

void DestroyRecord(ListRecord* list) {
    HGLOBAL recordMemory = list->recordMemory;
    HGLOBAL headMemory = list->headMemory;
    HGLOBAL tailMemory = list->tailMemory;
    lmemGlobalFree(recordMemory);
    lmemGlobalFree(headMemory);
    lmemGlobalFree(tailMemory);
}

void* Search(ListRecord* list, ULONG_PTR key, LAL_COMPAREPROC compare, size_t linkWords) {
    for (LinkHead* link = list->head->next; link->next != nullptr; link = link->next) {
        void* node = NodeOf(list, link);
        if (compare != nullptr ? compare(reinterpret_cast<void*>(key), node) == 1 : KeyOf(link, linkWords) == key) {
            return node;
        }
    }
    return nullptr;
}

int Enum(ListRecord* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator) {
    for (LinkHead* link = list->head->next; link->next != nullptr; link = link->next) {
        if (callback(value, NodeOf(list, link), accumulator) == 0) return 0;
    }
    return 1;
}

void* NodeAt(ListRecord* list, UINT index) {
    LinkHead* link = list->head->next;
    while (index-- > 0) link = link->next;
    return NodeOf(list, link);
}

UINT IndexOf(ListRecord* list, void* node) {
    LinkHead* target = LinkOf(list, node);
    UINT index = 0;
    for (LinkHead* link = list->head->next; link->next != nullptr; link = link->next, ++index) {
        if (link == target) return index;
    }
    return 0xFFFFFFFFu;
}

}  // namespace lal
