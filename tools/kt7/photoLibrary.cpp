#include "tools/kt7/photoLibrary.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"

#include <iterator>
#include <new>
#include <span>

namespace kt7::tool {
namespace {

constexpr std::uint32_t white16 = 65535;
constexpr std::int64_t sampleBytes = sizeof(std::uint16_t);

std::int32_t hearProgress(double done, void* userData) {
    (*static_cast<const Listener*>(userData))(done);
    return 1;
}

void check(std::int32_t result) {
    if (result == kt7PhotoNoMemory)
        throw std::bad_alloc();
    if (result != kt7PhotoDone)
        throw UserError(std::string("the denoiser failed: ") + kt7PhotoResultText(result));
}

void listen(Kt7PhotoSettings& settings, const Listener& onProgress) {
    settings.progress = hearProgress;
    settings.userData = const_cast<Listener*>(&onProgress);
}

} // namespace

Kt7PhotoSettings defaultSettings() {
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    check(kt7PhotoDefaults(&settings));
    return settings;
}

const char* nameOfQuality(std::int32_t quality) {
    return quality == kt7PhotoFast ? "fast" : quality == kt7PhotoFull ? "full" : "best";
}

Mask::Mask(const std::string& path) : path_(path) {
    const Photo picture = readPhoto(path);
    width_ = picture.width;
    height_ = picture.height;
    const Rescale widen(picture.white(), white16);
    const auto step = static_cast<std::size_t>(picture.channels);
    samples_.reserve(static_cast<std::size_t>(picture.pixels()));
    // Some formats hold grey as three channels alone.
    for (std::size_t i = 0; i < picture.samples.size(); i += step) {
        if (picture.samples[i] != picture.samples[i + step - 1] ||
            picture.samples[i] != picture.samples[i + step / 2])
            throw UserError(about(path, "is no mask: it has colours; grey is what counts"));
        samples_.push_back(widen(picture.samples[i]));
    }
}

Kt7PhotoMask Mask::forPhoto(const Photo& photo) {
    const auto size = [](std::int32_t width, std::int32_t height) {
        return std::to_string(width) + "x" + std::to_string(height);
    };
    if (photo.width != width_ || photo.height != height_)
        throw UserError(about(path_, "is " + size(width_, height_) +
                                         " and no mask for a photo of " +
                                         size(photo.width, photo.height)));
    Kt7PhotoMask mask{};
    mask.size = sizeof mask;
    mask.sampleType = kt7PhotoU16;
    mask.plane = {samples_.data(), sampleBytes, sampleBytes * width_};
    return mask;
}

LentPhoto::LentPhoto(Photo& photo) : photo_(photo), back_(white16, photo.white()) {
    move(Rescale(photo.white(), white16));
}

LentPhoto::~LentPhoto() {
    move(back_);
}

void LentPhoto::move(const Rescale& scale) noexcept {
    for (std::uint16_t& sample : photo_.samples)
        sample = scale(sample);
    for (std::uint16_t& sample : photo_.alpha)
        sample = scale(sample);
}

Kt7PhotoImage LentPhoto::view() const {
    Kt7PhotoImage image{};
    image.size = sizeof image;
    check(kt7PhotoInterleaved(&image, kt7PhotoU16, photo_.channels, kt7PhotoNoAlpha,
                              photo_.samples.data(), photo_.width, photo_.height,
                              sampleBytes * photo_.channels * photo_.width));
    if (photo_.premultiplied && !photo_.alpha.empty()) {
        image.alphaKind = kt7PhotoPremultiplied;
        image.alpha = {photo_.alpha.data(), sampleBytes, sampleBytes * photo_.width};
    }
    return image;
}

Kt7PhotoNoise LentPhoto::measure(const Listener& onProgress) const {
    Kt7PhotoSettings settings = defaultSettings();
    listen(settings, onProgress);
    Kt7PhotoNoise noise{};
    noise.size = sizeof noise;
    const Kt7PhotoImage image = view();
    check(kt7PhotoMeasure(&image, &settings, &noise));
    return noise;
}

void LentPhoto::denoise(Kt7PhotoSettings settings, const Listener& onProgress) {
    listen(settings, onProgress);
    const Kt7PhotoImage image = view();
    check(kt7PhotoDenoise(&image, &image, &settings));
}

void setLevels(Kt7PhotoNoise& noise, const QxNoiseLevels& levels) {
    check(kt7PhotoSetLevels(&noise, &levels));
}

QxNoiseLevels levelsTakenOut(const Kt7PhotoNoise& noise, const Kt7PhotoSettings& settings) {
    QxNoiseLevels levels = noise.levels;
    for (float* level : {&levels.lumaMid, &levels.lumaLow, &levels.lumaHigh})
        *level *= settings.strength * settings.luma;
    for (float* level : {&levels.chromaU, &levels.chromaV})
        *level *= settings.strength * settings.colour;
    return levels;
}

Json jsonOf(const Kt7PhotoNoise& noise) {
    Json features;
    for (std::int32_t i = 0; i < noise.featureCount; ++i)
        features[kt7PhotoFeatureName(i)] = jsonNumber(noise.features[i]);
    return {{"estimate", jsonOf(noise.estimate)},       {"levels", jsonOf(noise.levels)},
            {"white", jsonNumber(noise.white)},         {"emptied", jsonNumber(noise.emptied)},
            {"noiseLike", jsonNumber(noise.noiseLike)}, {"features", features}};
}

Json spectrumOf(const Kt7PhotoNoise& noise) {
    const auto list = [](std::span<const float> values) {
        Json numbers = Json::array();
        for (const float value : values)
            numbers.push_back(jsonNumber(value));
        return numbers;
    };
    Json powers, gains;
    for (std::size_t plane = 0; plane < std::size(noise.spectrum); ++plane) {
        Json rows;
        for (const auto& row : noise.spectrum[plane])
            rows.push_back(list(row));
        powers.push_back(rows);
        gains.push_back(list(noise.gain[plane]));
    }
    return {{"power", powers}, {"intensity", list(noise.intensity)}, {"gain", gains}};
}

} // namespace kt7::tool
