// Quality on photographs: PSNR and SSIM before and after the photo library, with the processor time.
//
//   kt7_quality FOLDER.. [--quality best] [--strength 1] [--luma 1] [--colour 1] [--threads 0]
//               [--sigma 0 10 25 50] [--out DIR] [--features]
//
// A folder with NAME_real.* and NAME_mean.* is one of noisy photos and their references. The photos of
// any other folder count as clean: they get white Gaussian noise of each deviation (0..255; 0 is none,
// which shows what is done to a photo that was fine).
//
// PSNR is over all 8-bit samples; SSIM is that of luma in a Gaussian window of deviation 1.5 (Wang,
// Bovik, Sheikh and Simoncelli 2004).
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "kt7photo/kt7photo.h"
#include "tools/kt7/files/imageFile.h"

namespace {

namespace fs = std::filesystem;

struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
};

Picture readPicture(const fs::path& path) {
    const kt7::tool::Photo photo = kt7::tool::readPhoto(path.string());
    if (photo.bits != 8 || photo.channels != 3)
        throw std::runtime_error("not an RGB photo of 8 bits: " + path.string());
    Picture picture{photo.width, photo.height, {}};
    for (const std::uint16_t sample : photo.samples)
        picture.rgb.push_back(static_cast<std::uint8_t>(sample));
    return picture;
}

void writePicture(const fs::path& path, const Picture& p) {
    kt7::tool::Photo photo;
    photo.width = p.width;
    photo.height = p.height;
    photo.samples.assign(p.rgb.begin(), p.rgb.end());
    kt7::tool::writePhoto(photo, path.string(), kt7::tool::pngFormat, 0,
                          kt7::tool::Existing::replace);
}

double psnr(const Picture& a, const Picture& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.rgb.size(); ++i) {
        const double d = static_cast<double>(a.rgb[i]) - b.rgb[i];
        sum += d * d;
    }
    constexpr double least = 1e-9; // of the mean square of two pictures that are the same
    return 10.0 *
           std::log10(255.0 * 255.0 / std::max(sum / static_cast<double>(a.rgb.size()), least));
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

struct Work {
    Kt7PhotoSettings settings{};
    std::string out;
    bool features = false;
};

void check(std::int32_t result) {
    if (result != kt7PhotoDone)
        throw std::runtime_error(kt7PhotoResultText(result));
}

struct Means {
    double before = 0, after = 0, ssimBefore = 0, ssimAfter = 0, worst = 1e9, seconds = 0,
           megapixels = 0;
    int count = 0;

    void print(const std::string& name) const {
        if (count > 0)
            std::printf("%-34s %6.2f %6.2f %+5.2f  %.4f %.4f  %6.2f   worst %.2f\n", name.c_str(),
                        before / count, after / count, (after - before) / count, ssimBefore / count,
                        ssimAfter / count, seconds / megapixels, worst);
    }
};

void measure(const std::string& name, const Picture& truth, const Picture& noisy, const Work& work,
             Means& means) {
    Picture result = noisy;
    Kt7PhotoImage image{};
    image.size = sizeof image;
    check(kt7PhotoInterleaved(&image, kt7PhotoU8, kt7PhotoRgb, kt7PhotoNoAlpha, result.rgb.data(),
                              result.width, result.height, std::int64_t{3} * result.width));
    Kt7PhotoNoise noise{};
    noise.size = sizeof noise;
    Kt7PhotoSettings settings = work.settings;
    settings.noise = &noise;
    const std::clock_t begin = std::clock();
    check(kt7PhotoMeasure(&image, &settings, &noise));
    check(kt7PhotoDenoise(&image, &image, &settings));
    const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    const double megapixels = 1e-6 * result.width * result.height;
    const double before = psnr(noisy, truth), after = psnr(result, truth);
    const double ssimBefore = ssim(noisy, truth), ssimAfter = ssim(result, truth);
    std::printf("%-34s %6.2f %6.2f %+5.2f  %.4f %.4f  %6.2f\n", name.c_str(), before, after,
                after - before, ssimBefore, ssimAfter, seconds / megapixels);
    if (work.features) {
        std::printf("    white %.2f, emptied %.2f, noise-like %.2f\n",
                    static_cast<double>(noise.white), static_cast<double>(noise.emptied),
                    static_cast<double>(noise.noiseLike));
        for (std::int32_t i = 0; i < noise.featureCount; ++i)
            std::printf("    %8.3f %s\n", static_cast<double>(noise.features[i]),
                        kt7PhotoFeatureName(i));
    }
    if (!work.out.empty()) {
        writePicture(fs::path(work.out) / (name + "_noisy.png"), noisy);
        writePicture(fs::path(work.out) / (name + "_denoised.png"), result);
    }
    means.before += before;
    means.after += after;
    means.ssimBefore += ssimBefore;
    means.ssimAfter += ssimAfter;
    means.worst = std::min(means.worst, after);
    means.seconds += seconds;
    means.megapixels += megapixels;
    ++means.count;
}

void measurePairs(const std::string& folder, const std::set<fs::path>& files, const Work& work) {
    Means means;
    constexpr std::string_view mark = "_real";
    for (const fs::path& real : files) {
        std::string stem = real.stem().string();
        if (!stem.ends_with(mark))
            continue;
        stem.resize(stem.size() - mark.size());
        const fs::path mean = real.parent_path() / (stem + "_mean" + real.extension().string());
        measure(stem, readPicture(mean), readPicture(real), work, means);
    }
    means.print(folder + ", mean");
}

void measureClean(const std::string& folder, const std::set<fs::path>& files, double sigma,
                  const Work& work) {
    Means means;
    const std::string added = std::to_string(static_cast<int>(sigma));
    for (const fs::path& path : files) {
        const Picture truth = readPicture(path);
        Picture noisy = truth;
        std::mt19937 random(1);
        std::normal_distribution<double> noise(0.0, 1.0);
        if (sigma > 0.0)
            for (std::uint8_t& sample : noisy.rgb)
                sample = static_cast<std::uint8_t>(
                    std::lround(std::clamp(sample + sigma * noise(random), 0.0, 255.0)));
        measure(path.stem().string() + "_" + added, truth, noisy, work, means);
    }
    means.print(folder + " + " + added + ", mean");
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app{"Denoising quality on photographs"};
    std::vector<std::string> folders;
    std::vector<double> sigmas = {0.0, 10.0, 25.0, 50.0};
    Work work;
    work.settings.size = sizeof work.settings;
    check(kt7PhotoDefaults(&work.settings));
    const std::map<std::string, std::int32_t> qualities = {
        {"fast", kt7PhotoFast}, {"full", kt7PhotoFull}, {"best", kt7PhotoBest}};
    app.add_option("FOLDER", folders, "folders with photos")->required();
    app.add_option("--quality", work.settings.quality, "fast, full or best")
        ->transform(CLI::CheckedTransformer(qualities));
    app.add_option("--strength", work.settings.strength, "how much noise to take out");
    app.add_option("--luma", work.settings.luma, "the same for luma alone");
    app.add_option("--colour", work.settings.colour, "the same for colour alone");
    app.add_option("--threads", work.settings.threads, "0 for the default");
    app.add_option("--sigma", sigmas, "deviations of the noise added to clean photos, 0..255");
    app.add_option("--out", work.out, "folder for the pictures");
    app.add_flag("--features", work.features, "print what the rule went by");
    CLI11_PARSE(app, argc, argv);
    if (!work.out.empty())
        fs::create_directories(work.out);

    std::printf("%-34s %6s %6s %5s  %6s %6s  %6s\n", "", "PSNR", "after", "gain", "SSIM", "after",
                "cpu s/MP");
    for (const std::string& folder : folders) {
        std::set<fs::path> files;
        bool pairs = false;
        for (const auto& entry : fs::directory_iterator(folder)) {
            files.insert(entry.path());
            pairs |= entry.path().stem().string().ends_with("_real");
        }
        if (pairs)
            measurePairs(folder, files, work);
        else
            for (const double sigma : sigmas)
                measureClean(folder, files, sigma, work);
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "kt7_quality: %s\n", e.what());
    return 1;
}
