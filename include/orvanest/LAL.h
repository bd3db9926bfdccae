// Containers: the intrusive AVL tree and the two intrusive lists.
//
// A node is any structure of the caller's with a link at a byte offset fixed
// when the container is made. The containers own no node and allocate nothing
// after Create. Links are pointer-wide words:
//   ldlist*  next, prev                   key word at link offset + 2 words
//   lslist*  next                         key word at link offset + 1 word
//   lavl*    parent, right, left, balance key word at link offset + 4 words
// The key word (ULONG_PTR) is read only by the default search or comparison.
#pragma once

#include <orvanest/platform/win32.h>

// Enumeration callback: called once per item in the container's order with
// the caller's value and accumulator; non-zero goes on, 0 stops at once.
typedef int (*LAL_ENUMPROC)(ULONG_PTR value, void* item, ULONG_PTR* accumulator);
// Comparator: key or new node first. For lavl* negative, 0 or positive; for
// the lists only the result 1 is a match.
typedef int (*LAL_COMPAREPROC)(void* first, void* second);

// ---- AVL tree ------------------------------------------------------------------

// A new empty tree; compare may be null for the default comparison (the key
// words subtracted as pointer-wide signed numbers). Raises L_CMemoryException
// when memory runs out; never null.
ORVANEST_EXPORT void* lavlCreate(DWORD linkOffset, LAL_COMPAREPROC compare);
// Frees the tree's record, leaving its nodes alone; 1. Null tree: last error 6,
// mark, 0.
ORVANEST_EXPORT int lavlDestroy(void* tree);
// Puts node in, clearing its link first; 1. An equal node already there: last
// error LERR_AVLDUPLICATE, mark, 0, and the tree is unchanged. The tree is not
// tested for null.
ORVANEST_EXPORT int lavlIns(void* tree, void* node);
// Takes node (which must be in this tree) out; 1. Its link keeps whatever it
// held. Null tree: last error 6, mark, 0; an empty tree: mark, 0.
ORVANEST_EXPORT int lavlDel(void* tree, void* node);
// Mode 0 exact, 1 exact or the nearest above, 2 exact or the nearest below.
// key is node-shaped: its key word (at link offset + 4 words) is read, or it
// goes to the comparator as the first argument. Result 0 exact match, 1
// neighbour, 2 nothing (*node null), none of them reported as an error; -1
// bad argument (LERR_INVALIDARG, mark, *node unchanged).
ORVANEST_EXPORT int lavlSearch(void* tree, void* key, void** node, int mode);
// The number of nodes; null tree: LERR_INVALIDARG, mark, 0xFFFFFFFF.
ORVANEST_EXPORT DWORD lavlGetEntryNum(void* tree);
// The smallest (end 0) or greatest (end -1) node of the subtree at start (null:
// the whole tree); null with no mark for an empty tree or another end. Null
// tree: LERR_INVALIDARG, mark, null.
ORVANEST_EXPORT void* lavlGetFirstNode(void* tree, void* start, ULONG_PTR end);
// The next greater node (direction 1) or next smaller (any other), found by
// the parent links; null with no mark at either end. Null tree: last error 6,
// mark, null; null node: LERR_INVALIDARG, mark, null.
ORVANEST_EXPORT void* lavlGetNextNode(void* tree, void* node, int direction);
// Calls callback on every node in ascending order, finding the next node only
// after the call returns (so the callback must not change the tree's shape);
// 1 at the end (at once for an empty tree), 0 when the callback stopped the
// walk. Null tree: LERR_INVALIDARG, mark, 0.
ORVANEST_EXPORT int lavlEnum(void* tree, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator);

// ---- doubly linked list -----------------------------------------------------------

// A new empty list. Raises L_CMemoryException when memory runs out; never null.
ORVANEST_EXPORT void* ldlistCreate(DWORD linkOffset);
// Frees the record and its sentinels, leaving the nodes alone; 1. Null list:
// last error 6, mark, 0.
ORVANEST_EXPORT int ldlistDestroy(void* list);
// Links node in at the front (after null), at the end (after -1) or behind the
// node after; 1. A node `after` on an empty list: mark, 0.
ORVANEST_EXPORT int ldlistIns(void* list, void* node, void* after);
// Unlinks node through its own links; 1 (also for a null list, doing nothing).
ORVANEST_EXPORT int ldlistDel(void* list, void* node);
// The first node from the head whose key word equals key (no comparator) or
// for which compare((void*)key, node) gives exactly 1; null with no mark.
ORVANEST_EXPORT void* ldlistSearch(void* list, ULONG_PTR key, LAL_COMPAREPROC compare);
ORVANEST_EXPORT UINT ldlistGetEntryNum(void* list);
ORVANEST_EXPORT int ldlistEnum(void* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator);
// Index 0 the first node, -1 the last, else the node index steps on; null with
// no mark on an empty list, mark and null when the index is out of range.
ORVANEST_EXPORT void* ldlistGetFirstNode(void* list, UINT index);
// The neighbour towards the tail (direction 1) or the head (any other); null
// at the end, with no mark; a null node: mark, null.
ORVANEST_EXPORT void* ldlistGetNextNode(void* list, void* node, int direction);
// The node's place from 0; not in the list: mark, 0xFFFFFFFF.
ORVANEST_EXPORT UINT ldlistGetNodeIndex(void* list, void* node);

// ---- singly linked list -------------------------------------------------------------
// The same operations; Del and backward steps walk from the head, and Del
// gives 0 (with a mark) for a node that is not in the list.
ORVANEST_EXPORT void* lslistCreate(DWORD linkOffset);
ORVANEST_EXPORT int lslistDestroy(void* list);
ORVANEST_EXPORT int lslistIns(void* list, void* node, void* after);
ORVANEST_EXPORT int lslistDel(void* list, void* node);
ORVANEST_EXPORT void* lslistSearch(void* list, ULONG_PTR key, LAL_COMPAREPROC compare);
ORVANEST_EXPORT UINT lslistGetEntryNum(void* list);
ORVANEST_EXPORT int lslistEnum(void* list, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator);
ORVANEST_EXPORT void* lslistGetFirstNode(void* list, UINT index);
ORVANEST_EXPORT void* lslistGetNextNode(void* list, void* node, int direction);
ORVANEST_EXPORT UINT lslistGetNodeIndex(void* list, void* node);

// ---- arenas, second names --------------------------------------------------------
// Each forwards to its lamlc* twin (LMM.h) and gives its result.
ORVANEST_EXPORT void* laemmCreateFunc(DWORD firstSize, DWORD unitSize, DWORD);
ORVANEST_EXPORT int laemmDestroy(void* arena);
ORVANEST_EXPORT void* laemmAlloc(void* arena, DWORD size);
ORVANEST_EXPORT int laemmFree(void* arena, void* p);
ORVANEST_EXPORT void* laemmReSize(void* arena, void* p, DWORD size);
ORVANEST_EXPORT int laemmCompact(void* arena);
ORVANEST_EXPORT int laemmCheckNodeLink(void);

// ---- bit table ------------------------------------------------------------------------
// Bit i is byte i / 8 under the mask 0x80 >> (i % 8).

// A table of count bits, all set (initial 1) or all clear (any other value).
// count 0: LERR_INVALIDARG, mark, null. Raises L_CMemoryException when memory
// runs out.
ORVANEST_EXPORT void* lbittblCreate(DWORD count, int initial);
// Frees the table; 1. Null table: last error 6, mark, 0.
ORVANEST_EXPORT int lbittblDestroy(void* table);
// Mode 1 writes the bit (1 sets, anything else clears) and gives value; 2
// reads; 3 and, 4 or, 5 exclusive or, 6 not, with value. 0xFFFFFFFF with a
// mark for a null table (last error 6), an index past the end or a mode
// outside 1..6 (LERR_INVALIDARG).
ORVANEST_EXPORT UINT lbittblCheckStatus(void* table, DWORD index, UINT mode, int value);
// The nearest index from start (itself included) whose bit equals value,
// upwards with direction 1, else downwards. 0xFFFFFFFE when there is none
// (no mark); 0xFFFFFFFF with a mark for a null table (last error 6) or a
// start past the end (LERR_INVALIDARG).
ORVANEST_EXPORT DWORD lbittblGetEntry(void* table, DWORD start, int value, int direction);
// How many bits equal value between from and to, both included, in either
// order; 0xFFFFFFFF when a search fails.
ORVANEST_EXPORT DWORD lbittblGetEntryNum(void* table, DWORD from, DWORD to, int value);

// ---- extensible array -------------------------------------------------------------
// Fixed-size elements in one contiguous block, copied in and out by value.
// The block holds firstNum elements, then firstNum + stepNum, + 2 * stepNum
// and so on, and comes down the same stairs as elements go; every change of
// that size moves the data to a fresh block. To read the elements, lock the
// array and index the block it hands out. Every operation takes the library's
// one lock for its own length, so single operations may come from several
// threads; the array is registered with the thread that created it.
// Exhausted memory raises L_CMemoryException and leaves the array as it was.

// A new empty array with a block of firstNum elements. Any argument 0: last
// error LERR_INVALIDARG, mark, null.
ORVANEST_EXPORT void* laearCreate(DWORD elementSize, DWORD firstNum, DWORD stepNum);
// Frees the block and the record, locked or not; 1. Null array: last error 6,
// mark, 0.
ORVANEST_EXPORT int laearDestroy(void* array);
// Counts a lock up and gives the block, good until the matching unlock; locks
// nest, and while one stands every operation that could move the block
// refuses. The array must not be null.
ORVANEST_EXPORT void* laearLock(void* array);
// Counts a lock down; 1. No lock: last error LERR_NOTLOCKED, mark, 0.
ORVANEST_EXPORT int laearUnlock(void* array);
// The number of elements, locked or not. Null array: last error 6, no mark, 0.
ORVANEST_EXPORT UINT laearGetNum(void* array);
// Copies one element in at index: -1 appends; up to the count, the elements
// from index on move up; beyond the count, the element lands at index and
// the gap holds whatever the block holds there. element must not point into
// the array's own block. 1; locked: last error LERR_LOCKED, mark, 0.
ORVANEST_EXPORT int laearIns(void* array, void const* element, UINT index);
// Inserts element where lalBsearch says it belongs, keeping an array filled
// this way strictly ascending; gives its index. An equal element already
// there: 0xFFFFFFFF, nothing inserted, no mark. Locked (last error
// LERR_LOCKED, mark) or a failed insertion: 0xFFFFFFFE. The comparator runs
// under the library's lock.
ORVANEST_EXPORT UINT laearInsSort(void* array, void* element, LAL_COMPAREPROC compare);
// Removes the element at index (-1: the last one), closing the gap; 1.
// Locked: LERR_LOCKED, mark, 0; index not below the count: LERR_INVALIDARG,
// mark, 0.
ORVANEST_EXPORT int laearDel(void* array, UINT index);
// Sets the count, keeping the elements that stay; new ones are not written
// (zero when the block moved, else whatever the block holds). 1; locked:
// LERR_LOCKED, mark, 0.
ORVANEST_EXPORT int laearSetNum(void* array, UINT num);
// Brings the block to the size that the count wants; 1. A fresh block starts
// empty: the data stays in the old block, which is the caller's to copy and
// free. Takes no notice of a lock. A fresh virtual block gets the pages of
// the count's elements committed; when that fails the array keeps its old
// block and the exception goes on (L_CStandardException when the block is not
// found to commit).
ORVANEST_EXPORT int laearRenewBlock(void* array);

// ---- binary search ------------------------------------------------------------------
// Searches count elements of size bytes at base, sorted ascending, calling
// compare(key, element): negative when the key sorts before the element.
// Null compare: the first 32-bit words are compared as unsigned numbers.
// Found: *index is the element the halving meets first among equal ones, 1.
// Not found: *index is where the key belongs (0 to count), 0. Tests nothing.
ORVANEST_EXPORT int lalBsearch(void* key, void* base, UINT count, UINT size, UINT* index, LAL_COMPAREPROC compare);
