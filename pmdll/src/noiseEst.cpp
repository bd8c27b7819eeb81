// The noise estimate.
#include "pmdll/src/NoiseBandEstimator.h"
#include "pmdll/src/callGuards.h"
#include "pmdll/src/decimate.h"
#include "pmdll/src/exports.h"
#include "prim/arith.h"
#include "prim/convert.h"
#include "qxutils/NoiseNormalize.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/IMG.h"
#include "qxutils/qxbase/hostFormat.h"
#include "qxutils/qxbase/rgbYuv.h"

namespace kt7 {
namespace {

constexpr float noNoise = 1e-5f;
constexpr float usualGrain = 0.3f;
constexpr float fullScale = 3.051851e-5f; // 1 / 32767

/// dst = src on the scale where 1.0 is full intensity.
void toFullScale(const GIMG<std::int16_t>& src, GIMG<float>& dst) {
    const PrimSize row{src.width, 1};
    parallelRows(src.height, [&](std::int32_t y) {
        primConvert16s32fC1(src.at(0, y), src.stepBytes, dst.at(0, y), dst.stepBytes, row);
        primMulC32fC1I(fullScale, dst.at(0, y), dst.stepBytes, row);
    });
}

/// The middle channel of an RGB image on the same scale.
void greenToFullScale(const std::uint16_t* rgb, std::int32_t stepBytes, GIMG<float>& dst) {
    parallelRows(dst.height, [&](std::int32_t y) {
        const std::uint16_t* green = rowAt(rgb, stepBytes, y) + 1;
        for (float& v : dst.row(y)) {
            v = static_cast<float>(*green) * fullScale;
            green += 3;
        }
    });
}

std::int32_t measure(const PSImage& image, QxNoiseLevels& levels) {
    std::unique_ptr<std::uint16_t[]> rgb;
    std::int32_t stepBytes = 0, width = 0, height = 0;
    if (kt7DecPSImage(&image, 4, &rgb, &stepBytes, &width, &height) == 0)
        return 0;

    // Noise against intensity is taken from green, which demosaicing smooths least.
    GIMG<float> luma(width, height), chromaU(width, height), chromaV(width, height);
    greenToFullScale(rgb.get(), stepBytes, luma);
    float curve[3];
    estimateLevels(luma, curve);
    const auto [low, mid, high] = curve;

    // Behind the tables the noise is the same at all intensities, so one wide band measures it.
    NoiseNormalize tables;
    const float gain =
        tables.setup(low, mid, high, NoiseNormalize::usualClipFactor) / (1e-9f + mid);
    {
        GIMG<std::int16_t> y(width, height), u(width, height), v(width, height);
        GIMG<std::int16_t>* const yuv[3] = {&y, &u, &v};
        const NoiseNormalize* const perChannel[3] = {&tables, &tables, &tables};
        qxRGBToYUV(rgb.get(), stepBytes, width, height, yuv, perChannel);
        toFullScale(y, luma);
        toFullScale(u, chromaU);
        toFullScale(v, chromaV);
    }
    const GIMG<float>* const planes[3] = {&luma, &chromaU, &chromaV};
    float noise[3];
    NoiseBandEstimator(0.1f, 0.15f, 0.85f).estimateThree(planes, noise);

    // Back on the scale before the tables.
    const float u = 1.0f / (1e-11f + gain);
    levels.lumaMid = noise[0] / u;
    levels.chromaU = noise[1] / u;
    levels.chromaV = noise[2] / u;
    levels.lumaLow = low * levels.lumaMid / (1e-7f + mid);
    levels.lumaHigh = high * levels.lumaMid / (1e-7f + mid);
    return 1;
}

} // namespace
} // namespace kt7

KT7_EXPORT std::int32_t qxKt7NoiseEst(PSImage* image, QxNoiseLevels* levels) {
    using namespace kt7;
    if (levels == nullptr)
        return 0;
    *levels = {noNoise, noNoise, noNoise, noNoise, noNoise, usualGrain};
    if (!isUsable(image, image != nullptr && image->format == formatRgb8 ? 1 : 2))
        return 0;
    return guarded(image->height / 4, [&] { return measure(*image, *levels); });
}
