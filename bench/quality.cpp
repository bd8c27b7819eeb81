// Quality on real photographs: PSNR and SSIM before and after, over noisy/mean pairs and over clean
// photos with Gaussian noise added.
//
//   kt7_quality PHOTOS [--luma COARSE FINE] [--chroma COARSE FINE] [--no-guard] [--grain 0.3]
//   [--fast]
//               [--sigma 10 25] [--out DIR]
//
// Without options it measures what kt7 denoise does by default.
//
// PHOTOS holds pairs/NAME_real.png with NAME_mean.png, and clean/*.png. PSNR is over all 8-bit
// samples; SSIM is that of luma in a Gaussian window of deviation 1.5 (Wang, Bovik, Sheikh and
// Simoncelli 2004).
#include <OpenImageIO/imageio.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/kt7/files/photo.h"
#include "tools/kt7/library.h"
#include "tools/kt7/textureGuard.h"

namespace {

namespace fs = std::filesystem;

struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
};

Picture readPicture(const fs::path& path) {
    const auto file = OIIO::ImageInput::open(path.string());
    if (!file || file->spec().nchannels < 3)
        throw std::runtime_error("can't read " + path.string());
    Picture p{file->spec().width, file->spec().height, {}};
    p.rgb.resize(static_cast<std::size_t>(p.width) * static_cast<std::size_t>(p.height) * 3);
    if (!file->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, p.rgb.data()))
        throw std::runtime_error("can't read " + path.string());
    return p;
}

void writePicture(const fs::path& path, const Picture& p) {
    const auto file = OIIO::ImageOutput::create(path.string());
    const OIIO::ImageSpec spec(p.width, p.height, 3, OIIO::TypeDesc::UINT8);
    if (!file || !file->open(path.string(), spec) ||
        !file->write_image(OIIO::TypeDesc::UINT8, p.rgb.data()) || !file->close())
        throw std::runtime_error("can't write " + path.string());
}

double psnr(const Picture& a, const Picture& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.rgb.size(); ++i) {
        const double d = static_cast<double>(a.rgb[i]) - b.rgb[i];
        sum += d * d;
    }
    return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(a.rgb.size()) / sum);
}

std::vector<double> lumaOf(const Picture& p) {
    std::vector<double> luma(p.rgb.size() / 3);
    for (std::size_t i = 0; i < luma.size(); ++i)
        luma[i] = 0.299 * p.rgb[3 * i] + 0.587 * p.rgb[3 * i + 1] + 0.114 * p.rgb[3 * i + 2];
    return luma;
}

// Gaussian window of 11 taps, only where it fits.
std::vector<double> windowed(const std::vector<double>& plane, int width, int height) {
    constexpr int taps = 11;
    double g[taps], total = 0.0;
    for (int i = 0; i < taps; ++i)
        total += g[i] = std::exp(-(i - 5) * (i - 5) / (2.0 * 1.5 * 1.5));
    const int w = width - taps + 1, h = height - taps + 1;
    const auto at = [](int x, int y, int stride) {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(stride) +
               static_cast<std::size_t>(x);
    };
    std::vector<double> across(static_cast<std::size_t>(w) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < w; ++x) {
            double s = 0.0;
            for (int i = 0; i < taps; ++i)
                s += g[i] * plane[at(x + i, y, width)];
            across[at(x, y, w)] = s / total;
        }
    std::vector<double> result(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double s = 0.0;
            for (int i = 0; i < taps; ++i)
                s += g[i] * across[at(x, y + i, w)];
            result[at(x, y, w)] = s / total;
        }
    return result;
}

double ssim(const Picture& pa, const Picture& pb) {
    const std::vector<double> a = lumaOf(pa), b = lumaOf(pb);
    std::vector<double> aa(a.size()), bb(a.size()), ab(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        aa[i] = a[i] * a[i];
        bb[i] = b[i] * b[i];
        ab[i] = a[i] * b[i];
    }
    const int w = pa.width, h = pa.height;
    const auto ma = windowed(a, w, h), mb = windowed(b, w, h), saa = windowed(aa, w, h),
               sbb = windowed(bb, w, h), sab = windowed(ab, w, h);
    constexpr double c1 = 0.01 * 255 * 0.01 * 255, c2 = 0.03 * 255 * 0.03 * 255;
    double sum = 0.0;
    for (std::size_t i = 0; i < ma.size(); ++i) {
        const double va = saa[i] - ma[i] * ma[i], vb = sbb[i] - mb[i] * mb[i],
                     cov = sab[i] - ma[i] * mb[i];
        sum += (2 * ma[i] * mb[i] + c1) * (2 * cov + c2) /
               ((ma[i] * ma[i] + mb[i] * mb[i] + c1) * (va + vb + c2));
    }
    return sum / static_cast<double>(ma.size());
}

using kt7::tool::LevelFactors;

struct Settings {
    LevelFactors coarse = kt7::tool::coarseFactors, fine = kt7::tool::fineFactors;
    float grain = kt7::tool::defaults::noiseGrain;
    bool guard = true, fast = false;
};

Picture denoised(const Picture& noisy, const Settings& settings, QxNoiseLevels& levels) {
    kt7::tool::Photo photo;
    photo.width = noisy.width;
    photo.height = noisy.height;
    photo.rgb8 = noisy.rgb;
    levels = kt7::tool::estimateNoise(photo).levels;
    if (settings.guard)
        levels = kt7::tool::guardedLevels(levels, kt7::tool::noiseFloorOf(photo), 1.0f,
                                          settings.coarse, settings.fine);
    else
        levels = kt7::tool::scaled(levels, settings.coarse.luma, settings.coarse.chroma);
    levels.noiseGrain = settings.grain;
    kt7::tool::denoise(photo, {.levels = levels, .fast = settings.fast}, [](double) {});
    return {noisy.width, noisy.height, std::move(photo.rgb8)};
}

struct Means {
    double before = 0, after = 0, ssimBefore = 0, ssimAfter = 0;
    int count = 0;

    void print(const char* name) const {
        if (count == 0)
            return;
        std::printf("%-34s %6.2f %6.2f %+5.2f  %.4f %.4f\n", name, before / count, after / count,
                    (after - before) / count, ssimBefore / count, ssimAfter / count);
    }
};

void measure(const std::string& name, const Picture& truth, const Picture& noisy,
             const Settings& settings, const std::string& out, Means& means) {
    QxNoiseLevels levels{};
    const Picture result = denoised(noisy, settings, levels);
    const double before = psnr(noisy, truth), after = psnr(result, truth);
    const double ssimBefore = ssim(noisy, truth), ssimAfter = ssim(result, truth);
    std::printf("%-34s %6.2f %6.2f %+5.2f  %.4f %.4f   %.4f %.4f %.4f %.4f %.4f\n", name.c_str(),
                before, after, after - before, ssimBefore, ssimAfter,
                static_cast<double>(levels.lumaMid), static_cast<double>(levels.chromaU),
                static_cast<double>(levels.chromaV), static_cast<double>(levels.lumaLow),
                static_cast<double>(levels.lumaHigh));
    if (!out.empty()) {
        writePicture(fs::path(out) / (name + "_noisy.png"), noisy);
        writePicture(fs::path(out) / (name + "_denoised.png"), result);
    }
    means.before += before;
    means.after += after;
    means.ssimBefore += ssimBefore;
    means.ssimAfter += ssimAfter;
    ++means.count;
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app{"Denoising quality on photographs"};
    std::string photos, out;
    Settings settings;
    std::vector<double> sigmas = {10.0, 25.0};
    app.add_option("PHOTOS", photos, "folder with pairs/ and clean/")->required();
    std::vector<float> luma = {settings.coarse.luma, settings.fine.luma},
                       chroma = {settings.coarse.chroma, settings.fine.chroma};
    app.add_option("--luma", luma, "factors on the luma levels of coarse and of fine noise")
        ->expected(2);
    app.add_option("--chroma", chroma, "the same for the chroma levels")->expected(2);
    app.add_flag("!--no-guard", settings.guard,
                 "levels as the library measures them, by the factors for coarse noise");
    app.add_option("--grain", settings.grain, "noise grain, 0 to 2");
    app.add_flag("--fast", settings.fast, "quick search");
    app.add_option("--sigma", sigmas, "deviations of the noise added to clean photos, 0..255");
    app.add_option("--out", out, "folder for the pictures");
    CLI11_PARSE(app, argc, argv);
    settings.coarse = {luma[0], chroma[0]};
    settings.fine = {luma[1], chroma[1]};
    if (!out.empty())
        fs::create_directories(out);

    std::printf("%-34s %6s %6s %5s  %6s %6s   %s\n", "", "PSNR", "after", "gain", "SSIM", "after",
                "levels used: Y U V low high");
    Means pairs;
    std::set<fs::path> names;
    for (const auto& entry : fs::directory_iterator(fs::path(photos) / "pairs"))
        if (entry.path().string().ends_with("_real.png"))
            names.insert(entry.path());
    for (const fs::path& real : names) {
        const std::string stem = real.stem().string().substr(0, real.stem().string().size() - 5);
        measure(stem, readPicture(real.parent_path() / (stem + "_mean.png")), readPicture(real),
                settings, out, pairs);
    }
    pairs.print("pairs, mean");
    for (const double sigma : sigmas) {
        Means clean;
        names.clear();
        for (const auto& entry : fs::directory_iterator(fs::path(photos) / "clean"))
            names.insert(entry.path());
        for (const fs::path& path : names) {
            const Picture truth = readPicture(path);
            Picture noisy = truth;
            std::mt19937 random(1);
            std::normal_distribution<double> noise(0.0, 1.0);
            if (sigma > 0.0)
                for (std::uint8_t& sample : noisy.rgb)
                    sample = static_cast<std::uint8_t>(
                        std::lround(std::clamp(sample + sigma * noise(random), 0.0, 255.0)));
            measure(path.stem().string() + "_" + std::to_string(static_cast<int>(sigma)), truth,
                    noisy, settings, out, clean);
        }
        clean.print(("clean + " + std::to_string(static_cast<int>(sigma)) + ", mean").c_str());
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "kt7_quality: %s\n", e.what());
    return 1;
}
