// The exported functions: structs opened, the call's guards set, failures turned into results.
#include "photo/exports.h"

#include <algorithm>
#include <new>
#include <utility>

#include "photo/checks.h"
#include "photo/denoisePhoto.h"
#include "photo/failure.h"
#include "photo/measure.h"
#include "photo/samples.h"
#include "qxutils/parallel.h"

namespace kt7::photo {
namespace {

/// Runs body() and gives kt7PhotoDone or the result that it raised.
template <class Body>
std::int32_t resultOf(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
        return kt7PhotoDone;
    } catch (const Failure& failure) {
        return failure.result;
    } catch (const std::bad_alloc&) {
        return kt7PhotoNoMemory;
    } catch (...) {
        return kt7PhotoFailed;
    }
}

/// Sets the team of this thread's parallel regions while it lives.
class Team {
  public:
    explicit Team(std::int32_t threads) noexcept : saved_(maxThreads()) {
        constexpr std::int32_t usual = 4;
        setMaxThreads(threads > 0 ? threads : std::min(usual, saved_));
    }
    ~Team() { setMaxThreads(saved_); }
    Team(const Team&) = delete;
    Team& operator=(const Team&) = delete;

  private:
    std::int32_t saved_;
};

struct ResultText {
    std::int32_t result;
    const char* text;
};
constexpr ResultText resultTexts[] = {
    {kt7PhotoDone, "done"},
    {kt7PhotoCancelled, "cancelled; nothing was changed"},
    {kt7PhotoNoMemory, "memory ran out"},
    {kt7PhotoBadStruct, "a required pointer is null, or a struct's size was not set"},
    {kt7PhotoBadImage, "the image has a side below 1 or a plane without memory"},
    {kt7PhotoBadFormat, "the sample type, colour model or kind of alpha is unknown"},
    {kt7PhotoBadSteps, "samples of a plane overlap"},
    {kt7PhotoBadSettings, "a setting is unknown or out of its range"},
    {kt7PhotoBadMask, "the mask has no memory, an unknown sample type, or samples that overlap"},
    {kt7PhotoBadNoise, "the noise holds numbers that no measurement gives"},
    {kt7PhotoImagesDiffer, "source and target differ in size or colour model"},
    {kt7PhotoInsideCallback, "called from inside a progress callback"},
    {kt7PhotoFailed, "an internal failure, or a progress callback that threw an exception"},
};

void refuseInsideCallback() {
    if (Progress::insideCallback())
        fail(kt7PhotoInsideCallback);
}

} // namespace
} // namespace kt7::photo

using namespace kt7::photo;

KT7PHOTO_EXPORT std::uint32_t kt7PhotoVersion(void) {
    return KT7PHOTO_VERSION;
}

KT7PHOTO_EXPORT const char* kt7PhotoResultText(std::int32_t result) {
    for (const ResultText& entry : resultTexts)
        if (entry.result == result)
            return entry.text;
    return "an unknown result";
}

KT7PHOTO_EXPORT const char* kt7PhotoFeatureName(std::int32_t feature) {
    return featureName(feature);
}

KT7PHOTO_EXPORT std::int32_t kt7PhotoInterleaved(Kt7PhotoImage* image, std::int32_t sampleType,
                                                 std::int32_t colours, std::int32_t alphaKind,
                                                 void* data, std::int32_t width,
                                                 std::int32_t height, std::int64_t rowBytes) {
    return resultOf([&] {
        const std::int64_t bytes = bytesOf(sampleType);
        const bool hasAlpha = alphaKind != kt7PhotoNoAlpha;
        const std::int64_t pixelBytes = bytes * (std::int64_t{colours} + (hasAlpha ? 1 : 0));
        Kt7PhotoImage described{};
        described.size = sizeof described;
        described.sampleType = sampleType;
        described.colours = colours;
        described.alphaKind = alphaKind;
        described.width = width;
        described.height = height;
        const auto plane = [&](std::int64_t channel) {
            auto* first = static_cast<unsigned char*>(data);
            return Kt7PhotoPlane{first == nullptr ? nullptr : first + channel * bytes, pixelBytes,
                                 rowBytes};
        };
        if (colours == kt7PhotoGrey || colours == kt7PhotoRgb) {
            for (std::int32_t c = 0; c < colours; ++c)
                described.planes[c] = plane(c);
            if (hasAlpha)
                described.alpha = plane(colours);
        }
        fillIn(openedImage(&described), image);
    });
}

KT7PHOTO_EXPORT std::int32_t kt7PhotoDefaults(Kt7PhotoSettings* settings) {
    return resultOf([&] { fillIn(defaultSettings(), settings); });
}

KT7PHOTO_EXPORT std::int32_t kt7PhotoSetLevels(Kt7PhotoNoise* noise, const QxNoiseLevels* levels) {
    return resultOf([&] {
        Kt7PhotoNoise changed = openedNoise(noise);
        if (levels == nullptr)
            fail(kt7PhotoBadStruct);
        checkLevels(*levels);
        setLevels(changed, *levels);
        fillIn(changed, noise);
    });
}

KT7PHOTO_EXPORT std::int32_t kt7PhotoMeasure(const Kt7PhotoImage* hostImage,
                                             const Kt7PhotoSettings* hostSettings,
                                             Kt7PhotoNoise* noise) {
    return resultOf([&] {
        refuseInsideCallback();
        const Kt7PhotoImage image = openedImage(hostImage);
        const Kt7PhotoSettings settings = openedSettings(hostSettings);
        checkFillable(noise);
        const Team team(settings.threads);
        const kt7::FloatModeScope floatMode;
        Progress progress(settings.progress, settings.userData);
        fillIn(measurePhoto(image, progress), noise);
    });
}

KT7PHOTO_EXPORT std::int32_t kt7PhotoDenoise(const Kt7PhotoImage* hostSource,
                                             const Kt7PhotoImage* hostTarget,
                                             const Kt7PhotoSettings* hostSettings) {
    return resultOf([&] {
        refuseInsideCallback();
        const Kt7PhotoImage source = openedImage(hostSource), target = openedImage(hostTarget);
        if (source.width != target.width || source.height != target.height ||
            source.colours != target.colours)
            fail(kt7PhotoImagesDiffer);
        const Kt7PhotoSettings settings = openedSettings(hostSettings);
        const Team team(settings.threads);
        const kt7::FloatModeScope floatMode;
        denoisePhoto(source, target, settings);
    });
}
