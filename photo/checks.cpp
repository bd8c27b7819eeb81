#include "photo/checks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "photo/failure.h"
#include "photo/samples.h"

namespace kt7::photo {
namespace {

// Sizes of the first version of each struct: a host's is never smaller.
constexpr std::uint32_t leastImage = sizeof(Kt7PhotoImage);
constexpr std::uint32_t leastSettings = sizeof(Kt7PhotoSettings);
constexpr std::uint32_t leastNoise = sizeof(Kt7PhotoNoise);
constexpr std::uint32_t leastMask = sizeof(Kt7PhotoMask);
// No version is going to be larger; a size beyond is one that was never set.
constexpr std::uint32_t mostBytes = 1u << 20;

template <class Struct>
std::size_t knownBytes(const Struct* host, std::uint32_t least) {
    if (host == nullptr || host->size < least || host->size > mostBytes)
        fail(kt7PhotoBadStruct);
    return std::min<std::size_t>(host->size, sizeof(Struct));
}

/// What the host knows, over `opened`.
template <class Struct>
Struct openedOver(Struct opened, const Struct* host, std::uint32_t least) {
    std::memcpy(&opened, host, knownBytes(host, least));
    opened.size = sizeof(Struct);
    return opened;
}

template <class Struct>
void fill(const Struct& from, Struct* to, std::uint32_t least) {
    constexpr std::size_t skipped = sizeof to->size;
    const std::size_t bytes = knownBytes(to, least);
    std::memcpy(reinterpret_cast<unsigned char*>(to) + skipped,
                reinterpret_cast<const unsigned char*>(&from) + skipped, bytes - skipped);
}

bool isAmount(float value, float most) {
    return value >= 0.0f && value <= most; // false for what is not a number
}

/// The size of a step as a number that can be added up; the least of all steps has none.
std::int64_t lengthOf(std::int64_t step, std::int32_t steps) {
    if (steps == 0)
        return 0;
    if (step == std::numeric_limits<std::int64_t>::min())
        return std::numeric_limits<std::int64_t>::max();
    return step < 0 ? -step : step;
}

/// badAddress when a sample lies beyond any address, badSteps when two share a byte.
void checkPlane(const Kt7PhotoPlane& plane, std::int32_t sampleType, std::int32_t width,
                std::int32_t height, std::int32_t badAddress, std::int32_t badSteps) {
    if (plane.data == nullptr)
        fail(badAddress);
    const std::int64_t sample = bytesOf(sampleType);
    const std::int64_t across = lengthOf(plane.pixelBytes, width - 1);
    const std::int64_t down = lengthOf(plane.rowBytes, height - 1);
    std::int64_t rowSpan = 0, columnSpan = 0, span = 0;
    if (__builtin_mul_overflow(across, width - 1, &rowSpan) ||
        __builtin_mul_overflow(down, height - 1, &columnSpan) ||
        __builtin_add_overflow(rowSpan, columnSpan, &span) ||
        __builtin_add_overflow(span, sample, &span))
        fail(badAddress);
    // Both ends lie in the address space.
    const std::int64_t below =
        (plane.pixelBytes < 0 ? rowSpan : 0) + (plane.rowBytes < 0 ? columnSpan : 0);
    const auto address = reinterpret_cast<std::uintptr_t>(plane.data);
    if (address < static_cast<std::uintptr_t>(below) ||
        address >
            std::numeric_limits<std::uintptr_t>::max() - static_cast<std::uintptr_t>(span - below))
        fail(badAddress);
    const bool pixelsApart = width == 1 || across >= sample;
    const bool rowsApart = height == 1 || down >= sample;
    const bool linesApart =
        width == 1 || height == 1 || down >= rowSpan + sample || across >= columnSpan + sample;
    if (!pixelsApart || !rowsApart || !linesApart)
        fail(badSteps);
}

} // namespace

Kt7PhotoImage openedImage(const Kt7PhotoImage* host) {
    const auto image = openedOver(Kt7PhotoImage{}, host, leastImage);
    if (bytesOf(image.sampleType) == 0 ||
        (image.colours != kt7PhotoGrey && image.colours != kt7PhotoRgb) ||
        image.alphaKind < kt7PhotoNoAlpha || image.alphaKind > kt7PhotoPremultiplied)
        fail(kt7PhotoBadFormat);
    if (image.width < 1 || image.height < 1)
        fail(kt7PhotoBadImage);
    const auto check = [&](const Kt7PhotoPlane& plane) {
        checkPlane(plane, image.sampleType, image.width, image.height, kt7PhotoBadImage,
                   kt7PhotoBadSteps);
    };
    for (std::int32_t c = 0; c < image.colours; ++c)
        check(image.planes[c]);
    if (image.alphaKind != kt7PhotoNoAlpha)
        check(image.alpha);
    return image;
}

Kt7PhotoSettings defaultSettings() noexcept {
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    settings.quality = kt7PhotoBest;
    settings.strength = settings.luma = settings.colour = settings.amount = 1.0f;
    return settings;
}

Kt7PhotoSettings openedSettings(const Kt7PhotoSettings* host) {
    if (host == nullptr)
        return defaultSettings();
    const Kt7PhotoSettings settings = openedOver(defaultSettings(), host, leastSettings);
    constexpr float mostStrength = 100.0f;
    bool good = settings.quality >= kt7PhotoFast && settings.quality <= kt7PhotoBest &&
                isAmount(settings.amount, 1.0f) && settings.chromaMedian >= 0 &&
                settings.threads >= 0 && settings.threads <= 1024;
    for (const float value :
         {settings.strength, settings.luma, settings.colour, settings.lumaSmooth,
          settings.chromaSmooth, settings.sharpen, settings.grain})
        good = good && isAmount(value, mostStrength);
    if (!good)
        fail(kt7PhotoBadSettings);
    return settings;
}

void checkLevels(const QxNoiseLevels& levels) {
    for (const float level : {levels.lumaMid, levels.chromaU, levels.chromaV, levels.lumaLow,
                              levels.lumaHigh, levels.noiseGrain})
        if (!isAmount(level, 1e6f))
            fail(kt7PhotoBadNoise);
}

Kt7PhotoNoise openedNoise(const Kt7PhotoNoise* host) {
    const auto noise = openedOver(Kt7PhotoNoise{}, host, leastNoise);
    checkLevels(noise.levels);
    bool good = isAmount(noise.chromaSmooth, 100.0f) && isAmount(noise.white, 1.0f) &&
                isAmount(noise.emptied, 1.0f) && isAmount(noise.noiseLike, 1.0f) &&
                isAmount(noise.lumaWeight, 1e4f) && isAmount(noise.colourWeight, 1e4f) &&
                noise.rounds >= 1 && noise.rounds <= 2;
    for (const auto& plane : noise.spectrum)
        for (const auto& row : plane)
            for (const float power : row)
                good = good && isAmount(power, mostPower);
    for (const auto& plane : noise.gain)
        for (const float gain : plane)
            good = good && isAmount(gain, mostPower);
    for (int band = 0; band < kt7PhotoBands; ++band)
        good = good && isAmount(noise.intensity[band], 1e6f) &&
               (band == 0 || noise.intensity[band] >= noise.intensity[band - 1]);
    if (!good)
        fail(kt7PhotoBadNoise);
    return noise;
}

Kt7PhotoMask openedMask(const Kt7PhotoMask* host, std::int32_t width, std::int32_t height) {
    const auto mask = openedOver(Kt7PhotoMask{}, host, leastMask);
    if (bytesOf(mask.sampleType) == 0)
        fail(kt7PhotoBadMask);
    checkPlane(mask.plane, mask.sampleType, width, height, kt7PhotoBadMask, kt7PhotoBadMask);
    return mask;
}

void checkFillable(const Kt7PhotoNoise* noise) {
    knownBytes(noise, leastNoise);
}

void fillIn(const Kt7PhotoImage& from, Kt7PhotoImage* to) {
    fill(from, to, leastImage);
}
void fillIn(const Kt7PhotoSettings& from, Kt7PhotoSettings* to) {
    fill(from, to, leastSettings);
}
void fillIn(const Kt7PhotoNoise& from, Kt7PhotoNoise* to) {
    fill(from, to, leastNoise);
}

} // namespace kt7::photo
