#include "fuzz/Input.h"

namespace {

struct Host {
    std::int32_t reports, cancelAt, last;
    static std::int32_t call(std::int32_t done, std::int32_t total, void* userData) {
        auto& host = *static_cast<Host*>(userData);
        kt7::fuzz::require(total == 100000 && done >= host.last && done <= total,
                           "progress rises to its end");
        host.last = done;
        return host.reports++ != host.cancelAt;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    Input in(data, size);
    const std::int32_t format = HostImage::anyFormat(in);
    const bool eight = format == 1;
    // All of this fits into the smallest planes that the engine works on, 256 x 256.
    const std::int32_t width = in.between(1, 150), height = in.between(1, 150);
    HostImage image(in, format, eight ? 1 : 2, width, height);
    Host host{0, in.take<std::uint8_t>(), 0};
    QxProgress progress{0, 0, &Host::call, &host, 0};
    QxNoiseLevels noise;
    for (float* level :
         {&noise.lumaMid, &noise.chromaU, &noise.chromaV, &noise.lumaLow, &noise.lumaHigh})
        *level = in.number(0.1f);
    noise.noiseGrain = in.number(2.0f);
    const float lumaSmooth = in.number(0.1f), sharpen = in.number(1.0f);
    const std::int32_t chromaMedianMode = in.integer();
    const float chromaSmooth = in.number(0.1f), grain = in.number(0.05f);
    const bool fullQuality = in.take<std::uint8_t>() > 240;
    image.rows.fill(in.rest());

    const std::int32_t result = qxDenoiseKt7(&progress, &image.record, &noise, lumaSmooth, sharpen,
                                             chromaMedianMode, chromaSmooth, grain, fullQuality);
    image.rows.requireTouchedInRowsOnly();
    require(progress.total == 100000, "the total is written");
    if (image.spoilt) {
        require(result == -1000, "unusable images are refused");
        image.rows.requireUntouched();
        return 0;
    }
    require(result == 1 || (result == 0 && host.reports > host.cancelAt),
            "the call ends well, or where the host cancels");
    // At its end the bar doesn't tell whether the pixels have been written.
    const bool unwritten = result == 0 && host.last < 100000;
    if (eight && unwritten)
        image.rows.requireUntouched();
    for (std::int32_t y = 0; !eight && y < height; ++y)
        for (std::int32_t i = 0; i < 3 * width; ++i) {
            const auto sample = sampleAt<std::uint16_t>(image.rows.row(y), i);
            const auto before = sampleAt<std::uint16_t>(image.rows.rowBefore(y), i);
            require(sample <= 32767, "samples end in range");
            require(!unwritten || sample == std::min<std::uint16_t>(before, 32767),
                    "a cancelled call only clamps");
        }
    return 0;
}
