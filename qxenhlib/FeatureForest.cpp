#include "qxenhlib/FeatureForest.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <new>
#include <numeric>

#include "prim/matching.h"

namespace kt7 {
namespace {

constexpr int featureSize = FeatureSearch::featureSize, listSize = FeatureSearch::listSize;

// Mean and variance of a list are those of its first candidates, and it is split along one of the
// elements of largest variance (Muja and Lowe 2009).
constexpr std::int32_t sampleSize = 101;
constexpr std::uint32_t splitChoices = 5;

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
    void clear() { std::fill_n(distances_ + 1, listSize, none); }
    /// Distance that a candidate must be below.
    float worst() const { return distances_[listSize]; }
    bool full() const { return worst() < none; }

    /// A candidate goes behind those that are as near. Where it belongs can't be predicted, so
    /// every place is written.
    void add(float distance, std::int32_t candidate) {
        float moved[listSize];
        std::int32_t movedCandidates[listSize];
        for (int i = 0; i < listSize; ++i) {
            const bool here = distances_[i + 1] > distance, before = distances_[i] > distance;
            moved[i] = before ? distances_[i] : here ? distance : distances_[i + 1];
            movedCandidates[i] = before ? candidates_[i] : here ? candidate : candidates_[i + 1];
        }
        std::copy_n(moved, listSize, distances_ + 1);
        std::copy_n(movedCandidates, listSize, candidates_ + 1);
    }

    void copyTo(std::int32_t* candidates, float* distances) const {
        std::copy_n(candidates_ + 1, listSize, candidates);
        std::copy_n(distances_ + 1, listSize, distances);
    }

  private:
    static constexpr float none = std::numeric_limits<float>::max();

    // The first has nothing before it to be moved.
    float distances_[1 + listSize] = {-1.0f};
    std::int32_t candidates_[1 + listSize] = {};
};

/// One mark for each candidate.
class Marks {
  public:
    explicit Marks(std::size_t candidates) : words_((candidates + wordBits - 1) / wordBits) {}
    void clear() { std::ranges::fill(words_, std::uint64_t{0}); }
    bool test(std::size_t i) const { return (words_[i / wordBits] >> (i % wordBits) & 1u) != 0; }
    void set(std::size_t i) { words_[i / wordBits] |= std::uint64_t{1} << (i % wordBits); }

  private:
    static constexpr std::size_t wordBits = 64;
    std::vector<std::uint64_t> words_;
};

/// Squared Euclidean distance of two features.
float squaredDistance(const float* a, const float* b) {
    typedef float Four __attribute__((vector_size(16), aligned(4), may_alias));
    Four sum = {};
    for (int i = 0; i < featureSize; i += 4) {
        const Four d =
            *reinterpret_cast<const Four*>(a + i) - *reinterpret_cast<const Four*>(b + i);
        sum += d * d;
    }
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

const float* featureAt(const float* features, std::int32_t candidate) {
    return features + std::ptrdiff_t{featureSize} * candidate;
}

} // namespace

/// So small that a forest stays in the cache. The first child of a node is the node behind it.
struct FeatureForest::Node {
    std::uint32_t element : 4;
    std::uint32_t second : 28; ///< nodes from here to the second child; 0 in a leaf
    float value;               ///< where to split; in a leaf the bits of the candidate's number

    std::int32_t candidate() const { return std::bit_cast<std::int32_t>(value); }
};

/// A search on its way. Branches not taken yet lie in no order: it adds some hundred of them and
/// asks for the nearest two dozen times, so that is looked for when it is asked for.
struct FeatureForest::Search {
    Search(std::size_t candidates, std::size_t branchRoom)
        : checked(candidates), branchDistances(branchRoom + branchPadding),
          branchNodes(branchRoom + 1) {}

    const float* feature = nullptr;
    const Node* node = nullptr; ///< where it stands
    float distance = 0.0f;      ///< by which everything under the node is off, at least
    int branchCount = 0;
    int checkCount = 0;
    std::size_t treesBegun = 0;
    std::int32_t list = 0;
    EightBest best;
    Marks checked;
    std::vector<float> branchDistances;
    std::vector<const Node*> branchNodes;
};

// Branches beyond their room are dropped. With a list's worth for each tree, one tree has enough of
// them left to fill a list whatever is dropped: its branches share no leaf.
FeatureForest::FeatureForest(std::int32_t candidates, std::int32_t trees)
    : nodes_(primMalloc32f(static_cast<std::int32_t>(sizeof(Node) / sizeof(float)) * 2 *
                           candidates * trees)),
      roots_(static_cast<std::size_t>(trees)), order_(static_cast<std::size_t>(candidates)),
      rest_(order_.size()), branchRoom_(std::max(candidates, listSize * trees)) {
    if (!nodes_)
        throw std::bad_alloc();
    searches_.reserve(searchesAtOnce);
    for (std::size_t i = 0; i < searchesAtOnce; ++i)
        searches_.emplace_back(order_.size(), static_cast<std::size_t>(branchRoom_));
}

FeatureForest::~FeatureForest() = default;

void FeatureForest::grow(float* features) {
    static_assert(sizeof(Node) == 8 && alignof(Node) == alignof(float));
    features_ = features;
    nextNode_ = reinterpret_cast<Node*>(nodes_.get());
    std::iota(order_.begin(), order_.end(), 0);
    for (const Node*& root : roots_) {
        // Means are taken over the first of a list.
        for (std::size_t i = order_.size() - 1; i > 0; --i)
            std::swap(order_[i], order_[randomBelow(static_cast<std::uint32_t>(i) + 1)]);
        root = divide(order_.data(), static_cast<std::int32_t>(order_.size()));
    }
}

auto FeatureForest::divide(std::int32_t* list, std::int32_t count) -> const Node* {
    Node* const node = ::new (nextNode_++) Node{0, 0, std::bit_cast<float>(*list)};
    if (count > 1) {
        const Split cut = split(list, count);
        divide(list, cut.firstCount);
        const Node* const second = divide(list + cut.firstCount, count - cut.firstCount);
        *node = {static_cast<std::uint32_t>(cut.element) & 15u,
                 static_cast<std::uint32_t>(second - node) & 0xfffffffu, cut.value};
    }
    return node;
}

/// Chooses the element and the value at which a list is split, and orders it: first what is below
/// the value, then what equals it, then the rest. Which side a candidate belongs to can't be
/// predicted, so both are written and one is kept.
auto FeatureForest::split(std::int32_t* list, std::int32_t count) -> Split {
    float mean = 0.0f;
    const std::int32_t element =
        splitElement(features_, list, std::min(count, sampleSize),
                     static_cast<std::int32_t>(randomBelow(splitChoices)), &mean);
    std::int32_t* const rest = rest_.data();
    const float* const column = features_ + element;
    std::int32_t below = 0, others = 0, equal = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t candidate = list[i];
        const float value = *featureAt(column, candidate);
        list[below] = candidate;
        rest[others] = candidate;
        below += value < mean ? 1 : 0;
        others += value < mean ? 0 : 1;
        equal += value == mean ? 1 : 0;
    }
    if (equal > 0)
        std::partition(rest, rest + others, [&](std::int32_t candidate) {
            return *featureAt(column, candidate) == mean;
        });
    std::copy_n(rest, others, list + below);

    // What equals the value goes to either side, so that they are as even as can be.
    const std::int32_t half = count / 2, notAbove = below + equal;
    const bool allAlike = below == count || notAbove == 0; // in this element, but for rounding
    return {element, mean, allAlike ? half : std::clamp(half, below, notAbove)};
}

/// Several searches are under way. None of them knows of the others.
void FeatureForest::search(std::span<const Query> queries, std::int32_t checks,
                           std::int32_t* matches, float* distances) {
    const float* const features = features_;
    const std::int32_t branchRoom = branchRoom_;
    auto query = queries.begin();

    // Takes the root of the next tree, or else the nearest branch. Returns false when neither is
    // left or worth it.
    const auto turn = [&](Search& search) {
        if (search.treesBegun < roots_.size()) {
            search.node = roots_[search.treesBegun++];
            search.distance = 0.0f;
            return true;
        }
        if (search.branchCount == 0 || (search.checkCount >= checks && search.best.full()))
            return false;
        float* const keys = search.branchDistances.data();
        const Node** const nodes = search.branchNodes.data();
        std::fill_n(keys + search.branchCount, branchPadding,
                    std::numeric_limits<float>::infinity());
        const std::int32_t at = indexOfLeast(keys, search.branchCount);
        search.distance = keys[at];
        search.node = nodes[at];
        --search.branchCount;
        keys[at] = keys[search.branchCount];
        nodes[at] = nodes[search.branchCount];
        return !(search.best.worst() < search.distance); // or all the others are too far as well
    };
    const auto begin = [&](Search& search) {
        if (query == queries.end())
            return false;
        search.feature = featureAt(features, query->candidate);
        search.list = query->list;
        ++query;
        search.branchCount = search.checkCount = 0;
        search.treesBegun = 0;
        search.best.clear();
        search.checked.clear();
        return turn(search);
    };
    const auto check = [&](Search& search) {
        const std::int32_t candidate = search.node->candidate();
        const auto bit = static_cast<std::size_t>(candidate);
        if (search.checked.test(bit) || (search.checkCount >= checks && search.best.full()))
            return;
        search.checked.set(bit);
        ++search.checkCount;
        search.best.add(squaredDistance(featureAt(features, candidate), search.feature), candidate);
    };
    // Goes down one level, or stays in a leaf. Which child is nearer can't be predicted, nor where
    // a leaf comes, so there is no jump.
    const auto descend = [&](Search& search) {
        const Node* const node = search.node;
        const std::ptrdiff_t second = node->second;
        const float diff = search.feature[node->element] - node->value;
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

    Search* under[searchesAtOnce];
    int count = 0;
    for (Search& search : searches_)
        if (begin(search))
            under[count++] = &search;
    while (count > 0) {
        for (bool inner = true; inner;) {
            inner = false;
            for (int i = 0; i < count; ++i)
                inner |= descend(*under[i]);
        }
        for (int i = 0; i < count; ++i)
            __builtin_prefetch(featureAt(features, under[i]->node->candidate()));
        for (int i = 0; i < count;) {
            Search& search = *under[i];
            check(search);
            bool goesOn = turn(search);
            if (!goesOn) {
                const std::ptrdiff_t first = std::ptrdiff_t{listSize} * search.list;
                search.best.copyTo(matches + first, distances + first);
                goesOn = begin(search);
            }
            if (goesOn)
                ++i;
            else
                under[i] = under[--count];
        }
    }
}

} // namespace kt7
