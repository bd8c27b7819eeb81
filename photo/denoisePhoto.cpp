#include "photo/denoisePhoto.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <vector>

#include "photo/checks.h"
#include "photo/engine.h"
#include "photo/measure.h"
#include "photo/samples.h"
#include "qxutils/parallel.h"

namespace kt7::photo {
namespace {

// Parts of the bar.
constexpr double measureShare = 0.15, writeShare = 0.02;

/// A value within 0..1 as the denoiser gets it; it knows nothing above 32767.
std::uint16_t engineSample(float value) {
    return static_cast<std::uint16_t>(
        std::min(value * EngineImage::top + 0.5f, EngineImage::top - 1.0f));
}

EngineImage engineImageOf(const Kt7PhotoImage& photo) {
    EngineImage image(photo.width, photo.height);
    parallelRanges(photo.height, [&](std::int32_t begin, std::int32_t end) {
        PhotoRow row(photo);
        for (std::int32_t y = begin; y < end; ++y) {
            row.read(y);
            std::uint16_t* rgb = image.row(y);
            for (std::int32_t x = 0; x < photo.width; ++x)
                for (std::int32_t c = 0; c < 3; ++c)
                    *rgb++ = engineSample(row.inner(photo.colours == kt7PhotoGrey ? 0 : c)[x]);
        }
    });
    return image;
}

/// What one thread needs to write rows of the result.
class ResultWriter {
  public:
    ResultWriter(const Kt7PhotoImage& source, const Kt7PhotoImage& target,
                 const std::optional<Kt7PhotoMask>& mask, float amount)
        : row_(source), writer_(source, target), mask_(mask), amount_(amount),
          weights_(static_cast<std::size_t>(source.width), amount) {
        for (auto& change : changes_)
            change.resize(static_cast<std::size_t>(source.width));
    }

    void write(const EngineImage& result, std::int32_t y) {
        row_.read(y);
        if (mask_) {
            readMaskRow(*mask_, y, weights_);
            for (float& weight : weights_)
                weight *= amount_;
        }
        const float* change[3] = {};
        for (std::int32_t c = 0; c < row_.colours(); ++c) {
            std::vector<float>& to = changes_[static_cast<std::size_t>(c)];
            const std::uint16_t* rgb = result.row(y);
            for (std::size_t x = 0; x < to.size(); ++x, rgb += 3) {
                // Against what went in, so that a sample that came back as it was does not change.
                const float before = engineSample(row_.inner(c)[x]);
                const float after = row_.colours() == kt7PhotoGrey
                                        ? static_cast<float>(rgb[0] + rgb[1] + rgb[2]) / 3.0f
                                        : static_cast<float>(rgb[c]);
                to[x] = weights_[x] * (after - before) / EngineImage::top;
            }
            change[c] = to.data();
        }
        writer_.write(row_, change, y);
    }
    void copy(std::int32_t y) {
        row_.read(y);
        writer_.copy(row_, y);
    }

  private:
    PhotoRow row_;
    RowWriter writer_;
    const std::optional<Kt7PhotoMask>& mask_;
    float amount_;
    std::vector<float> weights_;
    std::vector<float> changes_[3];
};

/// Calls writeRow(writer, y) for all rows. The writers are made before: a row that is written must
/// not be left alone for lack of memory.
template <class WriteRow>
void writeRows(std::vector<ResultWriter>& writers, std::int32_t height, WriteRow&& writeRow) {
    constexpr std::int32_t portion = 16;
    std::atomic<std::int32_t> next{0};
    parallelWorkers(static_cast<std::int32_t>(writers.size()), [&](std::int32_t worker) {
        std::int32_t begin = 0;
        while ((begin = next.fetch_add(portion, std::memory_order_relaxed)) < height)
            for (std::int32_t y = begin; y < std::min(begin + portion, height); ++y)
                writeRow(writers[static_cast<std::size_t>(worker)], y);
    });
}

QxNoiseLevels strengthened(const QxNoiseLevels& levels, float luma, float colour) {
    // With a level of exactly 0 the denoiser raises some fine detail.
    constexpr float leastLevel = 1e-4f;
    QxNoiseLevels result = scaled(levels, luma, colour);
    for (float* level :
         {&result.lumaMid, &result.chromaU, &result.chromaV, &result.lumaLow, &result.lumaHigh})
        *level = std::max(*level, leastLevel);
    return result;
}

} // namespace

void denoisePhoto(const Kt7PhotoImage& source, const Kt7PhotoImage& target,
                  const Kt7PhotoSettings& settings) {
    std::optional<Kt7PhotoMask> mask;
    if (settings.mask != nullptr)
        mask = openedMask(settings.mask, source.width, source.height);
    std::optional<Kt7PhotoNoise> noise;
    if (settings.noise != nullptr)
        noise = openedNoise(settings.noise);
    const float luma = settings.strength * settings.luma;
    const float colour = settings.strength * settings.colour;
    const Looks looks{settings.lumaSmooth, settings.sharpen, settings.chromaMedian,
                      settings.chromaSmooth, settings.grain};
    const bool anyLook = looks.lumaSmooth > 0.0f || looks.sharpen > 0.0f ||
                         looks.chromaMedian > 0 || looks.chromaSmooth > 0.0f || looks.grain > 0.0f;

    Progress progress(settings.progress, settings.userData);
    std::vector<ResultWriter> writers;
    for (std::int32_t i = 0; i < std::min(maxThreads(), source.height); ++i)
        writers.emplace_back(source, target, mask, settings.amount);
    if (settings.amount == 0.0f || (luma == 0.0f && colour == 0.0f && !anyLook)) {
        progress.report(1.0);
        writeRows(writers, source.height,
                  [](ResultWriter& writer, std::int32_t y) { writer.copy(y); });
        return;
    }

    EngineImage image = engineImageOf(source);
    double done = 0.0;
    if (!noise) {
        progress.enterPart(0.0, measureShare);
        noise = measuredNoise(image, progress);
        done = measureShare;
    }
    progress.enterPart(done, 1.0 - writeShare);
    denoise(image, strengthened(noise->levels, luma, colour), looks,
            settings.quality != kt7PhotoFast, progress);
    progress.enterPart(1.0 - writeShare, 1.0);
    progress.report(1.0);
    writeRows(writers, source.height,
              [&](ResultWriter& writer, std::int32_t y) { writer.write(image, y); });
}

Kt7PhotoNoise measurePhoto(const Kt7PhotoImage& image, Progress& progress) {
    return measuredNoise(engineImageOf(image), progress);
}

} // namespace kt7::photo
