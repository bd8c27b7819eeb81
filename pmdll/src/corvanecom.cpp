// Conversions of host images into screen buffers, and of planes between the two sample scales.
#include <algorithm>
#include <array>
#include <cstring>

#include "pmdll/src/callGuards.h"
#include "pmdll/src/exports.h"
#include "prim/arith.h"
#include "prim/convert.h"
#include "prim/resize.h"
#include "prim/rows.h"
#include "prim/screenRows.h"
#include "qxutils/iccconvert.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/hostFormat.h"

namespace kt7 {
namespace {

constexpr std::int32_t done = 1;
constexpr std::int32_t wrongFormat = -3;
constexpr std::int32_t colourFailed = -500;
constexpr std::int32_t conversionFailed = -1001;

struct ScreenBuffer {
    std::uint8_t* pixels;
    std::int32_t stepBytes, width, height;

    bool isUsable() const {
        return pixels != nullptr && width >= 1 && height >= 1 &&
               stepBytes >= std::int64_t{4} * width;
    }
    std::int64_t bytes() const { return std::int64_t{4} * width * height; }
};

/// Above this a screen buffer leaves the cache before anyone looks at it, and storing past the
/// cache saves reading the old contents.
constexpr std::int64_t streamedBytes = std::int64_t{16} << 20;

void copyToScreen(const PSImage& image, bool eight, const ScreenBuffer& screen) {
    const std::int32_t width = std::min(screen.width, image.width);
    const bool streamed = screen.bytes() >= streamedBytes;
    parallelRows(std::min(screen.height, image.height), [&](std::int32_t y) {
        std::uint8_t* to = rowAt(screen.pixels, screen.stepBytes, y);
        if (eight)
            toScreen8Row(rowAt(static_cast<const std::uint8_t*>(image.data), image.rowBytes, y), to,
                         width, streamed);
        else
            toScreen16Row(rowAt(static_cast<const std::uint16_t*>(image.data), image.rowBytes, y),
                          to, width, streamed);
    });
}

void fillBlack(std::uint8_t* bgra, std::int32_t pixels) {
    for (std::ptrdiff_t x = 0; x < pixels; ++x) {
        constexpr std::uint8_t black[4] = {0, 0, 0, 255};
        std::memcpy(bgra + 4 * x, black, sizeof black);
    }
}

void resizeToScreen(const PSImage& image, bool eight, double factor, const ScreenBuffer& screen) {
    ResizePlan plan;
    // A refused factor leaves the result empty, and the screen black.
    if (plan.setup({image.width, image.height}, {0, 0, image.width, image.height},
                   {screen.width, screen.height}, factor, factor, primResizeLinear) == primNoMem)
        raise(noBufferStorage);
    const auto [width, height] = plan.size();
    parallelRanges(height, [&, rows = &plan](std::int32_t begin, std::int32_t end) {
        const PrimStatus status =
            eight
                ? rows->rowsToScreen8u(static_cast<const std::uint8_t*>(image.data), image.rowBytes,
                                       screen.pixels, screen.stepBytes, begin, end)
                : rows->rowsToScreen16u(static_cast<const std::uint16_t*>(image.data),
                                        image.rowBytes, screen.pixels, screen.stepBytes, begin,
                                        end);
        if (status == primNoMem)
            raise(noBufferStorage);
    });
    parallelRows(screen.height, [&, filledWidth = width, filledHeight = height](std::int32_t y) {
        const std::int32_t x = y < filledHeight ? filledWidth : 0;
        fillBlack(rowAt(screen.pixels, screen.stepBytes, y) + std::ptrdiff_t{4} * x,
                  screen.width - x);
    });
}

std::int32_t convert(const PSImage* image, const ScreenBuffer& screen, float factor) {
    if (image == nullptr)
        return conversionFailed;
    if (channelsOfFormat(image->format) != 3)
        return wrongFormat;
    const std::int32_t bytesPerSample = bytesPerChannelOfFormat(image->format);
    if (!isUsable(image, bytesPerSample) || !screen.isUsable())
        return conversionFailed;
    const auto scale = static_cast<double>(factor);
    const bool eight = bytesPerSample == 1;
    if (scale > 1.01 || scale < 0.99)
        resizeToScreen(*image, eight, scale, screen);
    else
        copyToScreen(*image, eight, screen);
    return done;
}

/// Runs body() on at most `rows` threads, with what it raises as a result.
template <class Body>
std::int32_t resultOr(std::int32_t failed, std::int32_t rows, Body&& body) {
    return guarded(rows, [&] {
        return resultOf(
            body, [=](int) { return failed; }, [=] { return failed; });
    });
}

template <class S, class D>
bool arePlanes(const S* src, std::int32_t srcStep, const D* dst, std::int32_t dstStep,
               std::int32_t width, std::int32_t height) {
    constexpr auto sourceBytes = static_cast<std::int64_t>(sizeof(S));
    constexpr auto targetBytes = static_cast<std::int64_t>(sizeof(D));
    return src != nullptr && dst != nullptr && width >= 1 && height >= 1 &&
           srcStep >= sourceBytes * width && dstStep >= targetBytes * width;
}

} // namespace
} // namespace kt7

KT7_EXPORT std::int32_t PSImage2QImage(const PSImage* image, std::uint8_t* dst,
                                       std::int32_t dstStep, std::int32_t dstWidth,
                                       std::int32_t dstHeight, float factor) {
    using namespace kt7;
    return resultOr(conversionFailed, dstHeight, [&] {
        return convert(image, {dst, dstStep, dstWidth, dstHeight}, factor);
    });
}

KT7_EXPORT std::int32_t PSImageICC2QImage(const QxIccProfiles* profiles, const PSImage* image,
                                          std::uint8_t* dst, std::int32_t dstStep,
                                          std::int32_t dstWidth, std::int32_t dstHeight,
                                          float factor) {
    using namespace kt7;
    if (profiles == nullptr)
        return conversionFailed;
    const std::int32_t converted = PSImage2QImage(image, dst, dstStep, dstWidth, dstHeight, factor);
    if (converted != done)
        return converted;
    return resultOr(colourFailed, dstHeight, [&] {
        return iccConvertQImage(profiles->sourceProfile, profiles->sourceProfileSize,
                                profiles->targetProfile, profiles->targetProfileSize, dst, dstStep,
                                dstWidth, dstHeight);
    });
}

KT7_EXPORT std::int32_t psC1U8toU15(const std::uint8_t* src, std::int32_t srcStep,
                                    std::int32_t width, std::int32_t height, std::uint16_t* dst,
                                    std::int32_t dstStep) {
    using namespace kt7;
    if (!arePlanes(src, srcStep, dst, dstStep, width, height))
        return conversionFailed;
    return guarded(height, [=] {
        parallelRows(height, [=](std::int32_t y) {
            std::uint16_t* to = rowAt(dst, dstStep, y);
            primConvert8u16uC1(rowAt(src, srcStep, y), srcStep, to, dstStep, {width, 1});
            primAddC16uC1I(1, to, dstStep, {width, 1}, -7);
        });
        return done;
    });
}

KT7_EXPORT std::int32_t psC1U15toU8(const std::uint16_t* src, std::int32_t srcStep,
                                    std::int32_t width, std::int32_t height, std::uint8_t* dst,
                                    std::int32_t dstStep) {
    using namespace kt7;
    if (!arePlanes(src, srcStep, dst, dstStep, width, height))
        return conversionFailed;
    return guarded(height, [=] {
        parallelRows(height, [=](std::int32_t y) {
            constexpr std::int32_t stripLength = 2048;
            constexpr std::int32_t stripBytes = stripLength * 2;
            std::array<std::uint16_t, stripLength> strip;
            const std::uint16_t* from = rowAt(src, srcStep, y);
            std::uint8_t* to = rowAt(dst, dstStep, y);
            for (std::int32_t x = 0; x < width; x += stripLength) {
                const PrimSize size{std::min(stripLength, width - x), 1};
                primSubC16uC1(from + x, srcStep, 128, strip.data(), stripBytes, size, 7);
                primConvert16u8uC1(strip.data(), stripBytes, to + x, dstStep, size);
            }
        });
        return done;
    });
}
