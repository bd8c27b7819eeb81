// What the page's worker calls: one photo, its result, and views of both.
#include <emscripten.h>

#include <algorithm>
#include <atomic>
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
std::string message; // why something failed
std::string lost;    // what did not come along, with commas between

// Runs on the worker's own thread, on which the library reports.
EM_JS(int, reportProgress, (double done), { return Module.progress(done) ? 1 : 0; })

/// Set by the page where it shares this memory, while the worker computes.
std::atomic<std::int32_t> cancelled{0};

std::int32_t hearProgress(double done, void*) {
    return reportProgress(done) != 0 && cancelled.load(std::memory_order_relaxed) == 0 ? 1 : 0;
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
    kt7PhotoInterleaved(&image, photo.sampleBytes == 2 ? kt7PhotoU16 : kt7PhotoU8,
                        photo.channels < 3 ? kt7PhotoGrey : kt7PhotoRgb,
                        photo.hasAlpha() ? kt7PhotoStraight : kt7PhotoNoAlpha,
                        photo.row(y) +
                            static_cast<std::ptrdiff_t>(x) * photo.channels * photo.sampleBytes,
                        width, height, static_cast<std::int64_t>(photo.rowBytes()));
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

/// A rectangle of a photo.
struct Part {
    std::int32_t x, y, width, height;
};

/// How a photo has to be turned to stand upright: the axes exchanged, then either one mirrored.
struct Turn {
    explicit Turn(std::int32_t orientation)
        : exchange(orientation >= 5),
          mirrorX(orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7),
          mirrorY(orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8) {}

    /// Where a part of the upright photo stands in the photo as it is stored.
    Part stored(const Part& upright, const Photo& photo) const {
        const std::int32_t width = exchange ? photo.height : photo.width;
        const std::int32_t height = exchange ? photo.width : photo.height;
        const std::int32_t x = mirrorX ? width - upright.x - upright.width : upright.x;
        const std::int32_t y = mirrorY ? height - upright.y - upright.height : upright.y;
        return exchange ? Part{y, x, upright.height, upright.width}
                        : Part{x, y, upright.width, upright.height};
    }

    bool exchange, mirrorX, mirrorY;
};

/// Means over the source pixels of each pixel of the view, upright, as RGBA with 8 bits.
Photo viewOf(const Photo& photo, const Part& part, std::int32_t outWidth, std::int32_t outHeight,
             const Turn& turn) {
    Photo view;
    view.channels = 4;
    view.width = turn.exchange ? outHeight : outWidth;
    view.height = turn.exchange ? outWidth : outHeight;
    view.allocate();
    const int n = photo.channels, colours = n < 3 ? 1 : 3;
    const bool wide = photo.sampleBytes == 2;
    const auto edge = [](std::int32_t i, std::int32_t from, std::int32_t size, std::int32_t out) {
        return from + static_cast<std::int32_t>(std::int64_t{i} * size / out);
    };
    const auto [x, y, width, height] = part;
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
            std::int32_t atX = turn.exchange ? v : u, atY = turn.exchange ? u : v;
            atX = turn.mirrorX ? view.width - 1 - atX : atX;
            atY = turn.mirrorY ? view.height - 1 - atY : atY;
            std::uint8_t* to = view.row(atY) + 4 * static_cast<std::ptrdiff_t>(atX);
            for (int c = 0; c < 3; ++c)
                to[c] = mean(colours == 1 ? 0 : c);
            to[3] = photo.hasAlpha() ? mean(colours) : 255;
        }
    }
    return view;
}

bool hasRgbProfile() {
    constexpr std::size_t colourSpaceAt = 16;
    return source.icc.size() > colourSpaceAt + 4 &&
           std::memcmp(source.icc.data() + colourSpaceAt, "RGB ", 4) == 0;
}

/// The page gets a view with a profile as a PNG, whose colours the browser takes to the screen's.
void handOut(Photo view) {
    buffer = Bytes();
    std::vector<std::string> unsaid;
    if (hasRgbProfile()) {
        view.icc = source.icc;
        buffer = writePng(view, 1, unsaid);
    } else {
        buffer = std::move(view.samples);
    }
}

void tellLost(const std::vector<std::string>& names) {
    lost.clear();
    for (const std::string& name : names)
        lost += (lost.empty() ? "" : ", ") + name;
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

/// What of the file that was opened or saved last did not come along.
KT7_WEB_EXPORT const char* kt7WebLost() {
    return lost.c_str();
}
/// Where the page writes a number other than 0 to cancel what runs.
KT7_WEB_EXPORT void* kt7WebCancelFlag() {
    return &cancelled;
}

/// Decodes the bytes as a JPEG (0), a PNG (1) or a TIFF (2) file.
KT7_WEB_EXPORT int kt7WebOpen(int format) {
    return attempt([&] {
        take({}); // the one before makes room first
        take(format == 0 ? readJpeg(buffer) : format == 1 ? readPng(buffer) : readTiff(buffer));
        tellLost(source.lost);
        buffer = Bytes();
        return true;
    });
}
/// Whether a picture of this size is one that the page takes.
KT7_WEB_EXPORT int kt7WebCheckSize(std::int32_t width, std::int32_t height) {
    return attempt([&] {
        Photo::checkSize(width, height);
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
        tellLost({});
        return true;
    });
}

/// Sides of the upright photo, which is what all parts are told in.
KT7_WEB_EXPORT int kt7WebWidth() {
    return Turn(source.orientation).exchange ? source.height : source.width;
}
KT7_WEB_EXPORT int kt7WebHeight() {
    return Turn(source.orientation).exchange ? source.width : source.height;
}
KT7_WEB_EXPORT int kt7WebChannels() {
    return source.channels;
}
KT7_WEB_EXPORT int kt7WebBits() {
    return 8 * source.sampleBytes;
}
/// Bit 0: Exif, 1: profile, 2: XMP, 3: a JPEG like it can be made, 4: views come as PNG.
KT7_WEB_EXPORT int kt7WebMetadata() {
    return (source.exif.empty() ? 0 : 1) | (source.icc.empty() ? 0 : 2) |
           (source.xmp.empty() ? 0 : 4) | (source.coding ? 8 : 0) | (hasRgbProfile() ? 16 : 0);
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

/// Denoises a part of the photo quickly, with the noise of the whole, and gives it as a view.
KT7_WEB_EXPORT int kt7WebPreview(std::int32_t x, std::int32_t y, std::int32_t width,
                                 std::int32_t height, double luma, double colour, double amount,
                                 int threads) {
    return attempt([&] {
        Kt7PhotoSettings settings = settingsOf(kt7PhotoFast, luma, colour, amount, threads);
        if (!measureOnce(imageOf(source, 0, 0, source.width, source.height), settings))
            return false;
        settings.noise = &*noise;
        const Turn turn(source.orientation);
        const Part part = turn.stored({x, y, width, height}, source);
        const Kt7PhotoImage image = imageOf(source, part.x, part.y, part.width, part.height);
        Photo clean = emptyLike(source, part.width, part.height);
        const Kt7PhotoImage target = imageOf(clean, 0, 0, part.width, part.height);
        if (!check(kt7PhotoDenoise(&image, &target, &settings)))
            return false;
        handOut(viewOf(clean, {0, 0, part.width, part.height}, part.width, part.height, turn));
        return true;
    });
}

/// A view of a part of the source (0) or of the result (1): RGBA, or a PNG.
KT7_WEB_EXPORT int kt7WebView(int which, std::int32_t x, std::int32_t y, std::int32_t width,
                              std::int32_t height, std::int32_t outWidth, std::int32_t outHeight) {
    return attempt([&] {
        const Photo& photo = which != 0 ? result : source;
        const Turn turn(source.orientation);
        const Part part = turn.stored({x, y, width, height}, source);
        if (part.x < 0 || part.y < 0 || width < 1 || height < 1 || outWidth < 1 || outHeight < 1 ||
            part.width > photo.width - part.x || part.height > photo.height - part.y)
            throw Failure("There is nothing to show.");
        handOut(viewOf(photo, part, turn.exchange ? outHeight : outWidth,
                       turn.exchange ? outWidth : outHeight, turn));
        return true;
    });
}

/// Codes the result, with the metadata of the source, as PNG (0), as JPEG of the given quality, or
/// as a JPEG like the source (-1).
KT7_WEB_EXPORT int kt7WebSave(int jpegQuality) {
    return attempt([&] {
        if (result.samples.empty())
            throw Failure("There is no result yet.");
        result.orientation = source.orientation;
        result.exif = source.exif;
        result.makeExif();
        result.icc = source.icc;
        result.xmp = source.xmp;
        result.coding = source.coding;
        result.density = source.density;
        result.colours = source.colours;
        constexpr int pngEffort = 4; // a person waits for it
        std::vector<std::string> left;
        buffer = Bytes();
        buffer = jpegQuality != 0 ? writeJpeg(result, jpegQuality, left)
                                  : writePng(result, pngEffort, left);
        tellLost(left);
        return true;
    });
}
