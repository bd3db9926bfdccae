// The AVL tree: a seeded random mix against std::set with the whole invariant
// checked after every step, search modes, deletion, walks and refusals, for
// links at two offsets and with a caller's comparator.
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
struct Item {
    alignas(8) unsigned char raw[96];
};

int g_compareCalls = 0;

ULONG_PTR FieldOf(const void* node) {
    ULONG_PTR v;
    std::memcpy(&v, static_cast<const unsigned char*>(node) + kFieldAt, sizeof v);
    return v;
}

int CompareField(void* first, void* second) {
    ++g_compareCalls;
    ULONG_PTR a = FieldOf(first), b = FieldOf(second);
    return a < b ? -1 : (a > b ? 1 : 0);
}

using orvatest::kCallerError;
using orvatest::kProbeError;
using orvatest::LatestMarkError;
using orvatest::PrepareCall;

struct Layout {
    DWORD linkOffset;
    bool comparator;
};

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
    // otherwise what is wrong first.
    std::string Soundness(const std::set<ULONG_PTR>& ref) const {
        if (lavlGetEntryNum(tree_) != ref.size()) return "entry count " + std::to_string(lavlGetEntryNum(tree_));
        Link* root = Root();
        if (ref.empty()) {
            if (root != nullptr || lavlGetFirstNode(tree_, nullptr, ~ULONG_PTR{0}) != nullptr) return "empty tree has nodes";
            return "";
        }
        std::vector<ULONG_PTR> inOrder;
        std::string fault;
        Height(root, &inOrder, &fault);
        if (!fault.empty()) return fault;
        if (!std::equal(inOrder.begin(), inOrder.end(), ref.begin(), ref.end())) return "in-order keys differ";
        // The record's root sits on both spines only if it is the real root.
        if (KeyOf(lavlGetFirstNode(tree_, nullptr, ~ULONG_PTR{0})) != *ref.rbegin()) return "greatest node";
        std::vector<ULONG_PTR> walked, back;
        for (void* n = lavlGetFirstNode(tree_, nullptr, 0); n != nullptr; n = lavlGetNextNode(tree_, n, 1))
            walked.push_back(KeyOf(n));
        for (void* n = lavlGetFirstNode(tree_, nullptr, ~ULONG_PTR{0}); n != nullptr; n = lavlGetNextNode(tree_, n, 0))
            back.push_back(KeyOf(n));
        if (walked != inOrder) return "forward walk";
        if (!std::equal(back.rbegin(), back.rend(), inOrder.begin(), inOrder.end())) return "backward walk";
        return "";
    }

private:
    int Height(Link* link, std::vector<ULONG_PTR>* inOrder, std::string* fault) const {
        if (link == nullptr || !fault->empty()) return 0;
        for (Link* child : {link->left, link->right}) {
            if (child != nullptr && child->parent != link) *fault = "parent link of " + std::to_string(KeyOf(NodeOf(child)));
        }
        int left = Height(link->left, inOrder, fault);
        inOrder->push_back(KeyOf(NodeOf(link)));
        int right = Height(link->right, inOrder, fault);
        ULONG_PTR expected = left == right ? 0 : (left == right + 1 ? 1 : (right == left + 1 ? 2 : 99));
        if (fault->empty() && link->balance != expected) {
            *fault = "balance of " + std::to_string(KeyOf(NodeOf(link))) + " is " + std::to_string(link->balance) +
                     ", heights " + std::to_string(left) + "/" + std::to_string(right);
        }
        return 1 + (left > right ? left : right);
    }

    Layout layout_;
    std::vector<Item> pool_;
    void* tree_;
};

class AvlTreeTest : public testing::TestWithParam<Layout> {};

INSTANTIATE_TEST_SUITE_P(Layouts, AvlTreeTest,
                         testing::Values(Layout{0, false}, Layout{24, false}, Layout{8, true}), LayoutName);

TEST_P(AvlTreeTest, SearchModesAroundThreeNodes) {
    Harness h(GetParam());
    void* found;
    g_compareCalls = 0;
    for (int mode = 0; mode <= 2; ++mode) EXPECT_EQ(h.Search(4, mode, &found), 2) << "empty tree";
    EXPECT_EQ(g_compareCalls, 0) << "an empty tree calls no comparator";
    for (ULONG_PTR k : {10, 20, 30}) ASSERT_EQ(h.Ins(k), 1);
    struct Case {
        ULONG_PTR key;
        int mode, result;
        ULONG_PTR node;  // 0: none
    };
    const Case cases[] = {
        {20, 0, 0, 20}, {20, 1, 0, 20}, {20, 2, 0, 20},  //
        {25, 0, 2, 0},  {25, 1, 1, 30}, {25, 2, 1, 20},  // fell off to the right of 20
        {15, 1, 1, 20}, {15, 2, 1, 10},                  // fell off to the right of 10
        {5, 0, 2, 0},   {5, 1, 1, 10},  {5, 2, 2, 0},    // below every node
        {35, 1, 2, 0},  {35, 2, 1, 30},                  // above every node
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("key " + std::to_string(c.key) + " mode " + std::to_string(c.mode));
        PrepareCall();
        EXPECT_EQ(h.Search(c.key, c.mode, &found), c.result);
        EXPECT_EQ(found, c.node == 0 ? nullptr : h.Node(c.node));
        EXPECT_EQ(GetLastError(), kCallerError);
        EXPECT_EQ(LatestMarkError(), kProbeError);
    }
}

TEST_P(AvlTreeTest, RootOutTradesPlacesWithItsLeftChild) {
    Harness h(GetParam());
    for (ULONG_PTR k : {20, 10, 30}) ASSERT_EQ(h.Ins(k), 1);
    ASSERT_EQ(h.Del(20), 1);
    EXPECT_EQ(h.Root(), h.LinkOf(h.Node(10)));
    EXPECT_EQ(h.Root()->right, h.LinkOf(h.Node(30)));
    EXPECT_EQ(h.Soundness({10, 30}), "");
    // Taking out the new root leaves the right child alone at the top.
    ASSERT_EQ(h.Del(10), 1);
    EXPECT_EQ(h.Root(), h.LinkOf(h.Node(30)));
    EXPECT_EQ(h.Soundness({30}), "");
}

// Insertion in breadth-first order builds the given shape without a
// rotation; a tree in which every node leans left and the rightmost leaf goes
// makes each ancestor on the right spine rotate in turn.
void AddLeaning(std::vector<std::vector<ULONG_PTR>>* levels, int height, ULONG_PTR* next, size_t depth) {
    if (height <= 0) return;
    if (levels->size() <= depth) levels->resize(depth + 1);
    AddLeaning(levels, height - 1, next, depth + 1);
    (*levels)[depth].push_back(*next);
    *next += 2;
    AddLeaning(levels, height - 2, next, depth + 1);
}

TEST_P(AvlTreeTest, DeletionRotatesAtSeveralLevels) {
    Harness h(GetParam(), 512);
    std::vector<std::vector<ULONG_PTR>> levels;
    ULONG_PTR next = 2;
    AddLeaning(&levels, 10, &next, 0);
    std::set<ULONG_PTR> ref;
    for (const auto& level : levels) {
        for (ULONG_PTR k : level) {
            ASSERT_EQ(h.Ins(k), 1);
            ref.insert(k);
        }
    }
    ASSERT_EQ(h.Soundness(ref), "");
    for (ULONG_PTR k : ref) ASSERT_EQ(h.LinkOf(h.Node(k))->balance, h.LinkOf(h.Node(k))->left ? 1u : 0u);
    std::vector<Link*> parents;
    for (ULONG_PTR k : ref) parents.push_back(h.LinkOf(h.Node(k))->parent);
    ULONG_PTR last = *ref.rbegin();
    ASSERT_EQ(h.Del(last), 1);
    ref.erase(last);
    EXPECT_EQ(h.Soundness(ref), "");
    int moved = 0, i = 0;
    for (ULONG_PTR k : ref) moved += h.LinkOf(h.Node(k))->parent != parents[i++];
    EXPECT_GE(moved, 8);  // four single rotations, two nodes each
}

// Sorted fills and emptyings rotate the same way at every step.
TEST_P(AvlTreeTest, OrderedFillsAndEmptyings) {
    const int n = 300;
    std::vector<ULONG_PTR> up;
    for (int i = 0; i < n; ++i) up.push_back(Harness::KeyAt(i));
    std::vector<ULONG_PTR> down(up.rbegin(), up.rend()), shuffled(up);
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
    const std::pair<const std::vector<ULONG_PTR>*, const std::vector<ULONG_PTR>*> plans[] = {
        {&up, &up}, {&up, &down}, {&down, &up}, {&down, &shuffled}};
    for (const auto& [fill, empty] : plans) {
        Harness h(GetParam(), n);
        std::set<ULONG_PTR> ref;
        for (ULONG_PTR k : *fill) {
            ASSERT_EQ(h.Ins(k), 1);
            ref.insert(k);
            ASSERT_EQ(h.Soundness(ref), "") << "after inserting " << k;
        }
        for (ULONG_PTR k : *empty) {
            ASSERT_EQ(h.Del(k), 1);
            ref.erase(k);
            ASSERT_EQ(h.Soundness(ref), "") << "after deleting " << k;
        }
    }
}

TEST_P(AvlTreeTest, RandomMixMatchesSet) {
    Harness h(GetParam(), 200);
    std::set<ULONG_PTR> ref;
    std::mt19937 rng(20240611u + GetParam().linkOffset);
    std::uniform_int_distribution<size_t> pick(0, h.size() - 1);
    for (int step = 0; step < 6000; ++step) {
        int op = static_cast<int>(rng() % 100);
        ULONG_PTR key = Harness::KeyAt(pick(rng));
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
        } else {
            ULONG_PTR probe = key - 1 + rng() % 3;  // present or between two keys
            for (int mode = 0; mode <= 2; ++mode) {
                void* expected = nullptr;
                int result = 2;
                if (ref.count(probe) != 0) {
                    expected = h.Node(probe);
                    result = 0;
                } else if (mode == 1 && ref.upper_bound(probe) != ref.end()) {
                    expected = h.Node(*ref.upper_bound(probe));
                    result = 1;
                } else if (mode == 2 && ref.lower_bound(probe) != ref.begin()) {
                    expected = h.Node(*std::prev(ref.lower_bound(probe)));
                    result = 1;
                }
                void* found;
                ASSERT_EQ(h.Search(probe, mode, &found), result) << "probe " << probe << " mode " << mode;
                ASSERT_EQ(found, expected) << "probe " << probe << " mode " << mode;
            }
        }
        ASSERT_EQ(h.Soundness(ref), "");
    }
}

TEST_P(AvlTreeTest, FirstNodeOfSubtreesAndEnds) {
    Harness h(GetParam());
    for (ULONG_PTR k : {40, 20, 60, 10, 30, 70}) ASSERT_EQ(h.Ins(k), 1);
    EXPECT_EQ(lavlGetFirstNode(h.tree(), h.Node(20), 0), h.Node(10));
    EXPECT_EQ(lavlGetFirstNode(h.tree(), h.Node(20), ~ULONG_PTR{0}), h.Node(30));
    EXPECT_EQ(lavlGetFirstNode(h.tree(), h.Node(60), 0), h.Node(60));  // no left child
    EXPECT_EQ(lavlGetFirstNode(h.tree(), h.Node(60), ~ULONG_PTR{0}), h.Node(70));
    for (ULONG_PTR end : {ULONG_PTR{1}, ULONG_PTR{2}, ~ULONG_PTR{1}}) {
        PrepareCall();
        EXPECT_EQ(lavlGetFirstNode(h.tree(), nullptr, end), nullptr);
        EXPECT_EQ(GetLastError(), kCallerError);
        EXPECT_EQ(LatestMarkError(), kProbeError);
    }
    PrepareCall();
    EXPECT_EQ(lavlGetNextNode(h.tree(), h.Node(70), 1), nullptr);
    EXPECT_EQ(lavlGetNextNode(h.tree(), h.Node(10), 0), nullptr);
    EXPECT_EQ(lavlGetNextNode(h.tree(), h.Node(10), 7), nullptr);  // any direction but 1 goes back
    EXPECT_EQ(lavlGetNextNode(h.tree(), h.Node(30), 1), h.Node(40));
    EXPECT_EQ(lavlGetNextNode(h.tree(), h.Node(40), -1), h.Node(30));
    EXPECT_EQ(LatestMarkError(), kProbeError);
}

struct EnumLog {
    std::vector<void*> seen;
    int stopAt;  // 1-based call that answers 0; 0 never
};
EnumLog* g_enumLog = nullptr;

int LogNode(ULONG_PTR value, void* item, ULONG_PTR* accumulator) {
    g_enumLog->seen.push_back(item);
    *accumulator += value;
    return static_cast<int>(g_enumLog->seen.size()) != g_enumLog->stopAt;
}

TEST_P(AvlTreeTest, EnumVisitsInOrderAndStops) {
    Harness h(GetParam());
    EnumLog log{{}, 0};
    g_enumLog = &log;
    ULONG_PTR acc = 0;
    EXPECT_EQ(lavlEnum(h.tree(), 5, LogNode, &acc), 1);
    EXPECT_TRUE(log.seen.empty());
    for (ULONG_PTR k : {30, 10, 20, 40}) ASSERT_EQ(h.Ins(k), 1);
    EXPECT_EQ(lavlEnum(h.tree(), 5, LogNode, &acc), 1);
    EXPECT_EQ(log.seen, (std::vector<void*>{h.Node(10), h.Node(20), h.Node(30), h.Node(40)}));
    EXPECT_EQ(acc, 20u);
    log = {{}, 2};
    EXPECT_EQ(lavlEnum(h.tree(), 5, LogNode, &acc), 0);
    EXPECT_EQ(log.seen, (std::vector<void*>{h.Node(10), h.Node(20)}));
    g_enumLog = nullptr;
}

// The default comparison reads the key word as a signed difference, so words
// with the top bit set sort before 0, as negative numbers do.
TEST(AvlDefaultOrder, KeyWordsCompareAsSignedDifferences) {
    struct Plain {
        void* link[4];
        ULONG_PTR key;
    };
    const ULONG_PTR keys[] = {1, ~ULONG_PTR{0}, 0, ~ULONG_PTR{1}, 2};
    Plain nodes[5];
    void* tree = lavlCreate(0, nullptr);
    for (int i = 0; i < 5; ++i) {
        nodes[i].key = keys[i];
        ASSERT_EQ(lavlIns(tree, &nodes[i]), 1);
    }
    std::vector<ULONG_PTR> order;
    for (void* n = lavlGetFirstNode(tree, nullptr, 0); n != nullptr; n = lavlGetNextNode(tree, n, 1))
        order.push_back(static_cast<Plain*>(n)->key);
    EXPECT_EQ(order, (std::vector<ULONG_PTR>{~ULONG_PTR{1}, ~ULONG_PTR{0}, 0, 1, 2}));
    Plain probe{};
    probe.key = ~ULONG_PTR{0};
    void* found = nullptr;
    EXPECT_EQ(lavlSearch(tree, &probe, &found, 0), 0);
    EXPECT_EQ(found, &nodes[1]);
    EXPECT_EQ(lavlDestroy(tree), 1);
}

TEST(AvlArguments, FailuresSetTheirErrorAndMark) {
    Item probe{};
    void* tree = lavlCreate(0, nullptr);
    void* out = &probe;
    struct Case {
        const char* what;
        std::function<long long()> call;
        long long result;
        DWORD error;  // kCallerError: the last error stays
    };
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
