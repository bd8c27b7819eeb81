// Runs the libraries on a picture of its own with the portable kernels and one thread, for a test
// that compares two builds:
//   kt7_portable FOLDER    prints a hash of what each part gave; writes FOLDER/NAME.raw, the
//                          denoised pictures, RGB of 8 bits
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "include/kt7lib/kt7lib.h"
#include "include/kt7photo/kt7photo.h"
#include "photo/kernels/select.h"
#include "prim/kernels/select.h"

namespace {

constexpr std::int32_t width = 237, height = 181;
constexpr std::size_t samples = std::size_t{3} * width * height;

/// Slopes, edges and texture under noise, by integers alone.
template <class Sample>
std::vector<Sample> picture(int scale) {
    std::vector<Sample> rgb;
    std::uint32_t state = 7;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) {
                int noise = 0;
                for (int i = 0; i < 4; ++i) {
                    state = state * 1664525u + 1013904223u;
                    noise += static_cast<int>(state >> 27) - 16;
                }
                const int shape = (x / 29 + y / 31) % 3 * 30 + (x * y / 8 % 9) * (y > 90 ? 3 : 0);
                rgb.push_back(static_cast<Sample>(
                    (60 + shape + x / 8 + (c - 1) * y / 9 + noise / 2) * scale));
            }
    return rgb;
}

void tell(const std::string& part, const void* data, std::size_t bytes) {
    std::uint64_t hash = 14695981039346656037u; // FNV-1a
    for (std::size_t i = 0; i < bytes; ++i)
        hash = (hash ^ static_cast<const unsigned char*>(data)[i]) * 1099511628211u;
    std::printf("%s: %016llx\n", part.c_str(), static_cast<unsigned long long>(hash));
}

template <class Sample>
void tell(const std::string& part, const std::vector<Sample>& data) {
    tell(part, data.data(), data.size() * sizeof(Sample));
}

void require(bool good, const char* what) {
    if (good)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

template <class Sample>
PSImage recordOf(std::vector<Sample>& rgb) {
    return {sizeof(Sample) == 1 ? 1 : 3, rgb.data(),
            static_cast<std::int32_t>(3 * width * sizeof(Sample)), width, height};
}

void previews() {
    auto bytes = picture<std::uint8_t>(1);
    auto words = picture<std::uint16_t>(128);
    for (const float factor : {1.0f, 0.37f, 1.9f})
        for (const PSImage& image : {recordOf(bytes), recordOf(words)}) {
            std::vector<std::uint8_t> screen(static_cast<std::size_t>(4 * 2 * width * 2 * height));
            require(PSImage2QImage(&image, screen.data(), 4 * 2 * width, 2 * width, 2 * height,
                                   factor) == 1,
                    "PSImage2QImage");
            tell("screen " + std::to_string(image.format) + " " + std::to_string(factor), screen);
        }
    std::vector<std::uint16_t> wide(samples);
    require(psC1U8toU15(bytes.data(), 3 * width, 3 * width, height, wide.data(), 6 * width) == 1,
            "psC1U8toU15");
    tell("to 16 bits", wide);
    std::vector<std::uint8_t> back(samples);
    require(psC1U15toU8(words.data(), 6 * width, 3 * width, height, back.data(), 3 * width) == 1,
            "psC1U15toU8");
    tell("to 8 bits", back);
    using AutoLevel = std::int32_t (*)(std::uint8_t*, std::int32_t, std::int32_t, std::int32_t,
                                       std::int32_t, std::int32_t);
    for (const AutoLevel level : {qxRGBAutoLevel, qxRGB2YCbCrAutoLevel, qxRGB2GDbDrAutoLevel})
        for (const std::int32_t mode : {0, 1, 2, 3}) {
            auto view = bytes;
            require(level(view.data(), 3 * width, width, height, mode, 90) == 1, "auto level");
            tell("auto level " + std::to_string(mode), view);
        }
}

QxNoiseLevels estimates() {
    auto bytes = picture<std::uint8_t>(1);
    auto words = picture<std::uint16_t>(128);
    QxNoiseLevels levels{};
    for (PSImage image : {recordOf(words), recordOf(bytes)}) {
        require(qxKt7NoiseEst(&image, &levels) == 1, "qxKt7NoiseEst");
        tell("noise estimate " + std::to_string(image.format), &levels, sizeof levels);
    }
    return levels;
}

void write(const std::string& folder, const char* name, const std::vector<std::uint8_t>& rgb) {
    tell(name, rgb);
    std::FILE* file = std::fopen((folder + "/" + name + ".raw").c_str(), "wb");
    require(file != nullptr && std::fwrite(rgb.data(), 1, rgb.size(), file) == rgb.size() &&
                std::fclose(file) == 0,
            "writing");
}

/// What the randomised search has no say in: without noise every group comes back as it was.
void lookAlone(const char* name, float sharpen, std::int32_t chromaMedian, float smooth) {
    auto words = picture<std::uint16_t>(128);
    PSImage image = recordOf(words);
    const QxNoiseLevels none{};
    QxProgress progress{};
    require(
        qxDenoiseKt7(&progress, &image, &none, smooth, sharpen, chromaMedian, smooth, 0.0f, 0) == 1,
        name);
    tell(name, words);
}

Kt7PhotoImage interleaved(std::int32_t type, std::int32_t sampleBytes, void* data) {
    Kt7PhotoImage image{};
    image.size = sizeof image;
    require(kt7PhotoInterleaved(&image, type, kt7PhotoRgb, kt7PhotoNoAlpha, data, width, height,
                                std::int64_t{3} * width * sampleBytes) == kt7PhotoDone,
            "kt7PhotoInterleaved");
    return image;
}

void photos(const std::string& folder) {
    auto bytes = picture<std::uint8_t>(1);
    const Kt7PhotoImage photo = interleaved(kt7PhotoU8, 1, bytes.data());
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    kt7PhotoDefaults(&settings);
    settings.threads = 1;
    settings.strength = 0.0f;
    for (const std::int32_t type : {kt7PhotoU16, kt7PhotoHalf, kt7PhotoFloat}) {
        std::vector<float> converted(samples);
        const Kt7PhotoImage target =
            interleaved(type, type == kt7PhotoFloat ? 4 : 2, converted.data());
        require(kt7PhotoDenoise(&photo, &target, &settings) == kt7PhotoDone, "conversion");
        tell("samples " + std::to_string(type), converted);
    }
    settings.strength = 1.0f;
    Kt7PhotoNoise noise{};
    noise.size = sizeof noise;
    require(kt7PhotoMeasure(&photo, &settings, &noise) == kt7PhotoDone, "kt7PhotoMeasure");
    tell("measurement", &noise, sizeof noise);
    require(kt7PhotoDenoise(&photo, &photo, &settings) == kt7PhotoDone, "kt7PhotoDenoise");
    write(folder, "best", bytes);
}

/// Cancels after some reports, on the way to every stage; nothing may be written then.
void cancelling() {
    const auto noisy = picture<std::uint8_t>(1);
    for (const std::int32_t quality : {kt7PhotoFull, kt7PhotoBest})
        for (int after = 0;; after += 7) {
            auto bytes = noisy;
            const Kt7PhotoImage photo = interleaved(kt7PhotoU8, 1, bytes.data());
            Kt7PhotoSettings settings{};
            settings.size = sizeof settings;
            kt7PhotoDefaults(&settings);
            settings.quality = quality;
            settings.threads = 1;
            int left = after;
            settings.userData = &left;
            settings.progress = [](double, void* data) -> std::int32_t {
                return --*static_cast<int*>(data) >= 0 ? 1 : 0;
            };
            const std::int32_t outcome = kt7PhotoDenoise(&photo, &photo, &settings);
            if (left >= 0) {
                require(outcome == kt7PhotoDone, "a call that was not cancelled");
                break;
            }
            require(outcome == kt7PhotoCancelled && bytes == noisy, "a cancelled call");
        }
}

} // namespace

int main(int count, char** words) {
    require(count == 2, "FOLDER");
    const std::string folder = words[1];
    kt7::selectKernels(kt7::CpuTarget::generic);
    kt7::photo::selectKernels(kt7::CpuTarget::generic);
    previews();
    const QxNoiseLevels levels = estimates();
    lookAlone("conversion, pyramid, transforms", 0.0f, 0, 0.0f);
    lookAlone("chroma median", 0.0f, 1, 0.0f);
    lookAlone("sharpening", 0.8f, 0, 0.0f);
    lookAlone("smoothing", 0.0f, 0, 0.03f);
    for (const std::int32_t thorough : {0, 1}) {
        auto bytes = picture<std::uint8_t>(1);
        PSImage image = recordOf(bytes);
        QxProgress progress{};
        require(qxDenoiseKt7(&progress, &image, &levels, 0, 0, 0, 0, 0, thorough) == 1, "denoise");
        write(folder, thorough == 0 ? "quick" : "thorough", bytes);
    }
    write(folder, "noisy", picture<std::uint8_t>(1));
    photos(folder);
    cancelling();
}
