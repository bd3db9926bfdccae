// Both intrusive list families through one suite: odd arguments, search by
// callback, a callback that unlinks its own node, then a seeded random mix of
// every operation checked against std::list after every step, walking both
// ways.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <random>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

void* const kAtEnd = reinterpret_cast<void*>(~ULONG_PTR{0});
constexpr UINT kLast = 0xFFFFFFFFu;

struct Family {
    const char* name;
    size_t linkWords;
    bool constantTimeDel;  // ldlist unlinks without looking; lslist walks
    void* (*create)(DWORD);
    int (*destroy)(void*);
    int (*ins)(void*, void*, void*);
    int (*del)(void*, void*);
    void* (*search)(void*, ULONG_PTR, LAL_COMPAREPROC);
    UINT (*count)(void*);
    int (*enumerate)(void*, ULONG_PTR, LAL_ENUMPROC, ULONG_PTR*);
    void* (*first)(void*, UINT);
    void* (*next)(void*, void*, int);
    UINT (*index)(void*, void*);
} const kFamilies[] = {
    {"ldlist", 2, true, ldlistCreate, ldlistDestroy, ldlistIns, ldlistDel, ldlistSearch, ldlistGetEntryNum,
     ldlistEnum, ldlistGetFirstNode, ldlistGetNextNode, ldlistGetNodeIndex},
    {"lslist", 1, false, lslistCreate, lslistDestroy, lslistIns, lslistDel, lslistSearch, lslistGetEntryNum,
     lslistEnum, lslistGetFirstNode, lslistGetNextNode, lslistGetNodeIndex},
};

// Test names and listings show the family, not the bytes of the record.
void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

// A node with room before the link, so a non-zero link offset is exercised.
struct Node { ULONG_PTR words[8]; };

class ListTest : public ::testing::TestWithParam<std::tuple<Family, DWORD>> {
protected:
    const Family& F() const { return std::get<0>(GetParam()); }
    DWORD Offset() const { return std::get<1>(GetParam()); }
    ULONG_PTR& Key(Node& n) const { return n.words[Offset() / sizeof(ULONG_PTR) + F().linkWords]; }

    // Keys repeat, so that a search must find the first match from the head.
    void SetUp() override {
        liveBefore_ = OrvaGlobalLiveBlocks();
        list_ = F().create(Offset());
        for (size_t i = 0; i < nodes_.size(); ++i) {
            std::fill(std::begin(nodes_[i].words), std::end(nodes_[i].words), ULONG_PTR{0xCCCCCCCC});
            Key(nodes_[i]) = 1000 + i % 16;
        }
    }
    void TearDown() override {
        EXPECT_EQ(F().destroy(list_), 1);
        EXPECT_EQ(OrvaGlobalLiveBlocks(), liveBefore_) << "record and sentinels freed";
    }

    // The list read forward and backward must both equal the model.
    void ExpectSame(const std::list<Node*>& model) {
        ASSERT_EQ(F().count(list_), model.size());
        std::vector<Node*> forward, backward;
        for (void* n = F().first(list_, 0); n != nullptr && forward.size() <= model.size(); n = F().next(list_, n, 1))
            forward.push_back(static_cast<Node*>(n));
        for (void* n = F().first(list_, kLast); n != nullptr && backward.size() <= model.size(); n = F().next(list_, n, 0))
            backward.insert(backward.begin(), static_cast<Node*>(n));
        ASSERT_EQ(forward, std::vector<Node*>(model.begin(), model.end()));
        ASSERT_EQ(backward, forward);
    }

    void* list_ = nullptr;
    std::vector<Node> nodes_ = std::vector<Node>(64);
    SIZE_T liveBefore_ = 0;
};

int CollectUntil(ULONG_PTR stopAt, void* item, ULONG_PTR* acc) {
    auto* seen = reinterpret_cast<std::vector<void*>*>(acc);
    seen->push_back(item);
    return seen->size() == stopAt ? 0 : 1;
}

// The caller's own view of a node: find the word that equals the key.
int MatchKey(void* key, void* node) {
    const auto* n = static_cast<Node*>(node);
    return std::count(std::begin(n->words), std::end(n->words), reinterpret_cast<ULONG_PTR>(key)) != 0 ? 1 : 0;
}
int AlwaysTwo(void*, void*) { return 2; }

// These answer null, 0 or kLast, leave the list as it was and, though some
// mark, keep the last error.
TEST_P(ListTest, OddArgumentsAndStrangers) {
    SetLastError(42);
    EXPECT_EQ(F().ins(list_, &nodes_[0], &nodes_[1]), 0) << "behind a node on an empty list";
    for (int i = 0; i < 2; ++i) ASSERT_EQ(F().ins(list_, &nodes_[i], kAtEnd), 1);
    EXPECT_EQ(F().first(list_, 2), nullptr);
    EXPECT_EQ(F().first(list_, 0xFFFFFFFEu), nullptr);
    EXPECT_EQ(F().next(list_, nullptr, 1), nullptr);
    if (!F().constantTimeDel) {
        nodes_[9].words[Offset() / sizeof(ULONG_PTR)] = 0;
        EXPECT_EQ(F().del(list_, &nodes_[9]), 0) << "not in the list";
        EXPECT_EQ(F().next(list_, &nodes_[9], 0), nullptr);
    }
    EXPECT_EQ(GetLastError(), 42u);
    ExpectSame({&nodes_[0], &nodes_[1]});
}

TEST_P(ListTest, SearchByCallbackTakesOnlyOne) {
    for (int i = 0; i < 5; ++i) ASSERT_EQ(F().ins(list_, &nodes_[i], kAtEnd), 1);
    EXPECT_EQ(F().search(list_, 1003, MatchKey), &nodes_[3]);
    EXPECT_EQ(F().search(list_, 1003, AlwaysTwo), nullptr);
}

TEST_P(ListTest, ACallbackMayTakeItsOwnNodeOut) {
    for (int i = 0; i < 6; ++i) ASSERT_EQ(F().ins(list_, &nodes_[i], kAtEnd), 1);
    struct State { const Family* f; void* list; int calls; } state{&F(), list_, 0};
    auto dropEven = [](ULONG_PTR, void* item, ULONG_PTR* acc) {
        auto* s = reinterpret_cast<State*>(acc);
        if (s->calls++ % 2 == 0) s->f->del(s->list, item);
        return 1;
    };
    EXPECT_EQ(F().enumerate(list_, 0, dropEven, reinterpret_cast<ULONG_PTR*>(&state)), 1);
    EXPECT_EQ(state.calls, 6);
    ExpectSame({&nodes_[1], &nodes_[3], &nodes_[5]});
}

TEST_P(ListTest, RandomMixMatchesStdList) {
    std::mt19937 rng(20261123 + Offset());
    std::list<Node*> model;
    auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    auto member = [&](size_t k) { return std::next(model.begin(), static_cast<std::ptrdiff_t>(k)); };
    for (int step = 0; step < 3000; ++step) {
        Node* node = &nodes_[pick(nodes_.size())];
        const bool inList = std::find(model.begin(), model.end(), node) != model.end();
        const unsigned kind = rng() % 9;
        if (kind < 3 && !inList) {  // insert at the front, at the end or behind a member
            int where = static_cast<int>(rng() % (model.empty() ? 2 : 3));
            auto it = where == 0 ? model.begin() : where == 1 ? model.end() : std::next(member(pick(model.size())));
            void* behind = where == 0 ? nullptr : where == 1 ? kAtEnd : *std::prev(it);
            ASSERT_EQ(F().ins(list_, node, behind), 1);
            model.insert(it, node);
        } else if (kind >= 3 && kind < 5 && !model.empty()) {  // delete a member
            auto it = member(pick(model.size()));
            ASSERT_EQ(F().del(list_, *it), 1);
            model.erase(it);
        } else if (kind == 5) {  // search by key
            auto it = std::find_if(model.begin(), model.end(), [&](Node* n) { return Key(*n) == Key(*node); });
            ASSERT_EQ(F().search(list_, Key(*node), nullptr), it == model.end() ? nullptr : *it);
        } else if (kind == 6) {  // index of any node, node at any index
            auto it = std::find(model.begin(), model.end(), node);
            ASSERT_EQ(F().index(list_, node), it == model.end() ? kLast : UINT(std::distance(model.begin(), it)));
            UINT i = static_cast<UINT>(pick(model.size() + 2));
            ASSERT_EQ(F().first(list_, i), i < model.size() ? *member(i) : nullptr);
        } else if (kind == 7 && !model.empty()) {  // a step each way from a member
            auto it = member(pick(model.size()));
            ASSERT_EQ(F().next(list_, *it, 1), std::next(it) == model.end() ? nullptr : *std::next(it));
            ASSERT_EQ(F().next(list_, *it, 0), it == model.begin() ? nullptr : *std::prev(it));
        } else if (kind == 8) {  // enumerate, stopping at the stop-th call (0: never)
            size_t stop = pick(model.size() + 2);
            std::vector<void*> seen;
            bool stops = stop != 0 && stop <= model.size();
            ASSERT_EQ(F().enumerate(list_, stop, CollectUntil, reinterpret_cast<ULONG_PTR*>(&seen)), stops ? 0 : 1);
            ASSERT_EQ(seen, std::vector<void*>(model.begin(), stops ? member(stop) : model.end()));
        }
        ASSERT_NO_FATAL_FAILURE(ExpectSame(model)) << "step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, ListTest,
                         ::testing::Combine(::testing::ValuesIn(kFamilies),
                                            ::testing::Values(DWORD{0}, DWORD{2 * sizeof(ULONG_PTR)})),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_offset" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST(ListEdges, NullListsAndTheDoublyLinkedShortcut) {
    for (auto destroy : {ldlistDestroy, lslistDestroy}) {
        SetLastError(0);
        EXPECT_EQ(destroy(nullptr), 0);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    SetLastError(42);
    Node n{};
    EXPECT_EQ(ldlistDel(nullptr, &n), 1) << "a null list is no error for the doubly linked Del";
    EXPECT_EQ(GetLastError(), 42u);
}

}  // namespace
