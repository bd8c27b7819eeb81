#include "qxutils/NoiseNormalize.h"

#include <algorithm>
#include <cmath>

#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"

namespace kt7 {
namespace {

constexpr std::int32_t top = NoiseNormalize::tableSize - 1;

// Infinity would turn the curve into differences of infinities. Any level this large has its curve
// at the upper limit nearly everywhere, so holding it there changes nothing that could be seen.
constexpr float largestLevel = 1e30f;

float heldLevel(float level) {
    return level > 0.0f ? std::min(level, largestLevel) : 0.0f; // a NaN fails the comparison
}

/// Noise expected at intensity x of 0..1: linear in the square root of the intensity (photon noise)
/// through the three levels, lowered near both ends where clipping cuts the noise off.
float noiseAt(float x, const NoiseNormalize& levels) {
    constexpr float root2 = 1.41421356f;
    constexpr float rootOfHalf = 0.70710677f;
    constexpr float whiteSpan = 0.29289323f; // 1 - rootOfHalf
    const float root = std::sqrt(x);
    float s = x < 0.5f ? levels.low + root * root2 * (levels.mid - levels.low)
                       : levels.mid + (root - rootOfHalf) * (levels.high - levels.mid) / whiteSpan;
    s = std::max(s, 1e-11f);
    for (const float distance : {x, 1.0f - x}) {
        const float reach = levels.clipFactor * s;
        const float t = distance / reach;
        if (t < 1.0f)
            s = std::sqrt(t) * reach;
    }
    // Holds the steepest slope of the table at ten times the flattest.
    return std::clamp(s, 0.01f, 0.1f);
}

} // namespace

NoiseNormalize::NoiseNormalize() : fwd(primMalloc16s(tableSize)), inv(primMalloc16s(tableSize)) {
    if (!fwd || !inv)
        raise(noBufferStorage);
}

float NoiseNormalize::setup(float newLow, float newMid, float newHigh, float newClipFactor) {
    low = heldLevel(newLow);
    mid = heldLevel(newMid);
    high = heldLevel(newHigh);
    clipFactor = newClipFactor;

    if (low < 1e-6f && mid < 1e-6f && high < 1e-6f) {
        for (std::int32_t i = 0; i < tableSize; ++i)
            fwd[i] = inv[i] = static_cast<std::int16_t>(i);
        return normalisedNoise = mid;
    }

    const PrimPtr<float> sigma(primMalloc32f(tableSize));
    if (!sigma)
        raise(noBufferStorage);
    parallelRanges(tableSize, [&](std::int32_t begin, std::int32_t end) {
        for (std::int32_t i = begin; i < end; ++i)
            sigma[i] = noiseAt(static_cast<float>(i) / static_cast<float>(top), *this);
    });
    fillForward(sigma.get());
    fillInverse();

    // The table's slope between the intensities 0.4 and 0.6.
    return normalisedNoise = static_cast<float>(fwd[19660] - fwd[13106]) * mid / 6553.4f;
}

void NoiseNormalize::fillForward(const float* sigma) {
    // Added in order of intensity whatever the number of threads, so that equal levels give equal
    // tables on every machine.
    double sum = 0.0;
    for (std::int32_t i = 1; i <= top; ++i)
        sum += 1.0 / static_cast<double>(sigma[i]);
    const double scale = top / sum;

    double integral = 0.0;
    for (std::int32_t i = 1; i <= top; ++i) {
        integral = std::min(integral + scale / static_cast<double>(sigma[i]), double{top});
        fwd[i] = static_cast<std::int16_t>(integral);
    }
    fwd[0] = static_cast<std::int16_t>(std::max(2 * fwd[1] - fwd[2], 0));
    fwd[top] = top;
}

void NoiseNormalize::fillInverse() {
    std::int32_t j = 1;
    for (std::int32_t v = 1; v < top; ++v) {
        while (j < top && fwd[j] <= v)
            ++j;
        const float below = fwd[j - 1];
        const float above = fwd[j];
        const float f = (static_cast<float>(v) - below) / (1e-10f - below + above);
        const float intensity = static_cast<float>(j) - 0.5f + f;
        inv[v] =
            static_cast<std::int16_t>(std::min(std::max(intensity, 0.0f), static_cast<float>(top)));
    }
    inv[0] = 0;
    inv[top] = fwd[top];
}

} // namespace kt7
