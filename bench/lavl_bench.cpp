// lavl* against the ordered containers a user would pick instead: the
// intrusive AVL set (normal-link base hook, the same 32-byte link plus key)
// and std::set. Keys are the even numbers 2..2N inserted in shuffled order,
// with the nodes laid out in that order; nearest-neighbour probes use odd
// keys, so they never match exactly: "above" is lavlSearch mode 1 against
// lower_bound, "below" is mode 2 against the element before upper_bound.
// The comparator form of lavl* runs beside the default where the comparison
// dominates (insertion and exact search).
#include <boost/intrusive/avl_set.hpp>
#include <set>

#include <orvanest/ORVANEST.h>

#include "container_bench.h"

namespace bi = boost::intrusive;
using namespace container_bench;

namespace {

std::vector<ULONG_PTR> ShuffledKeys(size_t n) {
    std::vector<ULONG_PTR> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = 2 * i + 2;
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

// ---- the three peers ---------------------------------------------------------------

struct LavlNode {
    void* link[4];
    ULONG_PTR key;
};

int CompareKeys(void* first, void* second) {
    ULONG_PTR a = static_cast<LavlNode*>(first)->key, b = static_cast<LavlNode*>(second)->key;
    return a < b ? -1 : (a > b ? 1 : 0);
}

template <bool kComparator>
class Lavl {
public:
    explicit Lavl(size_t n) : nodes_(n) {
        std::vector<ULONG_PTR> keys = ShuffledKeys(n);
        for (size_t i = 0; i < n; ++i) nodes_[i].key = keys[i];
        Reset();
    }
    ~Lavl() { lavlDestroy(tree_); }
    void Reset() {
        if (tree_ != nullptr) lavlDestroy(tree_);
        tree_ = lavlCreate(0, kComparator ? CompareKeys : nullptr);
    }
    void InsertAll() {
        for (LavlNode& n : nodes_) lavlIns(tree_, &n);
    }
    void PrepareDelete() {}
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) lavlDel(tree_, &nodes_[i]);
    }
    void* Exact(ULONG_PTR key) { return Find(key, 0); }
    void* Above(ULONG_PTR key) { return Find(key, 1); }
    void* Below(ULONG_PTR key) { return Find(key, 2); }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (void* n = lavlGetFirstNode(tree_, nullptr, 0); n != nullptr; n = lavlGetNextNode(tree_, n, 1))
            sum += static_cast<LavlNode*>(n)->key;
        return sum;
    }

private:
    void* Find(ULONG_PTR key, int mode) {
        probe_.key = key;
        void* found;
        lavlSearch(tree_, &probe_, &found, mode);
        return found;
    }

    std::vector<LavlNode> nodes_;
    LavlNode probe_{};
    void* tree_ = nullptr;
};

// The queries of both standard-shaped sets.
template <class Set>
auto* ExactIn(Set& set, ULONG_PTR key) {
    auto it = set.find(key);
    return it == set.end() ? nullptr : &*it;
}
template <class Set>
auto* AboveIn(Set& set, ULONG_PTR key) {
    auto it = set.lower_bound(key);
    return it == set.end() ? nullptr : &*it;
}
template <class Set>
auto* BelowIn(Set& set, ULONG_PTR key) {
    auto it = set.upper_bound(key);
    return it == set.begin() ? nullptr : &*--it;
}

struct HookedNode : bi::avl_set_base_hook<bi::link_mode<bi::normal_link>> {
    ULONG_PTR key;
};
struct KeyOfHooked {
    typedef ULONG_PTR type;
    const type& operator()(const HookedNode& n) const { return n.key; }
};

class Intrusive {
public:
    explicit Intrusive(size_t n) : nodes_(n) {
        std::vector<ULONG_PTR> keys = ShuffledKeys(n);
        for (size_t i = 0; i < n; ++i) nodes_[i].key = keys[i];
    }
    ~Intrusive() { set_.clear(); }
    void Reset() { set_.clear(); }
    void InsertAll() {
        for (HookedNode& n : nodes_) set_.insert(n);
    }
    void PrepareDelete() {}
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) set_.erase(set_.iterator_to(nodes_[i]));
    }
    const HookedNode* Exact(ULONG_PTR key) { return ExactIn(set_, key); }
    const HookedNode* Above(ULONG_PTR key) { return AboveIn(set_, key); }
    const HookedNode* Below(ULONG_PTR key) { return BelowIn(set_, key); }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (const HookedNode& n : set_) sum += n.key;
        return sum;
    }

private:
    std::vector<HookedNode> nodes_;
    bi::avl_set<HookedNode, bi::key_of_value<KeyOfHooked>> set_;
};

class StdSet {
public:
    explicit StdSet(size_t n) : keys_(ShuffledKeys(n)) {}
    void Reset() {
        set_.clear();
        where_.clear();
    }
    void InsertAll() {
        for (ULONG_PTR k : keys_) set_.insert(k);
    }
    // Erasing a given element takes its iterator, gathered untimed.
    void PrepareDelete() {
        where_.clear();
        for (ULONG_PTR k : keys_) where_.push_back(set_.find(k));
    }
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) set_.erase(where_[i]);
    }
    const ULONG_PTR* Exact(ULONG_PTR key) { return ExactIn(set_, key); }
    const ULONG_PTR* Above(ULONG_PTR key) { return AboveIn(set_, key); }
    const ULONG_PTR* Below(ULONG_PTR key) { return BelowIn(set_, key); }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (ULONG_PTR k : set_) sum += k;
        return sum;
    }

private:
    std::vector<ULONG_PTR> keys_;
    std::set<ULONG_PTR> set_;
    std::vector<std::set<ULONG_PTR>::iterator> where_;
};

// ---- searches -------------------------------------------------------------------------

enum Probe { kExact, kAbove, kBelow };

template <class C, Probe kProbe>
void Search(benchmark::State& state) {
    size_t n = static_cast<size_t>(state.range(0));
    C c(n);
    c.InsertAll();
    // Exact probes are keys drawn at random; neighbour probes are odd numbers
    // 1..2N+1, below, between and above the keys. The stream is long enough
    // that the branch predictor cannot learn the paths of a repeating cycle.
    std::vector<ULONG_PTR> probes(size_t{1} << 20);
    std::mt19937 rng(3);
    std::uniform_int_distribution<ULONG_PTR> pick(0, kProbe == kExact ? n - 1 : n);
    for (ULONG_PTR& p : probes) p = kProbe == kExact ? 2 * pick(rng) + 2 : 2 * pick(rng) + 1;
    size_t i = 0;
    for (auto _ : state) {
        ULONG_PTR key = probes[i];
        if (++i == probes.size()) i = 0;
        if constexpr (kProbe == kExact) benchmark::DoNotOptimize(c.Exact(key));
        if constexpr (kProbe == kAbove) benchmark::DoNotOptimize(c.Above(key));
        if constexpr (kProbe == kBelow) benchmark::DoNotOptimize(c.Below(key));
    }
    state.SetItemsProcessed(state.iterations());
    c.Reset();
}

const int g_registered = [] {
    Add("Insert/lavl", Insert<Lavl<false>>, true);
    Add("Insert/avl_set", Insert<Intrusive>, true);
    Add("Insert/std_set", Insert<StdSet>, true);
    Add("Insert/lavl_comparator", Insert<Lavl<true>>, true);
    Add("Delete/lavl", Delete<Lavl<false>>, true);
    Add("Delete/avl_set", Delete<Intrusive>, true);
    Add("Delete/std_set", Delete<StdSet>, true);
    Add("Exact/lavl", Search<Lavl<false>, kExact>);
    Add("Exact/avl_set", Search<Intrusive, kExact>);
    Add("Exact/std_set", Search<StdSet, kExact>);
    Add("Exact/lavl_comparator", Search<Lavl<true>, kExact>);
    Add("Above/lavl", Search<Lavl<false>, kAbove>);
    Add("Above/avl_set", Search<Intrusive, kAbove>);
    Add("Above/std_set", Search<StdSet, kAbove>);
    Add("Below/lavl", Search<Lavl<false>, kBelow>);
    Add("Below/avl_set", Search<Intrusive, kBelow>);
    Add("Below/std_set", Search<StdSet, kBelow>);
    Add("Walk/lavl", Walk<Lavl<false>>);
    Add("Walk/avl_set", Walk<Intrusive>);
    Add("Walk/std_set", Walk<StdSet>);
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
