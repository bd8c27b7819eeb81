// Views of an 8-bit preview with automatic levels.
#include <algorithm>
#include <array>
#include <atomic>

#include "pmdll/src/callGuards.h"
#include "pmdll/src/exports.h"
#include "prim/arith.h"
#include "prim/rows.h"
#include "prim/screenRows.h"
#include "prim/set.h"
#include "prim/stats.h"
#include "prim/ycbcr.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

struct Preview {
    std::uint8_t* rgb;
    std::int32_t rowBytes, width, height;

    /// Nothing to show, which is no mistake: a host's view may be shut.
    bool isEmpty() const { return (width == 0 && height >= 0) || (height == 0 && width >= 0); }
    bool isUsable() const {
        return rgb != nullptr && width >= 1 && height >= 1 && rowBytes >= std::int64_t{3} * width;
    }
    double pixels() const { return static_cast<double>(width) * height; }
};

/// Rows are worked through in strips that stay in the first-level cache, so that a view needs no
/// plane of its own, however large the preview.
constexpr std::int32_t stripPixels = 2048;

struct Strip {
    std::uint8_t* rgb;
    std::int32_t pixels;
};

/// Calls body(strip) for all pixels, on several threads.
template <class Body>
void forStrips(const Preview& preview, Body body) {
    parallelRows(preview.height, [&](std::int32_t y) {
        std::uint8_t* row = rowAt(preview.rgb, preview.rowBytes, y);
        for (std::int32_t x = 0; x < preview.width; x += stripPixels)
            body(Strip{row + std::ptrdiff_t{3} * x, std::min(stripPixels, preview.width - x)});
    });
}

/// The largest of the three channel means.
double largestMean(const Preview& preview) {
    double means[3];
    primMean8uC3(preview.rgb, preview.rowBytes, {preview.width, preview.height}, means);
    return std::max({means[0], means[1], means[2]});
}

void autoGain(const Preview& preview, double target) {
    constexpr double unit = 8.0, most = 250.0;
    const double gain = target / (largestMean(preview) + 0.0001);
    if (!(gain > 1.0))
        return;
    const auto k = static_cast<std::uint8_t>(std::min(gain * unit, most));
    const std::uint8_t factors[3] = {k, k, k};
    forStrips(preview, [&](Strip strip) {
        primMulC8uC3I(factors, strip.rgb, 0, {strip.pixels, 1}, 3);
    });
}

/// Three planes of a strip: luma or what stands for it, and two differences centred at 128.
class StripPlanes {
  public:
    std::uint8_t* plane(int i) { return samples_[static_cast<std::size_t>(i)].data(); }
    std::uint8_t* const* pointers() const { return pointers_; }

    StripPlanes() = default;
    StripPlanes(const StripPlanes&) = delete;
    StripPlanes& operator=(const StripPlanes&) = delete;

  private:
    std::array<std::array<std::uint8_t, stripPixels>, 3> samples_;
    std::uint8_t* pointers_[3] = {samples_[0].data(), samples_[1].data(), samples_[2].data()};
};

using Split = void (*)(Strip, StripPlanes&);

void splitYCbCr(Strip strip, StripPlanes& planes) {
    primRGBToYCbCr8uC3P3(strip.rgb, 0, planes.pointers(), 0, {strip.pixels, 1});
}

void splitGDbDr(Strip strip, StripPlanes& planes) {
    splitGDbDrRow(strip.rgb, planes.plane(0), planes.plane(1), planes.plane(2), strip.pixels);
}

/// Mean excursions of a difference plane above and below 128.
struct Excursions {
    double above, below;
};

/// Of the two difference planes.
std::array<Excursions, 2> measure(const Preview& preview, Split split) {
    std::array<std::atomic<std::uint64_t>, 4> sums{};
    parallelRanges(preview.height, [&](std::int32_t begin, std::int32_t end) {
        std::uint64_t own[4] = {};
        StripPlanes planes;
        std::array<std::uint8_t, stripPixels> above, below;
        for (std::int32_t y = begin; y < end; ++y) {
            std::uint8_t* row = rowAt(preview.rgb, preview.rowBytes, y);
            for (std::int32_t x = 0; x < preview.width; x += stripPixels) {
                const std::int32_t n = std::min(stripPixels, preview.width - x);
                split({row + std::ptrdiff_t{3} * x, n}, planes);
                for (int i = 0; i < 2; ++i) {
                    primSubC8uC1(planes.plane(i + 1), 0, 128, above.data(), 0, {n, 1}, 0);
                    primSet8uC1(128, below.data(), 0, {n, 1});
                    primSub8uC1I(planes.plane(i + 1), 0, below.data(), 0, {n, 1}, 0);
                    std::uint64_t sum = 0;
                    primSum8uC1(above.data(), 0, {n, 1}, &sum);
                    own[2 * i] += sum;
                    primSum8uC1(below.data(), 0, {n, 1}, &sum);
                    own[2 * i + 1] += sum;
                }
            }
        }
        for (std::size_t i = 0; i < 4; ++i)
            sums[i].fetch_add(own[i], std::memory_order_relaxed);
    });
    const auto mean = [&](std::size_t i) {
        return static_cast<double>(sums[i].load()) / preview.pixels();
    };
    return {Excursions{mean(0), mean(1)}, Excursions{mean(2), mean(3)}};
}

/// Multiplies excursions from 128 by factor / 8; a factor of 0 leaves the plane as it is.
struct Stretch {
    std::uint8_t factor = 0, offset = 0;

    void apply(std::uint8_t* plane, std::int32_t n) const {
        if (factor == 0)
            return;
        primSubC8uC1I(offset, plane, 0, {n, 1}, 0);
        primMulC8uC1I(factor, plane, 0, {n, 1}, 3);
    }
};

Stretch stretchBy(double excursion, std::int32_t target) {
    constexpr double leastGain = 1.12, unit = 8.0, most = 120.0;
    const double gain = target / (excursion + 1.0);
    if (!(gain > leastGain))
        return {};
    const auto k = static_cast<std::int32_t>(std::min(gain * unit, most));
    return {static_cast<std::uint8_t>(k), static_cast<std::uint8_t>(128 - 1024 / k)};
}

/// A plane that is shown alone may reach the target on either side.
Stretch stretchPlane(const Excursions& plane, std::int32_t target) {
    return stretchBy(std::max(plane.above, plane.below), target);
}

/// Two planes keep their proportion, so hues stay; only their excursions above 128 count.
Stretch stretchPlanes(const Excursions& a, const Excursions& b, std::int32_t target) {
    return stretchBy(std::max(a.above, b.above), target);
}

constexpr std::int32_t done = 1;
constexpr std::int32_t refused = 0;

void showDifferences(const Preview& preview, Split split, const Stretch& stretch) {
    forStrips(preview, [=](Strip strip) {
        StripPlanes planes;
        split(strip, planes);
        primSet8uC1(128, planes.plane(0), 0, {strip.pixels, 1});
        stretch.apply(planes.plane(1), strip.pixels);
        stretch.apply(planes.plane(2), strip.pixels);
        primYCbCrToRGB8uP3C3(planes.pointers(), 0, strip.rgb, 0, {strip.pixels, 1});
    });
}

void showPlane(const Preview& preview, Split split, int plane, const Stretch& stretch) {
    forStrips(preview, [=](Strip strip) {
        StripPlanes planes;
        split(strip, planes);
        stretch.apply(planes.plane(plane), strip.pixels);
        greyToRgbRow(planes.plane(plane), strip.rgb, strip.pixels);
    });
}

/// Runs show() for a mode of 0 to lastMode and a view that has pixels.
template <class Show>
std::int32_t view(const Preview& preview, std::int32_t mode, std::int32_t lastMode, Show&& show) {
    if (mode < 0 || mode > lastMode)
        return refused;
    if (preview.isEmpty())
        return done;
    if (!preview.isUsable())
        return refused;
    return guarded(preview.height, [&] {
        show();
        return done;
    });
}

/// What the two functions show that split RGB into a luma and two differences.
void showDifferenceView(const Preview& preview, Split split, std::int32_t mode,
                        std::int32_t target) {
    const bool levelled = target > 1;
    if (mode <= 1) {
        if (mode == 1)
            showPlane(preview, split, 0, {});
        if (levelled)
            autoGain(preview, target);
        return;
    }
    Stretch stretch;
    if (levelled) {
        const auto excursions = measure(preview, split);
        stretch = mode == 2 ? stretchPlanes(excursions[0], excursions[1], target)
                            : stretchPlane(excursions[mode == 3 ? 0 : 1], target);
    }
    if (mode == 2)
        showDifferences(preview, split, stretch);
    else
        showPlane(preview, split, mode - 2, stretch);
}

std::int32_t differenceView(const Preview& preview, Split split, std::int32_t mode,
                            std::int32_t target) {
    return view(preview, mode, 4, [&] { showDifferenceView(preview, split, mode, target); });
}

void showChannel(const Preview& preview, std::int32_t channel) {
    forStrips(preview, [=](Strip strip) {
        std::array<std::uint8_t, stripPixels> samples;
        for (std::int32_t x = 0; x < strip.pixels; ++x)
            samples[static_cast<std::size_t>(x)] = strip.rgb[3 * x + channel];
        greyToRgbRow(samples.data(), strip.rgb, strip.pixels);
    });
}

} // namespace
} // namespace kt7

KT7_EXPORT std::int32_t qxPreviewAutoLevel(std::uint8_t* rgb, std::int32_t rowBytes,
                                           std::int32_t width, std::int32_t height, float target) {
    using namespace kt7;
    const Preview preview{rgb, rowBytes, width, height};
    if (!preview.isUsable())
        return refused;
    return guarded(height, [&] {
        autoGain(preview, static_cast<double>(target));
        return done;
    });
}

KT7_EXPORT std::int32_t qxRGBAutoLevel(std::uint8_t* rgb, std::int32_t rowBytes, std::int32_t width,
                                       std::int32_t height, std::int32_t mode,
                                       std::int32_t target) {
    using namespace kt7;
    const Preview preview{rgb, rowBytes, width, height};
    return view(preview, mode, 3, [&] {
        if (mode > 0)
            showChannel(preview, mode - 1);
        if (target > 1)
            autoGain(preview, target);
    });
}

KT7_EXPORT std::int32_t qxRGB2YCbCrAutoLevel(std::uint8_t* rgb, std::int32_t rowBytes,
                                             std::int32_t width, std::int32_t height,
                                             std::int32_t mode, std::int32_t target) {
    using namespace kt7;
    return differenceView({rgb, rowBytes, width, height}, &splitYCbCr, mode, target);
}

KT7_EXPORT std::int32_t qxRGB2GDbDrAutoLevel(std::uint8_t* rgb, std::int32_t rowBytes,
                                             std::int32_t width, std::int32_t height,
                                             std::int32_t mode, std::int32_t target) {
    using namespace kt7;
    return differenceView({rgb, rowBytes, width, height}, &splitGDbDr, mode, target);
}
