#include "qxenhlib/ImBMAnn.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include <flann/util/params.h>

#include <flann/algorithms/dist.h>
#include <flann/algorithms/kdtree_index.h>

#include "prim/filter.h"
#include "prim/kernels/KernelTable.h"

// The index and its search are FLANN's. What it leaves to its types is adapted here, by
// specialising members for our distance: where memory comes from, where chance comes from, and
// three inner loops.

namespace kt7 {
namespace {

constexpr int featureSize = 16, groupSize = 8;
constexpr std::size_t nodeBytes = 32;

// State of the forests' random choices: one per thread and never seeded, so it runs on from tile to
// tile, and the host's own generator is left alone.
thread_local std::uint32_t forestState = 1;

/// Random integer from 0 to below - 1.
std::uint32_t randomBelow(std::uint32_t below) {
    forestState = forestState * 1664525u + 1013904223u;
    return static_cast<std::uint32_t>((std::uint64_t{forestState} * below) >> 32);
}

/// All the memory that growing and searching a forest needs, held for the next tile.
struct ForestMemory {
    ForestMemory(std::int32_t candidates, std::int32_t trees)
        : nodes(primMalloc32f(static_cast<std::int32_t>(nodeBytes / sizeof(float)) * 2 *
                              candidates * trees)),
          order(static_cast<std::size_t>(candidates)), rest(static_cast<std::size_t>(candidates)),
          checked(static_cast<std::size_t>(candidates)),
          branchDistances(branchRoom(candidates, trees) + 8,
                          std::numeric_limits<float>::infinity()),
          branchNodes(branchRoom(candidates, trees)) {
        if (!nodes)
            throw std::bad_alloc();
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
    flann::DynamicBitset checked;
    std::vector<float> branchDistances; ///< infinite where there is no branch
    std::vector<void*> branchNodes;
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

/// The eight best candidates so far, without virtual calls.
template <>
class ResultSet<kt7::SquaredDistance> {
  public:
    void clear() {
        count_ = 0;
        worst_ = std::numeric_limits<float>::max();
    }
    bool full() const { return count_ == kt7::groupSize; }
    float worstDist() const { return worst_; }

    void addPoint(float distance, std::size_t index) {
        if (!(distance < worst_))
            return;
        int at = full() ? kt7::groupSize - 1 : count_++;
        for (; at > 0 && distances_[at - 1] > distance; --at) {
            distances_[at] = distances_[at - 1];
            indices_[at] = indices_[at - 1];
        }
        distances_[at] = distance;
        indices_[at] = static_cast<std::int32_t>(index);
        if (full())
            worst_ = distances_[kt7::groupSize - 1];
    }

    void copyTo(std::int32_t* indices, float* distances) const {
        std::copy_n(indices_, count_, indices);
        std::copy_n(distances_, count_, distances);
    }

  private:
    float distances_[kt7::groupSize];
    std::int32_t indices_[kt7::groupSize];
    int count_ = 0;
    float worst_ = std::numeric_limits<float>::max();
};

/// Branches not taken yet. A search adds some two hundred and asks for the nearest two dozen times,
/// so they lie in no order, and the nearest is looked for when it is asked for.
template <class Node>
class Heap<BranchStruct<Node*, kt7::SquaredDistance>> {
  public:
    explicit Heap(kt7::ForestMemory& memory)
        : distances_(memory.branchDistances.data()), nodes_(memory.branchNodes.data()),
          capacity_(static_cast<int>(memory.branchNodes.size())) {}
    ~Heap() { std::fill_n(distances_, count_, std::numeric_limits<float>::infinity()); }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;

    void insert(const BranchStruct<Node*, kt7::SquaredDistance>& branch) {
        if (count_ == capacity_)
            return;
        __builtin_prefetch(branch.node);
        distances_[count_] = branch.mindist;
        nodes_[count_++] = branch.node;
    }

    bool popMin(BranchStruct<Node*, kt7::SquaredDistance>& branch) {
        if (count_ == 0)
            return false;
        const std::int32_t at = kt7::groupKernels->indexOfLeast(distances_, count_);
        branch.mindist = distances_[at];
        branch.node = static_cast<Node*>(nodes_[at]);
        --count_;
        nodes_[at] = nodes_[count_];
        distances_[at] = distances_[count_];
        distances_[count_] = std::numeric_limits<float>::infinity();
        return true;
    }

  private:
    float* distances_;
    void** nodes_;
    int capacity_, count_ = 0;
};

/// One of the five largest of 16 variances, at random. Sorting them costs a mispredicted branch or
/// two for each; counting how many are larger costs none.
template <>
int KDTreeIndex<kt7::FeatureDistance>::selectDivision(kt7::SquaredDistance* v) {
    // Variances are not negative, so they compare like their bits; the lowest four make room for a
    // number that tells equal ones apart.
    std::int32_t keys[kt7::featureSize], larger[kt7::featureSize] = {};
    for (int i = 0; i < kt7::featureSize; ++i)
        keys[i] = (std::bit_cast<std::int32_t>(v[i].value) & ~15) | (15 - i);
    for (int j = 0; j < kt7::featureSize; ++j)
        for (int i = 0; i < kt7::featureSize; ++i)
            larger[i] += keys[j] > keys[i] ? 1 : 0;
    const auto rank = static_cast<std::int32_t>(kt7::randomBelow(RAND_DIM));
    int chosen = 0;
    for (int i = 0; i < kt7::featureSize; ++i)
        chosen |= larger[i] == rank ? i : 0;
    return chosen;
}

/// Splits a list: first what is below cutval, then what equals it, then the rest; lim1 and lim2 are
/// where the second and third part begin. Which side an element belongs to can't be predicted, so
/// both are written and one is kept.
template <>
void KDTreeIndex<kt7::FeatureDistance>::planeSplit(int* ind, int count, int cutfeat,
                                                   kt7::SquaredDistance cutval, int& lim1,
                                                   int& lim2) {
    int* const rest = distance_.memory->rest.data();
    int below = 0, others = 0, equal = 0;
    for (int i = 0; i < count; ++i) {
        const int candidate = ind[i];
        const float value = points_[static_cast<std::size_t>(candidate)][cutfeat];
        ind[below] = candidate;
        rest[others] = candidate;
        below += value < cutval.value ? 1 : 0;
        others += value < cutval.value ? 0 : 1;
        equal += value == cutval.value ? 1 : 0;
    }
    lim1 = lim2 = below;
    if (equal > 0) {
        const auto isEqual = [&](int candidate) {
            return points_[static_cast<std::size_t>(candidate)][cutfeat] == cutval.value;
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
    typedef float Sixteen __attribute__((vector_size(64), aligned(4), may_alias));
    const int sampled = std::min(count, static_cast<int>(SAMPLE_MEAN) + 1);
    const auto feature = [&](int i) -> const Sixteen& {
        return *reinterpret_cast<const Sixteen*>(points_[static_cast<std::size_t>(ind[i])]);
    };
    Sixteen mean = {}, variance = {};
    for (int i = 0; i < sampled; ++i)
        mean += feature(i);
    mean *= 1.0f / static_cast<float>(sampled);
    for (int i = 0; i < sampled; ++i) {
        const Sixteen d = feature(i) - mean;
        variance += d * d;
    }
    kt7::SquaredDistance variances[kt7::featureSize];
    __builtin_memcpy(variances, &variance, sizeof variances);
    cutfeat = selectDivision(variances);
    cutval = mean[cutfeat];

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
    NodePtr node = ::new (distance_.memory->takeNode()) Node();
    if (count == 1) {
        node->divfeat = *ind;
        node->point = points_[static_cast<std::size_t>(*ind)];
    } else {
        int left = 0;
        meanSplit(ind, count, left, node->divfeat, node->divval);
        node->child1 = divideTree(ind, left);
        node->child2 = divideTree(ind + left, count - left);
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

template <>
void KDTreeIndex<kt7::FeatureDistance>::findNeighbors(ResultSet<kt7::SquaredDistance>& result,
                                                      const float* vec,
                                                      const SearchParams& searchParams) const {
    const int maxCheck = searchParams.checks;
    constexpr float epsError = 1.0f;
    Heap<BranchSt> heap(*distance_.memory);
    DynamicBitset& checked = distance_.memory->checked;
    checked.reset();
    int checkCount = 0;
    for (const NodePtr& root : tree_roots_)
        searchLevel<false>(result, vec, root, 0, checkCount, maxCheck, epsError, &heap, checked);
    BranchSt branch;
    while ((checkCount < maxCheck || !result.full()) && heap.popMin(branch)) {
        if (result.worstDist() < branch.mindist)
            break; // and so are all the others
        searchLevel<false>(result, vec, branch.node, branch.mindist, checkCount, maxCheck, epsError,
                           &heap, checked);
    }
}

// Forests are never stored.
template <>
void KDTreeIndex<kt7::FeatureDistance>::saveIndex(FILE*) {}
template <>
void KDTreeIndex<kt7::FeatureDistance>::loadIndex(FILE*) {}

} // namespace flann

namespace kt7 {

class ImBMAnn::Forest {
  public:
    Forest(std::int32_t candidates, std::int32_t trees)
        : memory_(candidates, trees), trees_(trees) {}

    void grow(float* features, std::int32_t candidates) {
        index_.emplace(
            flann::Matrix<float>(features, static_cast<std::size_t>(candidates), featureSize),
            flann::KDTreeIndexParams(trees_), FeatureDistance{&memory_});
        index_->buildIndex();
    }

    /// All candidates as the leaves of the last tree list them.
    const std::vector<int>& leafOrder() const { return memory_.order; }

    void drop() noexcept { index_.reset(); }

    void search(const float* query, std::int32_t checks, std::int32_t* matches, float* distances) {
        best_.clear();
        index_->findNeighbors(best_, query, flann::SearchParams(checks));
        best_.copyTo(matches, distances);
    }

  private:
    ForestMemory memory_;
    std::int32_t trees_;
    flann::ResultSet<kt7::SquaredDistance> best_;
    std::optional<Index> index_;
};

ImBMAnn::ImBMAnn(std::int32_t numTrees, std::int32_t checks, float dcScale)
    : numTrees_(numTrees), checks_(checks), dcScale_(dcScale) {}

ImBMAnn::~ImBMAnn() = default;

void ImBMAnn::proc(const GIMG<float>& image, ImBMResult& result) {
    prepare(result);
    computeFeatures(image);
    growForest();
    search(result);
    dropForest();
}

void ImBMAnn::prepare(const ImBMResult& result) {
    if (blockSize_ == result.blockSize && step_ == result.step && candX_ == result.candX &&
        candY_ == result.candY)
        return;
    // Without buffers no geometry fits, so a failure below can be tried again.
    candX_ = candY_ = 0;
    means_.reset();
    features_.reset();
    forest_.reset();
    means_ = std::make_unique<GIMG<float>>(result.width + groupSize, result.height);
    for (std::int32_t y = 0; y < means_->height; ++y)
        std::ranges::fill(means_->row(y), 0.0f);
    features_.reset(primMalloc32f(featureSize * result.candX * result.candY));
    if (!features_)
        throw std::bad_alloc();
    forest_ = std::make_unique<Forest>(result.candX * result.candY, numTrees_);
    blockSize_ = result.blockSize;
    step_ = result.step;
    candX_ = result.candX;
    candY_ = result.candY;
}

void ImBMAnn::computeFeatures(const GIMG<float>& image) {
    // The last row and column have no neighbour to be averaged with.
    primFilterBox32fC1(image.data, image.stepBytes, means_->data, means_->stepBytes,
                       {image.width - 1, image.height - 1}, {2, 2}, {0, 0});
    for (std::int32_t y = 0; y < image.height; ++y)
        *means_->at(image.width - 1, y) = *image.at(image.width - 1, y);
    std::ranges::copy(image.row(image.height - 1), means_->row(image.height - 1).begin());
    const auto stride = means_->stepBytes / static_cast<std::ptrdiff_t>(sizeof(float));
    for (std::int32_t y = 0; y < candY_; ++y)
        groupKernels->featureRow(means_->at(0, y), stride, dcScale_,
                                 features_.get() + std::ptrdiff_t{featureSize} * candX_ * y,
                                 candX_);
}

void ImBMAnn::growForest() {
    forest_->grow(features_.get(), candX_ * candY_);
}

void ImBMAnn::search(ImBMResult& result) {
    // In the order of a tree's leaves: a query takes nearly the way of the one before, through
    // nodes and features that are still in the cache.
    for (const int candidate : forest_->leafOrder()) {
        const std::int32_t y = candidate / candX_, x = candidate - y * candX_;
        if (x % step_ != 0 || y % step_ != 0)
            continue;
        const std::ptrdiff_t first =
            (std::ptrdiff_t{y / step_} * result.queryX + x / step_) * result.numMatches;
        forest_->search(features_.get() + std::ptrdiff_t{featureSize} * candidate, checks_,
                        result.matchIdx.get() + first, result.matchDist.get() + first);
    }
}

void ImBMAnn::dropForest() noexcept {
    forest_->drop();
}

} // namespace kt7
