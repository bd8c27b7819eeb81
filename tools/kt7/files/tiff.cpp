// TIFF, by libtiff; its metadata by Exiv2.
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/metadata.h"
#include "tools/kt7/files/sampleScale.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include <tiffio.h>

namespace kt7::tool {
namespace {

constexpr const char* photoshopLayers = "Photoshop layers";

/// A file in memory, as libtiff sees one.
struct MemoryStream {
    std::span<const std::uint8_t> reading = {};
    Bytes writing = {};
    bool writes = false;
    toff_t at = 0;
    char error[200] = "";

    toff_t size() const { return writes ? writing.size() : reading.size(); }

    static MemoryStream& of(thandle_t handle) { return *static_cast<MemoryStream*>(handle); }

    static tmsize_t read(thandle_t handle, void* out, tmsize_t wanted) {
        MemoryStream& s = of(handle);
        const auto n =
            s.at < s.size() ? std::min<toff_t>(static_cast<toff_t>(wanted), s.size() - s.at) : 0;
        const std::uint8_t* from = s.writes ? s.writing.data() : s.reading.data();
        if (n > 0)
            std::memcpy(out, from + s.at, n);
        s.at += n;
        return static_cast<tmsize_t>(n);
    }
    static tmsize_t write(thandle_t handle, void* data, tmsize_t size) {
        MemoryStream& s = of(handle);
        const auto n = static_cast<toff_t>(size);
        if (!s.writes)
            return -1;
        try {
            if (s.at + n > s.writing.size())
                s.writing.resize(s.at + n);
        } catch (const std::bad_alloc&) {
            return -1; // libtiff's frames know nothing of exceptions
        }
        std::memcpy(s.writing.data() + s.at, data, n);
        s.at += n;
        return size;
    }
    static toff_t seek(thandle_t handle, toff_t offset, int whence) {
        MemoryStream& s = of(handle);
        s.at = whence == SEEK_CUR ? s.at + offset : whence == SEEK_END ? s.size() + offset : offset;
        return s.at;
    }
    static int close(thandle_t) { return 0; }
    static toff_t sizeOf(thandle_t handle) { return of(handle).size(); }
    static int map(thandle_t, void**, toff_t*) { return 0; }
    static void unmap(thandle_t, void*, toff_t) {}

    static int onError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
        auto& s = *static_cast<MemoryStream*>(user);
        if (s.error[0] == '\0') // the first says most
            std::vsnprintf(s.error, sizeof s.error, format, arguments);
        return 1;
    }
    static int onWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }
};

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, CloseTiff>;

Tiff open(MemoryStream& stream, const char* mode) {
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(
        TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), MemoryStream::onError, &stream);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), MemoryStream::onWarning, &stream);
    TIFFOpenOptionsSetMaxSingleMemAlloc(
        options.get(), static_cast<tmsize_t>(
                           std::min<std::uint64_t>(availableMemory() / 2, std::uint64_t{1} << 40)));
    return Tiff(TIFFClientOpenExt("", mode, &stream, MemoryStream::read, MemoryStream::write,
                                  MemoryStream::seek, MemoryStream::close, MemoryStream::sizeOf,
                                  MemoryStream::map, MemoryStream::unmap, options.get()));
}

template <class Value>
Value fieldOf(TIFF* tiff, std::uint32_t tag, Value otherwise) {
    Value value = otherwise;
    return TIFFGetFieldDefaulted(tiff, tag, &value) != 0 ? value : otherwise;
}

/// The first page's layout.
struct Layout {
    explicit Layout(TIFF* tiff)
        : width(fieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0)),
          height(fieldOf<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0)),
          channels(fieldOf<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1)),
          bits(fieldOf<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1)),
          kind(fieldOf<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT)),
          colours(fieldOf<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK)),
          compression(fieldOf<std::uint16_t>(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE)),
          apart(fieldOf<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) ==
                PLANARCONFIG_SEPARATE) {
        std::uint16_t* extras = nullptr;
        std::uint16_t count = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &extras);
        extraSamples.assign(extras, extras + count);
    }

    int colourChannels() const { return channels - static_cast<int>(extraSamples.size()); }
    /// Few bits, palettes and subsampled colour go through libtiff's own conversion to 8-bit RGB.
    bool wantsConversion() const {
        return bits < 8 || colours == PHOTOMETRIC_PALETTE ||
               (colours == PHOTOMETRIC_YCBCR && compression != COMPRESSION_JPEG);
    }

    std::uint32_t width, height;
    std::uint16_t channels, bits, kind, colours, compression;
    bool apart;
    std::vector<std::uint16_t> extraSamples;
};

void checkKind(const Layout& layout) {
    if (layout.colours == PHOTOMETRIC_SEPARATED)
        throw CodecError("is a CMYK image; convert it to RGB first");
    constexpr std::uint16_t known[] = {PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_MINISWHITE,
                                       PHOTOMETRIC_RGB, PHOTOMETRIC_PALETTE, PHOTOMETRIC_YCBCR};
    if (std::ranges::find(known, layout.colours) == std::end(known))
        throw CodecError("holds no RGB or grey colours (photometric interpretation " +
                         std::to_string(layout.colours) + ")");
    if (layout.kind != SAMPLEFORMAT_UINT && layout.kind != SAMPLEFORMAT_VOID)
        throw CodecError(layout.kind == SAMPLEFORMAT_IEEEFP
                             ? "has floating-point samples; save it with 16 bits first"
                             : "has signed or complex samples; save it with 16 bits first");
    if (layout.bits != 16 && layout.bits > 8)
        throw CodecError("has " + std::to_string(layout.bits) +
                         " bits a sample; only 8 and 16 are known");
    const int colours = layout.colourChannels();
    if (layout.extraSamples.size() > 1 || (colours != 1 && colours != 3))
        throw CodecError("has " + std::to_string(layout.channels) +
                         " channels; only grey and RGB are known, each with or without alpha");
}

/// Pages would be lost; smaller copies of the picture would stay noisy and are left out.
void checkPages(TIFF* tiff, Photo& photo) {
    const auto isReduced = [&] {
        return (fieldOf<std::uint32_t>(tiff, TIFFTAG_SUBFILETYPE, 0) & FILETYPE_REDUCEDIMAGE) != 0;
    };
    std::uint16_t count = 0;
    std::uint8_t* version = nullptr;
    std::uint64_t* offsets = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_DNGVERSION, &version) != 0 || isReduced())
        throw CodecError("is a raw file; develop it first");
    std::vector<std::uint64_t> below;
    if (TIFFGetField(tiff, TIFFTAG_SUBIFD, &count, &offsets) != 0)
        below.assign(offsets, offsets + count);
    bool previews = !below.empty();
    int pages = 1;
    constexpr int enough = 1000;
    while (pages < enough && TIFFReadDirectory(tiff) != 0) {
        previews = previews || isReduced();
        pages += isReduced() ? 0 : 1;
    }
    for (const std::uint64_t offset : below)
        pages += TIFFSetSubDirectory(tiff, offset) != 0 && !isReduced() ? 1 : 0;
    if (pages > 1)
        throw CodecError("holds " + std::to_string(pages) +
                         " pages; only files of one picture are denoised");
    if (previews)
        photo.remarks.push_back("its smaller previews");
    TIFFSetDirectory(tiff, 0);
}

/// Strips or tiles, one buffer at a time, each sample handed to `put(x, y, channel, sample)`.
template <class Sample, class Put>
bool readPieces(TIFF* tiff, const Layout& layout, const Put& put) {
    const bool tiled = TIFFIsTiled(tiff) != 0;
    const auto side = [&](std::uint32_t tag, std::uint32_t otherwise) {
        return fieldOf<std::uint32_t>(tiff, tag, otherwise);
    };
    const std::uint32_t pieceWidth = tiled ? side(TIFFTAG_TILEWIDTH, 0) : layout.width;
    const std::uint32_t pieceHeight =
        tiled ? side(TIFFTAG_TILELENGTH, 0)
              : std::min(side(TIFFTAG_ROWSPERSTRIP, layout.height), layout.height);
    const tmsize_t bytes = tiled ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
    const std::uint32_t together = layout.apart ? 1u : layout.channels;
    if (pieceWidth == 0 || pieceHeight == 0 || bytes <= 0 ||
        static_cast<std::uint64_t>(bytes) <
            std::uint64_t{pieceWidth} * pieceHeight * together * sizeof(Sample))
        return false;
    if (static_cast<std::uint64_t>(bytes) > availableMemory() / 2)
        throw CodecError("is coded in pieces larger than this machine's memory");
    std::vector<Sample> piece(static_cast<std::size_t>(bytes) / sizeof(Sample) + 1);
    const std::uint32_t planes = layout.apart ? layout.channels : 1u;
    std::uint32_t number = 0;
    for (std::uint32_t plane = 0; plane < planes; ++plane)
        for (std::uint32_t top = 0; top < layout.height; top += pieceHeight)
            for (std::uint32_t left = 0; left < layout.width; left += pieceWidth, ++number) {
                const std::uint32_t rows = std::min(pieceHeight, layout.height - top);
                const std::uint32_t columns = std::min(pieceWidth, layout.width - left);
                const tmsize_t got = tiled
                                         ? TIFFReadEncodedTile(tiff, number, piece.data(), bytes)
                                         : TIFFReadEncodedStrip(tiff, number, piece.data(), bytes);
                const std::uint64_t needed =
                    (std::uint64_t{rows - 1} * pieceWidth + columns) * together * sizeof(Sample);
                if (got < 0 || static_cast<std::uint64_t>(got) < needed)
                    return false;
                for (std::uint32_t y = 0; y < rows; ++y) {
                    const Sample* in = &piece[std::size_t{y} * pieceWidth * together];
                    for (std::uint32_t x = 0; x < columns; ++x)
                        for (std::uint32_t c = 0; c < together; ++c)
                            put(left + x, top + y, layout.apart ? plane : c, *in++);
                }
            }
    return true;
}

template <class Sample>
bool readSamples(TIFF* tiff, const Layout& layout, Photo& photo) {
    const auto colours = static_cast<std::uint32_t>(photo.channels);
    const bool inverted = layout.colours == PHOTOMETRIC_MINISWHITE;
    const std::uint32_t white = photo.white();
    return readPieces<Sample>(
        tiff, layout, [&](std::uint32_t x, std::uint32_t y, std::uint32_t c, Sample sample) {
            const std::size_t pixel = std::size_t{y} * layout.width + x;
            if (c < colours)
                photo.samples[pixel * colours + c] =
                    static_cast<std::uint16_t>(inverted ? white - sample : sample);
            else
                photo.alpha[pixel] = sample;
        });
}

bool readConverted(TIFF* tiff, Photo& photo) {
    char problem[1024] = "";
    TIFFRGBAImage image{};
    if (TIFFRGBAImageOK(tiff, problem) == 0 || TIFFRGBAImageBegin(&image, tiff, 1, problem) == 0)
        throw CodecError(std::string("can't be read: ") + problem);
    const std::unique_ptr<TIFFRGBAImage, decltype(&TIFFRGBAImageEnd)> end(&image,
                                                                          &TIFFRGBAImageEnd);
    image.req_orientation = image.orientation; // pixels are not turned
    std::vector<std::uint32_t> raster(static_cast<std::size_t>(photo.pixels()));
    if (TIFFRGBAImageGet(&image, raster.data(), static_cast<std::uint32_t>(photo.width),
                         static_cast<std::uint32_t>(photo.height)) == 0)
        return false;
    std::uint16_t* out = photo.samples.data();
    for (const std::uint32_t pixel : raster) {
        const std::uint32_t rgb[] = {TIFFGetR(pixel), TIFFGetG(pixel), TIFFGetB(pixel)};
        for (int c = 0; c < photo.channels; ++c)
            *out++ = static_cast<std::uint16_t>(rgb[c]);
    }
    return true;
}

void takeFields(TIFF* tiff, Metadata& metadata) {
    std::uint32_t size = 0;
    void* data = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &data) != 0) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        metadata.icc.assign(bytes, bytes + size);
    }
    float x = 0.0f, y = 0.0f;
    if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) != 0 &&
        TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y) != 0 && x > 0.0f && y > 0.0f) {
        const auto unit = fieldOf<std::uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        metadata.density = {static_cast<double>(x), static_cast<double>(y),
                            unit == RESUNIT_INCH         ? Density::Unit::inch
                            : unit == RESUNIT_CENTIMETER ? Density::Unit::centimetre
                                                         : Density::Unit::none};
    }
    metadata.orientation = fieldOf<std::uint16_t>(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (TIFFGetField(tiff, TIFFTAG_IMAGESOURCEDATA, &size, &data) != 0)
        metadata.extras.push_back({photoshopLayers, {}, true});
}

Photo decodeTiff(std::span<const std::uint8_t> bytes, Depth depth) {
    MemoryStream stream{.reading = bytes};
    const Tiff tiff = open(stream, "r");
    if (!tiff)
        throw CodecError(std::string("is damaged: ") + stream.error);
    Photo photo;
    checkPages(tiff.get(), photo);
    const Layout layout(tiff.get());
    checkKind(layout);
    checkSize(layout.width, layout.height, layout.channels, bytes.size());
    photo.width = static_cast<std::int32_t>(layout.width);
    photo.height = static_cast<std::int32_t>(layout.height);
    photo.bits = layout.bits == 16 ? 16 : 8;
    const bool grey =
        layout.colours == PHOTOMETRIC_MINISBLACK || layout.colours == PHOTOMETRIC_MINISWHITE;
    photo.channels = grey ? 1 : 3;
    photo.coding.format = "tiff";
    photo.coding.tiffCompression = layout.compression;
    photo.coding.lossless = layout.compression != COMPRESSION_JPEG;
    if (depth == Depth::header)
        return photo;

    const auto pixels = static_cast<std::size_t>(photo.pixels());
    photo.samples.resize(pixels * static_cast<std::size_t>(photo.channels));
    if (layout.colours == PHOTOMETRIC_YCBCR && layout.compression == COMPRESSION_JPEG)
        TIFFSetField(tiff.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    if (!layout.extraSamples.empty() && !layout.wantsConversion()) {
        photo.alpha.resize(pixels);
        photo.premultiplied = layout.extraSamples[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    stream.error[0] = '\0'; // what was said of tags that it doesn't know is no damage
    const bool whole = layout.wantsConversion() ? readConverted(tiff.get(), photo)
                       : layout.bits == 16 ? readSamples<std::uint16_t>(tiff.get(), layout, photo)
                                           : readSamples<std::uint8_t>(tiff.get(), layout, photo);
    if (!whole || stream.error[0] != '\0')
        throw CodecError(std::string("is damaged or cut short: ") + stream.error);
    takeFields(tiff.get(), photo.metadata);
    takeTiffMetadata(bytes, photo);
    return photo;
}

/// Lossless, and as the source when that was.
std::uint16_t compressionFor(const Coding& coding) {
    const auto old = static_cast<std::uint16_t>(coding.tiffCompression);
    constexpr std::uint16_t kept[] = {COMPRESSION_NONE,     COMPRESSION_LZW,
                                      COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE,
                                      COMPRESSION_ZSTD,     COMPRESSION_LZMA};
    const bool known = coding.format == "tiff" && std::ranges::find(kept, old) != std::end(kept) &&
                       TIFFIsCODECConfigured(old) != 0;
    return known ? old : std::uint16_t{COMPRESSION_ADOBE_DEFLATE};
}

template <class Sample>
bool writeRows(TIFF* tiff, const Photo& photo) {
    const auto width = static_cast<std::size_t>(photo.width);
    const auto colours = static_cast<std::size_t>(photo.channels);
    std::vector<Sample> row(width * (colours + (photo.alpha.empty() ? 0 : 1)));
    for (std::size_t y = 0; y < static_cast<std::size_t>(photo.height); ++y) {
        Sample* out = row.data();
        for (std::size_t i = y * width; i < (y + 1) * width; ++i) {
            for (std::size_t c = 0; c < colours; ++c)
                *out++ = static_cast<Sample>(photo.samples[i * colours + c]);
            if (!photo.alpha.empty())
                *out++ = static_cast<Sample>(photo.alpha[i]);
        }
        if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) < 0)
            return false;
    }
    return true;
}

Coded encodeTiff(const Photo& photo, int) {
    const Metadata& metadata = photo.metadata;
    Coded coded{.bits = photo.bits};
    MemoryStream stream{.writes = true};
    Tiff tiff = open(stream, "w");
    if (!tiff)
        throw CodecError(stream.error);
    const auto set = [&](std::uint32_t tag, auto... values) {
        TIFFSetField(tiff.get(), tag, values...);
    };
    const std::uint16_t compression = compressionFor(photo.coding);
    set(TIFFTAG_IMAGEWIDTH, photo.width);
    set(TIFFTAG_IMAGELENGTH, photo.height);
    set(TIFFTAG_BITSPERSAMPLE, photo.bits);
    set(TIFFTAG_SAMPLESPERPIXEL, photo.channels + (photo.alpha.empty() ? 0 : 1));
    set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    set(TIFFTAG_PHOTOMETRIC, photo.channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    set(TIFFTAG_COMPRESSION, compression);
    if (compression != COMPRESSION_NONE && compression != COMPRESSION_PACKBITS)
        set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (!photo.alpha.empty()) {
        const std::uint16_t kind =
            photo.premultiplied ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
        set(TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
    constexpr tmsize_t stripBytes = 1 << 18;
    set(TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(std::max(
                                  stripBytes / TIFFScanlineSize(tiff.get()), tmsize_t{1})));
    set(TIFFTAG_ORIENTATION, metadata.orientation);
    if (metadata.density) {
        const auto unit = metadata.density->unit;
        set(TIFFTAG_XRESOLUTION, metadata.density->x);
        set(TIFFTAG_YRESOLUTION, metadata.density->y);
        set(TIFFTAG_RESOLUTIONUNIT, unit == Density::Unit::inch         ? RESUNIT_INCH
                                    : unit == Density::Unit::centimetre ? RESUNIT_CENTIMETER
                                                                        : RESUNIT_NONE);
    }
    if (!metadata.icc.empty())
        set(TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(metadata.icc.size()),
            metadata.icc.data());
    for (const Extra& extra : metadata.extras)
        if (extra.name == photoshopLayers)
            coded.lost.push_back(photoshopLayers);
    const bool written = photo.bits == 16 ? writeRows<std::uint16_t>(tiff.get(), photo)
                                          : writeRows<std::uint8_t>(tiff.get(), photo);
    const bool finished = written && TIFFFlush(tiff.get()) != 0;
    tiff.reset();
    if (!finished || stream.error[0] != '\0')
        throw CodecError(stream.error[0] != '\0' ? stream.error : "it failed");
    coded.bytes = withTiffMetadata(std::move(stream.writing), metadata, coded.lost);
    return coded;
}

constexpr const char* extensions[] = {"tif", "tiff"};

} // namespace

const FileFormat tiffFormat{
    .name = "tiff",
    .extensions = extensions,
    .isIn =
        [](std::span<const std::uint8_t> bytes) {
            constexpr const char* starts[] = {"II*\0", "MM\0*", "II+\0", "MM\0+"};
            return bytes.size() >= 8 && std::ranges::any_of(starts, [&](const char* start) {
                       return std::memcmp(bytes.data(), start, 4) == 0;
                   });
        },
    .holdsAlpha = true,
    .holdsPremultiplied = true,
    .holdsIptc = true,
    .holdsTexts = false,
    .holdsDensity = true,
    .largestSide = 0x7FFFFFFF,
    .bitsFor = [](std::int32_t bits) { return std::int32_t{bits > 8 ? 16 : 8}; },
    .decode = decodeTiff,
    .encode = encodeTiff};

} // namespace kt7::tool
