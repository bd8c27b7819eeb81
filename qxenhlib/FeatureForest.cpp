#include "qxenhlib/FeatureForest.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <new>
#include <optional>
#include <vector>

#include <flann/util/params.h>

#include <flann/algorithms/dist.h>
#include <flann/algorithms/kdtree_index.h>

#include "prim/matching.h"
#include "prim/memory.h"

// The index is FLANN's, and so are the rules by which its trees grow and are searched. The members
// that follow them are written anew for our distance: nodes of eight bytes in memory that stays
// from tile to tile, random choices that leave the host's generator alone, vector kernels, and
// several searches under way.

namespace kt7 {
namespace {

constexpr int featureSize = 16, groupSize = 8;
constexpr std::size_t nodeBytes = 8;

// Searches that one thread has under way. While one waits for a node or a feature, the others go
// on.
constexpr std::size_t searchesAtOnce = 4;

// Branches that the minimum is looked for in are rounded up to this many.
constexpr int branchPadding = 16;

// State of the forests' random choices: one per thread and never seeded, so it runs on from tile to
// tile, and the host's own generator is left alone. Where a thread's variables are made at first
// use, a process that has no memory for them is ended; these stand from the thread's start.
[[gnu::tls_model("initial-exec")]] thread_local std::uint32_t forestState = 1;

/// Random integer from 0 to below - 1.
std::uint32_t randomBelow(std::uint32_t below) {
    forestState = forestState * 1664525u + 1013904223u;
    return static_cast<std::uint32_t>((std::uint64_t{forestState} * below) >> 32);
}

/// The eight best candidates so far, best first.
class EightBest {
  public:
    void clear() { std::fill_n(distances_ + 1, groupSize, none); }
    /// Distance that a candidate must be below.
    float worst() const { return distances_[groupSize]; }
    bool full() const { return worst() < none; }

    /// A candidate goes behind those that are as near. Where it belongs can't be predicted, so
    /// every place is written.
    void add(float distance, std::int32_t candidate) {
        float moved[groupSize];
        std::int32_t movedCandidates[groupSize];
        for (int i = 0; i < groupSize; ++i) {
            const bool here = distances_[i + 1] > distance, before = distances_[i] > distance;
            moved[i] = before ? distances_[i] : here ? distance : distances_[i + 1];
            movedCandidates[i] = before ? candidates_[i] : here ? candidate : candidates_[i + 1];
        }
        std::copy_n(moved, groupSize, distances_ + 1);
        std::copy_n(movedCandidates, groupSize, candidates_ + 1);
    }

    void copyTo(std::int32_t* candidates, float* distances) const {
        std::copy_n(candidates_ + 1, groupSize, candidates);
        std::copy_n(distances_ + 1, groupSize, distances);
    }

  private:
    static constexpr float none = std::numeric_limits<float>::max();

    // The first has nothing before it to be moved.
    float distances_[1 + groupSize] = {-1.0f};
    std::int32_t candidates_[1 + groupSize] = {};
};

/// A search on its way. Branches not taken yet lie in no order: it adds some hundred of them and
/// asks for the nearest two dozen times, so that is looked for when it is asked for.
struct Search {
    Search(std::size_t candidates, std::size_t branchRoom)
        : checked(candidates), branchDistances(branchRoom + branchPadding),
          branchNodes(branchRoom + 1) {}

    const float* vec = nullptr;
    const void* node = nullptr; ///< where it stands
    float distance = 0.0f;      ///< by which everything under the node is off, at least
    int branchCount = 0;
    int checkCount = 0;
    std::size_t treesBegun = 0;
    std::int32_t list = 0;
    EightBest best;
    flann::DynamicBitset checked;
    std::vector<float> branchDistances;
    std::vector<const void*> branchNodes;
};

/// All the memory that growing and searching a forest needs, held for the next tile.
struct ForestMemory {
    ForestMemory(std::int32_t candidates, std::int32_t trees)
        : nodes(primMalloc32f(static_cast<std::int32_t>(nodeBytes / sizeof(float)) * 2 *
                              candidates * trees)),
          order(static_cast<std::size_t>(candidates)), rest(static_cast<std::size_t>(candidates)) {
        if (!nodes)
            throw std::bad_alloc();
        for (std::size_t i = 0; i < searchesAtOnce; ++i)
            searches.emplace_back(order.size(), branchRoom(candidates, trees));
    }

    /// Branches beyond this many are dropped. With a group's worth for each tree, one tree has
    /// enough of them left to fill a list whatever is dropped: its branches share no leaf.
    static std::size_t branchRoom(std::int32_t candidates, std::int32_t trees) {
        return static_cast<std::size_t>(std::max(candidates, groupSize * trees));
    }

    void* takeNode() { return nodes.get() + nodeBytes / sizeof(float) * nodesTaken++; }

    PrimPtr<float> nodes; ///< raw storage, aligned to cache lines
    std::size_t nodesTaken = 0;
    std::vector<int> order, rest;
    std::vector<Search> searches;
};

/// A type of its own, so that what is specialised for it meets no other use of FLANN.
struct SquaredDistance {
    float value;
    SquaredDistance() = default;
    constexpr SquaredDistance(float squared) : value(squared) {}
    constexpr operator float() const { return value; }
};

/// Squared Euclidean distance of two features.
struct FeatureDistance {
    using is_kdtree_distance = bool;
    using ElementType = float;
    using ResultType = SquaredDistance;

    SquaredDistance operator()(const float* a, const float* b, std::size_t, float = -1.0f) const {
        typedef float Four __attribute__((vector_size(16), aligned(4), may_alias));
        Four sum = {};
        for (int i = 0; i < featureSize; i += 4) {
            const Four d =
                *reinterpret_cast<const Four*>(a + i) - *reinterpret_cast<const Four*>(b + i);
            sum += d * d;
        }
        return (sum[0] + sum[1]) + (sum[2] + sum[3]);
    }
    float accum_dist(float a, float b, int) const { return (a - b) * (a - b); }

    ForestMemory* memory = nullptr;
};

using Index = flann::KDTreeIndex<FeatureDistance>;

} // namespace
} // namespace kt7

namespace flann {

/// The queries of a tile, and where their lists go.
template <>
class ResultSet<kt7::SquaredDistance> {
  public:
    std::span<const kt7::FeatureForest::Query> queries;
    std::int32_t* matches = nullptr; ///< eight for each list
    float* distances = nullptr;      ///< the same
};

/// So small that a forest stays in the cache. The first child of a node is the node behind it.
template <>
struct KDTreeIndex<kt7::FeatureDistance>::Node {
    std::uint32_t feature : 4;
    std::uint32_t second : 28; ///< nodes from here to the second child; 0 in a leaf
    float value;               ///< where to split; in a leaf the bits of the candidate's number

    std::int32_t candidate() const { return std::bit_cast<std::int32_t>(value); }
};

/// Splits a list: first what is below cutval, then what equals it, then the rest; lim1 and lim2 are
/// where the second and third part begin. Which side an element belongs to can't be predicted, so
/// both are written and one is kept.
template <>
void KDTreeIndex<kt7::FeatureDistance>::planeSplit(int* ind, int count, int cutfeat,
                                                   kt7::SquaredDistance cutval, int& lim1,
                                                   int& lim2) {
    int* const rest = distance_.memory->rest.data();
    const float* const column = points_[0] + cutfeat;
    int below = 0, others = 0, equal = 0;
    for (int i = 0; i < count; ++i) {
        const int candidate = ind[i];
        const float value = column[std::ptrdiff_t{kt7::featureSize} * candidate];
        ind[below] = candidate;
        rest[others] = candidate;
        below += value < cutval.value ? 1 : 0;
        others += value < cutval.value ? 0 : 1;
        equal += value == cutval.value ? 1 : 0;
    }
    lim1 = lim2 = below;
    if (equal > 0) {
        const auto isEqual = [&](int candidate) {
            return column[std::ptrdiff_t{kt7::featureSize} * candidate] == cutval.value;
        };
        std::partition(rest, rest + others, isEqual);
        lim2 += equal;
    }
    std::copy_n(rest, others, ind + below);
}

/// Chooses the element and the value at which a list of candidates is split, and splits it. Mean
/// and variance are those of the first hundred.
template <>
void KDTreeIndex<kt7::FeatureDistance>::meanSplit(int* ind, int count, int& index, int& cutfeat,
                                                  kt7::SquaredDistance& cutval) {
    float mean = 0.0f;
    cutfeat = kt7::splitElement(points_[0], ind, std::min(count, static_cast<int>(SAMPLE_MEAN) + 1),
                                static_cast<std::int32_t>(kt7::randomBelow(RAND_DIM)), &mean);
    cutval = mean;

    int lim1 = 0, lim2 = 0;
    planeSplit(ind, count, cutfeat, cutval, lim1, lim2);
    index = lim1 > count / 2 ? lim1 : lim2 < count / 2 ? lim2 : count / 2;
    // All alike in this element.
    if (lim1 == count || lim2 == 0)
        index = count / 2;
}

template <>
void KDTreeIndex<kt7::FeatureDistance>::freeIndex() {
    tree_roots_.clear(); // nodes need no destruction
}

template <>
auto KDTreeIndex<kt7::FeatureDistance>::divideTree(int* ind, int count) -> NodePtr {
    static_assert(sizeof(Node) == kt7::nodeBytes);
    NodePtr node = ::new (distance_.memory->takeNode()) Node{0, 0, std::bit_cast<float>(*ind)};
    if (count > 1) {
        int left = 0, feature = 0;
        kt7::SquaredDistance value;
        meanSplit(ind, count, left, feature, value);
        divideTree(ind, left);
        const NodePtr second = divideTree(ind + left, count - left);
        *node = {static_cast<std::uint32_t>(feature) & 15u,
                 static_cast<std::uint32_t>(second - node) & 0xfffffffu, value};
    }
    return node;
}

template <>
void KDTreeIndex<kt7::FeatureDistance>::buildIndexImpl() {
    kt7::ForestMemory& memory = *distance_.memory;
    for (std::size_t i = 0; i < size_; ++i)
        memory.order[i] = static_cast<int>(i);
    memory.nodesTaken = 0;
    tree_roots_.resize(static_cast<std::size_t>(trees_));
    for (NodePtr& root : tree_roots_) {
        // Means are taken over the first hundred of a list.
        for (std::size_t i = size_ - 1; i > 0; --i)
            std::swap(memory.order[i],
                      memory.order[kt7::randomBelow(static_cast<std::uint32_t>(i) + 1)]);
        root = divideTree(memory.order.data(), static_cast<int>(size_));
    }
}

/// Answers all the queries of a set, each of which is a row of `features`, with several searches
/// under way. None of them knows of the others.
template <>
void KDTreeIndex<kt7::FeatureDistance>::findNeighbors(ResultSet<kt7::SquaredDistance>& lists,
                                                      const float* features,
                                                      const SearchParams& searchParams) const {
    using kt7::Search;
    const int maxCheck = searchParams.checks;
    const int branchRoom = static_cast<int>(distance_.memory->searches[0].branchNodes.size()) - 1;
    auto query = lists.queries.begin();

    // Takes the root of the next tree, or else the nearest branch. Returns false when neither is
    // left or worth it.
    const auto turn = [&](Search& search) {
        if (search.treesBegun < tree_roots_.size()) {
            search.node = tree_roots_[search.treesBegun++];
            search.distance = 0.0f;
            return true;
        }
        if (search.branchCount == 0 || (search.checkCount >= maxCheck && search.best.full()))
            return false;
        float* const distances = search.branchDistances.data();
        const void** const nodes = search.branchNodes.data();
        std::fill_n(distances + search.branchCount, kt7::branchPadding,
                    std::numeric_limits<float>::infinity());
        const std::int32_t at = kt7::indexOfLeast(distances, search.branchCount);
        search.distance = distances[at];
        search.node = nodes[at];
        --search.branchCount;
        distances[at] = distances[search.branchCount];
        nodes[at] = nodes[search.branchCount];
        return !(search.best.worst() < search.distance); // or all the others are too far as well
    };
    const auto begin = [&](Search& search) {
        if (query == lists.queries.end())
            return false;
        search.vec = features + std::ptrdiff_t{kt7::featureSize} * query->candidate;
        search.list = query->list;
        ++query;
        search.branchCount = search.checkCount = 0;
        search.treesBegun = 0;
        search.best.clear();
        search.checked.reset();
        return turn(search);
    };
    const auto check = [&](Search& search) {
        const std::int32_t candidate = static_cast<const Node*>(search.node)->candidate();
        const auto bit = static_cast<std::size_t>(candidate);
        if (search.checked.test(bit) || (search.checkCount >= maxCheck && search.best.full()))
            return;
        search.checked.set(bit);
        ++search.checkCount;
        search.best.add(distance_(points_[0] + std::ptrdiff_t{kt7::featureSize} * candidate,
                                  search.vec, kt7::featureSize),
                        candidate);
    };
    // Goes down one level, or stays in a leaf. Which child is nearer can't be predicted, nor where
    // a leaf comes, so there is no jump.
    const auto descend = [&](Search& search) {
        const Node* const node = static_cast<const Node*>(search.node);
        const std::ptrdiff_t second = node->second;
        const float diff = search.vec[node->feature] - node->value;
        const std::ptrdiff_t first = -std::ptrdiff_t{diff < 0},
                             inner = -std::ptrdiff_t{second != 0};
        const std::ptrdiff_t nearer = (second ^ ((second ^ 1) & first)) & inner;
        const float distance = search.distance + diff * diff;
        const auto at = static_cast<std::size_t>(search.branchCount);
        search.branchDistances[at] = distance;
        const Node* const farther = node + (second + 1 - nearer);
        __builtin_prefetch(farther);
        search.branchNodes[at] = farther;
        search.branchCount +=
            (distance < search.best.worst()) & (search.branchCount < branchRoom) & (second != 0);
        search.node = node + nearer;
        return second != 0;
    };

    Search* under[kt7::searchesAtOnce];
    int count = 0;
    for (Search& search : distance_.memory->searches)
        if (begin(search))
            under[count++] = &search;
    while (count > 0) {
        for (bool inner = true; inner;) {
            inner = false;
            for (int i = 0; i < count; ++i)
                inner |= descend(*under[i]);
        }
        for (int i = 0; i < count; ++i)
            __builtin_prefetch(points_[0] +
                               std::ptrdiff_t{kt7::featureSize} *
                                   static_cast<const Node*>(under[i]->node)->candidate());
        for (int i = 0; i < count;) {
            Search& search = *under[i];
            check(search);
            bool goesOn = turn(search);
            if (!goesOn) {
                const std::ptrdiff_t first = std::ptrdiff_t{kt7::groupSize} * search.list;
                search.best.copyTo(lists.matches + first, lists.distances + first);
                goesOn = begin(search);
            }
            if (goesOn)
                ++i;
            else
                under[i] = under[--count];
        }
    }
}

// Forests are never stored, copied or added to.
template <>
void KDTreeIndex<kt7::FeatureDistance>::saveIndex(FILE*) {}
template <>
void KDTreeIndex<kt7::FeatureDistance>::loadIndex(FILE*) {}
template <>
void KDTreeIndex<kt7::FeatureDistance>::copyTree(NodePtr&, const NodePtr&) {}
template <>
void KDTreeIndex<kt7::FeatureDistance>::addPointToTree(NodePtr, int) {}

} // namespace flann

namespace kt7 {

struct FeatureForest::State {
    State(std::int32_t candidates, std::int32_t trees) : memory(candidates, trees) {}

    ForestMemory memory;
    std::optional<Index> index;
};

FeatureForest::FeatureForest(std::int32_t candidates, std::int32_t trees)
    : state_(std::make_unique<State>(candidates, trees)), trees_(trees) {}

FeatureForest::~FeatureForest() = default;

void FeatureForest::grow(float* features) {
    state_->index.emplace(flann::Matrix<float>(features, state_->memory.order.size(), featureSize),
                          flann::KDTreeIndexParams(trees_), FeatureDistance{&state_->memory});
    state_->index->buildIndex();
}

std::span<const std::int32_t> FeatureForest::leafOrder() const {
    return state_->memory.order;
}

void FeatureForest::search(std::span<const Query> queries, const float* features,
                           std::int32_t checks, std::int32_t* matches, float* distances) const {
    flann::ResultSet<SquaredDistance> lists;
    lists.queries = queries;
    lists.matches = matches;
    lists.distances = distances;
    state_->index->findNeighbors(lists, features, flann::SearchParams(checks));
}

void FeatureForest::drop() noexcept {
    state_->index.reset();
}

} // namespace kt7
