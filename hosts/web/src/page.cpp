// What the page's worker calls: one photo, its result, and views of both.
#include <emscripten.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "hosts/web/src/Photo.h"
#include "kt7photo/kt7photo.h"

namespace kt7::web {
namespace {

// One page has one photo.
Bytes buffer; // what the worker hands in or takes out
Photo source, result;
std::optional<Kt7PhotoNoise> noise;
std::string message;

// Runs on the worker's own thread, on which the library reports.
EM_JS(int, reportProgress, (double done), { return Module.progress(done) ? 1 : 0; })

std::int32_t hearProgress(double done, void*) {
    return reportProgress(done);
}

/// 1 when body() ran to its end; else 0, or -1 for a cancelled call, and message says why.
template <class Body>
int attempt(Body&& body) noexcept {
    try {
        message.clear();
        return std::forward<Body>(body)() ? 1 : -1;
    } catch (const std::bad_alloc&) {
        message = "There is not enough memory for this picture.";
    } catch (const Failure& failure) {
        message = failure.what();
    } catch (...) {
        message = "Something went wrong inside.";
    }
    return 0;
}

/// The part of a photo as the library takes it. Samples are only read where the image is a source.
Kt7PhotoImage imageOf(Photo& photo, std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height) {
    Kt7PhotoImage image{};
    image.size = sizeof image;
    const bool alpha = photo.channels == 2 || photo.channels == 4;
    kt7PhotoInterleaved(
        &image, photo.sampleBytes == 2 ? kt7PhotoU16 : kt7PhotoU8,
        photo.channels < 3 ? kt7PhotoGrey : kt7PhotoRgb, alpha ? kt7PhotoStraight : kt7PhotoNoAlpha,
        photo.row(y) + static_cast<std::ptrdiff_t>(x) * photo.channels * photo.sampleBytes, width,
        height, static_cast<std::int64_t>(photo.rowBytes()));
    return image;
}

/// False when it was cancelled.
bool check(std::int32_t outcome) {
    if (outcome == kt7PhotoNoMemory)
        throw std::bad_alloc();
    if (outcome < 0)
        throw Failure(std::string("The picture can't be denoised: ") + kt7PhotoResultText(outcome) +
                      ".");
    return outcome == kt7PhotoDone;
}

Kt7PhotoSettings settingsOf(int quality, double luma, double colour, double amount, int threads) {
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    kt7PhotoDefaults(&settings);
    settings.quality = quality;
    settings.luma = static_cast<float>(luma);
    settings.colour = static_cast<float>(colour);
    settings.amount = static_cast<float>(amount);
    settings.threads = threads;
    settings.progress = &hearProgress;
    return settings;
}

Photo emptyLike(const Photo& photo, std::int32_t width, std::int32_t height) {
    Photo fresh;
    fresh.width = width;
    fresh.height = height;
    fresh.channels = photo.channels;
    fresh.sampleBytes = photo.sampleBytes;
    fresh.allocate();
    return fresh;
}

void take(Photo photo) {
    result = {};
    noise.reset();
    source = std::move(photo);
}

/// Means over the source pixels of each pixel of the view, as RGBA with 8 bits.
void intoView(const Photo& photo, std::int32_t x, std::int32_t y, std::int32_t width,
              std::int32_t height, std::int32_t outWidth, std::int32_t outHeight) {
    buffer.resize(static_cast<std::size_t>(outWidth) * static_cast<std::size_t>(outHeight) * 4);
    std::uint8_t* to = buffer.data();
    const int n = photo.channels, colours = n < 3 ? 1 : 3;
    const bool wide = photo.sampleBytes == 2, alpha = n == 2 || n == 4;
    const auto edge = [](std::int32_t i, std::int32_t from, std::int32_t size, std::int32_t out) {
        return from + static_cast<std::int32_t>(std::int64_t{i} * size / out);
    };
    for (std::int32_t v = 0; v < outHeight; ++v) {
        const std::int32_t top = edge(v, y, height, outHeight);
        const std::int32_t bottom = std::max(top + 1, edge(v + 1, y, height, outHeight));
        for (std::int32_t u = 0; u < outWidth; ++u) {
            const std::int32_t left = edge(u, x, width, outWidth);
            const std::int32_t right = std::max(left + 1, edge(u + 1, x, width, outWidth));
            std::uint32_t sums[4] = {};
            for (std::int32_t j = top; j < bottom; ++j) {
                const std::uint8_t* row = photo.row(j);
                for (std::int32_t i = left; i < right; ++i)
                    for (int c = 0; c < n; ++c) // the upper byte of 16 bits is enough to look at
                        sums[c] += wide ? row[2 * (i * n + c) + 1] : row[i * n + c];
            }
            const auto count = static_cast<std::uint32_t>((bottom - top) * (right - left));
            const auto mean = [&](int c) {
                return static_cast<std::uint8_t>((sums[c] + count / 2) / count);
            };
            for (int c = 0; c < 3; ++c)
                to[c] = mean(colours == 1 ? 0 : c);
            to[3] = alpha ? mean(colours) : 255;
            to += 4;
        }
    }
}

/// False when it was cancelled.
bool measureOnce(const Kt7PhotoImage& image, const Kt7PhotoSettings& settings) {
    if (noise)
        return true;
    Kt7PhotoNoise measured{};
    measured.size = sizeof measured;
    if (!check(kt7PhotoMeasure(&image, &settings, &measured)))
        return false;
    noise = measured;
    return true;
}

} // namespace
} // namespace kt7::web

using namespace kt7::web;

#define KT7_WEB_EXPORT extern "C" EMSCRIPTEN_KEEPALIVE

/// The worker's bytes; null when there is no memory for them.
KT7_WEB_EXPORT void* kt7WebBuffer(std::size_t size) {
    return attempt([&] {
               buffer = Bytes();
               buffer.resize(size);
               return true;
           }) == 1
               ? buffer.data()
               : nullptr;
}
KT7_WEB_EXPORT const void* kt7WebBytes() {
    return buffer.data();
}
KT7_WEB_EXPORT std::size_t kt7WebSize() {
    return buffer.size();
}
KT7_WEB_EXPORT void kt7WebRelease() {
    buffer = Bytes();
}
KT7_WEB_EXPORT const char* kt7WebMessage() {
    return message.c_str();
}

/// Decodes the bytes as a JPEG or a PNG file.
KT7_WEB_EXPORT int kt7WebOpen(int isPng) {
    return attempt([&] {
        take({}); // the one before makes room first
        take(isPng != 0 ? readPng(buffer) : readJpeg(buffer));
        buffer = Bytes();
        return true;
    });
}
/// Takes the bytes as RGBA pixels that the browser decoded.
KT7_WEB_EXPORT int kt7WebOpenPixels(std::int32_t width, std::int32_t height) {
    return attempt([&] {
        take({});
        Photo photo;
        photo.width = width;
        photo.height = height;
        bool opaque = true;
        for (std::size_t i = 3; i < buffer.size() && opaque; i += 4)
            opaque = buffer[i] == 255;
        photo.channels = opaque ? 3 : 4;
        photo.allocate();
        const auto n = static_cast<std::size_t>(photo.channels);
        for (std::size_t i = 0; i < buffer.size() / 4; ++i)
            std::copy_n(buffer.data() + 4 * i, n, photo.samples.data() + n * i);
        take(std::move(photo));
        buffer = Bytes();
        return true;
    });
}

KT7_WEB_EXPORT int kt7WebWidth() {
    return source.width;
}
KT7_WEB_EXPORT int kt7WebHeight() {
    return source.height;
}
KT7_WEB_EXPORT int kt7WebChannels() {
    return source.channels;
}
KT7_WEB_EXPORT int kt7WebBits() {
    return 8 * source.sampleBytes;
}
/// Bit 0: Exif, 1: profile, 2: XMP.
KT7_WEB_EXPORT int kt7WebMetadata() {
    return (source.exif.empty() ? 0 : 1) | (source.icc.empty() ? 0 : 2) |
           (source.xmp.empty() ? 0 : 4);
}

/// Denoises the whole. The result before stays when it is cancelled or fails.
KT7_WEB_EXPORT int kt7WebDenoise(int quality, double luma, double colour, double amount,
                                 int threads) {
    return attempt([&] {
        const Kt7PhotoImage image = imageOf(source, 0, 0, source.width, source.height);
        Kt7PhotoSettings settings = settingsOf(quality, luma, colour, amount, threads);
        if (noise)
            settings.noise = &*noise;
        Photo fresh = emptyLike(source, source.width, source.height);
        const Kt7PhotoImage target = imageOf(fresh, 0, 0, source.width, source.height);
        if (!check(kt7PhotoDenoise(&image, &target, &settings)))
            return false;
        result = std::move(fresh);
        return true;
    });
}

/// Denoises a part of the photo quickly, with the noise of the whole, and gives it as RGBA.
KT7_WEB_EXPORT int kt7WebPreview(std::int32_t x, std::int32_t y, std::int32_t width,
                                 std::int32_t height, double luma, double colour, double amount,
                                 int threads) {
    return attempt([&] {
        Kt7PhotoSettings settings = settingsOf(kt7PhotoFast, luma, colour, amount, threads);
        if (!measureOnce(imageOf(source, 0, 0, source.width, source.height), settings))
            return false;
        settings.noise = &*noise;
        const Kt7PhotoImage image = imageOf(source, x, y, width, height);
        Photo part = emptyLike(source, width, height);
        const Kt7PhotoImage target = imageOf(part, 0, 0, width, height);
        if (!check(kt7PhotoDenoise(&image, &target, &settings)))
            return false;
        intoView(part, 0, 0, width, height, width, height);
        return true;
    });
}

/// A part of the source (0) or of the result (1) as RGBA.
KT7_WEB_EXPORT int kt7WebView(int which, std::int32_t x, std::int32_t y, std::int32_t width,
                              std::int32_t height, std::int32_t outWidth, std::int32_t outHeight) {
    return attempt([&] {
        const Photo& photo = which != 0 ? result : source;
        if (x < 0 || y < 0 || width < 1 || height < 1 || outWidth < 1 || outHeight < 1 ||
            width > photo.width - x || height > photo.height - y)
            throw Failure("There is nothing to show.");
        intoView(photo, x, y, width, height, outWidth, outHeight);
        return true;
    });
}

/// Codes the result, with the metadata of the source, as PNG (0) or as JPEG of the given quality.
KT7_WEB_EXPORT int kt7WebSave(int jpegQuality) {
    return attempt([&] {
        if (result.samples.empty())
            throw Failure("There is no result yet.");
        result.exif = source.exif;
        result.icc = source.icc;
        result.xmp = source.xmp;
        buffer = Bytes();
        buffer = jpegQuality > 0 ? writeJpeg(result, jpegQuality) : writePng(result);
        return true;
    });
}
