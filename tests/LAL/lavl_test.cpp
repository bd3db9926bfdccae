// The AVL tree: a seeded random mix of insertions, deletions and searches
// against std::set with the whole invariant checked after every step, for
// links at two offsets and with a caller's comparator; walks, refusals and a
// corrupted tree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

#include "support/marks.h"

namespace {

// The link as the tree lays it out in a node.
struct Link {
    Link* parent;
    Link* right;
    Link* left;
    ULONG_PTR balance;
};

// A node: raw bytes, with the link at the tree's offset, the key word behind
// it, and at kFieldAt a second key that only the comparator reads.
constexpr size_t kFieldAt = 88;
struct Item { alignas(8) unsigned char raw[96]; };

ULONG_PTR FieldOf(const void* node) {
    ULONG_PTR v;
    std::memcpy(&v, static_cast<const unsigned char*>(node) + kFieldAt, sizeof v);
    return v;
}

int CompareField(void* first, void* second) {
    ULONG_PTR a = FieldOf(first), b = FieldOf(second);
    return a < b ? -1 : (a > b ? 1 : 0);
}

using namespace orvatest;

struct Layout { DWORD linkOffset; bool comparator; };

std::string LayoutName(const testing::TestParamInfo<Layout>& info) {
    return "Offset" + std::to_string(info.param.linkOffset) + (info.param.comparator ? "Comparator" : "KeyWord");
}

// A tree over a pool of nodes, one node for each key 2, 4, 6, ... so that odd
// probes fall between nodes.
class Harness {
public:
    explicit Harness(Layout layout, size_t keys = 256) : layout_(layout), pool_(keys) {
        // Link words start as garbage: the tree must not need them cleared.
        for (size_t i = 0; i < keys; ++i) {
            std::memset(pool_[i].raw, 0xCC, sizeof pool_[i].raw);
            SetKey(&pool_[i], KeyAt(i));
        }
        tree_ = lavlCreate(layout.linkOffset, layout.comparator ? CompareField : nullptr);
    }
    ~Harness() { lavlDestroy(tree_); }

    static ULONG_PTR KeyAt(size_t i) { return 2 * i + 2; }
    void* tree() const { return tree_; }
    size_t size() const { return pool_.size(); }
    void* Node(ULONG_PTR key) { return pool_[key / 2 - 1].raw; }
    Link* LinkOf(void* node) const { return reinterpret_cast<Link*>(static_cast<unsigned char*>(node) + layout_.linkOffset); }
    void* NodeOf(Link* link) const { return reinterpret_cast<unsigned char*>(link) - layout_.linkOffset; }

    // With a comparator the key word holds a value of a different order, so
    // that a tree which read it would break the order.
    void SetKey(Item* item, ULONG_PTR key) const {
        ULONG_PTR word = layout_.comparator ? ~key * 2654435761u : key;
        std::memcpy(item->raw + layout_.linkOffset + sizeof(Link), &word, sizeof word);
        std::memcpy(item->raw + kFieldAt, &key, sizeof key);
    }
    ULONG_PTR KeyOf(void* node) const { return FieldOf(node); }
    // A zeroed node-shaped key with only the compared fields set.
    Item Probe(ULONG_PTR key) const {
        Item probe{};
        SetKey(&probe, key);
        return probe;
    }

    int Ins(ULONG_PTR key) { return lavlIns(tree_, Node(key)); }
    int Del(ULONG_PTR key) { return lavlDel(tree_, Node(key)); }
    int Search(ULONG_PTR key, int mode, void** found) {
        Item probe = Probe(key);
        *found = reinterpret_cast<void*>(0xCCCCCCCCCCCCCCCCull);
        return lavlSearch(tree_, &probe, found, mode);
    }

    // The root as the links tell it: climb from the smallest node.
    Link* Root() const {
        void* first = lavlGetFirstNode(tree_, nullptr, 0);
        if (first == nullptr) return nullptr;
        Link* link = LinkOf(first);
        while (link->parent != nullptr) link = link->parent;
        return link;
    }

    // Empty when the tree holds exactly `ref` and every invariant holds;
    // otherwise what is wrong first. Both walks start from the record's root,
    // so a stale root shows too.
    std::string Soundness(const std::set<ULONG_PTR>& ref) const {
        if (lavlGetEntryNum(tree_) != ref.size()) return "entry count " + std::to_string(lavlGetEntryNum(tree_));
        std::vector<ULONG_PTR> inOrder, walked, back;
        std::string fault;
        Height(Root(), &inOrder, &fault);
        if (!fault.empty()) return fault;
        if (!std::equal(inOrder.begin(), inOrder.end(), ref.begin(), ref.end())) return "in-order keys differ";
        for (void* n = lavlGetFirstNode(tree_, nullptr, 0); n != nullptr; n = lavlGetNextNode(tree_, n, 1))
            walked.push_back(KeyOf(n));
        for (void* n = lavlGetFirstNode(tree_, nullptr, ~ULONG_PTR{0}); n != nullptr; n = lavlGetNextNode(tree_, n, 0))
            back.push_back(KeyOf(n));
        std::reverse(back.begin(), back.end());
        return walked != inOrder ? "forward walk" : (back != inOrder ? "backward walk" : "");
    }

private:
    // The subtree's height. On the way: its keys in order, and the first
    // fault of a parent link, a balance, or its ends as lavlGetFirstNode
    // finds them from its top.
    int Height(Link* link, std::vector<ULONG_PTR>* inOrder, std::string* fault) const {
        if (link == nullptr || !fault->empty()) return 0;
        for (Link* child : {link->left, link->right}) {
            if (child != nullptr && child->parent != link) *fault = "parent link of " + Name(NodeOf(child));
        }
        const size_t from = inOrder->size();
        int left = Height(link->left, inOrder, fault);
        inOrder->push_back(KeyOf(NodeOf(link)));
        int right = Height(link->right, inOrder, fault);
        if (!fault->empty()) return 0;
        void* node = NodeOf(link);
        if (link->balance != (left == right ? 0u : (left == right + 1 ? 1u : (right == left + 1 ? 2u : 99u)))) {
            *fault = "balance of " + Name(node);
        } else if (KeyOf(lavlGetFirstNode(tree_, node, 0)) != (*inOrder)[from] ||
                   KeyOf(lavlGetFirstNode(tree_, node, ~ULONG_PTR{0})) != inOrder->back()) {
            *fault = "the ends under " + Name(node);
        }
        return 1 + std::max(left, right);
    }
    std::string Name(void* node) const { return std::to_string(KeyOf(node)); }

    Layout layout_;
    std::vector<Item> pool_;
    void* tree_;
};

std::vector<void*> g_seen;
size_t g_stopAt = 0;  // the call that answers 0; 0 never

int LogNode(ULONG_PTR value, void* item, ULONG_PTR* accumulator) {
    g_seen.push_back(item);
    *accumulator += value;
    return g_seen.size() != g_stopAt;
}

class AvlTreeTest : public testing::TestWithParam<Layout> {};

INSTANTIATE_TEST_SUITE_P(Layouts, AvlTreeTest,
                         testing::Values(Layout{0, false}, Layout{24, false}, Layout{8, true}), LayoutName);

// Deletion lets a node with a left child trade places with its predecessor.
TEST_P(AvlTreeTest, RootOutTradesPlacesWithItsLeftChild) {
    Harness h(GetParam());
    for (ULONG_PTR k : {20, 10, 30}) ASSERT_EQ(h.Ins(k), 1);
    ASSERT_EQ(h.Del(20), 1);
    EXPECT_EQ(h.Root(), h.LinkOf(h.Node(10)));
    EXPECT_EQ(h.Root()->right, h.LinkOf(h.Node(30)));
    EXPECT_EQ(h.Soundness({10, 30}), "");
    ASSERT_EQ(h.Del(10), 1);
    EXPECT_EQ(h.Root(), h.LinkOf(h.Node(30)));
    EXPECT_EQ(h.Soundness({30}), "");
}

// After every step the whole invariant holds and the tree holds what the set
// does; searches in every mode agree with the set and make no mark; an
// enumeration visits in order until its callback says stop.
TEST_P(AvlTreeTest, RandomMixMatchesSet) {
    Harness h(GetParam(), 200);
    std::set<ULONG_PTR> ref;
    std::mt19937 rng(20240611u + GetParam().linkOffset);
    for (int step = 0; step < 6000; ++step) {
        int op = static_cast<int>(rng() % 100);
        ULONG_PTR key = Harness::KeyAt(rng() % h.size());
        SCOPED_TRACE("step " + std::to_string(step) + " key " + std::to_string(key));
        if (op < 45) {
            // A key that is there already comes in a second node of its own.
            bool fresh = ref.insert(key).second;
            Item twin = h.Probe(key);
            PrepareCall();
            ASSERT_EQ(fresh ? h.Ins(key) : lavlIns(h.tree(), twin.raw), fresh ? 1 : 0);
            ASSERT_EQ(GetLastError(), fresh ? kCallerError : LERR_AVLDUPLICATE);
            ASSERT_EQ(LatestMarkError(), fresh ? kProbeError : LERR_AVLDUPLICATE);
        } else if (op < 80) {
            if (ref.empty()) continue;
            auto it = ref.lower_bound(key);
            if (it == ref.end()) it = ref.begin();
            ASSERT_EQ(h.Del(*it), 1);
            ref.erase(it);
        } else if (op < 85) {
            g_seen.clear();
            g_stopAt = rng() % (ref.size() + 2);
            const bool stops = g_stopAt != 0 && g_stopAt <= ref.size();
            std::vector<void*> want;
            for (ULONG_PTR k : ref) want.push_back(h.Node(k));
            want.resize(stops ? g_stopAt : want.size());
            ULONG_PTR acc = 0;
            ASSERT_EQ(lavlEnum(h.tree(), 3, LogNode, &acc), stops ? 0 : 1);
            ASSERT_EQ(g_seen, want);
            ASSERT_EQ(acc, 3 * want.size());
        } else {
            ULONG_PTR probe = key - 1 + rng() % 3;  // present or between two keys
            auto above = ref.upper_bound(probe), below = ref.lower_bound(probe);
            for (int mode = 0; mode <= 2; ++mode) {
                ULONG_PTR want = 0;  // none
                if (ref.count(probe) != 0) {
                    want = probe;
                } else if (mode == 1 && above != ref.end()) {
                    want = *above;
                } else if (mode == 2 && below != ref.begin()) {
                    want = *std::prev(below);
                }
                void* found;
                PrepareCall();
                ASSERT_EQ(h.Search(probe, mode, &found), want == 0 ? 2 : (want == probe ? 0 : 1)) << probe << "/" << mode;
                ASSERT_EQ(found, want == 0 ? nullptr : h.Node(want)) << probe << "/" << mode;
                ASSERT_EQ(GetLastError(), kCallerError);
                ASSERT_EQ(LatestMarkError(), kProbeError);
            }
        }
        ASSERT_EQ(h.Soundness(ref), "");
    }
}

// The walks of the random run use ends 0 and ~0 and directions 1 and 0.
// Neither these nor the end of a walk mark.
TEST_P(AvlTreeTest, OtherEndsAndDirections) {
    Harness h(GetParam());
    for (ULONG_PTR k : {20, 10, 30}) ASSERT_EQ(h.Ins(k), 1);
    void* t = h.tree();
    PrepareCall();
    EXPECT_EQ(lavlGetFirstNode(t, nullptr, 1), nullptr);
    EXPECT_EQ(lavlGetFirstNode(t, nullptr, 2), nullptr);
    EXPECT_EQ(lavlGetFirstNode(t, nullptr, ~ULONG_PTR{1}), nullptr);
    EXPECT_EQ(lavlGetNextNode(t, h.Node(10), 7), nullptr) << "any direction but 1 goes back";
    EXPECT_EQ(lavlGetNextNode(t, h.Node(30), -1), h.Node(20));
    EXPECT_EQ(lavlGetNextNode(t, h.Node(30), 1), nullptr);
    EXPECT_EQ(lavlGetNextNode(t, h.Node(10), 0), nullptr);
    EXPECT_EQ(GetLastError(), kCallerError);
    EXPECT_EQ(LatestMarkError(), kProbeError);
}

// The default comparison reads the key word as a signed difference, so words
// with the top bit set sort before 0, as negative numbers do.
TEST(AvlDefaultOrder, KeyWordsCompareAsSignedDifferences) {
    struct Plain { void* link[4]; ULONG_PTR key; } nodes[5], probe{{}, ~ULONG_PTR{0}};
    const ULONG_PTR keys[] = {1, ~ULONG_PTR{0}, 0, ~ULONG_PTR{1}, 2};
    void* tree = lavlCreate(0, nullptr);
    for (int i = 0; i < 5; ++i) {
        nodes[i].key = keys[i];
        ASSERT_EQ(lavlIns(tree, &nodes[i]), 1);
    }
    std::vector<ULONG_PTR> order;
    for (void* n = lavlGetFirstNode(tree, nullptr, 0); n != nullptr; n = lavlGetNextNode(tree, n, 1))
        order.push_back(static_cast<Plain*>(n)->key);
    EXPECT_EQ(order, (std::vector<ULONG_PTR>{~ULONG_PTR{1}, ~ULONG_PTR{0}, 0, 1, 2}));
    void* found = nullptr;
    EXPECT_EQ(lavlSearch(tree, &probe, &found, 0), 0);
    EXPECT_EQ(found, &nodes[1]);
    EXPECT_EQ(lavlDestroy(tree), 1);
}

TEST(AvlArguments, FailuresSetTheirErrorAndMark) {
    Item probe{};
    void* tree = lavlCreate(0, nullptr);
    void* out = &probe;
    struct Case { const char* what; std::function<long long()> call; long long result; DWORD error; };
    const Case cases[] = {
        {"Del null tree", [] { return lavlDel(nullptr, nullptr); }, 0, ERROR_INVALID_HANDLE},
        {"Del empty tree", [&] { return lavlDel(tree, probe.raw); }, 0, kCallerError},
        {"Destroy null", [] { return lavlDestroy(nullptr); }, 0, ERROR_INVALID_HANDLE},
        {"GetEntryNum null", [] { return lavlGetEntryNum(nullptr); }, 0xFFFFFFFFll, LERR_INVALIDARG},
        {"GetFirstNode null", [] { return lavlGetFirstNode(nullptr, nullptr, 0) != nullptr; }, 0, LERR_INVALIDARG},
        {"GetNextNode null tree", [&] { return lavlGetNextNode(nullptr, probe.raw, 1) != nullptr; }, 0,
         ERROR_INVALID_HANDLE},
        {"GetNextNode null node", [&] { return lavlGetNextNode(tree, nullptr, 1) != nullptr; }, 0, LERR_INVALIDARG},
        {"Enum null", [] { return lavlEnum(nullptr, 0, LogNode, nullptr); }, 0, LERR_INVALIDARG},
        {"Search null tree", [&] { return lavlSearch(nullptr, &probe, &out, 0); }, -1, LERR_INVALIDARG},
        {"Search null key", [&] { return lavlSearch(tree, nullptr, &out, 0); }, -1, LERR_INVALIDARG},
        {"Search mode 3", [&] { return lavlSearch(tree, &probe, &out, 3); }, -1, LERR_INVALIDARG},
        {"Search mode -1", [&] { return lavlSearch(tree, &probe, &out, -1); }, -1, LERR_INVALIDARG},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PrepareCall();
        EXPECT_EQ(c.call(), c.result);
        EXPECT_EQ(GetLastError(), c.error);
        EXPECT_EQ(LatestMarkError(), c.error);
        EXPECT_EQ(out, &probe);  // a refused search leaves *node alone
    }
    EXPECT_EQ(lavlDestroy(tree), 1);
}

TEST(AvlCorruption, OperationsGiveUp) {
    Harness h(Layout{0, false});
    for (ULONG_PTR k : {20, 10, 30}) ASSERT_EQ(h.Ins(k), 1);

    // A balance word out of range stops the insertion that has to rebalance there.
    h.LinkOf(h.Node(20))->balance = 7;
    PrepareCall();
    EXPECT_EQ(h.Ins(40), 0);
    EXPECT_EQ(GetLastError(), kCallerError);
    EXPECT_EQ(LatestMarkError(), kProbeError);
    EXPECT_EQ(lavlGetEntryNum(h.tree()), 3u);
    h.LinkOf(h.Node(20))->balance = 2;  // 30 now has 40 on its right

    // A parent that does not hold its child: the climb for a neighbour and the
    // deletion refuse, and mark.
    h.LinkOf(h.Node(10))->parent = h.LinkOf(h.Node(30));
    SetLastError(kCallerError);
    void* found;
    EXPECT_EQ(h.Search(15, 1, &found), 2);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(LatestMarkError(), kCallerError);
    PrepareCall();
    EXPECT_EQ(h.Del(10), 0);
    EXPECT_EQ(LatestMarkError(), kCallerError);
    EXPECT_EQ(lavlGetEntryNum(h.tree()), 3u);
}

}  // namespace
