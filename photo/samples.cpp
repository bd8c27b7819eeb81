#include "photo/samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace kt7::photo {
namespace {

using std::ptrdiff_t;

struct Half {
    std::uint16_t bits;
};

/// The scale 0..32768 has the same samples as the full one, and another top.
struct Fifteen {
    std::uint16_t value;
};

float valueOf(std::uint8_t sample) {
    return static_cast<float>(sample) / 255.0f;
}
float valueOf(std::uint16_t sample) {
    return static_cast<float>(sample) / 65535.0f;
}
float valueOf(Fifteen sample) {
    return static_cast<float>(std::min<std::uint16_t>(sample.value, 32768)) / 32768.0f;
}
float valueOf(float sample) {
    return sample;
}
float valueOf(Half sample) {
    const std::uint32_t sign = (sample.bits & 0x8000u) << 16;
    const std::uint32_t exponent = (sample.bits >> 10) & 31u, mantissa = sample.bits & 0x3ffu;
    if (exponent == 0)
        return std::copysign(static_cast<float>(mantissa) * 0x1p-24f, sign != 0 ? -1.0f : 1.0f);
    const std::uint32_t wide = exponent == 31 ? 255u : exponent + 112u;
    return std::bit_cast<float>(sign | (wide << 23) | (mantissa << 13));
}

/// Nearest whole number from 0 to `top`; 0 for what is not a number.
std::uint16_t rounded(float value, float top) {
    const float scaled = value * top;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): nothing below 0 gets there
    return scaled > 0.0f ? static_cast<std::uint16_t>(std::min(scaled, top) + 0.5f)
                         : std::uint16_t{0};
}

void setValue(float value, std::uint8_t& sample) {
    sample = static_cast<std::uint8_t>(rounded(value, 255.0f));
}
void setValue(float value, std::uint16_t& sample) {
    sample = rounded(value, 65535.0f);
}
void setValue(float value, Fifteen& sample) {
    sample.value = rounded(value, 32768.0f);
}
void setValue(float value, float& sample) {
    sample = value;
}
/// To the nearest, ties to even.
void setValue(float value, Half& sample) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t sign = (bits >> 16) & 0x8000u, size = bits & 0x7fffffffu;
    std::uint32_t half = 0;
    if (size > 0x7f800000u)
        half = 0x7e00u;
    else if (size >= 0x477ff000u) // beyond what rounds to the largest half
        half = 0x7c00u;
    else if (size < 0x38800000u) // below the smallest normal half
        half = static_cast<std::uint32_t>(std::lrint(std::fabs(value) * 0x1p24f));
    else
        half = (size - 0x38000000u + 0xfffu + ((size >> 13) & 1u)) >> 13;
    sample.bits = static_cast<std::uint16_t>(sign | half);
}

/// Runs body(T{}) with the type that stands for a sample type.
template <class Body>
void withType(std::int32_t sampleType, Body&& body) {
    switch (sampleType) {
    case kt7PhotoU8:
        return body(std::uint8_t{});
    case kt7PhotoU16:
        return body(std::uint16_t{});
    case kt7PhotoU15:
        return body(Fifteen{});
    case kt7PhotoHalf:
        return body(Half{});
    default:
        return body(0.0f);
    }
}

/// The sample at a place of a plane. Steps were checked, so that the offset is that of an address.
unsigned char* placeOf(const Kt7PhotoPlane& plane, std::int64_t x, std::int64_t y) {
    return static_cast<unsigned char*>(plane.data) +
           static_cast<ptrdiff_t>(x * plane.pixelBytes + y * plane.rowBytes);
}

void readRow(const Kt7PhotoPlane& plane, std::int32_t sampleType, std::int32_t y,
             std::vector<float>& row) {
    withType(sampleType, [&](auto sample) {
        const unsigned char* from = placeOf(plane, 0, y);
        const auto step = static_cast<ptrdiff_t>(plane.pixelBytes);
        for (std::size_t x = 0; x < row.size(); ++x) {
            std::memcpy(&sample, from + static_cast<ptrdiff_t>(x) * step, sizeof sample);
            row[x] = valueOf(sample);
        }
    });
}

void writeRow(const std::vector<float>& row, std::int32_t sampleType, std::int32_t y,
              const Kt7PhotoPlane& plane) {
    withType(sampleType, [&](auto sample) {
        unsigned char* to = placeOf(plane, 0, y);
        const auto step = static_cast<ptrdiff_t>(plane.pixelBytes);
        for (std::size_t x = 0; x < row.size(); ++x) {
            setValue(row[x], sample);
            std::memcpy(to + static_cast<ptrdiff_t>(x) * step, &sample, sizeof sample);
        }
    });
}

void copySample(const Kt7PhotoPlane& from, const Kt7PhotoPlane& to, std::int32_t bytes,
                std::int64_t x, std::int64_t y) {
    std::memmove(placeOf(to, x, y), placeOf(from, x, y), static_cast<std::size_t>(bytes));
}

float heldInside(float value) {
    return value > 0.0f ? std::min(value, 1.0f) : 0.0f;
}

} // namespace

std::int32_t bytesOf(std::int32_t sampleType) noexcept {
    switch (sampleType) {
    case kt7PhotoU8:
        return 1;
    case kt7PhotoU16:
    case kt7PhotoU15:
    case kt7PhotoHalf:
        return 2;
    case kt7PhotoFloat:
        return 4;
    default:
        return 0;
    }
}

PhotoRow::PhotoRow(const Kt7PhotoImage& image)
    : image_(image), alpha_(static_cast<std::size_t>(image.width), 1.0f) {
    for (std::int32_t c = 0; c < colours(); ++c) {
        raw_[index(c)].resize(static_cast<std::size_t>(image.width));
        inner_[index(c)].resize(static_cast<std::size_t>(image.width));
    }
}

void PhotoRow::read(std::int32_t y) {
    if (image_.alphaKind != kt7PhotoNoAlpha)
        readRow(image_.alpha, image_.sampleType, y, alpha_);
    for (std::int32_t c = 0; c < colours(); ++c) {
        std::vector<float>&raw = raw_[index(c)], &inner = inner_[index(c)];
        readRow(image_.planes[c], image_.sampleType, y, raw);
        if (image_.alphaKind == kt7PhotoPremultiplied) {
            for (std::size_t x = 0; x < raw.size(); ++x)
                inner[x] = heldInside(alpha_[x] > 0.0f ? raw[x] / alpha_[x] : 0.0f);
        } else {
            std::transform(raw.begin(), raw.end(), inner.begin(), heldInside);
        }
    }
}

void readMaskRow(const Kt7PhotoMask& mask, std::int32_t y, std::vector<float>& row) {
    readRow(mask.plane, mask.sampleType, y, row);
    std::transform(row.begin(), row.end(), row.begin(), heldInside);
}

RowWriter::RowWriter(const Kt7PhotoImage& source, const Kt7PhotoImage& target)
    : source_(source), target_(target), values_(static_cast<std::size_t>(target.width)),
      noChange_(values_.size(), 0.0f) {}

void RowWriter::writeAlpha(const PhotoRow& row, std::int32_t y) {
    if (target_.alphaKind == kt7PhotoNoAlpha)
        return;
    if (source_.alphaKind != kt7PhotoNoAlpha && source_.sampleType == target_.sampleType) {
        for (std::int32_t x = 0; x < target_.width; ++x)
            copySample(source_.alpha, target_.alpha, bytesOf(target_.sampleType), x, y);
        return;
    }
    std::copy_n(row.alpha(), values_.size(), values_.begin());
    writeRow(values_, target_.sampleType, y, target_.alpha);
}

void RowWriter::write(const PhotoRow& row, const float* const change[3], std::int32_t y) {
    const bool premultiplied = target_.alphaKind == kt7PhotoPremultiplied;
    const bool multiply = premultiplied && source_.alphaKind == kt7PhotoStraight;
    const bool divide = !premultiplied && source_.alphaKind == kt7PhotoPremultiplied;
    const bool sameType = source_.sampleType == target_.sampleType;
    const float* alpha = row.alpha();
    for (std::int32_t c = 0; c < row.colours(); ++c) {
        const float* raw = row.raw(c);
        for (std::size_t x = 0; x < values_.size(); ++x) {
            float value = raw[x];
            if (multiply)
                value *= alpha[x];
            else if (divide && alpha[x] > 0.0f)
                value /= alpha[x];
            values_[x] = value + (premultiplied ? alpha[x] * change[c][x] : change[c][x]);
        }
        if (!sameType) {
            writeRow(values_, target_.sampleType, y, target_.planes[c]);
            continue;
        }
        // What isn't finite keeps its bits, and so does what does not change.
        withType(target_.sampleType, [&](auto sample) {
            for (std::int32_t x = 0; x < target_.width; ++x) {
                const auto i = static_cast<std::size_t>(x);
                if (!std::isfinite(values_[i]) || (change[c][i] == 0.0f && !multiply && !divide)) {
                    copySample(source_.planes[c], target_.planes[c], sizeof sample, x, y);
                } else {
                    setValue(values_[i], sample);
                    std::memcpy(placeOf(target_.planes[c], x, y), &sample, sizeof sample);
                }
            }
        });
    }
    writeAlpha(row, y);
}

void RowWriter::copy(const PhotoRow& row, std::int32_t y) {
    const float* const change[3] = {noChange_.data(), noChange_.data(), noChange_.data()};
    write(row, change, y);
}

} // namespace kt7::photo
