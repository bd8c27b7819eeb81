#include "photo/denoisePhoto.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "photo/Planes.h"
#include "photo/checks.h"
#include "photo/engine.h"
#include "photo/measure.h"
#include "photo/samples.h"
#include "photo/strengthRule.h"
#include "photo/wienerStage.h"
#include "qxutils/parallel.h"

namespace kt7::photo {
namespace {

// Parts of the bar.
constexpr double measureShare = 0.15, pilotShare = 0.4, writeShare = 0.02;

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

/// What the photo is to become, row by row: what its inner colours change by.
class Result {
  public:
    virtual ~Result() = default;
    virtual void changes(const PhotoRow& row, std::int32_t y,
                         std::vector<float> (&changes)[3]) const = 0;
};

/// Of an image that the denoiser gave; of what it did to colour, a share.
class EngineResult final : public Result {
  public:
    explicit EngineResult(EngineImage image, float colourShare = 1.0f)
        : image_(std::move(image)), colourShare_(colourShare) {}

    void changes(const PhotoRow& row, std::int32_t y,
                 std::vector<float> (&changes)[3]) const override {
        for (std::int32_t c = 0; c < row.colours(); ++c) {
            const std::uint16_t* rgb = image_.row(y);
            const float* inner = row.inner(c);
            for (float& change : changes[c]) {
                // Against what went in, so that a sample that came back as it was does not change.
                const float before = engineSample(*inner++);
                const float after = row.colours() == kt7PhotoGrey
                                        ? static_cast<float>(rgb[0] + rgb[1] + rgb[2]) / 3.0f
                                        : static_cast<float>(rgb[c]);
                change = (after - before) / EngineImage::top;
                rgb += 3;
            }
        }
        if (colourShare_ >= 1.0f || row.colours() == kt7PhotoGrey)
            return;
        for (std::size_t x = 0; x < changes[0].size(); ++x) {
            const float luma = engineLuma(changes[0][x], changes[1][x], changes[2][x]);
            for (auto& change : changes)
                change[x] = std::lerp(luma, change[x], colourShare_);
        }
    }

  private:
    EngineImage image_;
    float colourShare_;
};

/// Of planes, before and after.
class PlanesResult final : public Result {
  public:
    PlanesResult(Planes before, Planes after)
        : before_(std::move(before)), after_(std::move(after)) {}

    void changes(const PhotoRow& row, std::int32_t y,
                 std::vector<float> (&changes)[3]) const override {
        for (std::size_t x = 0; x < changes[0].size(); ++x) {
            float rgb[3];
            after_.change(before_, static_cast<std::int32_t>(x), y, rgb);
            for (std::int32_t c = 0; c < row.colours(); ++c) {
                const float inner = row.inner(c)[x];
                changes[c][x] = std::clamp(inner + rgb[c], 0.0f, 1.0f) - inner;
            }
        }
    }

    /// What came after as an image for the denoiser.
    EngineImage engineImage(const Kt7PhotoImage& photo) const {
        EngineImage image(photo.width, photo.height);
        parallelRanges(photo.height, [&](std::int32_t begin, std::int32_t end) {
            PhotoRow row(photo);
            std::vector<float> rowChanges[3];
            for (auto& change : rowChanges)
                change.resize(static_cast<std::size_t>(photo.width));
            for (std::int32_t y = begin; y < end; ++y) {
                row.read(y);
                changes(row, y, rowChanges);
                std::uint16_t* rgb = image.row(y);
                for (std::int32_t x = 0; x < photo.width; ++x)
                    for (std::int32_t i = 0; i < 3; ++i) {
                        const std::int32_t c = photo.colours == kt7PhotoGrey ? 0 : i;
                        *rgb++ = engineSample(row.inner(c)[x] +
                                              rowChanges[c][static_cast<std::size_t>(x)]);
                    }
            }
        });
        return image;
    }

  private:
    Planes before_, after_;
};

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

    void write(const Result& result, std::int32_t y) {
        row_.read(y);
        result.changes(row_, y, changes_);
        if (mask_) {
            readMaskRow(*mask_, y, weights_);
            for (float& weight : weights_)
                weight *= amount_;
        }
        const float* const changes[3] = {changes_[0].data(), changes_[1].data(),
                                         changes_[2].data()};
        for (std::int32_t c = 0; c < row_.colours(); ++c)
            std::transform(weights_.begin(), weights_.end(), changes_[c].begin(),
                           changes_[c].begin(), std::multiplies<>());
        writer_.write(row_, changes, y);
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
    std::atomic<std::int64_t> next{0};
    parallelWorkers(static_cast<std::int32_t>(writers.size()), [&](std::int32_t worker) {
        std::int64_t begin = 0;
        while ((begin = next.fetch_add(portion, std::memory_order_relaxed)) < height)
            for (std::int64_t y = begin; y < std::min<std::int64_t>(begin + portion, height); ++y)
                writeRow(writers[static_cast<std::size_t>(worker)], static_cast<std::int32_t>(y));
    });
}

/// The pilot's planes; the image is given back to the system first thing.
Planes pilotPlanes(EngineImage image, std::int32_t colours) {
    Planes planes(image.width, image.height, colours);
    parallelRows(image.height, [&](std::int32_t y) {
        const std::uint16_t* rgb = image.row(y);
        planes.setRow(y, rgb, rgb + 1, rgb + 2, 3, EngineImage::top);
    });
    planes.extend();
    return planes;
}

Planes photoPlanes(const Kt7PhotoImage& photo) {
    Planes planes(photo.width, photo.height, photo.colours);
    parallelRanges(photo.height, [&](std::int32_t begin, std::int32_t end) {
        PhotoRow row(photo);
        for (std::int32_t y = begin; y < end; ++y) {
            row.read(y);
            const bool grey = photo.colours == kt7PhotoGrey;
            planes.setRow(y, row.inner(0), row.inner(grey ? 0 : 1), row.inner(grey ? 0 : 2), 1,
                          1.0f);
        }
    });
    planes.extend();
    return planes;
}

/// The noise of the stage; luma and colour are factors on its power.
StageNoise stageNoise(const Kt7PhotoNoise& noise, float luma, float colour) {
    StageNoise result{};
    static_assert(StageNoise::bands == kt7PhotoBands);
    for (std::size_t plane = 0; plane < 3; ++plane) {
        for (std::size_t i = 0; i < 64; ++i)
            result.power[plane][i] =
                (plane == 0 ? luma : colour) * noise.spectrum[plane][i / 8][i % 8];
        std::copy_n(noise.gain[plane], kt7PhotoBands, result.gain[plane]);
    }
    for (std::size_t i = 0; i < kt7PhotoBands; ++i)
        result.intensity[i] = noise.intensity[i] / rootThird;
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
    const bool looksAfter = looks.lumaSmooth > 0.0f || looks.sharpen > 0.0f ||
                            looks.chromaSmooth > 0.0f || looks.grain > 0.0f;
    const bool anyLook = looksAfter || looks.chromaMedian > 0;

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
    bool denoised = false;
    if (!noise) {
        progress.enterPart(0.0, measureShare);
        Measurement measurement = measured(image, source.colours, progress);
        noise = measurement.noise;
        done = measureShare;
        // Measuring ends with the call of the denoiser that would come next.
        const bool asMeasured =
            luma == 1.0f && colour == 1.0f && looks.chromaMedian == 0 &&
            (settings.quality == kt7PhotoBest || (settings.quality == kt7PhotoFast && !looksAfter));
        if (asMeasured && measurement.pilot) {
            image = std::move(*measurement.pilot);
            denoised = true;
        }
    }
    const double end = 1.0 - writeShare;
    const QxNoiseLevels levels = scaled(noise->levels, luma, colour);
    std::unique_ptr<Result> result;
    if (settings.quality == kt7PhotoBest) {
        const double pilotEnd = denoised ? done : std::lerp(done, end, pilotShare);
        const double stageEnd = std::lerp(done, end, looksAfter ? 0.8 : 1.0);
        progress.enterPart(done, pilotEnd);
        if (!denoised)
            denoise(image, levels,
                    {.chromaMedian = looks.chromaMedian, .chromaSmooth = noise->chromaSmooth},
                    false, progress);
        Planes planes = pilotPlanes(std::move(image), source.colours);
        Planes noisy = photoPlanes(source);
        for (std::int32_t round = 0; round < noise->rounds; ++round) {
            progress.enterPart(std::lerp(pilotEnd, stageEnd, 1.0 * round / noise->rounds),
                               std::lerp(pilotEnd, stageEnd, (round + 1.0) / noise->rounds));
            const bool first = round == 0;
            StageNoise taken =
                stageNoise(*noise, luma * luma * (first ? noise->lumaWeight : rule::secondLuma),
                           colour * colour * (first ? noise->colourWeight : rule::secondColour));
            taken.refining = !first;
            wienerStage(noisy, planes, taken, progress);
        }
        auto stage = std::make_unique<PlanesResult>(std::move(noisy), std::move(planes));
        if (looksAfter) {
            EngineImage cleaned = stage->engineImage(source);
            stage.reset();
            progress.enterPart(stageEnd, end);
            Looks after = looks;
            after.chromaMedian = 0;
            denoise(cleaned, {}, after, false, progress);
            result = std::make_unique<EngineResult>(std::move(cleaned));
        } else {
            result = std::move(stage);
        }
    } else {
        progress.enterPart(done, end);
        Looks all = looks;
        all.chromaSmooth = std::max(all.chromaSmooth, noise->chromaSmooth);
        if (!denoised)
            denoise(image, levels, all, settings.quality == kt7PhotoFull, progress);
        // Below half the strength, the denoiser goes on smoothing colour where luma is smooth,
        // however low the level. Looks for colour are asked for by themselves.
        const bool colourLook = looks.chromaSmooth > 0.0f || looks.chromaMedian > 0;
        result = std::make_unique<EngineResult>(std::move(image),
                                                colourLook ? 1.0f : std::min(2.0f * colour, 1.0f));
    }
    progress.enterPart(end, 1.0);
    progress.report(1.0);
    writeRows(writers, source.height,
              [&](ResultWriter& writer, std::int32_t y) { writer.write(*result, y); });
}

Kt7PhotoNoise measurePhoto(const Kt7PhotoImage& image, Progress& progress) {
    return measured(engineImageOf(image), image.colours, progress).noise;
}

} // namespace kt7::photo
