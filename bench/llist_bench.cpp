// ldlist* against the lists a user would pick instead: the intrusive list
// (normal-link base hook, the same two-word link plus key) and std::list.
// Insertion appends N nodes to an empty list (ldlistIns with -1 against
// push_back), deletion unlinks them in shuffled order, and the walk steps
// through a filled list (ldlistGetFirstNode, then ldlistGetNextNode).
#include <boost/intrusive/list.hpp>
#include <list>

#include <orvanest/ORVANEST.h>

#include "container_bench.h"

namespace bi = boost::intrusive;
using namespace container_bench;

namespace {

void* const kAtEnd = reinterpret_cast<void*>(~ULONG_PTR{0});

struct DlistNode {
    void* link[2];
    ULONG_PTR key;
};

class Dlist {
public:
    explicit Dlist(size_t n) : nodes_(n), list_(ldlistCreate(0)) {
        for (size_t i = 0; i < n; ++i) nodes_[i].key = i;
    }
    ~Dlist() { ldlistDestroy(list_); }
    void Reset() {
        ldlistDestroy(list_);
        list_ = ldlistCreate(0);
    }
    void InsertAll() {
        for (DlistNode& n : nodes_) ldlistIns(list_, &n, kAtEnd);
    }
    void PrepareDelete() {}
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) ldlistDel(list_, &nodes_[i]);
    }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (void* n = ldlistGetFirstNode(list_, 0); n != nullptr; n = ldlistGetNextNode(list_, n, 1))
            sum += static_cast<DlistNode*>(n)->key;
        return sum;
    }

private:
    std::vector<DlistNode> nodes_;
    void* list_;
};

struct HookedNode : bi::list_base_hook<bi::link_mode<bi::normal_link>> {
    ULONG_PTR key;
};

class Intrusive {
public:
    explicit Intrusive(size_t n) : nodes_(n) {
        for (size_t i = 0; i < n; ++i) nodes_[i].key = i;
    }
    ~Intrusive() { list_.clear(); }
    void Reset() { list_.clear(); }
    void InsertAll() {
        for (HookedNode& n : nodes_) list_.push_back(n);
    }
    void PrepareDelete() {}
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) list_.erase(list_.iterator_to(nodes_[i]));
    }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (const HookedNode& n : list_) sum += n.key;
        return sum;
    }

private:
    std::vector<HookedNode> nodes_;
    bi::list<HookedNode> list_;
};

class StdList {
public:
    explicit StdList(size_t n) : n_(n) {}
    void Reset() {
        list_.clear();
        where_.clear();
    }
    void InsertAll() {
        for (size_t i = 0; i < n_; ++i) list_.push_back(i);
    }
    // Erasing a given element takes its iterator, gathered untimed.
    void PrepareDelete() {
        where_.clear();
        for (auto it = list_.begin(); it != list_.end(); ++it) where_.push_back(it);
    }
    void DeleteAll(const std::vector<size_t>& order) {
        for (size_t i : order) list_.erase(where_[i]);
    }
    ULONG_PTR Walk() {
        ULONG_PTR sum = 0;
        for (ULONG_PTR k : list_) sum += k;
        return sum;
    }

private:
    size_t n_;
    std::list<ULONG_PTR> list_;
    std::vector<std::list<ULONG_PTR>::iterator> where_;
};

const int g_registered = [] {
    Add("Insert/ldlist", Insert<Dlist>, true);
    Add("Insert/list", Insert<Intrusive>, true);
    Add("Insert/std_list", Insert<StdList>, true);
    Add("Delete/ldlist", Delete<Dlist>, true);
    Add("Delete/list", Delete<Intrusive>, true);
    Add("Delete/std_list", Delete<StdList>, true);
    Add("Walk/ldlist", Walk<Dlist>);
    Add("Walk/list", Walk<Intrusive>);
    Add("Walk/std_list", Walk<StdList>);
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
