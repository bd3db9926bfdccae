// The singly linked intrusive list. A link is `next` alone; the key word
// follows it. The record keeps the last link so that appending is constant
// time; deletion and a backward step walk from the head.
#include "LAL/listcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSLIST

using lal::LinkHead;
using lal::ListRecord;

namespace {

constexpr size_t kLinkWords = 1;

inline ListRecord* RecordOf(void* list) { return static_cast<ListRecord*>(list); }

[[noreturn]] void RaiseMemory() { LDE_THROW_MEMORY(); }

}  // namespace

void* lslistCreate(DWORD linkOffset) { return lal::CreateRecord(linkOffset, kLinkWords, RaiseMemory); }

int lslistDestroy(void* list) {
    if (list == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    lal::DestroyRecord(RecordOf(list));
    return 1;
}

int lslistIns(void* list, void* node, void* after) {
    ListRecord* rec = RecordOf(list);
    LinkHead* a;
    LinkHead* b;
    if (after == reinterpret_cast<void*>(~ULONG_PTR{0})) {
        // Appending: behind the last link stands the tail sentinel.
        a = rec->last;
        b = rec->tail;
    } else {
        if (after == nullptr) {
            a = rec->head;
        } else {
            if (rec->entryNum == 0) {
                LDE_MARK();
                return 0;
            }
            a = lal::LinkOf(rec, after);
        }
        b = a->next;
    }
    LinkHead* x = lal::LinkOf(rec, node);
    if (b == rec->tail) rec->last = x;
    a->next = x;
    x->next = b;
    ++rec->entryNum;
    return 1;
}

int lslistDel(void* list, void* node) {
    ListRecord* rec = RecordOf(list);
    LinkHead* x = lal::LinkOf(rec, node);
    LinkHead* saved = x->next;
    void* pred = lslistGetNextNode(list, node, 0);
    LinkHead* p;
    if (pred == nullptr) {
        if (rec->head->next != x) return 0;
        p = rec->head;
    } else {
        p = lal::LinkOf(rec, pred);
    }
    p->next = saved;
    if (x == rec->last) rec->last = p;
    --rec->entryNum;
    return 1;
}

void* lslistSearch(void* list, ULONG_PTR key, LAL_COMPAREPROC compare) {
    return lal::Search(RecordOf(list), key, compare, kLinkWords);
}

UINT lslistGetEntryNum(void* list) { return RecordOf(list)->entryNum; }

int lslistEnum(void* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator) {
    return lal::Enum(RecordOf(list), value, callback, accumulator);
}

void* lslistGetFirstNode(void* list, UINT index) {
    ListRecord* rec = RecordOf(list);
    if (rec->entryNum == 0) return nullptr;
    if (index == 0) return lal::NodeOf(rec, rec->head->next);
    if (index == 0xFFFFFFFFu) return lal::NodeOf(rec, rec->last);
    if (index >= rec->entryNum) {
        LDE_MARK();
        return nullptr;
    }
    return lal::NodeAt(rec, index);
}

void* lslistGetNextNode(void* list, void* node, int direction) {
    ListRecord* rec = RecordOf(list);
    if (node == nullptr) {
        LDE_MARK();
        return nullptr;
    }
    LinkHead* x = lal::LinkOf(rec, node);
    if (direction == 1) {
        LinkHead* n = x->next;
        return n->next == nullptr ? nullptr : lal::NodeOf(rec, n);
    }
    if (rec->head->next == x) return nullptr;
    for (LinkHead* link = rec->head->next; link->next != nullptr; link = link->next) {
        if (link->next == x) return lal::NodeOf(rec, link);
    }
    LDE_MARK();
    return nullptr;
}

UINT lslistGetNodeIndex(void* list, void* node) {
    UINT index = lal::IndexOf(RecordOf(list), node);
    if (index == 0xFFFFFFFFu) LDE_MARK();
    return index;
}
