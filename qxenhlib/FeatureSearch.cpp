#include "qxenhlib/FeatureSearch.h"

#if KT7_SEARCH_FLANN
#include "qxenhlib/FlannForest.h"
#else
#include "qxenhlib/FeatureForest.h"
#endif

namespace kt7 {

std::unique_ptr<FeatureSearch> makeFeatureSearch(std::int32_t candidates, std::int32_t trees) {
#if KT7_SEARCH_FLANN
    return std::make_unique<FlannForest>(candidates, trees);
#else
    return std::make_unique<FeatureForest>(candidates, trees);
#endif
}

} // namespace kt7
