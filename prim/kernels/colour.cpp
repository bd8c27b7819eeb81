#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

// Table look-ups run one by one and the arithmetic in vectors, a strip of pixels at a time that
// stays in the first-level cache.
constexpr std::int32_t stripPixels = 512;

struct Strip {
    std::int16_t r[stripPixels];
    std::int16_t g[stripPixels];
    std::int16_t b[stripPixels];
};

std::int16_t truncated(float v) {
    return static_cast<std::int16_t>(static_cast<std::int32_t>(v));
}

void toYuv(const Strip& strip, std::int16_t* y, std::int16_t* u, std::int16_t* v, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        const float r = static_cast<float>(strip.r[x]);
        const float g = static_cast<float>(strip.g[x]);
        const float b = static_cast<float>(strip.b[x]);
        const float luma = 0.299f * r + 0.587f * g + 0.114f * b;
        y[x] = truncated(luma);
        u[x] = truncated((b - luma) * 0.492f);
        v[x] = truncated((r - luma) * 0.877f);
    }
}

std::int16_t held(float v) {
    v = v > 0.0f ? v : 0.0f;
    return truncated(v < 32767.0f ? v : 32767.0f);
}

void fromYuv(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v, Strip& strip,
             std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        const float luma = static_cast<float>(y[x]);
        const float cb = static_cast<float>(u[x]);
        const float cr = static_cast<float>(v[x]);
        strip.r[x] = held(1.14f * cr + luma);
        strip.g[x] = held(luma - 0.581f * cr - 0.394f * cb);
        strip.b[x] = held(2.032f * cb + luma);
    }
}

std::int32_t indexOf(const std::uint8_t* sample) {
    return *sample;
}

// Samples of a host's row need not lie on even addresses.
std::int32_t indexOf(const std::uint16_t* sample) {
    std::uint16_t v;
    __builtin_memcpy(&v, sample, sizeof v);
    return v < 32767 ? v : 32767;
}

void store(std::int16_t intensity, std::uint8_t* sample) {
    *sample = static_cast<std::uint8_t>(intensity >> 7);
}

void store(std::int16_t intensity, std::uint16_t* sample) {
    __builtin_memcpy(sample, &intensity, sizeof intensity);
}

template <class Sample>
void forward(const Sample* rgb, const std::int16_t* const tables[3], std::int16_t* y,
             std::int16_t* u, std::int16_t* v, std::int32_t n) {
    Strip strip;
    const std::int16_t* const red = tables[0];
    const std::int16_t* const green = tables[1];
    const std::int16_t* const blue = tables[2];
    while (n > 0) {
        const std::int32_t count = n < stripPixels ? n : stripPixels;
        for (std::int32_t x = 0; x < count; ++x) {
            strip.r[x] = red[indexOf(rgb + 3 * x)];
            strip.g[x] = green[indexOf(rgb + 3 * x + 1)];
            strip.b[x] = blue[indexOf(rgb + 3 * x + 2)];
        }
        toYuv(strip, y, u, v, count);
        rgb += 3 * count;
        y += count;
        u += count;
        v += count;
        n -= count;
    }
}

template <class Sample>
void backward(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
              const std::int16_t* const tables[3], Sample* rgb, std::int32_t n) {
    Strip strip;
    const std::int16_t* const red = tables[0];
    const std::int16_t* const green = tables[1];
    const std::int16_t* const blue = tables[2];
    while (n > 0) {
        const std::int32_t count = n < stripPixels ? n : stripPixels;
        fromYuv(y, u, v, strip, count);
        for (std::int32_t x = 0; x < count; ++x) {
            store(red[strip.r[x]], rgb + 3 * x);
            store(green[strip.g[x]], rgb + 3 * x + 1);
            store(blue[strip.b[x]], rgb + 3 * x + 2);
        }
        rgb += 3 * count;
        y += count;
        u += count;
        v += count;
        n -= count;
    }
}

} // namespace

const ColourKernels KT7_NAME(colourKernels){&forward<std::uint8_t>, &forward<std::uint16_t>,
                                            &backward<std::uint8_t>, &backward<std::uint16_t>};

} // namespace kt7
