// The doubly linked intrusive list. A link is `next`, `prev`; the key word
// follows it. Insertion, deletion and a step either way are constant time.
#include "LAL/listcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLDLIST

using lal::LinkHead;
using lal::ListRecord;

namespace {

constexpr size_t kLinkWords = 2;

struct DLink {
    DLink* next;
    DLink* prev;
};

inline ListRecord* RecordOf(void* list) { return static_cast<ListRecord*>(list); }
inline DLink* Link(ListRecord* list, void* node) { return reinterpret_cast<DLink*>(lal::LinkOf(list, node)); }
inline DLink* Head(ListRecord* list) { return reinterpret_cast<DLink*>(list->head); }
inline DLink* Tail(ListRecord* list) { return reinterpret_cast<DLink*>(list->tail); }
inline void* Node(ListRecord* list, DLink* link) { return lal::NodeOf(list, reinterpret_cast<LinkHead*>(link)); }

[[noreturn]] void RaiseMemory() { LDE_THROW_MEMORY(); }

}  // namespace

void* ldlistCreate(DWORD linkOffset) { return lal::CreateRecord(linkOffset, kLinkWords, RaiseMemory); }

int ldlistDestroy(void* list) {
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    lal::DestroyRecord(RecordOf(list));
    return 1;
}

int ldlistIns(void* list, void* node, void* after) {
    ListRecord* rec = RecordOf(list);
    DLink* a;
    DLink* b;
    if (after == reinterpret_cast<void*>(~ULONG_PTR{0})) {
        // Appending: b is the tail sentinel itself, which saves reading a
        // link that the previous append has only just written.
        b = Tail(rec);
        a = b->prev;
    } else {
        if (after == nullptr) {
            a = Head(rec);
        } else {
            if (rec->entryNum == 0) {
                LDE_MARK();
                return 0;
            }
            a = Link(rec, after);
        }
        b = a->next;
    }
    DLink* x = Link(rec, node);
    b->prev = x;
    a->next = x;
    x->prev = a;
    x->next = b;
    ++rec->entryNum;
    return 1;
}

int ldlistDel(void* list, void* node) {
    if (list == nullptr) return 1;
    ListRecord* rec = RecordOf(list);
    DLink* x = Link(rec, node);
    x->next->prev = x->prev;
    x->prev->next = x->next;
    --rec->entryNum;
    return 1;
}

void* ldlistSearch(void* list, ULONG_PTR key, LAL_COMPAREPROC compare) {
    return lal::Search(RecordOf(list), key, compare, kLinkWords);
}

UINT ldlistGetEntryNum(void* list) { return RecordOf(list)->entryNum; }

int ldlistEnum(void* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator) {
    return lal::Enum(RecordOf(list), value, callback, accumulator);
}

void* ldlistGetFirstNode(void* list, UINT index) {
    ListRecord* rec = RecordOf(list);
    if (rec->entryNum == 0) return nullptr;
    if (index == 0) return Node(rec, Head(rec)->next);
    if (index == 0xFFFFFFFFu) return Node(rec, Tail(rec)->prev);
    if (index >= rec->entryNum) {
        LDE_MARK();
        return nullptr;
    }
    return lal::NodeAt(rec, index);
}

void* ldlistGetNextNode(void* list, void* node, int direction) {
    ListRecord* rec = RecordOf(list);
    if (node == nullptr) {
        LDE_MARK();
        return nullptr;
    }
    DLink* x = Link(rec, node);
    if (direction == 1) {
        DLink* n = x->next;
        return n->next == nullptr ? nullptr : Node(rec, n);
    }
    DLink* p = x->prev;
    return p->prev == nullptr ? nullptr : Node(rec, p);
}

UINT ldlistGetNodeIndex(void* list, void* node) {
    UINT index = lal::IndexOf(RecordOf(list), node);
    if (index == 0xFFFFFFFFu) LDE_MARK();
    return index;
}
