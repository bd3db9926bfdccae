// The intrusive AVL tree.
//
// The links live in the caller's nodes at a byte offset fixed by lavlCreate;
// the tree owns only its record, which comes straight from the global heap so
// that thread attach can make trees before any allocator of the library is
// set up. No operation allocates after that, and none needs a stack of its
// own: neighbours and walks climb the parent links.
//
// Insertion descends recursively and rebalances on the way back up; deletion
// is iterative: a node with a left child first trades places with its
// in-order predecessor, so that the node to unlink has at most one child, and
// the shrink is then carried up towards the root. Rotations and the exchange
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

// ---- rotations ------------------------------------------------------------------
// The new subtree root, or null when the child to rotate is missing. Neither
// touches a balance or the old parent's child slot: that is the caller's.

AvlLink* RotateLeft(AvlLink* x) {
    AvlLink* y = x->right;
    if (y == nullptr) return nullptr;
    x->right = y->left;
    if (y->left != nullptr) y->left->parent = x;
    y->left = x;
    y->parent = x->parent;
    x->parent = y;
    return y;
}

AvlLink* RotateRight(AvlLink* x) {
    AvlLink* y = x->left;
    if (y == nullptr) return nullptr;
    x->left = y->right;
    if (y->right != nullptr) y->right->parent = x;
    y->right = x;
    y->parent = x->parent;
    x->parent = y;
    return y;
}

// The two double rotations, with the balances that follow from z's. `x` is
// the subtree root, `y` its heavy child and `z` y's inner child. They serve
// insertion and deletion alike: the outcome depends only on z's balance.
// Null for a corrupted tree.
AvlLink* RotateLeftRight(AvlLink* x, AvlLink* y) {
    AvlLink* z = y->right;
    if (z == nullptr) return nullptr;
    switch (z->balance) {
        case kEven: x->balance = kEven; y->balance = kEven; break;
        case kLeftHigh: x->balance = kRightHigh; y->balance = kEven; break;
        case kRightHigh: x->balance = kEven; y->balance = kLeftHigh; break;
        default: return nullptr;
    }
    z->balance = kEven;
    x->left = RotateLeft(y);
    return RotateRight(x);
}

AvlLink* RotateRightLeft(AvlLink* x, AvlLink* y) {
    AvlLink* z = y->left;
    if (z == nullptr) return nullptr;
    switch (z->balance) {
        case kEven: x->balance = kEven; y->balance = kEven; break;
        case kLeftHigh: x->balance = kEven; y->balance = kRightHigh; break;
        case kRightHigh: x->balance = kLeftHigh; y->balance = kEven; break;
        default: return nullptr;
    }
    z->balance = kEven;
    x->right = RotateRight(y);
    return RotateLeft(x);
}

// ---- neighbours by the links ----------------------------------------------------------

AvlLink* Leftmost(AvlLink* link) {
    while (link->left != nullptr) link = link->left;
    return link;
}

AvlLink* Rightmost(AvlLink* link) {
    while (link->right != nullptr) link = link->right;
    return link;
}

// The next greater link, or null when there is none. A parent that holds the
// link on neither side sets `broken` and gives null.
inline AvlLink* Successor(AvlLink* link, bool* broken) {
    if (link->right != nullptr) return Leftmost(link->right);
    AvlLink* from = link;
    AvlLink* up = link->parent;
    while (up != nullptr && up->right == from) {
        from = up;
        up = up->parent;
    }
    if (up != nullptr && up->left != from) {
        *broken = true;
        return nullptr;
    }
    return up;
}

inline AvlLink* Predecessor(AvlLink* link, bool* broken) {
    if (link->left != nullptr) return Rightmost(link->left);
    AvlLink* from = link;
    AvlLink* up = link->parent;
    while (up != nullptr && up->left == from) {
        from = up;
        up = up->parent;
    }
    if (up != nullptr && up->right != from) {
        *broken = true;
        return nullptr;
    }
    return up;
}

// ---- insertion --------------------------------------------------------------------

struct InsertState {
    AvlLink* node;  // the link to put in
    bool taller;    // the subtree just left has grown by one
    bool duplicate; // an equal node is in the tree; nothing has changed
};

// Growth in x's left subtree: x's new subtree root, null for a corrupted tree.
AvlLink* GrewLeft(AvlLink* x, InsertState* st) {
    switch (x->balance) {
        case kEven: x->balance = kLeftHigh; return x;
        case kRightHigh: x->balance = kEven; st->taller = false; return x;
        case kLeftHigh: break;
        default: return nullptr;
    }
    st->taller = false;
    AvlLink* y = x->left;
    if (y == nullptr) return nullptr;
    switch (y->balance) {
        case kLeftHigh:
            y->balance = kEven;
            x->balance = kEven;
            return RotateRight(x);
        case kRightHigh: return RotateLeftRight(x, y);
        default: return nullptr;  // a subtree that grew is never even at its top
    }
}

AvlLink* GrewRight(AvlLink* x, InsertState* st) {
    switch (x->balance) {
        case kEven: x->balance = kRightHigh; return x;
        case kLeftHigh: x->balance = kEven; st->taller = false; return x;
        case kRightHigh: break;
        default: return nullptr;
    }
    st->taller = false;
    AvlLink* y = x->right;
    if (y == nullptr) return nullptr;
    switch (y->balance) {
        case kRightHigh:
            y->balance = kEven;
            x->balance = kEven;
            return RotateLeft(x);
        case kLeftHigh: return RotateRightLeft(x, y);
        default: return nullptr;
    }
}

// Puts st->node into the subtree at x and gives the subtree's root; null when
// the node is a duplicate or the tree is corrupted. On the way back a child
// slot is written only when the subtree below got a new root: that is the
// only time the stored value differs.
template <class Order>
AvlLink* InsertBelow(AvlLink* x, const Order& order, InsertState* st) {
    if (x == nullptr) {
        AvlLink* n = st->node;
        n->parent = n->right = n->left = nullptr;
        n->balance = kEven;
        st->taller = true;
        return n;
    }
    intptr_t c = order(x);
    if (c == 0) {
        st->duplicate = true;
        return nullptr;
    }
    if (c < 0) {
        AvlLink* child = InsertBelow(x->left, order, st);
        if (child == nullptr) return nullptr;
        if (x->left != child) {
            x->left = child;
            child->parent = x;
        }
        return st->taller ? GrewLeft(x, st) : x;
    }
    AvlLink* child = InsertBelow(x->right, order, st);
    if (child == nullptr) return nullptr;
    if (x->right != child) {
        x->right = child;
        child->parent = x;
    }
    return st->taller ? GrewRight(x, st) : x;
}

// ---- deletion ----------------------------------------------------------------------

// The slot in `parent` that holds `child`, or null when it holds it on
// neither side (a corrupted tree; marked here).
AvlLink** SlotOf(AvlLink* parent, AvlLink* child) {
    if (parent->left == child) return &parent->left;
    if (parent->right == child) return &parent->right;
    LDE_MARK();
    return nullptr;
}

// Puts b, the rightmost link of a's left subtree, in a's place and a in b's.
// Only links move; the nodes stay where they are. False (after a mark) when a
// parent does not hold its child.
bool Exchange(AvlLink* a, AvlLink* b) {
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
        if (bParent->right != b) {
            LDE_MARK();
            return false;
        }
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

// One step of carrying a shrink upwards: x's left (shrankLeft) or right
// subtree has lost one level. *top receives x's subtree root afterwards.
// Gives 1 when that subtree lost a level too, 0 when its height stands, -1
// for a corrupted tree.
int Shrank(AvlTree* t, AvlLink* x, bool shrankLeft, AvlLink** top) {
    *top = x;
    ULONG_PTR lighter = shrankLeft ? kLeftHigh : kRightHigh;  // the side that lost was the higher one
    ULONG_PTR heavier = shrankLeft ? kRightHigh : kLeftHigh;
    if (x->balance == kEven) {
        x->balance = heavier;
        return 0;
    }
    if (x->balance == lighter) {
        x->balance = kEven;
        return 1;
    }
    if (x->balance != heavier) return -1;
    // The other side is two higher now: rotate it up.
    AvlLink* y = shrankLeft ? x->right : x->left;
    if (y == nullptr) return -1;
    AvlLink* up = x->parent;
    AvlLink** slot = &t->root;
    if (up != nullptr && (slot = SlotOf(up, x)) == nullptr) return -1;
    int lost;
    AvlLink* sub;
    if (y->balance == kEven) {
        x->balance = heavier;
        y->balance = lighter;
        sub = shrankLeft ? RotateLeft(x) : RotateRight(x);
        lost = 0;
    } else if (y->balance == heavier) {
        x->balance = kEven;
        y->balance = kEven;
        sub = shrankLeft ? RotateLeft(x) : RotateRight(x);
        lost = 1;
    } else if (y->balance == lighter) {
        sub = shrankLeft ? RotateRightLeft(x, y) : RotateLeftRight(x, y);
        lost = 1;
    } else {
        return -1;
    }
    if (sub == nullptr) return -1;
    *slot = sub;
    *top = sub;
    return lost;
}

// Unlinks a link that is in the tree; false for a corrupted tree.
bool Remove(AvlTree* t, AvlLink* a) {
    AvlLink* exchanged = nullptr;  // b, when it has become the root
    AvlLink* c;
    if (a->left != nullptr) {
        AvlLink* b = Rightmost(a->left);
        if (!Exchange(a, b)) return false;
        if (b->parent == nullptr) exchanged = b;
        c = a->left;
    } else {
        c = a->right;
    }
    AvlLink* p = a->parent;
    if (p == nullptr) {
        if (c != nullptr) c->parent = nullptr;
        t->root = c;
        return true;
    }
    AvlLink** slot = SlotOf(p, a);
    if (slot == nullptr) return false;
    bool shrankLeft = slot == &p->left;
    *slot = c;
    if (c != nullptr) c->parent = p;
    for (;;) {
        AvlLink* top;
        int lost = Shrank(t, p, shrankLeft, &top);
        if (lost < 0) return false;
        AvlLink* up = top->parent;
        if (up == nullptr) {
            t->root = top;
            return true;
        }
        if (lost == 0) {
            if (exchanged != nullptr) t->root = exchanged;
            return true;
        }
        if (up->left == top) {
            shrankLeft = true;
        } else if (up->right == top) {
            shrankLeft = false;
        } else {
            LDE_MARK();
            return false;
        }
        p = up;
    }
}

// ---- search --------------------------------------------------------------------

// Descends from the (non-empty) root; see lavlSearch for modes and results.
template <class Order>
int SearchIn(AvlTree* t, const Order& order, void** node, int mode) {
    AvlLink* x = t->root;
    intptr_t c;
    for (;;) {
        c = order(x);
        if (c == 0) {
            *node = NodeOf(t, x);
            return 0;
        }
        AvlLink* next = c < 0 ? x->left : x->right;
        if (next == nullptr) break;
        x = next;
    }
    // x is where the search fell off: it sorts after the key when the search
    // fell off to the left, before it when it fell off to the right.
    if (mode == 0) return 2;
    AvlLink* found = x;
    bool broken = false;
    if (c < 0 && mode == 2) found = Predecessor(x, &broken);
    if (c > 0 && mode == 1) found = Successor(x, &broken);
    if (broken) {
        LDE_MARK();
    }
    if (found == nullptr) return 2;
    *node = NodeOf(t, found);
    return 1;
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
    if (tree == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    return GlobalFree(tree) == nullptr ? 1 : 0;
}

int lavlIns(void* tree, void* node) {
    AvlTree* t = TreeOf(tree);
    AvlLink* n = LinkOf(t, node);
    n->parent = n->right = n->left = nullptr;
    n->balance = kEven;
    InsertState st{n, false, false};
    AvlLink* root = t->compare == nullptr ? InsertBelow(t->root, DefaultOrder{KeyOf(n)}, &st)
                                          : InsertBelow(t->root, CallerOrder{t, node}, &st);
    if (root == nullptr) {
        if (st.duplicate) {
            SetLastError(LERR_AVLDUPLICATE);
            LDE_MARK();
        }
        return 0;
    }
    t->root = root;
    ++t->entryNum;
    return 1;
}

int lavlDel(void* tree, void* node) {
    if (tree == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return 0;
    }
    AvlTree* t = TreeOf(tree);
    if (t->entryNum == 0) {
        LDE_MARK();
        return 0;
    }
    if (!Remove(t, LinkOf(t, node))) return 0;
    --t->entryNum;
    return 1;
}

int lavlSearch(void* tree, void* key, void** node, int mode) {
    if (tree == nullptr || key == nullptr || mode < 0 || mode > 2) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return -1;
    }
    AvlTree* t = TreeOf(tree);
    *node = nullptr;
    if (t->root == nullptr) return 2;
    if (t->compare == nullptr) {
        return SearchIn(t, DefaultOrder{KeyWord(static_cast<char*>(key) + t->linkOffset + sizeof(AvlLink))}, node, mode);
    }
    return SearchIn(t, CallerOrder{t, key}, node, mode);
}

DWORD lavlGetEntryNum(void* tree) {
    if (tree == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0xFFFFFFFFu;
    }
    return TreeOf(tree)->entryNum;
}

void* lavlGetFirstNode(void* tree, void* start, ULONG_PTR end) {
    if (tree == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    AvlTree* t = TreeOf(tree);
    if (t->root == nullptr) return nullptr;
    AvlLink* top = start == nullptr ? t->root : LinkOf(t, start);
    if (end == 0) return NodeOf(t, Leftmost(top));
    if (end == ~ULONG_PTR{0}) return NodeOf(t, Rightmost(top));
    return nullptr;
}

void* lavlGetNextNode(void* tree, void* node, int direction) {
    if (tree == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        LDE_MARK();
        return nullptr;
    }
    if (node == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return nullptr;
    }
    AvlTree* t = TreeOf(tree);
    bool broken = false;
    AvlLink* link = LinkOf(t, node);
    AvlLink* next = direction == 1 ? Successor(link, &broken) : Predecessor(link, &broken);
    if (next != nullptr) return NodeOf(t, next);
    if (broken) {
        LDE_MARK();
    }
    return nullptr;
}

int lavlEnum(void* tree, ULONG_PTR value, LAL_ENUMPROC callback, ULONG_PTR* accumulator) {
    if (tree == nullptr) {
        SetLastError(LERR_INVALIDARG);
        LDE_MARK();
        return 0;
    }
    AvlTree* t = TreeOf(tree);
    if (t->root == nullptr) return 1;
    bool broken = false;
    for (AvlLink* link = Leftmost(t->root); link != nullptr; link = Successor(link, &broken)) {
        if (callback(value, NodeOf(t, link), accumulator) == 0) return 0;
    }
    if (broken) {
        LDE_MARK();
        return 0;
    }
    return 1;
}
