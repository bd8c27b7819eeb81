#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "hosts/web/src/Photo.h"
#include "tools/kt7/files/jpegCoding.h"

#include <jerror.h>

namespace kt7::web {
namespace {

constexpr std::string_view exifMark{"Exif\0\0", 6};
constexpr std::string_view xmpMark{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view moreXmpMark{"http://ns.adobe.com/xmp/extension/\0", 35};
constexpr std::string_view multiPictureMark{"MPF\0", 4};
constexpr int app1 = JPEG_APP0 + 1, app2 = JPEG_APP0 + 2, app13 = JPEG_APP0 + 13;
constexpr std::size_t mostInSegment = 65533;

[[noreturn]] void failed(j_common_ptr codec) {
    char text[JMSG_LENGTH_MAX];
    codec->err->format_message(codec, text);
    const char* what = codec->is_decompressor ? "This JPEG can't be read: "
                                              : "The photo can't be written as a JPEG: ";
    throw Failure(std::string(what) + text + ".");
}

/// Takes what libjpeg would patch up and go on with for what it is: a damaged file.
void warned(j_common_ptr codec, int level) {
    if (level < 0 && codec->err->msg_code == JWRN_JPEG_EOF)
        throw Failure("This JPEG is cut off.");
    if (level < 0 && tool::meansDamage(codec->err->msg_code))
        failed(codec);
}

struct Errors : jpeg_error_mgr {
    Errors() {
        jpeg_std_error(this);
        error_exit = &failed;
        emit_message = &warned;
    }
};

struct Decompress : jpeg_decompress_struct {
    Decompress() {
        err = &errors_;
        jpeg_create_decompress(this);
        progress_.progress_monitor = [](j_common_ptr codec) {
            if (reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number > tool::mostJpegScans)
                throw Failure("This JPEG has too many scans.");
        };
        progress = &progress_;
    }
    ~Decompress() { jpeg_destroy_decompress(this); }
    Decompress(const Decompress&) = delete;
    Decompress& operator=(const Decompress&) = delete;

  private:
    Errors errors_;
    jpeg_progress_mgr progress_{};
};

struct Compress : jpeg_compress_struct {
    Compress() {
        err = &errors_;
        jpeg_create_compress(this);
    }
    ~Compress() { jpeg_destroy_compress(this); }
    Compress(const Compress&) = delete;
    Compress& operator=(const Compress&) = delete;

  private:
    Errors errors_;
};

void takeMarkers(const Decompress& codec, Photo& photo) {
    const auto lose = [&](const char* name) {
        if (std::find(photo.lost.begin(), photo.lost.end(), name) == photo.lost.end())
            photo.lost.emplace_back(name);
    };
    for (const auto* marker = codec.marker_list; marker != nullptr; marker = marker->next) {
        const std::string_view text(reinterpret_cast<const char*>(marker->data),
                                    marker->data_length);
        const auto bytes = [&](std::size_t from) {
            return Bytes(marker->data + from, marker->data + marker->data_length);
        };
        if (marker->marker == JPEG_COM)
            lose("comments");
        else if (marker->marker == app13)
            lose("IPTC and other blocks of Photoshop");
        else if (marker->marker == app2 && text.starts_with(multiPictureMark))
            lose("further pictures, such as previews and gain maps");
        else if (text.starts_with(moreXmpMark))
            lose("extended XMP");
        else if (text.starts_with(exifMark) && photo.exif.empty())
            photo.takeExif(bytes(exifMark.size()));
        else if (text.starts_with(xmpMark) && photo.xmp.empty())
            photo.xmp = bytes(xmpMark.size());
    }
    if (codec.saw_JFIF_marker)
        photo.density = {codec.density_unit, codec.X_density, codec.Y_density};
}

void writeMarked(Compress& codec, std::string_view mark, const Bytes& block, const char* name,
                 std::vector<std::string>& lost) {
    if (block.empty())
        return;
    if (block.size() + mark.size() > mostInSegment) {
        lost.push_back(std::string(name) + " (too large for a JPEG)");
        return;
    }
    Bytes segment(mark.begin(), mark.end());
    segment.insert(segment.end(), block.begin(), block.end());
    jpeg_write_marker(&codec, app1, segment.data(), static_cast<unsigned>(segment.size()));
}

} // namespace

Photo readJpeg(const Bytes& file) {
    Decompress codec;
    jpeg_mem_src(&codec, file.data(), static_cast<unsigned long>(file.size()));
    for (const int marker : {JPEG_COM, app1, app2, app13})
        jpeg_save_markers(&codec, marker, 0xffff);
    jpeg_read_header(&codec, TRUE);
    if (codec.num_components == 4)
        throw Failure("This JPEG is in CMYK; only grey and RGB can be denoised.");
    codec.out_color_space = codec.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    Photo photo;
    photo.width = static_cast<std::int32_t>(codec.image_width);
    photo.height = static_cast<std::int32_t>(codec.image_height);
    photo.channels = codec.num_components == 1 ? 1 : 3;
    photo.allocate();
    takeMarkers(codec, photo);
    JOCTET* profile = nullptr;
    unsigned profileSize = 0;
    if (jpeg_read_icc_profile(&codec, &profile, &profileSize)) {
        const std::unique_ptr<JOCTET, decltype(&std::free)> owner(profile, &std::free);
        photo.icc.assign(profile, profile + profileSize);
    }
    jpeg_start_decompress(&codec);
    while (codec.output_scanline < codec.output_height) {
        JSAMPROW row = photo.row(static_cast<std::int32_t>(codec.output_scanline));
        jpeg_read_scanlines(&codec, &row, 1);
    }
    const tool::JpegCoding coding = tool::codingOf(codec);
    if (tool::canCodeLike(coding, photo.channels))
        photo.coding = coding;
    jpeg_finish_decompress(&codec);
    return photo;
}

Bytes writeJpeg(const Photo& photo, int quality, std::vector<std::string>& lost) {
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    const auto give = [&](void*) { std::free(memory); };
    const std::unique_ptr<void, decltype(give)> owner(&memory, give);
    Compress codec;
    jpeg_mem_dest(&codec, &memory, &size);
    const bool grey = photo.channels < 3;
    codec.image_width = static_cast<JDIMENSION>(photo.width);
    codec.image_height = static_cast<JDIMENSION>(photo.height);
    codec.input_components = grey ? 1 : 3;
    codec.in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&codec);
    codec.optimize_coding = TRUE;
    if (quality == likeSource && photo.coding) {
        tool::codeLike(*photo.coding, codec);
    } else {
        jpeg_set_quality(&codec, quality, TRUE);
        codec.comp_info[0].h_samp_factor = codec.comp_info[0].v_samp_factor = 1;
    }
    if (photo.density) {
        codec.density_unit = photo.density->unit;
        codec.X_density = photo.density->x;
        codec.Y_density = photo.density->y;
    }
    jpeg_start_compress(&codec, TRUE);
    writeMarked(codec, exifMark, photo.exif, "Exif", lost);
    writeMarked(codec, xmpMark, photo.xmp, "XMP", lost);
    if (!photo.icc.empty())
        jpeg_write_icc_profile(&codec, photo.icc.data(), static_cast<unsigned>(photo.icc.size()));
    if (photo.icc.empty() && photo.colours.differFromSrgb())
        lost.emplace_back("gamma and primaries, for which JPEG has no place");
    const int colours = codec.input_components;
    const bool alpha = photo.hasAlpha();
    const bool wide = photo.sampleBytes == 2;
    Bytes line(static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(colours));
    while (codec.next_scanline < codec.image_height) {
        const std::uint8_t* from = photo.row(static_cast<std::int32_t>(codec.next_scanline));
        const auto sample = [&](std::size_t i) {
            std::uint16_t v = from[i];
            if (wide)
                std::memcpy(&v, from + 2 * i, sizeof v);
            return static_cast<double>(v) / (wide ? 65535.0 : 255.0);
        };
        for (std::size_t x = 0; x < static_cast<std::size_t>(photo.width); ++x) {
            const std::size_t pixel = x * static_cast<std::size_t>(photo.channels);
            const double a = alpha ? sample(pixel + static_cast<std::size_t>(colours)) : 1.0;
            for (std::size_t c = 0; c < static_cast<std::size_t>(colours); ++c)
                line[x * static_cast<std::size_t>(colours) + c] =
                    static_cast<std::uint8_t>((sample(pixel + c) * a + (1.0 - a)) * 255.0 + 0.5);
        }
        JSAMPROW row = line.data();
        jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    return Bytes(memory, memory + size);
}

} // namespace kt7::web
