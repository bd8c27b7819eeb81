#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "hosts/web/src/Photo.h"
extern "C" {
#include <jpeglib.h>
}
#include <jerror.h>

namespace kt7::web {
namespace {

constexpr char exifMark[] = "Exif\0";                      // with the second zero
constexpr char xmpMark[] = "http://ns.adobe.com/xap/1.0/"; // with its zero
constexpr int app1 = JPEG_APP0 + 1, app2 = JPEG_APP0 + 2;
constexpr std::size_t mostInSegment = 65533;

[[noreturn]] void failed(j_common_ptr codec) {
    char text[JMSG_LENGTH_MAX];
    codec->err->format_message(codec, text);
    throw Failure(std::string("This JPEG can't be read: ") + text + ".");
}

/// Takes what libjpeg would patch up and go on with for what it is: a damaged file.
void warned(j_common_ptr codec, int level) {
    if (level < 0 && codec->err->msg_code == JWRN_JPEG_EOF)
        throw Failure("This JPEG is cut off.");
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
    }
    ~Decompress() { jpeg_destroy_decompress(this); }
    Decompress(const Decompress&) = delete;
    Decompress& operator=(const Decompress&) = delete;

  private:
    Errors errors_;
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

template <std::size_t n>
bool takeMarked(const jpeg_marker_struct& marker, const char (&mark)[n], Bytes& into) {
    if (marker.data_length < n || std::memcmp(marker.data, mark, n) != 0)
        return false;
    if (into.empty())
        into.assign(marker.data + n, marker.data + marker.data_length);
    return true;
}

template <std::size_t n>
void writeMarked(Compress& codec, const char (&mark)[n], const Bytes& block) {
    if (block.empty() || block.size() + n > mostInSegment)
        return;
    Bytes segment(mark, mark + n);
    segment.insert(segment.end(), block.begin(), block.end());
    jpeg_write_marker(&codec, app1, segment.data(), static_cast<unsigned>(segment.size()));
}

} // namespace

Photo readJpeg(const Bytes& file) {
    Decompress codec;
    jpeg_mem_src(&codec, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_save_markers(&codec, app1, 0xffff);
    jpeg_save_markers(&codec, app2, 0xffff);
    jpeg_read_header(&codec, TRUE);
    if (codec.num_components == 4)
        throw Failure("This JPEG is in CMYK; only grey and RGB can be denoised.");
    codec.out_color_space = codec.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    Photo photo;
    photo.width = static_cast<std::int32_t>(codec.image_width);
    photo.height = static_cast<std::int32_t>(codec.image_height);
    photo.channels = codec.num_components == 1 ? 1 : 3;
    photo.allocate();
    for (auto* marker = codec.marker_list; marker != nullptr; marker = marker->next)
        if (marker->marker == app1 && !takeMarked(*marker, exifMark, photo.exif))
            takeMarked(*marker, xmpMark, photo.xmp);
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
    jpeg_finish_decompress(&codec);
    return photo;
}

Bytes writeJpeg(const Photo& photo, int quality) {
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
    jpeg_set_quality(&codec, quality, TRUE);
    codec.optimize_coding = TRUE;
    codec.comp_info[0].h_samp_factor = codec.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&codec, TRUE);
    writeMarked(codec, exifMark, photo.exif);
    writeMarked(codec, xmpMark, photo.xmp);
    if (!photo.icc.empty())
        jpeg_write_icc_profile(&codec, photo.icc.data(), static_cast<unsigned>(photo.icc.size()));
    const int colours = codec.input_components;
    const bool alpha = photo.channels == 2 || photo.channels == 4;
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
