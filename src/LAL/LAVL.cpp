// The intrusive AVL tree.
//
// The links live in the caller's nodes at a byte offset fixed by lavlCreate;
// the tree owns only its record, which comes straight from the global heap so
// that thread attach can make trees before any allocator of the library is
// set up. No operation allocates after that, and none needs a stack of its
// own: neighbours and walks climb the parent links.
//
// Insertion descends to the empty place and rebalances on the way back up;
// deletion first lets a node with a left child trade places with its in-order
// predecessor, so that the node to unlink has at most one child, and then
// carries the shrink up towards the root. Rotations and the exchange
// check what a sound tree guarantees (the child to rotate exists, a balance is
// 0, 1 or 2, a parent holds its child) and give up on a corrupted tree rather
// than follow a wild pointer; the parent-and-child checks also mark.
//
// The default comparison reads the key word behind the link and subtracts as
// a pointer-wide signed number, so that addresses order correctly. The
// descents are written once and instantiated for that default and for a
// caller's comparator, so the default pays for no indirect call.
#include <cstring>

#include <orvanest/LAL.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLAVL

namespace {

// A link: four pointer-wide words; the key word follows at +32 on x86-64.
struct AvlLink {
    AvlLink* parent;
    AvlLink* right;
    AvlLink* left;
    ULONG_PTR balance;
};

// The three values of `balance`.
constexpr ULONG_PTR kEven = 0;
constexpr ULONG_PTR kLeftHigh = 1;
constexpr ULONG_PTR kRightHigh = 2;

struct AvlTree {
    DWORD linkOffset;
    AvlLink* root;
    DWORD entryNum;
    LAL_COMPAREPROC compare;
};

inline AvlTree* TreeOf(void* tree) { return static_cast<AvlTree*>(tree); }
inline AvlLink* LinkOf(const AvlTree* t, void* node) {
    return reinterpret_cast<AvlLink*>(static_cast<char*>(node) + t->linkOffset);
}
inline void* NodeOf(const AvlTree* t, AvlLink* link) { return reinterpret_cast<char*>(link) - t->linkOffset; }

// The key word directly behind a link. The caller may have stored it as any
// pointer-wide type, so it is read as bytes.
inline ULONG_PTR KeyWord(const void* behindLink) {
    ULONG_PTR key;
    std::memcpy(&key, behindLink, sizeof key);
    return key;
}
inline ULONG_PTR KeyOf(const AvlLink* link) { return KeyWord(link + 1); }

// ---- comparisons ------------------------------------------------------------------
// Both give the sign of "sought thing minus visited node" for a visited link.

struct DefaultOrder {
    ULONG_PTR key;
    intptr_t operator()(const AvlLink* visited) const { return static_cast<intptr_t>(key - KeyOf(visited)); }
};

struct CallerOrder {
    const AvlTree* tree;
    void* first;
    intptr_t operator()(AvlLink* visited) const { return tree->compare(first, NodeOf(tree, visited)); }
};

// ---- sides ----------------------------------------------------------------------
// Every step below has a mirror image; each is written once for a side `s`
// and its other side, and instantiated for both.

enum Side { kRight, kLeft };

constexpr Side Other(Side s) { return s == kLeft ? kRight : kLeft; }
// The balance that says the subtree on side s is one higher.
constexpr ULONG_PTR Higher(Side s) { return s == kLeft ? kLeftHigh : kRightHigh; }

template <Side s>
inline AvlLink*& Child(AvlLink* link) {
    if constexpr (s == kLeft) {
        return link->left;
    } else {
        return link->right;
    }
}

// ---- rotations ------------------------------------------------------------------

// A rotation about x towards side s (a left rotation for kLeft): y, x's child
// on the other side, takes x's place, x goes down on side s and takes y's
// inner child. The new subtree root, or null when y is missing. It touches no
// balance and not the old parent's child slot: that is the caller's.
template <Side s>
AvlLink* Rotate(AvlLink* x) {
    AvlLink* y = Child<Other(s)>(x);
    if (y == nullptr) return nullptr;
    AvlLink* inner = Child<s>(y);
    Child<Other(s)>(x) = inner;
    if (inner != nullptr) inner->parent = x;
    Child<s>(y) = x;
    y->parent = x->parent;
    x->parent = y;
    return y;
}

// The double rotation for x whose subtree on side h is two higher, where y,
// that child, leans the other way: first a rotation about y towards h, stored
// into x's slot on side h, then one about x towards the other side; z, y's
// inner child, ends on top. The balances follow from z's alone, so insertion
// and deletion share it. Null for a corrupted tree.
template <Side h>
AvlLink* DoubleRotate(AvlLink* x, AvlLink* y) {
    AvlLink* z = Child<Other(h)>(y);
    if (z == nullptr) return nullptr;
    switch (z->balance) {
        case kEven: x->balance = kEven; y->balance = kEven; break;
        case Higher(h): x->balance = Higher(Other(h)); y->balance = kEven; break;
        case Higher(Other(h)): x->balance = kEven; y->balance = Higher(h); break;
        default: return nullptr;
    }
    z->balance = kEven;
    Child<h>(x) = Rotate<h>(y);
    return Rotate<Other(h)>(x);
}

// ---- neighbours by the links ----------------------------------------------------------

// The last link on side s below link: the leftmost for kLeft.
template <Side s>
AvlLink* Extreme(AvlLink* link) {
    while (Child<s>(link) != nullptr) link = Child<s>(link);
    return link;
}

// The in-order neighbour on side s: the next greater link for kRight, the
// next smaller for kLeft; null when there is none. Without a child on that
// side, climb while the link is its parent's child on side s; the parent
// reached from the other side is the neighbour. A parent that holds the link
// on neither side sets *broken and gives null.
template <Side s>
inline AvlLink* Neighbour(AvlLink* link, bool* broken) {
    if (Child<s>(link) != nullptr) return Extreme<Other(s)>(Child<s>(link));
    AvlLink* from = link;
    AvlLink* up = link->parent;
    while (up != nullptr && Child<s>(up) == from) {
        from = up;
        up = up->parent;
    }
    if (up != nullptr && Child<Other(s)>(up) != from) {
        *broken = true;
        return nullptr;
    }
    return up;
}

// The slot in `parent` that holds `child`, or null when it holds it on
// neither side (a corrupted tree).
inline AvlLink** SlotOf(AvlLink* parent, AvlLink* child) {
    if (parent->left == child) return &parent->left;
    if (parent->right == child) return &parent->right;
    return nullptr;
}

// How an insertion or a deletion ended. A corrupted tree shows as kCorrupted,
// or as kUnheld when a parent did not hold its child, which the exported
// function marks.
enum class Outcome { kDone, kDuplicate, kCorrupted, kUnheld };

// ---- failures ------------------------------------------------------------------
// Kept out of line and reached by tail calls, so that the fast paths need no
// frame. Each marks at its caller's position and gives the caller's result.

// A refusal: the reason into the last error, then the mark.
template <class R>
[[gnu::cold, gnu::noinline]] R Refuse(DWORD error, DWORD position, R result) {
    SetLastError(error);
    ldbgSetMarkErr(position);
    return result;
}

// A mark that leaves the last error as it is.
template <class R>
[[gnu::cold, gnu::noinline]] R Marked(DWORD position, R result) {
    ldbgSetMarkErr(position);
    return result;
}

// ---- insertion --------------------------------------------------------------------

// Growth in x's subtree on side s: x's new subtree root, null for a corrupted
// tree. *taller is cleared when the subtree at x keeps its height.
template <Side s>
AvlLink* Grew(AvlLink* x, bool* taller) {
    switch (x->balance) {
        case kEven: x->balance = Higher(s); return x;
        case Higher(Other(s)): x->balance = kEven; *taller = false; return x;
        case Higher(s): break;
        default: return nullptr;
    }
    *taller = false;
    AvlLink* y = Child<s>(x);
    if (y == nullptr) return nullptr;
    switch (y->balance) {
        case Higher(s):
            y->balance = kEven;
            x->balance = kEven;
            return Rotate<Other(s)>(x);
        case Higher(Other(s)): return DoubleRotate<s>(x, y);
        default: return nullptr;  // a subtree that grew is never even at its top
    }
}

// Puts the cleared link n into the tree.
//
// The descent compares n with each visited node and goes on into `left` for a
// negative result and into `right` otherwise; an equal node ends it before any
// link has changed. The way back from the empty place is walked by the parent
// links, exactly as a recursive descent would unwind: at each level the
// subtree root from below goes into its child slot, and while the subtree
// has grown its parent is rebalanced. Once a level keeps its height, every
// level above would only store what is already there, so the walk ends. (A
// call per level cost about 70% more time per insertion than this loop.)
template <class Order>
Outcome Insert(AvlTree* t, AvlLink* n, const Order& order) {
    AvlLink* x = t->root;
    if (x == nullptr) {
        t->root = n;
        return Outcome::kDone;
    }
    bool left;
    for (;;) {
        intptr_t c = order(x);
        if (c == 0) return Outcome::kDuplicate;
        left = c < 0;
        AvlLink* next = left ? x->left : x->right;
        if (next == nullptr) break;
        x = next;
    }
    // n's link was cleared before the descent and nothing has touched it.
    if (left) {
        x->left = n;
    } else {
        x->right = n;
    }
    n->parent = x;
    bool taller = true;
    for (;;) {
        AvlLink* up = x->parent;
        AvlLink* top = left ? Grew<kLeft>(x, &taller) : Grew<kRight>(x, &taller);
        if (top == nullptr) return Outcome::kCorrupted;
        if (!taller && top == x) return Outcome::kDone;  // nothing above changes
        if (up == nullptr) {
            t->root = top;
            return Outcome::kDone;
        }
        AvlLink** slot = SlotOf(up, x);
        if (slot == nullptr) return Outcome::kUnheld;
        left = slot == &up->left;
        *slot = top;
        if (!taller) return Outcome::kDone;
        x = up;
    }
}

// The bookkeeping after an insertion: the count, or the failure's mark.
inline int Inserted(AvlTree* t, Outcome done) {
    if (done == Outcome::kDone) {
        ++t->entryNum;
        return 1;
    }
    if (done == Outcome::kDuplicate) return Refuse(LERR_AVLDUPLICATE, LDE_MARKPOS(), 0);
    if (done == Outcome::kUnheld) return Marked(LDE_MARKPOS(), 0);
    return 0;
}

// The comparator's instance stays out of line, so that the default path of
// lavlIns keeps to a handful of registers.
[[gnu::noinline]] int InsertByComparator(AvlTree* t, AvlLink* n, void* node) {
    return Inserted(t, Insert(t, n, CallerOrder{t, node}));
}

// ---- deletion ----------------------------------------------------------------------

// Puts b, the rightmost link of a's left subtree, in a's place and a in b's.
// Only links move; the nodes stay where they are. False when a parent does
// not hold its child.
inline bool Exchange(AvlLink* a, AvlLink* b) {
    AvlLink* aParent = a->parent;
    AvlLink** aSlot = nullptr;
    if (aParent != nullptr && (aSlot = SlotOf(aParent, a)) == nullptr) return false;
    AvlLink* bParent = b->parent;
    AvlLink* bLeft = b->left;
    ULONG_PTR bBalance = b->balance;
    if (b == a->left) {
        // b hangs straight under a: a becomes b's left child.
        b->left = a;
        a->parent = b;
    } else {
        if (bParent->right != b) return false;
        b->left = a->left;
        b->left->parent = b;
        bParent->right = a;
        a->parent = bParent;
    }
    b->parent = aParent;
    if (aParent != nullptr) *aSlot = b;  // b becoming the root is the caller's to record
    b->right = a->right;
    if (b->right != nullptr) b->right->parent = b;
    b->balance = a->balance;
    a->left = bLeft;
    if (bLeft != nullptr) bLeft->parent = a;
    a->right = nullptr;
    a->balance = bBalance;
    return true;
}

// A shrink in x's subtree on side s: x's new subtree root, null for a
// corrupted tree. *shrank is cleared when the subtree at x keeps its height.
template <Side s>
AvlLink* Shrank(AvlLink* x, bool* shrank) {
    switch (x->balance) {
        case kEven: x->balance = Higher(Other(s)); *shrank = false; return x;
        case Higher(s): x->balance = kEven; return x;
        case Higher(Other(s)): break;
        default: return nullptr;
    }
    // The other side is two higher now: rotate it up.
    AvlLink* y = Child<Other(s)>(x);
    if (y == nullptr) return nullptr;
    switch (y->balance) {
        case kEven:
            x->balance = Higher(Other(s));
            y->balance = Higher(s);
            *shrank = false;
            return Rotate<s>(x);
        case Higher(Other(s)):
            x->balance = kEven;
            y->balance = kEven;
            return Rotate<s>(x);
        case Higher(s): return DoubleRotate<Other(s)>(x, y);
        default: return nullptr;
    }
}

// Unlinks a link that is in the tree. The link itself keeps whatever it
// holds afterwards.
Outcome Remove(AvlTree* t, AvlLink* a) {
    // With a left child, a trades places with its predecessor b first; then
    // it has no right child, and its only child c (if any) takes its place.
    AvlLink* exchanged = nullptr;  // b, when it has become the root
    AvlLink* c;
    if (a->left != nullptr) {
        AvlLink* b = Extreme<kRight>(a->left);
        if (!Exchange(a, b)) return Outcome::kUnheld;
        if (b->parent == nullptr) exchanged = b;
        c = a->left;
    } else {
        c = a->right;
    }
    AvlLink* p = a->parent;
    if (p == nullptr) {  // a was the root, with no exchange
        if (c != nullptr) c->parent = nullptr;
        t->root = c;
        return Outcome::kDone;
    }
    AvlLink** slot = SlotOf(p, a);
    if (slot == nullptr) return Outcome::kUnheld;
    bool shrankLeft = slot == &p->left;
    *slot = c;
    if (c != nullptr) c->parent = p;
    // Carry the shrink up: rebalance p, put the subtree root it gives into
    // p's parent on p's side, and go on while the subtree lost a level.
    for (;;) {
        AvlLink* up = p->parent;
        bool shrank = true;
        AvlLink* top = shrankLeft ? Shrank<kLeft>(p, &shrank) : Shrank<kRight>(p, &shrank);
        if (top == nullptr) return Outcome::kCorrupted;
        if (up == nullptr) {
            t->root = top;
            return Outcome::kDone;
        }
        if (shrank || top != p) {
            AvlLink** upSlot = SlotOf(up, p);
            if (upSlot == nullptr) return Outcome::kUnheld;
            shrankLeft = upSlot == &up->left;
            *upSlot = top;
        }
        if (!shrank) {
            // The rebalancing stopped below the top, so the root is unchanged
            // unless the exchange put b there.
            if (exchanged != nullptr) t->root = exchanged;
            return Outcome::kDone;
        }
        p = up;
    }
}

// ---- search --------------------------------------------------------------------

// Where a descent fell off at x without an exact match: x sorts after the key
// when the search fell off to the left, before it when it fell off to the
// right. Kept out of the descent so that the loop holds few registers.
[[gnu::noinline]] int Nearest(AvlTree* t, AvlLink* x, bool fellLeft, void** node, int mode) {
    if (mode == 0) return 2;
    AvlLink* found = x;
    bool broken = false;
    if (fellLeft && mode == 2) found = Neighbour<kLeft>(x, &broken);
    if (!fellLeft && mode == 1) found = Neighbour<kRight>(x, &broken);
    if (broken) return Marked(LDE_MARKPOS(), 2);
    if (found == nullptr) return 2;
    *node = NodeOf(t, found);
    return 1;
}

// Descends from the (non-empty) root; see lavlSearch for modes and results.
template <class Order>
inline int SearchIn(AvlTree* t, const Order& order, void** node, int mode) {
    AvlLink* x = t->root;
    for (;;) {
        intptr_t c = order(x);
        if (c == 0) {
            *node = NodeOf(t, x);
            return 0;
        }
        AvlLink* next = c < 0 ? x->left : x->right;
        if (next == nullptr) return Nearest(t, x, c < 0, node, mode);
        x = next;
    }
}

// The comparator's instance stays out of line, as for insertion.
[[gnu::noinline]] int SearchByComparator(AvlTree* t, void* key, void** node, int mode) {
    return SearchIn(t, CallerOrder{t, key}, node, mode);
}

}  // namespace

void* lavlCreate(DWORD linkOffset, LAL_COMPAREPROC compare) {
    auto* tree = static_cast<AvlTree*>(GlobalAlloc(GMEM_ZEROINIT, sizeof(AvlTree)));
    if (tree == nullptr) LDE_THROW_MEMORY();
    tree->linkOffset = linkOffset;
    tree->compare = compare;
    return tree;
}

int lavlDestroy(void* tree) {
    if (tree == nullptr) return Refuse(ERROR_INVALID_HANDLE, LDE_MARKPOS(), 0);
    return GlobalFree(tree) == nullptr ? 1 : 0;
}

int lavlIns(void* tree, void* node) {
    AvlTree* t = TreeOf(tree);
    AvlLink* n = LinkOf(t, node);
    n->parent = n->right = n->left = nullptr;
    n->balance = kEven;
    if (t->compare != nullptr) return InsertByComparator(t, n, node);
    return Inserted(t, Insert(t, n, DefaultOrder{KeyOf(n)}));
}

int lavlDel(void* tree, void* node) {
    if (tree == nullptr) return Refuse(ERROR_INVALID_HANDLE, LDE_MARKPOS(), 0);
    AvlTree* t = TreeOf(tree);
    if (t->entryNum == 0) return Marked(LDE_MARKPOS(), 0);
    Outcome done = Remove(t, LinkOf(t, node));
    if (done == Outcome::kDone) {
        --t->entryNum;
        return 1;
    }
    if (done == Outcome::kUnheld) return Marked(LDE_MARKPOS(), 0);
    return 0;
}

int lavlSearch(void* tree, void* key, void** node, int mode) {
    if (tree == nullptr || key == nullptr || mode < 0 || mode > 2) return Refuse(LERR_INVALIDARG, LDE_MARKPOS(), -1);
    AvlTree* t = TreeOf(tree);
    *node = nullptr;
    if (t->root == nullptr) return 2;
    if (t->compare != nullptr) return SearchByComparator(t, key, node, mode);
    return SearchIn(t, DefaultOrder{KeyWord(static_cast<char*>(key) + t->linkOffset + sizeof(AvlLink))}, node, mode);
}

DWORD lavlGetEntryNum(void* tree) {
    if (tree == nullptr) return Refuse(LERR_INVALIDARG, LDE_MARKPOS(), DWORD{0xFFFFFFFFu});
    return TreeOf(tree)->entryNum;
}

void* lavlGetFirstNode(void* tree, void* start, ULONG_PTR end) {
    if (tree == nullptr) return Refuse<void*>(LERR_INVALIDARG, LDE_MARKPOS(), nullptr);
    AvlTree* t = TreeOf(tree);
    if (t->root == nullptr) return nullptr;
    AvlLink* top = start == nullptr ? t->root : LinkOf(t, start);
    if (end == 0) return NodeOf(t, Extreme<kLeft>(top));
    if (end == ~ULONG_PTR{0}) return NodeOf(t, Extreme<kRight>(top));
    return nullptr;
}

void* lavlGetNextNode(void* tree, void* node, int direction) {
    if (tree == nullptr) return Refuse<void*>(ERROR_INVALID_HANDLE, LDE_MARKPOS(), nullptr);
    if (node == nullptr) return Refuse<void*>(LERR_INVALIDARG, LDE_MARKPOS(), nullptr);
    AvlTree* t = TreeOf(tree);
    bool broken = false;
    AvlLink* link = LinkOf(t, node);
    AvlLink* next = direction == 1 ? Neighbour<kRight>(link, &broken) : Neighbour<kLeft>(link, &broken);
    if (next != nullptr) return NodeOf(t, next);
    if (broken) return Marked<void*>(LDE_MARKPOS(), nullptr);
    return nullptr;
}

int lavlEnum(void* tree, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator) {
    if (tree == nullptr) return Refuse(LERR_INVALIDARG, LDE_MARKPOS(), 0);
    AvlTree* t = TreeOf(tree);
    if (t->root == nullptr) return 1;
    bool broken = false;
    for (AvlLink* link = Extreme<kLeft>(t->root); link != nullptr; link = Neighbour<kRight>(link, &broken)) {
        if (callback(value, NodeOf(t, link), accumulator) == 0) return 0;
    }
    if (broken) return Marked(LDE_MARKPOS(), 0);
    return 1;
}
