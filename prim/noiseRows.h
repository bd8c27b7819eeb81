// The sums of the noise measurement. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

struct FlatSums {
    float response;
    float root;
    std::int32_t count;
};

/// Over the pixels whose gradient is at most `limit` and whose guide lies in low..high (low not
/// negative): sums of |response| and of the root of the guide, and their number.
void sumFlatRow(const std::uint8_t* gradients, std::int32_t limit, const float* guide, float low,
                float high, const float* response, std::int32_t n, FlatSums* sums);

} // namespace kt7
