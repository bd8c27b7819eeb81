#include <cmath>

#include "fuzz/Input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    Input in(data, size);
    const std::int32_t format = HostImage::anyFormat(in);
    const std::int32_t width = in.between(140, 300), height = in.between(140, 300);
    HostImage image(in, format, format == 1 ? 1 : 2, width, height);
    image.rows.fill(in.rest());
    QxNoiseLevels levels;
    const std::int32_t result = qxKt7NoiseEst(&image.record, &levels);
    image.rows.requireUntouched();
    require(result == (!image.spoilt && width >= 148 && height >= 148), "small sides measure 0");
    for (const float level :
         {levels.lumaMid, levels.chromaU, levels.chromaV, levels.lumaLow, levels.lumaHigh})
        require(std::isfinite(level) && level >= 0.0f && (result == 1 || level == 1e-5f),
                "levels are numbers");
    require(levels.noiseGrain == 0.3f, "the grain is set");
    return 0;
}
