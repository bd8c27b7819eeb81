// JPEG, by libjpeg-turbo.
#include "tools/kt7/defaults.h"
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/guarded.h"
#include "tools/kt7/files/jpegCoding.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/metadata.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>

#include <jerror.h>

namespace kt7::tool {
namespace {

constexpr int app1 = JPEG_APP0 + 1, app2 = JPEG_APP0 + 2, app13 = JPEG_APP0 + 13;
constexpr std::string_view exifStart{"Exif\0\0", 6};
constexpr std::string_view xmpStart{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view moreXmpStart{"http://ns.adobe.com/xmp/extension/\0", 35};
constexpr std::string_view photoshopStart{"Photoshop 3.0\0", 14};
constexpr std::string_view multiPictureStart{"MPF\0", 4};
constexpr std::size_t mostInSegment = 65533;
constexpr const char* moreXmp = "extended XMP";

/// Errors jump, warnings that mean lost pixels are kept.
struct Errors {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    char text[JMSG_LENGTH_MAX] = "";
    bool damaged = false;
    bool profileDamaged = false;

    static Errors& of(j_common_ptr codec) { return *static_cast<Errors*>(codec->client_data); }

    void install(j_common_ptr codec) {
        codec->err = jpeg_std_error(&manager);
        codec->client_data = this;
        manager.error_exit = [](j_common_ptr c) {
            c->err->format_message(c, of(c).text);
            std::longjmp(of(c).jump, 1);
        };
        manager.output_message = [](j_common_ptr) {};
        manager.emit_message = [](j_common_ptr c, int level) {
            of(c).profileDamaged |= c->err->msg_code == JWRN_BOGUS_ICC;
            if (level >= 0 || of(c).damaged || !meansDamage(c->err->msg_code))
                return;
            of(c).damaged = true;
            c->err->format_message(c, of(c).text);
        };
    }
};

std::string damage(const char* text) {
    return std::string("is damaged or cut short: ") + text;
}

struct Reader {
    jpeg_decompress_struct codec{};
    jpeg_progress_mgr progress{};
    Errors errors;

    Reader() {
        errors.install(reinterpret_cast<j_common_ptr>(&codec));
        codec.client_data = &errors;
        progress.progress_monitor = [](j_common_ptr c) {
            if (reinterpret_cast<j_decompress_ptr>(c)->input_scan_number > mostJpegScans) {
                std::strcpy(Errors::of(c).text, "too many scans");
                std::longjmp(Errors::of(c).jump, 1);
            }
        };
    }
    ~Reader() { jpeg_destroy_decompress(&codec); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    template <class Body>
    void run(const Body& body) {
        if (!guarded(errors.jump, body))
            throw CodecError(damage(errors.text));
    }
};

std::string_view textOf(const jpeg_marker_struct& marker) {
    return {reinterpret_cast<const char*>(marker.data), marker.data_length};
}

Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

void append(Bytes& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

/// True when an index explains what stands behind the picture.
bool takeMarkers(const jpeg_decompress_struct& codec, Photo& photo) {
    Metadata& metadata = photo.metadata;
    metadata.orientation = 0;
    Bytes resources, multiPicture;
    for (const auto* marker = codec.marker_list; marker != nullptr; marker = marker->next) {
        const std::string_view text = textOf(*marker);
        const auto rest = [&](std::string_view start) { return text.substr(start.size()); };
        if (marker->marker == JPEG_COM)
            metadata.texts.push_back({commentKeyword, std::string(text)});
        else if (text.starts_with(exifStart) && metadata.exif.empty())
            metadata.exif = bytesOf(rest(exifStart));
        else if (text.starts_with(xmpStart) && metadata.xmp.empty())
            metadata.xmp = bytesOf(rest(xmpStart));
        else if (text.starts_with(moreXmpStart))
            metadata.extras.push_back({moreXmp, bytesOf(text)});
        else if (text.starts_with(photoshopStart))
            append(resources, rest(photoshopStart));
        else if (text.starts_with(multiPictureStart))
            multiPicture = bytesOf(rest(multiPictureStart));
    }
    takeResources(resources, metadata);
    if (codec.saw_JFIF_marker && (codec.density_unit != 0 || codec.X_density != codec.Y_density))
        metadata.density = {static_cast<double>(codec.X_density),
                            static_cast<double>(codec.Y_density),
                            codec.density_unit == 2   ? Density::Unit::centimetre
                            : codec.density_unit == 1 ? Density::Unit::inch
                                                      : Density::Unit::none};
    return checkMultiPicture(multiPicture, photo);
}

Photo decodeJpeg(std::span<const std::uint8_t> bytes, Depth depth);

bool isAsLarge(std::span<const std::uint8_t> bytes, const Photo& photo) {
    try {
        return decodeJpeg(bytes, Depth::header).pixels() >= photo.pixels();
    } catch (const CodecError&) {
        return false; // bytes that only begin like a picture
    }
}

/// What stands behind the picture without an index that says what it is.
void checkRest(std::span<const std::uint8_t> rest, Photo& photo) {
    constexpr std::uint8_t start[] = {0xFF, 0xD8, 0xFF};
    const auto second = std::search(rest.begin(), rest.end(), std::begin(start), std::end(start));
    const bool begins = second != rest.end();
    if (begins && isAsLarge({second, rest.end()}, photo))
        throw CodecError("holds 2 pictures; only files of one picture are denoised");
    // A few bytes behind the end are padding.
    constexpr std::size_t padding = 4096;
    if (begins || rest.size() > padding)
        photo.remarks.push_back("data behind the picture, such as a film or a preview");
}

Photo decodeJpeg(std::span<const std::uint8_t> bytes, Depth depth) {
    Photo photo;
    Reader reader;
    auto& codec = reader.codec;
    reader.run([&] {
        jpeg_create_decompress(&codec);
        codec.client_data = &reader.errors;
        codec.progress = &reader.progress;
        jpeg_mem_src(&codec, bytes.data(), bytes.size());
        for (const int marker : {JPEG_COM, app1, app2, app13})
            jpeg_save_markers(&codec, marker, 0xFFFF);
        jpeg_read_header(&codec, TRUE);
    });
    if (codec.num_components == 4)
        throw CodecError("is a CMYK image; convert it to RGB first");
    if (codec.num_components != 1 && codec.num_components != 3)
        throw CodecError("has " + std::to_string(codec.num_components) +
                         " channels; only grey and RGB are known");
    checkSize(codec.image_width, codec.image_height, codec.num_components, bytes.size());
    photo.width = static_cast<std::int32_t>(codec.image_width);
    photo.height = static_cast<std::int32_t>(codec.image_height);
    photo.channels = codec.num_components;
    const bool explained = takeMarkers(codec, photo);
    {
        JOCTET* profile = nullptr;
        unsigned int size = 0;
        reader.run([&] { jpeg_read_icc_profile(&codec, &profile, &size); });
        if (profile != nullptr)
            photo.metadata.icc.assign(profile, profile + size);
        std::free(profile);
        if (reader.errors.profileDamaged)
            photo.remarks.push_back(damagedProfile);
    }
    if (depth == Depth::header)
        return photo;

    const std::size_t rowSamples =
        static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(photo.channels);
    std::vector<JSAMPLE> row(rowSamples);
    photo.samples.resize(rowSamples * static_cast<std::size_t>(photo.height));
    reader.run([&] {
        codec.out_color_space = photo.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_start_decompress(&codec);
        std::uint16_t* out = photo.samples.data();
        while (codec.output_scanline < codec.output_height) {
            JSAMPROW rows[] = {row.data()};
            jpeg_read_scanlines(&codec, rows, 1);
            out = std::copy(row.begin(), row.end(), out);
        }
    });
    photo.coding.format = "jpeg";
    photo.coding.lossless = false;
    photo.coding.jpeg = codingOf(codec);
    reader.run([&] { jpeg_finish_decompress(&codec); });
    if (reader.errors.damaged)
        throw CodecError(damage(reader.errors.text));
    if (!explained)
        checkRest(bytes.last(codec.src->bytes_in_buffer), photo);
    return photo;
}

/// IJG's scale of the luma table against the one of their Annex K, turned back into a quality.
int qualityOf(const JpegCoding& coding) {
    const auto& table = coding.tables[static_cast<std::size_t>(coding.components[0].table & 3)];
    constexpr double annexKSum = 3688.0; // of the 64 luma steps at quality 50
    double sum = 0.0;
    for (const std::uint16_t step : table)
        sum += step;
    const double percent = 100.0 * sum / annexKSum;
    const double quality = percent <= 100.0 ? (200.0 - percent) / 2.0 : 5000.0 / percent;
    return static_cast<int>(std::clamp(quality + 0.5, 1.0, 100.0));
}

std::string subsamplingOf(const jpeg_compress_struct& codec) {
    if (codec.num_components < 3)
        return {};
    const auto* c = codec.comp_info;
    const int across = c[0].h_samp_factor / std::max(1, c[1].h_samp_factor);
    const int down = c[0].v_samp_factor / std::max(1, c[1].v_samp_factor);
    if (across == 1)
        return down == 1 ? "4:4:4" : "4:4:0";
    if (across == 4)
        return down == 1 ? "4:1:1" : "4:1:0";
    return down == 1 ? "4:2:2" : "4:2:0";
}

struct Writer {
    jpeg_compress_struct codec{};
    Errors errors;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;

    Writer() { errors.install(reinterpret_cast<j_common_ptr>(&codec)); }
    ~Writer() {
        jpeg_destroy_compress(&codec);
        std::free(bytes);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
};

void setDensity(const Metadata& metadata, jpeg_compress_struct& codec) {
    if (!metadata.density)
        return;
    // Whole numbers of 16 bits are all it holds.
    const Density density = metadata.density->unit == Density::Unit::centimetre
                                ? inInches(*metadata.density)
                                : *metadata.density;
    const auto whole = [](double v) {
        return static_cast<UINT16>(std::clamp(v + 0.5, 1.0, 65535.0));
    };
    codec.density_unit = density.unit == Density::Unit::none ? 0 : 1;
    codec.X_density = whole(density.x);
    codec.Y_density = whole(density.y);
}

struct Segment {
    int marker;
    Bytes bytes;
};

/// In the order in which cameras write them; what is too large for one is lost.
std::vector<Segment> segmentsOf(const Metadata& metadata, std::vector<std::string>& lost) {
    std::vector<Segment> segments;
    const auto add = [&](int marker, std::string_view start, const auto& payload,
                         const char* name) {
        if (start.size() + payload.size() > mostInSegment) {
            lost.push_back(std::string(name) + " (too large)");
            return;
        }
        Bytes bytes(start.begin(), start.end());
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        segments.push_back({marker, std::move(bytes)});
    };
    if (!metadata.exif.empty())
        add(app1, exifStart, metadata.exif, "Exif");
    if (!metadata.xmp.empty())
        add(app1, xmpStart, metadata.xmp, "XMP");
    for (const Extra& extra : metadata.extras)
        if (extra.name == moreXmp)
            add(app1, {}, extra.bytes, moreXmp);
    const Bytes resources = resourcesOf(metadata);
    constexpr std::size_t most = mostInSegment - photoshopStart.size();
    for (std::size_t at = 0; at < resources.size(); at += most)
        add(app13, photoshopStart,
            std::span(resources).subspan(at, std::min(most, resources.size() - at)), "IPTC");
    for (const Text& text : metadata.texts)
        add(JPEG_COM, {}, text.text, "comment");
    return segments;
}

Coded encodeJpeg(const Photo& photo, int quality) {
    const bool like = quality == 0 && photo.coding.format == "jpeg" &&
                      canCodeLike(photo.coding.jpeg, photo.channels);
    Coded coded{.lossless = false};
    Writer writer;
    auto& codec = writer.codec;
    const Bytes& profile = photo.metadata.icc;
    const std::vector<Segment> segments = segmentsOf(photo.metadata, coded.lost);
    const auto rowSamples =
        static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(photo.channels);
    std::vector<JSAMPLE> row(rowSamples);
    const bool done = guarded(writer.errors.jump, [&] {
        jpeg_create_compress(&codec);
        codec.client_data = &writer.errors;
        jpeg_mem_dest(&codec, &writer.bytes, &writer.size);
        codec.image_width = static_cast<JDIMENSION>(photo.width);
        codec.image_height = static_cast<JDIMENSION>(photo.height);
        codec.input_components = photo.channels;
        codec.in_color_space = photo.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&codec);
        codec.optimize_coding = TRUE;
        codec.dct_method = JDCT_ISLOW;
        coded.quality = like           ? qualityOf(photo.coding.jpeg)
                        : quality == 0 ? defaults::lossyQuality
                                       : quality;
        if (like) {
            codeLike(photo.coding.jpeg, codec);
        } else {
            jpeg_set_quality(&codec, coded.quality, TRUE);
            for (int c = 0; c < codec.num_components; ++c)
                codec.comp_info[c].h_samp_factor = codec.comp_info[c].v_samp_factor = 1;
        }
        setDensity(photo.metadata, codec);
        jpeg_start_compress(&codec, TRUE);
        for (const Segment& segment : segments)
            jpeg_write_marker(&codec, segment.marker, segment.bytes.data(),
                              static_cast<unsigned int>(segment.bytes.size()));
        if (!profile.empty())
            jpeg_write_icc_profile(&codec, profile.data(),
                                   static_cast<unsigned int>(profile.size()));
        const std::uint16_t* in = photo.samples.data();
        while (codec.next_scanline < codec.image_height) {
            std::transform(in, in + rowSamples, row.begin(),
                           [](std::uint16_t v) { return static_cast<JSAMPLE>(v); });
            in += rowSamples;
            JSAMPROW rows[] = {row.data()};
            jpeg_write_scanlines(&codec, rows, 1);
        }
        jpeg_finish_compress(&codec);
    });
    if (!done)
        throw CodecError(writer.errors.text);
    coded.subsampling = subsamplingOf(codec);
    coded.bytes.assign(writer.bytes, writer.bytes + writer.size);
    return coded;
}

constexpr const char* extensions[] = {"jpg", "jpeg", "jpe", "jfif"};

} // namespace

const FileFormat jpegFormat{.name = "jpeg",
                            .extensions = extensions,
                            .isIn =
                                [](std::span<const std::uint8_t> bytes) {
                                    return bytes.size() > 3 && bytes[0] == 0xFF &&
                                           bytes[1] == 0xD8 && bytes[2] == 0xFF;
                                },
                            .holdsAlpha = false,
                            .holdsPremultiplied = false,
                            .holdsIptc = true,
                            .holdsTexts = true,
                            .holdsDensity = true,
                            .largestSide = 65500,
                            .bitsFor = [](std::int32_t) { return std::int32_t{8}; },
                            .decode = decodeJpeg,
                            .encode = encodeJpeg};

} // namespace kt7::tool
