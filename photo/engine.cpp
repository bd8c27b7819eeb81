#include "photo/engine.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <limits>
#include <mutex>
#include <new>
#include <thread>

#include "photo/failure.h"

namespace kt7::photo {
namespace {

using namespace std::chrono_literals;

constexpr auto reportInterval = 20ms; // between two questions to a host that waits

/// Calls of this library take turns at the denoiser. Callers of kt7lib outside of it know nothing of
/// turns, so whose turn it is may still find the denoiser busy.
class Turn {
  public:
    explicit Turn(Progress& progress) {
        std::unique_lock lock(mutex);
        const auto isFree = [] { return !taken; };
        while (!changed.wait_for(lock, reportInterval, isFree)) {
            lock.unlock(); // the host may take its time
            progress.report(0.0);
            lock.lock();
        }
        taken = true;
    }
    ~Turn() {
        const std::scoped_lock lock(mutex);
        taken = false;
        changed.notify_one();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    static inline std::mutex mutex;
    static inline std::condition_variable changed;
    static inline bool taken = false;
    // Whose turn it was stays in the parent of a fork, and so does who was just asking.
    static inline const int forkHandler = pthread_atfork(nullptr, nullptr, [] {
        new (&mutex) std::mutex;
        new (&changed) std::condition_variable;
        taken = false;
    });
};

std::int32_t hearProgress(std::int32_t done, std::int32_t total, void* userData) {
    return static_cast<Progress*>(userData)->goesOn(static_cast<double>(done) / total) ? 1 : 0;
}

} // namespace

EngineImage::EngineImage(std::int32_t w, std::int32_t h) : width(w), height(h) {
    constexpr std::int32_t widest = std::numeric_limits<std::int32_t>::max() / 6;
    constexpr std::int64_t mostPixels = std::int64_t{1} << 40;
    if (width > widest || std::int64_t{width} * height > mostPixels)
        fail(kt7PhotoNoMemory);
    rgb = std::make_unique_for_overwrite<std::uint16_t[]>(static_cast<std::size_t>(width) *
                                                          static_cast<std::size_t>(height) * 3);
}

QxNoiseLevels estimatedLevels(const EngineImage& image) {
    PSImage record = image.record();
    QxNoiseLevels levels{};
    try {
        qxKt7NoiseEst(&record, &levels);
    } catch (...) {
        fail(kt7PhotoNoMemory); // nothing else leaves the estimate
    }
    return levels;
}

void denoise(EngineImage& image, const QxNoiseLevels& levels, const Looks& looks, bool full,
             Progress& progress) {
    // Smoothing strengths that divide the span of a plane without a rest, as 0.02 does, lose its
    // brightest samples; a thousandth more meets none of the round numbers that people give.
    constexpr float offRoundNumbers = 1.0f + 1.0f / 1024.0f;
    // With a level of exactly 0 the denoiser raises some fine detail.
    constexpr float leastLevel = 1e-4f;
    QxNoiseLevels held = levels;
    for (float* level :
         {&held.lumaMid, &held.chromaU, &held.chromaV, &held.lumaLow, &held.lumaHigh})
        *level = std::max(*level, leastLevel);
    QxProgress record{0, 0, hearProgress, &progress, 0};
    PSImage picture = image.record();
    const Turn turn(progress);
    std::int32_t result = 0;
    for (;;) {
        result = qxDenoiseKt7(&record, &picture, &held, looks.lumaSmooth * offRoundNumbers,
                              looks.sharpen, looks.chromaMedian,
                              looks.chromaSmooth * offRoundNumbers, looks.grain, full ? 1 : 0);
        // A call that finds the denoiser busy does not even fill in the total.
        if (record.total != 0)
            break;
        std::this_thread::sleep_for(reportInterval);
        progress.report(0.0);
    }
    progress.report(1.0); // raises if the host has ended the call
    // The record and the image are sound, so that -1000 means the same as the others.
    constexpr std::int32_t noMemory[] = {-1000, -999, -898, -892, -885};
    if (std::ranges::find(noMemory, result) != std::end(noMemory))
        fail(kt7PhotoNoMemory);
    if (result != 1)
        fail(kt7PhotoFailed);
}

QxNoiseLevels scaled(const QxNoiseLevels& levels, float luma, float chroma) {
    return {levels.lumaMid * luma, levels.chromaU * chroma, levels.chromaV * chroma,
            levels.lumaLow * luma, levels.lumaHigh * luma,  levels.noiseGrain};
}

} // namespace kt7::photo
