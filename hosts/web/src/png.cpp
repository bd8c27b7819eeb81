#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "hosts/web/src/Photo.h"

namespace kt7::web {
namespace {

constexpr char xmpKeyword[] = "XML:com.adobe.xmp";

constexpr char animationChunk[] = "acTL", codePointsChunk[] = "cICP";
constexpr double inch = 0.0254; // metres

[[noreturn]] void unreadable(png_structp, png_const_charp text) {
    throw Failure(std::string("This PNG can't be read: ") + text + ".");
}
[[noreturn]] void unwritable(png_structp, png_const_charp text) {
    throw Failure(std::string("The photo can't be written as a PNG: ") + text + ".");
}
void warned(png_structp, png_const_charp) {}

struct Source {
    const Bytes& file;
    std::size_t at = 0;
};

void readFrom(png_structp png, png_bytep to, png_size_t count) {
    auto& source = *static_cast<Source*>(png_get_io_ptr(png));
    if (count > source.file.size() - source.at)
        throw Failure("This PNG is cut off.");
    std::memcpy(to, source.file.data() + source.at, count);
    source.at += count;
}

void writeTo(png_structp png, png_bytep from, png_size_t count) {
    auto& file = *static_cast<Bytes*>(png_get_io_ptr(png));
    file.insert(file.end(), from, from + count);
}

struct Reader {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, &unreadable, &warned);
    png_infop info = png_create_info_struct(png);
    Reader() = default;
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
};

struct Writer {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, &unwritable, &warned);
    png_infop info = png_create_info_struct(png);
    Writer() = default;
    ~Writer() { png_destroy_write_struct(&png, &info); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
};

/// Both for reading and for writing, for which libpng leaves chunks that it doesn't know out.
void keepUnknown(png_structp png) {
    constexpr png_byte kept[] = "acTL\0cICP";
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_ALWAYS, kept, 2);
}

void readColours(png_structp png, png_infop info, PngColours& colours) {
    int intent = 0;
    if (png_get_sRGB(png, info, &intent) != 0) {
        colours.srgbIntent = intent;
        return;
    }
    double gamma = 0;
    if (png_get_gAMA(png, info, &gamma) != 0)
        colours.gamma = gamma;
    std::array<double, 8> c{};
    if (png_get_cHRM(png, info, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7]) != 0)
        colours.primaries = c;
}

void writeColours(png_structp png, png_infop info, const PngColours& colours) {
    if (colours.srgbIntent)
        png_set_sRGB(png, info, *colours.srgbIntent);
    if (colours.gamma)
        png_set_gAMA(png, info, *colours.gamma);
    if (const auto& c = colours.primaries)
        png_set_cHRM(png, info, (*c)[0], (*c)[1], (*c)[2], (*c)[3], (*c)[4], (*c)[5], (*c)[6],
                     (*c)[7]);
    if (colours.codePoints.empty())
        return;
    Bytes codePoints = colours.codePoints; // copied once more by libpng
    png_unknown_chunk chunk{};
    std::memcpy(chunk.name, codePointsChunk, 4);
    chunk.data = codePoints.data();
    chunk.size = codePoints.size();
    chunk.location = PNG_HAVE_IHDR;
    png_set_unknown_chunks(png, info, &chunk, 1);
}

/// JFIF's unit 1 is the inch, 2 the centimetre, 0 none.
void readDensity(png_structp png, png_infop info, Photo& photo) {
    png_uint_32 x = 0, y = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (png_get_pHYs(png, info, &x, &y, &unit) == 0)
        return;
    const bool metres = unit == PNG_RESOLUTION_METER;
    const auto whole = [&](png_uint_32 v) {
        return static_cast<std::uint16_t>(
            std::clamp(std::round(v * (metres ? inch : 1.0)), 1.0, 65535.0));
    };
    photo.density = {static_cast<std::uint8_t>(metres ? 1 : 0), whole(x), whole(y)};
}

void writeDensity(png_structp png, png_infop info, const JfifDensity& density) {
    const double scale = density.unit == 1 ? 1.0 / inch : density.unit == 2 ? 100.0 : 1.0;
    const auto whole = [&](std::uint16_t v) {
        return static_cast<png_uint_32>(std::lround(v * scale));
    };
    // Without a unit it tells the shape of the pixels, which nearly always are squares.
    if (density.x > 0 && density.y > 0 && (density.unit != 0 || density.x != density.y))
        png_set_pHYs(png, info, whole(density.x), whole(density.y),
                     density.unit != 0 ? PNG_RESOLUTION_METER : PNG_RESOLUTION_UNKNOWN);
}

void readMetadata(png_structp png, png_infop info, Photo& photo) {
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 size = 0;
    int compression = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &size) != 0)
        photo.icc.assign(profile, profile + size);
    else
        readColours(png, info, photo.colours);
    readDensity(png, info, photo);
    png_unknown_chunkp chunks = nullptr;
    const int unknown = png_get_unknown_chunks(png, info, &chunks);
    for (const auto& chunk : std::span(chunks, static_cast<std::size_t>(unknown))) {
        const std::string_view chunkName(reinterpret_cast<const char*>(chunk.name), 4);
        if (chunkName == animationChunk)
            throw Failure("This PNG is an animation; only single pictures can be denoised.");
        if (chunkName == codePointsChunk && photo.icc.empty())
            photo.colours.codePoints.assign(chunk.data, chunk.data + chunk.size);
    }
    png_bytep exif = nullptr;
    if (png_get_eXIf_1(png, info, &size, &exif) != 0)
        photo.takeExif(Bytes(exif, exif + size));
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(png, info, &texts, &count);
    bool others = false;
    for (int i = 0; i < count; ++i)
        if (std::strcmp(texts[i].key, xmpKeyword) == 0)
            photo.xmp.assign(texts[i].text, texts[i].text + std::strlen(texts[i].text));
        else
            others = true;
    if (others)
        photo.lost.emplace_back("comments");
}

} // namespace

bool PngColours::differFromSrgb() const {
    constexpr double srgbGamma = 0.45455, srgbRedX = 0.64, srgbGreenX = 0.30, tolerance = 1e-3;
    const auto differ = [](double a, double b) { return std::abs(a - b) > tolerance; };
    return (gamma && differ(*gamma, srgbGamma)) || !codePoints.empty() ||
           (primaries &&
            (differ((*primaries)[2], srgbRedX) || differ((*primaries)[4], srgbGreenX)));
}

Photo readPng(const Bytes& file) {
    Reader reader;
    png_structp png = reader.png;
    Source source{file};
    png_set_read_fn(png, &source, &readFrom);
    keepUnknown(png);
    png_read_info(png, reader.info);
    Photo photo;
    photo.width = static_cast<std::int32_t>(png_get_image_width(png, reader.info));
    photo.height = static_cast<std::int32_t>(png_get_image_height(png, reader.info));
    png_set_expand(png);
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
        png_set_swap(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, reader.info);
    photo.channels = png_get_channels(png, reader.info);
    photo.sampleBytes = png_get_bit_depth(png, reader.info) == 16 ? 2 : 1;
    photo.allocate();
    std::vector<png_bytep> rows;
    for (std::int32_t y = 0; y < photo.height; ++y)
        rows.push_back(photo.row(y));
    png_read_image(png, rows.data());
    png_read_end(png, reader.info);
    readMetadata(png, reader.info, photo);
    return photo;
}

Bytes writePng(const Photo& photo, int effort, std::vector<std::string>& lost) {
    constexpr int types[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                             PNG_COLOR_TYPE_RGB_ALPHA};
    Bytes file;
    Writer writer;
    png_structp png = writer.png;
    png_set_write_fn(png, &file, &writeTo, [](png_structp) {});
    keepUnknown(png);
    png_set_benign_errors(png, 1); // an unsound profile is left out
    png_set_compression_level(png, effort);
    png_set_IHDR(png, writer.info, static_cast<png_uint_32>(photo.width),
                 static_cast<png_uint_32>(photo.height), 8 * photo.sampleBytes,
                 types[photo.channels - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!photo.icc.empty())
        png_set_iCCP(png, writer.info, "icc", PNG_COMPRESSION_TYPE_BASE, photo.icc.data(),
                     static_cast<png_uint_32>(photo.icc.size()));
    if (!photo.icc.empty() && png_get_valid(png, writer.info, PNG_INFO_iCCP) == 0)
        lost.emplace_back("a colour profile that is damaged or of another kind of picture");
    if (photo.icc.empty())
        writeColours(png, writer.info, photo.colours);
    if (photo.density)
        writeDensity(png, writer.info, *photo.density);
    if (!photo.exif.empty()) {
        Bytes exif = photo.exif; // copied once more by libpng
        png_set_eXIf_1(png, writer.info, static_cast<png_uint_32>(exif.size()), exif.data());
    }
    std::string xmp(photo.xmp.begin(), photo.xmp.end());
    if (!xmp.empty()) {
        char key[sizeof xmpKeyword];
        std::memcpy(key, xmpKeyword, sizeof key);
        png_text text{};
        text.compression = PNG_ITXT_COMPRESSION_NONE;
        text.key = key;
        text.text = xmp.data();
        png_set_text(png, writer.info, &text, 1);
    }
    png_write_info(png, writer.info);
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
        png_set_swap(png);
    for (std::int32_t y = 0; y < photo.height; ++y)
        png_write_row(png, photo.row(y));
    png_write_end(png, writer.info);
    return file;
}

} // namespace kt7::web
