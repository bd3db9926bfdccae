// What the two list families share: the record, its three global blocks, and
// the walks that only follow `next`, which is the first word of both links.
// Each family marks its own failures; these helpers only report them.
#pragma once

#include <orvanest/LAL.h>

namespace lal {

// A link of either family begins with `next`; a null `next` is the tail.
struct LinkHead {
    LinkHead* next;
};

struct ListRecord {
    LinkHead* head;
    LinkHead* tail;
    DWORD linkOffset;
    UINT entryNum;
    HGLOBAL recordMemory;
    HGLOBAL headMemory;
    HGLOBAL tailMemory;
    LinkHead* last;  // singly linked lists only: the last link, or the head
};

inline LinkHead* LinkOf(const ListRecord* list, void* node) {
    return reinterpret_cast<LinkHead*>(static_cast<char*>(node) + list->linkOffset);
}
inline void* NodeOf(const ListRecord* list, LinkHead* link) {
    return reinterpret_cast<char*>(link) - list->linkOffset;
}
inline ULONG_PTR KeyOf(LinkHead* link, size_t linkWords) {
    return reinterpret_cast<ULONG_PTR*>(link)[linkWords];
}

// Makes a record with head and tail sentinels of `linkWords` words each, all
// three blocks movable, zero-filled and locked. Raises L_CMemoryException
// (through `raise`) when a block cannot be had, after freeing what it took.
ListRecord* CreateRecord(DWORD linkOffset, size_t linkWords, void (*raise)());
// Frees the record, then the head and the tail blocks.
void DestroyRecord(ListRecord* list);

// The first node from the head that matches key (by the key word behind a
// link of `linkWords` words, or by compare giving exactly 1), or null.
void* Search(ListRecord* list, ULONG_PTR key, LAL_COMPAREPROC compare, size_t linkWords);
// Calls back on every node, reading a node's `next` only after its call.
int Enum(ListRecord* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator);
// The node `index` steps from the first; the caller has checked the range.
void* NodeAt(ListRecord* list, UINT index);
// The place of node from 0, or 0xFFFFFFFF when it is not in the list.
UINT IndexOf(ListRecord* list, void* node);

}  // namespace lal
