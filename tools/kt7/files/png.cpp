// PNG, by libpng.
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/guarded.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/metadata.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <png.h>

namespace kt7::tool {
namespace {

constexpr const char* xmpKeyword = "XML:com.adobe.xmp";
constexpr std::string_view rawProfile = "Raw profile type ";
constexpr const char* srgbChunk = "sRGB";
constexpr const char* gammaChunk = "gAMA";
constexpr const char* primariesChunk = "cHRM";
constexpr const char* codePointsChunk = "cICP";

/// What libpng's callbacks need.
struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::jmp_buf jump;
    char error[200] = "";
    char warning[200] = "";
    std::span<const std::uint8_t> unread;
    Bytes written;
    std::size_t held = 0; ///< bytes that libpng holds
    std::size_t most = ~std::size_t{0};
    bool refused = false;                           ///< it asked for more than that
    int patience = std::numeric_limits<int>::max(); ///< with warnings

    [[noreturn]] void fail(const char* text) {
        std::snprintf(error, sizeof error, "%s", text);
        std::longjmp(jump, 1);
    }
    template <class Body>
    void run(const Body& body) {
        if (!guarded(jump, body))
            throw CodecError(error);
    }
};

Session& sessionOf(png_structp png) {
    return *static_cast<Session*>(png_get_error_ptr(png));
}

[[noreturn]] void onError(png_structp png, png_const_charp text) {
    sessionOf(png).fail(text);
}

/// Past its limits libpng goes on and unpacks each further chunk for nothing, as it does with chunks
/// that are damaged.
void onWarning(png_structp png, png_const_charp text) {
    Session& session = sessionOf(png);
    if (session.refused || std::strstr(text, "chunk cache") != nullptr)
        session.fail("has more metadata than a photo needs");
    if (--session.patience < 0)
        session.fail("has too many parts that are damaged or too large");
    if (session.warning[0] == '\0')
        std::snprintf(session.warning, sizeof session.warning, "%s", text);
}

constexpr std::size_t blockHeader = alignof(std::max_align_t);

/// Keeps count, so that many small chunks can't unpack into all of the memory.
png_voidp allocate(png_structp png, png_alloc_size_t size) {
    auto& session = *static_cast<Session*>(png_get_mem_ptr(png));
    session.refused = size > session.most || session.held > session.most - size;
    if (session.refused)
        return nullptr;
    auto* const block = static_cast<std::uint8_t*>(std::malloc(size + blockHeader));
    if (block == nullptr)
        return nullptr;
    std::memcpy(block, &size, sizeof size);
    session.held += size;
    return block + blockHeader;
}

void release(png_structp png, png_voidp memory) {
    if (memory == nullptr)
        return;
    auto* const block = static_cast<std::uint8_t*>(memory) - blockHeader;
    png_alloc_size_t size = 0;
    std::memcpy(&size, block, sizeof size);
    static_cast<Session*>(png_get_mem_ptr(png))->held -= size;
    std::free(block);
}

struct Reader : Session {
    Reader() {
        png = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, static_cast<Session*>(this), onError,
                                       onWarning, static_cast<Session*>(this), allocate, release);
        info = png != nullptr ? png_create_info_struct(png) : nullptr;
        if (info == nullptr)
            throw std::bad_alloc();
    }
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
};

struct Writer : Session {
    Writer() {
        png = png_create_write_struct(PNG_LIBPNG_VER_STRING, static_cast<Session*>(this), onError,
                                      onWarning);
        info = png != nullptr ? png_create_info_struct(png) : nullptr;
        if (info == nullptr)
            throw std::bad_alloc();
    }
    ~Writer() { png_destroy_write_struct(&png, &info); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
};

/// The way in which older programs keep blocks in texts: a name, a length, hexadecimal digits.
Bytes bytesOfRawProfile(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto skip = [&](std::string_view what) {
        text.remove_prefix(std::min(text.find_first_not_of(what), text.size()));
    };
    const auto skipTo = [&](std::string_view what) {
        text.remove_prefix(std::min(text.find_first_of(what), text.size()));
    };
    skip(blanks);
    skipTo("\n"); // the name may be several words
    skip(blanks);
    skipTo(blanks);
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        if (blanks.find(c) != std::string_view::npos)
            continue;
        digits += c;
        std::uint8_t byte = 0;
        if (digits.size() < 2)
            continue;
        if (std::from_chars(digits.data(), digits.data() + 2, byte, 16).ptr != digits.data() + 2)
            return {};
        bytes.push_back(byte);
        digits.clear();
    }
    return bytes;
}

std::string rawProfileOf(const char* name, const Bytes& bytes) {
    constexpr const char* digits = "0123456789abcdef";
    constexpr std::size_t bytesInLine = 36;
    std::string text = std::string("\n") + name + "\n" + std::to_string(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % bytesInLine == 0)
            text += '\n';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text + '\n';
}

void takeRawProfile(std::string_view kind, const Bytes& bytes, Metadata& metadata) {
    const auto startsWith = [&](std::string_view start) {
        return bytes.size() >= start.size() &&
               std::memcmp(bytes.data(), start.data(), start.size()) == 0;
    };
    constexpr std::string_view xmpStart{"http://ns.adobe.com/xap/1.0/\0", 29};
    if (kind == "iptc" || kind == "8bim")
        takeResources(bytes, metadata);
    else if (kind == "xmp" && metadata.xmp.empty())
        metadata.xmp = bytes;
    else if (startsWith(xmpStart) && metadata.xmp.empty())
        metadata.xmp.assign(bytes.begin() + xmpStart.size(), bytes.end());
    else if ((kind == "exif" || kind == "APP1") && metadata.exif.empty())
        metadata.exif = bytes; // with or without the prefix of JPEG
}

void takeTexts(Session& session, Metadata& metadata) {
    png_textp texts = nullptr;
    const int count = png_get_text(session.png, session.info, &texts, nullptr);
    for (int i = 0; i < count; ++i) {
        const png_text& text = texts[i];
        const bool international = text.compression > 0;
        const std::string_view keyword = text.key;
        const std::string_view value(text.text,
                                     international ? text.itxt_length : text.text_length);
        if (keyword == xmpKeyword)
            metadata.xmp.assign(value.begin(), value.end());
        else if (keyword.starts_with(rawProfile))
            takeRawProfile(keyword.substr(rawProfile.size()), bytesOfRawProfile(value), metadata);
        else
            metadata.texts.push_back({std::string(keyword), std::string(value),
                                      international && text.lang != nullptr ? text.lang : ""});
    }
}

template <class Value>
void keepValues(Metadata& metadata, const char* name, const std::vector<Value>& values) {
    Bytes bytes(values.size() * sizeof(Value));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    metadata.extras.push_back({name, std::move(bytes), std::string_view(name) != srgbChunk});
}

/// How colours are meant, where no profile says it.
void takeColours(Session& session, Metadata& metadata) {
    png_struct* const png = session.png;
    png_info* const info = session.info;
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 size = 0;
    int number = 0;
    if (png_get_iCCP(png, info, &name, &number, &profile, &size) != 0) {
        metadata.icc.assign(profile, profile + size);
        return;
    }
    if (png_get_sRGB(png, info, &number) != 0)
        return keepValues<int>(metadata, srgbChunk, {number});
    double c[8] = {};
    constexpr double srgbGamma = 0.45455, tolerance = 1e-3;
    if (png_get_gAMA(png, info, c) != 0) {
        keepValues<double>(metadata, gammaChunk, {c[0]});
        metadata.extras.back().said = std::abs(c[0] - srgbGamma) > tolerance;
    }
    if (png_get_cHRM(png, info, c, c + 1, c + 2, c + 3, c + 4, c + 5, c + 6, c + 7) != 0) {
        keepValues<double>(metadata, primariesChunk, {c, c + 8});
        constexpr double srgbRedX = 0.64, srgbGreenX = 0.30;
        metadata.extras.back().said =
            std::abs(c[2] - srgbRedX) > tolerance || std::abs(c[4] - srgbGreenX) > tolerance;
    }
}

void takeMetadata(Session& session, Photo& photo) {
    png_struct* const png = session.png;
    png_info* const info = session.info;
    Metadata& metadata = photo.metadata;
    metadata.orientation = 0;
    png_bytep exif = nullptr;
    png_uint_32 size = 0;
    if (png_get_eXIf_1(png, info, &size, &exif) != 0)
        metadata.exif.assign(exif, exif + size);
    takeTexts(session, metadata);
    png_uint_32 x = 0, y = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (png_get_pHYs(png, info, &x, &y, &unit) != 0 && x > 0 && y > 0) {
        const bool metres = unit == PNG_RESOLUTION_METER;
        constexpr double centimetres = 100.0;
        metadata.density = {x / (metres ? centimetres : 1.0), y / (metres ? centimetres : 1.0),
                            metres ? Density::Unit::centimetre : Density::Unit::none};
    }
    png_unknown_chunkp chunks = nullptr;
    const int count = png_get_unknown_chunks(png, info, &chunks);
    for (int i = 0; i < count; ++i) {
        const auto* name = reinterpret_cast<const char*>(chunks[i].name);
        const std::span<const png_byte> data(chunks[i].data, chunks[i].size);
        // One of a single frame, too: that may be another picture than the one to be seen.
        if (std::strcmp(name, "acTL") == 0)
            throw CodecError("is an animation; only single pictures are denoised");
        if (std::strcmp(name, codePointsChunk) == 0)
            metadata.extras.push_back({codePointsChunk, {data.begin(), data.end()}, true});
    }
}

void setLimits(Session& session) {
    constexpr png_uint_32 mostChunks = 1000, mostInChunk = 8 << 20, mostSide = 0x7FFFFFFF;
    png_set_user_limits(session.png, mostSide, mostSide); // checkSize looks at the whole
    png_set_chunk_cache_max(session.png, mostChunks);
    png_set_chunk_malloc_max(session.png, mostInChunk);
    session.most = mostMetadataBytes;
    session.patience = 16;
    png_set_benign_errors(session.png, 1);
    constexpr png_byte kept[] = "acTL\0cICP";
    png_set_keep_unknown_chunks(session.png, PNG_HANDLE_CHUNK_ALWAYS, kept, 2);
}

Photo decodePng(std::span<const std::uint8_t> bytes, Depth depth) {
    Photo photo;
    Reader reader;
    png_struct* const png = reader.png;
    png_info* const info = reader.info;
    reader.unread = bytes;
    setLimits(reader);
    png_set_read_fn(png, static_cast<Session*>(&reader),
                    [](png_structp p, png_bytep out, std::size_t size) {
                        Session& session = sessionOf(p);
                        if (size > session.unread.size())
                            session.fail("is damaged or cut short: its end is missing");
                        std::memcpy(out, session.unread.data(), size);
                        session.unread = session.unread.subspan(size);
                    });
    const auto read = [&](const auto& body) {
        if (!guarded(reader.jump, body)) {
            const std::string_view text = reader.error;
            throw CodecError(
                (text.starts_with("is ") || text.starts_with("has ") ? "" : "is damaged: ") +
                std::string(text));
        }
    };
    read([&] { png_read_info(png, info); });
    const int type = png_get_color_type(png, info);
    const bool alpha =
        (type & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    photo.channels = (type & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
    photo.bits = png_get_bit_depth(png, info) == 16 ? 16 : 8;
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    checkSize(width, height, photo.channels + (alpha ? 1 : 0), bytes.size());
    photo.width = static_cast<std::int32_t>(width);
    photo.height = static_cast<std::int32_t>(height);
    photo.coding.format = "png";
    if (depth == Depth::header)
        return photo;

    const std::size_t colours = static_cast<std::size_t>(photo.channels);
    const std::size_t channels = colours + (alpha ? 1 : 0);
    const std::size_t rowBytes = width * channels * (photo.bits == 16 ? 2 : 1);
    Bytes image(rowBytes * height);
    reader.most += 16 * rowBytes; // rows of libpng's own
    read([&] {
        png_set_expand(png);
        if (photo.bits == 16 && std::endian::native == std::endian::little)
            png_set_swap(png);
        const int passes = png_set_interlace_handling(png);
        png_read_update_info(png, info);
        if (png_get_rowbytes(png, info) != rowBytes)
            png_error(png, "rows of an unexpected size");
        for (int pass = 0; pass < passes; ++pass)
            for (png_uint_32 y = 0; y < height; ++y)
                png_read_row(png, image.data() + y * rowBytes, nullptr);
        png_read_end(png, info);
    });
    // What libpng has left out is not left out unsaid.
    if (reader.warning[0] != '\0')
        photo.remarks.push_back(std::string("a damaged part (") + reader.warning + ")");
    takeMetadata(reader, photo);
    takeColours(reader, photo.metadata);

    const auto pixels = static_cast<std::size_t>(photo.pixels());
    photo.samples.resize(pixels * colours);
    photo.alpha.resize(alpha ? pixels : 0);
    const auto split = [&](const auto* in) {
        for (std::size_t i = 0; i < pixels; ++i) {
            for (std::size_t c = 0; c < colours; ++c)
                photo.samples[i * colours + c] = *in++;
            if (alpha)
                photo.alpha[i] = *in++;
        }
    };
    if (photo.bits == 16)
        split(reinterpret_cast<const std::uint16_t*>(image.data()));
    else
        split(image.data());
    return photo;
}

/// Texts on their way to libpng, which wants addresses.
std::vector<png_text> textsFor(std::vector<Text>& texts) {
    std::vector<png_text> list;
    for (Text& text : texts) {
        constexpr std::size_t longEnoughToPack = 1024;
        const bool ascii = std::ranges::all_of(text.text, [](char c) { return (c & 0x80) == 0; });
        const bool international = text.keyword == xmpKeyword || !text.language.empty() || !ascii;
        const bool packed = text.text.size() > longEnoughToPack && text.keyword != xmpKeyword;
        png_text item{};
        item.compression = international
                               ? (packed ? PNG_ITXT_COMPRESSION_zTXt : PNG_ITXT_COMPRESSION_NONE)
                               : (packed ? PNG_TEXT_COMPRESSION_zTXt : PNG_TEXT_COMPRESSION_NONE);
        item.key = text.keyword.data();
        item.text = text.text.data();
        (international ? item.itxt_length : item.text_length) = text.text.size();
        item.lang = text.language.data();
        item.lang_key = const_cast<char*>("");
        list.push_back(item);
    }
    return list;
}

template <class Value>
std::vector<Value> keptValues(const Metadata& metadata, const char* name) {
    for (const Extra& extra : metadata.extras)
        if (extra.name == name) {
            std::vector<Value> values(extra.bytes.size() / sizeof(Value));
            std::memcpy(values.data(), extra.bytes.data(), values.size() * sizeof(Value));
            return values;
        }
    return {};
}

/// Colour chunks with their values at hand, as libpng may jump out of setting them.
struct Colours {
    explicit Colours(const Metadata& metadata)
        : profile(metadata.icc), intent(keptValues<int>(metadata, srgbChunk)),
          gamma(keptValues<double>(metadata, gammaChunk)),
          primaries(keptValues<double>(metadata, primariesChunk)),
          codePoints(keptValues<png_byte>(metadata, codePointsChunk)) {}

    void set(png_structp png, png_infop info) const {
        if (!profile.empty())
            return png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, profile.data(),
                                static_cast<png_uint_32>(profile.size()));
        if (!intent.empty())
            png_set_sRGB(png, info, intent[0]);
        if (!gamma.empty())
            png_set_gAMA(png, info, gamma[0]);
        if (const auto& c = primaries; !c.empty())
            png_set_cHRM(png, info, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]);
        if (codePoints.empty())
            return;
        png_unknown_chunk chunk{};
        std::memcpy(chunk.name, codePointsChunk, 4);
        chunk.data = const_cast<png_byte*>(codePoints.data());
        chunk.size = codePoints.size();
        chunk.location = PNG_HAVE_IHDR;
        png_set_unknown_chunks(png, info, &chunk, 1);
    }

    const Bytes& profile;
    std::vector<int> intent;
    std::vector<double> gamma, primaries;
    std::vector<png_byte> codePoints;
};

void setDensity(Session& session, const Density& density) {
    const bool metres = density.unit != Density::Unit::none;
    constexpr double inchesInMetre = 1.0 / 0.0254;
    const double scale = density.unit == Density::Unit::inch ? inchesInMetre : metres ? 100.0 : 1.0;
    const auto whole = [&](double v) {
        return static_cast<png_uint_32>(std::clamp(v * scale + 0.5, 1.0, 2e9));
    };
    png_set_pHYs(session.png, session.info, whole(density.x), whole(density.y),
                 metres ? PNG_RESOLUTION_METER : PNG_RESOLUTION_UNKNOWN);
}

Coded encodePng(const Photo& photo, int) {
    const Metadata& metadata = photo.metadata;
    Coded coded{.bits = photo.bits};
    std::vector<Text> texts = metadata.texts;
    if (!metadata.xmp.empty())
        texts.push_back({xmpKeyword, {metadata.xmp.begin(), metadata.xmp.end()}});
    if (!metadata.iptc.empty())
        texts.push_back(
            {std::string(rawProfile) + "iptc", rawProfileOf("iptc", resourcesOf(metadata))});
    std::vector<png_text> items = textsFor(texts);
    Bytes exif = metadata.exif;

    Writer writer;
    png_struct* const png = writer.png;
    png_info* const info = writer.info;
    const bool alpha = !photo.alpha.empty();
    const std::size_t colours = static_cast<std::size_t>(photo.channels);
    const std::size_t channels = colours + (alpha ? 1 : 0);
    const auto width = static_cast<std::size_t>(photo.width);
    std::vector<std::uint16_t> wide(width * channels);
    Bytes narrow(photo.bits == 8 ? wide.size() : 0);
    png_set_write_fn(
        png, static_cast<Session*>(&writer),
        [](png_structp p, png_bytep data, std::size_t size) {
            Session& session = sessionOf(p);
            bool done = true;
            try {
                session.written.insert(session.written.end(), data, data + size);
            } catch (const std::bad_alloc&) {
                done = false; // libpng's frames know nothing of exceptions
            }
            if (!done)
                session.fail("not enough memory");
        },
        nullptr);
    writer.run([&] {
        png_set_user_limits(png, 0x7FFFFFFF, 0x7FFFFFFF);
        png_set_IHDR(png, info, static_cast<png_uint_32>(photo.width),
                     static_cast<png_uint_32>(photo.height), photo.bits,
                     (colours == 3 ? PNG_COLOR_MASK_COLOR : 0) | (alpha ? PNG_COLOR_MASK_ALPHA : 0),
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        if (!exif.empty())
            png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
        if (metadata.density)
            setDensity(writer, *metadata.density);
        png_set_benign_errors(png, 1);
        png_set_text(png, info, items.data(), static_cast<int>(items.size()));
    });
    // libpng refuses a profile of another colour model, which some cameras' grey pictures have.
    const Colours meant(metadata);
    if (!guarded(writer.jump, [&] { meant.set(png, info); }) ||
        (!metadata.icc.empty() && png_get_valid(png, info, PNG_INFO_iCCP) == 0))
        coded.lost.push_back("its colour profile");
    writer.run([&] {
        png_write_info(png, info);
        if (photo.bits == 16 && std::endian::native == std::endian::little)
            png_set_swap(png);
        for (std::size_t y = 0; y < static_cast<std::size_t>(photo.height); ++y) {
            std::uint16_t* out = wide.data();
            for (std::size_t i = y * width; i < (y + 1) * width; ++i) {
                for (std::size_t c = 0; c < colours; ++c)
                    *out++ = photo.samples[i * colours + c];
                if (alpha)
                    *out++ = photo.alpha[i];
            }
            std::transform(wide.begin(), wide.begin() + static_cast<std::ptrdiff_t>(narrow.size()),
                           narrow.begin(),
                           [](std::uint16_t v) { return static_cast<std::uint8_t>(v); });
            png_write_row(png, photo.bits == 16 ? reinterpret_cast<png_bytep>(wide.data())
                                                : narrow.data());
        }
        png_write_end(png, nullptr); // given the information, it writes Exif once more
    });
    coded.bytes = std::move(writer.written);
    return coded;
}

constexpr const char* extensions[] = {"png"};

} // namespace

const FileFormat pngFormat{
    .name = "png",
    .extensions = extensions,
    .isIn =
        [](std::span<const std::uint8_t> bytes) {
            return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
        },
    .holdsAlpha = true,
    .holdsPremultiplied = false,
    .holdsIptc = true,
    .holdsTexts = true,
    .holdsDensity = true,
    .largestSide = 0x7FFFFFFF,
    .bitsFor = [](std::int32_t bits) { return std::int32_t{bits > 8 ? 16 : 8}; },
    .decode = decodePng,
    .encode = encodePng};

} // namespace kt7::tool
