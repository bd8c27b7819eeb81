// Pixels through files: what is kept, what is refused.
#include "tests/tools/files/samplePhoto.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/files/limits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <png.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <webp/mux.h>

#include <jpeglib.h>
#ifdef KT7_HAVE_JXL
#include <jxl/encode_cxx.h>
#endif

#if defined(KT7_SANITIZED_ADDRESS)
// The coder of HEIC loses a block at every use.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:x265";
}
#endif

namespace kt7::tool {
namespace {

Bytes fileOf(const std::string& path) {
    const std::string text = bytesOf(path);
    return {text.begin(), text.end()};
}

void requireSamePixels(const Photo& a, const Photo& b) {
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    EXPECT_EQ(a.channels, b.channels);
    EXPECT_EQ(a.bits, b.bits);
    EXPECT_EQ(a.samples, b.samples);
    EXPECT_EQ(a.alpha, b.alpha);
}

TEST(PhotoFile, LosslessFormatsKeepEverySample) {
    for (const FileFormat* format : {&pngFormat, &tiffFormat})
        for (const std::int32_t channels : {1, 3})
            for (const std::int32_t bits : {8, 16})
                for (const bool alpha : {false, true}) {
                    SCOPED_TRACE(testing::Message() << format->name << channels << bits << alpha);
                    const Photo photo = samplePhoto(channels, bits, alpha);
                    const Coded coded = encode(photo, *format, 0);
                    EXPECT_TRUE(coded.lossless && coded.lost.empty());
                    const Photo again = decode(coded.bytes);
                    requireSamePixels(photo, again);
                    EXPECT_EQ(decode(coded.bytes, Depth::header).height, photo.height);
                }
    // Like for like: lossless once, lossless again.
    for (const std::string name : {"webp", "jxl"}) {
        const FileFormat* const format = formatNamed(name);
        if (format == nullptr)
            continue; // this build has no libjxl
        for (const std::int32_t bits : {8, 10, 16}) {
            Photo photo = samplePhoto(3, format->bitsFor(bits), true);
            photo.coding.format = name; // and lossless
            const Photo again = decode(encode(photo, *format, 0).bytes);
            requireSamePixels(photo, again);
            EXPECT_TRUE(again.coding.lossless);
            EXPECT_FALSE(decode(encode(again, *format, 80).bytes).coding.lossless);
        }
    }
}

TEST(PhotoFile, SamplesAreRoundedIntoFewerBitsAndUndoneFromAlpha) {
    Photo photo = samplePhoto(3, 16, true);
    photo.coding.format = "webp"; // and lossless
    const Photo narrow = decode(encode(photo, webpFormat, 0).bytes);
    ASSERT_EQ(narrow.bits, 8);
    for (std::size_t i = 0; i < photo.samples.size(); ++i)
        ASSERT_EQ(narrow.samples[i], std::lround(photo.samples[i] / 257.0)) << i;

    photo = samplePhoto(3, 8, true);
    photo.premultiplied = true;
    for (std::size_t i = 0; i < photo.samples.size(); ++i)
        photo.samples[i] = static_cast<std::uint16_t>(photo.samples[i] * photo.alpha[i / 3] / 255);
    const Photo kept = decode(encode(photo, tiffFormat, 0).bytes);
    EXPECT_TRUE(kept.premultiplied);
    requireSamePixels(kept, photo);
    const Photo undone = decode(encode(photo, pngFormat, 0).bytes);
    for (std::size_t i = 0; i < photo.samples.size(); ++i)
        ASSERT_NEAR(undone.samples[i] * undone.alpha[i / 3], 255 * photo.samples[i], 127) << i;
    EXPECT_EQ(encode(photo, jpegFormat, 0).lost, std::vector<std::string>{"alpha"});
}

TEST(PhotoFile, AJpegKeepsItsStepsAndItsColourResolution) {
    Photo photo = smoothPhoto();
    photo.coding.format = "jpeg";
    JpegCoding& coding = photo.coding.jpeg;
    coding.colourSpace = JCS_YCbCr;
    coding.progressive = true;
    coding.components = {{2, 1, 0}, {1, 1, 1}, {1, 1, 1}};
    for (std::uint16_t step = 1; step <= 64; ++step) {
        coding.tables[0].push_back(step);
        coding.tables[1].push_back(65 - step);
    }
    const Coded first = encode(photo, jpegFormat, 0);
    EXPECT_EQ(first.subsampling, "4:2:2");
    const Photo read = decode(first.bytes);
    EXPECT_EQ(read.coding.jpeg.tables, coding.tables);
    EXPECT_TRUE(read.coding.jpeg.progressive);
    EXPECT_EQ(read.coding.jpeg.components[0].horizontal, 2);
    EXPECT_EQ(encode(read, jpegFormat, 0).quality, first.quality);
    const Coded told = encode(read, jpegFormat, 90);
    EXPECT_EQ(told.subsampling, "4:4:4");
    const Photo again = decode(told.bytes);
    EXPECT_EQ(encode(again, jpegFormat, 0).quality, 90); // measured from its table
    for (std::size_t i = 0; i < photo.samples.size(); ++i)
        ASSERT_NEAR(again.samples[i], photo.samples[i], 12) << i;
}

using WriteTiff = std::function<void(TIFF*)>;

/// Rows of bytes 0, 1, 2, .. as other programs lay them out.
Bytes tiffOf(const ScratchFolder& folder, const char* mode, std::uint16_t channels,
             std::uint16_t bits, const WriteTiff& change, int pages = 1) {
    constexpr std::uint32_t side = 16;
    TIFF* const tiff = TIFFOpen((folder / "t.tif").c_str(), mode);
    for (int page = 0; page < pages; ++page) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, side);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, side);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, channels);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                     channels < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 5);
        change(tiff);
        const tmsize_t size = TIFFIsTiled(tiff) != 0 ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
        Bytes piece(static_cast<std::size_t>(size));
        for (std::size_t i = 0; i < piece.size(); ++i)
            piece[i] = static_cast<std::uint8_t>(i);
        // libtiff swaps bytes where they stand, so each piece is a copy.
        if (TIFFIsTiled(tiff) != 0)
            for (std::uint32_t t = 0; t < TIFFNumberOfTiles(tiff); ++t)
                TIFFWriteEncodedTile(tiff, t, Bytes(piece).data(), size);
        else
            for (std::uint32_t s = 0; s < TIFFNumberOfStrips(tiff); ++s)
                TIFFWriteEncodedStrip(tiff, s, Bytes(piece).data(), s % 4 == 3 ? size / 5 : size);
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return fileOf(folder / "t.tif");
}

TEST(PhotoFile, ReadsTheLayoutsOfOtherPrograms) {
    const ScratchFolder folder;
    const auto set = [](std::uint32_t tag, std::uint32_t value) {
        return [=](TIFF* tiff) { TIFFSetField(tiff, tag, value); };
    };
    const auto tiled = [](TIFF* tiff) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    };
    const Photo plain = decode(tiffOf(folder, "w", 3, 8, [](TIFF*) {}));
    EXPECT_EQ(plain.samples[16 * 3 * 4 + 1], 193); // fifth row, second sample
    const struct {
        const char* name;
        const char* mode;
        WriteTiff change;
    } same[] = {{"big-endian", "wb", [](TIFF*) {}},
                {"LZW", "w", set(TIFFTAG_COMPRESSION, COMPRESSION_LZW)},
                {"BigTIFF", "w8", set(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE)},
                {"PackBits", "w", set(TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS)}};
    for (const auto& [name, mode, change] : same)
        EXPECT_EQ(decode(tiffOf(folder, mode, 3, 8, change)).samples, plain.samples) << name;
    const Photo tiles = decode(tiffOf(folder, "w", 3, 8, tiled));
    for (std::size_t i = 0; i < tiles.samples.size(); ++i)
        ASSERT_EQ(tiles.samples[i], i % 256);
    const Photo planes =
        decode(tiffOf(folder, "w", 3, 8, set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE)));
    for (std::size_t i = 0; i < 80; ++i)
        for (std::size_t c = 0; c < 3; ++c)
            ASSERT_EQ(planes.samples[3 * i + c], i);
    const Photo swapped = decode(tiffOf(folder, "wb", 1, 16, [](TIFF*) {}));
    EXPECT_EQ(swapped.samples, decode(tiffOf(folder, "wl", 1, 16, [](TIFF*) {})).samples);
    const Photo dark =
        decode(tiffOf(folder, "w", 1, 8, set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE)));
    EXPECT_EQ(dark.samples[7], 255 - 7);
    const Photo bits = decode(tiffOf(folder, "w", 1, 1, [](TIFF*) {}));
    EXPECT_EQ(bits.samples[15], 255); // the second byte is 1
    const Photo jpeg = decode(tiffOf(folder, "w", 3, 8, [&](TIFF* tiff) {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
    }));
    EXPECT_EQ(jpeg.coding.lossless, false);
    EXPECT_EQ(decode(encode(jpeg, tiffFormat, 0).bytes).coding.tiffCompression,
              COMPRESSION_ADOBE_DEFLATE);
}

/// A PNG of one grey row in 8 bits, with what `change` adds.
Bytes pngOf(const std::function<void(png_structp, png_infop)>& change) {
    constexpr png_uint_32 width = 8;
    Bytes bytes;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &bytes,
        [](png_structp p, png_bytep data, std::size_t size) {
            auto& out = *static_cast<Bytes*>(png_get_io_ptr(p));
            out.insert(out.end(), data, data + size);
        },
        nullptr);
    png_set_IHDR(png, info, width, 1, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    change(png, info);
    png_write_info(png, info);
    Bytes row(width, 100);
    png_write_row(png, row.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return bytes;
}

TEST(PhotoFile, ExpandsPalettesAndTransparentColours) {
    const Bytes palette = pngOf([](png_structp png, png_infop info) {
        png_set_IHDR(png, info, 8, 1, 8, PNG_COLOR_TYPE_PALETTE, 0, 0, 0);
        std::vector<png_color> colours(101, png_color{1, 2, 3});
        png_set_PLTE(png, info, colours.data(), 101);
    });
    EXPECT_EQ(decode(palette).samples[23], 3);
    const Bytes transparent = pngOf([](png_structp png, png_infop info) {
        png_color_16 colour{};
        colour.gray = 100;
        png_set_tRNS(png, info, nullptr, 0, &colour);
    });
    const Photo photo = decode(transparent);
    EXPECT_EQ(photo.channels, 1);
    EXPECT_EQ(photo.alpha, std::vector<std::uint16_t>(8, 0));
}

std::string refusalOf(const Bytes& bytes) {
    try {
        decode(bytes);
    } catch (const CodecError& error) {
        return error.what();
    }
    return "read without complaint";
}

Bytes jpegOfInk() {
    jpeg_compress_struct codec{};
    jpeg_error_mgr errors{};
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&codec, &memory, &size);
    codec.image_width = codec.image_height = 8;
    codec.input_components = 4;
    codec.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&codec);
    jpeg_start_compress(&codec, TRUE);
    Bytes row(32, 9);
    JSAMPROW rows[] = {row.data()};
    while (codec.next_scanline < 8)
        jpeg_write_scanlines(&codec, rows, 1);
    jpeg_finish_compress(&codec);
    const Bytes bytes(memory, memory + size);
    jpeg_destroy_compress(&codec);
    std::free(memory);
    return bytes;
}

/// A JPEG with an index of pictures that has one tag, and `rest` behind it.
Bytes withIndex(const Bytes& tag, const Bytes& rest) {
    Bytes bytes = encode(smoothPhoto(), jpegFormat, 90).bytes;
    Bytes index = {0xFF, 0xE2, 0, 0, 'M', 'P', 'F', 0, 'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1};
    index.insert(index.end(), tag.begin(), tag.end());
    index.resize(index.size() + 4); // no further directory
    index.insert(index.end(), rest.begin(), rest.end());
    index[3] = static_cast<std::uint8_t>(index.size() - 2);
    bytes.insert(bytes.begin() + 20, index.begin(), index.end()); // behind JFIF's
    return bytes;
}

/// Two entries of 16 bytes, the second of which is of the given kind.
Bytes multiPicture(std::uint8_t kind) {
    Bytes entries(32);
    entries[17] = kind;
    return withIndex({0xB0, 2, 0, 7, 0, 0, 0, 32, 0, 0, 0, 26}, entries);
}

Bytes webpOfFrames() {
    const Bytes one = encode(smoothPhoto(), webpFormat, 90).bytes;
    WebPMux* const mux = WebPMuxNew();
    WebPMuxFrameInfo frame{};
    frame.bitstream = {one.data(), one.size()};
    frame.duration = 100;
    frame.id = WEBP_CHUNK_ANMF;
    for (int i = 0; i < 2; ++i)
        WebPMuxPushFrame(mux, &frame, 1);
    const WebPMuxAnimParams parameters{};
    WebPMuxSetAnimationParams(mux, &parameters);
    WebPData file{};
    WebPMuxAssemble(mux, &file);
    Bytes bytes(file.bytes, file.bytes + file.size);
    WebPDataClear(&file);
    WebPMuxDelete(mux);
    return bytes;
}

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// A PNG with as many texts whose checksum is wrong.
Bytes pngWithDamagedTexts(int count) {
    Bytes bytes = pngOf([](png_structp, png_infop) {});
    constexpr std::uint8_t text[] = {0, 0, 0, 1, 'z', 'T', 'X', 't', 'A', 0, 0, 0, 0};
    for (int i = 0; i < count; ++i)
        bytes.insert(bytes.begin() + 33, std::begin(text), std::end(text)); // behind IHDR
    return bytes;
}

/// A TIFF with a directory below the first one, which is a smaller preview or a picture of its own.
Bytes tiffWithSubdirectory(const ScratchFolder& folder, std::uint32_t kind) {
    int page = 0;
    return tiffOf(
        folder, "w", 1, 8,
        [&](TIFF* tiff) {
            std::uint64_t offsets[1] = {0};
            if (page++ == 0)
                TIFFSetField(tiff, TIFFTAG_SUBIFD, 1, offsets);
            else
                TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, kind);
        },
        2);
}

#ifdef KT7_HAVE_JXL
Bytes jxlOfFrames() {
    const JxlEncoderPtr encoder = JxlEncoderMake(nullptr);
    JxlBasicInfo info;
    JxlEncoderInitBasicInfo(&info);
    info.xsize = info.ysize = 8;
    info.have_animation = JXL_TRUE;
    info.animation = {10, 1, 0, JXL_FALSE};
    info.uses_original_profile = JXL_TRUE;
    JxlEncoderSetBasicInfo(encoder.get(), &info);
    JxlColorEncoding colours;
    JxlColorEncodingSetToSRGB(&colours, JXL_FALSE);
    JxlEncoderSetColorEncoding(encoder.get(), &colours);
    const JxlPixelFormat format{3, JXL_TYPE_UINT8, JXL_LITTLE_ENDIAN, 0};
    const Bytes pixels(8 * 8 * 3, 77);
    for (int i = 0; i < 2; ++i)
        JxlEncoderAddImageFrame(JxlEncoderFrameSettingsCreate(encoder.get(), nullptr), &format,
                                pixels.data(), pixels.size());
    JxlEncoderCloseInput(encoder.get());
    Bytes bytes(10000);
    std::uint8_t* next = bytes.data();
    std::size_t room = bytes.size();
    JxlEncoderProcessOutput(encoder.get(), &next, &room);
    bytes.resize(bytes.size() - room);
    return bytes;
}
#endif

TEST(PhotoFile, RefusesInOneLineWhatWouldLoseSomething) {
    const ScratchFolder folder;
    const auto nothing = [](auto...) {};
    const auto animated = [](png_structp png, png_infop info) {
        png_byte control[] = {0, 0, 0, 3, 0, 0, 0, 0};
        png_unknown_chunk chunk{{'a', 'c', 'T', 'L', 0}, control, 8, PNG_HAVE_IHDR};
        png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_ALWAYS, nullptr, 0);
        png_set_unknown_chunks(png, info, &chunk, 1);
    };
    const auto floods = [](png_structp png, png_infop info) {
        std::string much(4 << 20, 'x');
        std::vector<png_text> texts(40);
        for (png_text& text : texts) {
            text.compression = PNG_TEXT_COMPRESSION_zTXt;
            text.key = const_cast<char*>("Note");
            text.text = much.data();
            text.text_length = much.size();
        }
        png_set_text(png, info, texts.data(), 40);
    };
    struct Case {
        Bytes bytes;
        const char* complaint;
    };
    const Bytes plain = encode(smoothPhoto(), jpegFormat, 90).bytes;
    std::vector<Case> cases = {
        {{}, "is empty"},
        {{'n', 'o', ' ', 'p', 'i', 'c', 't', 'u', 'r', 'e'}, "known format"},
        {tiffOf(folder, "w", 3, 8, nothing, 3), "holds 3 pages"},
        {tiffOf(folder, "w", 5, 8, nothing), "5 channels"},
        {tiffOf(folder, "w", 1, 32,
                [](TIFF* t) { TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP); }),
         "floating-point"},
        {tiffOf(folder, "w", 4, 8,
                [](TIFF* t) { TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED); }),
         "CMYK"},
        {jpegOfInk(), "CMYK"},
        {multiPicture(2), "holds 2 pictures"},
        {withIndex({0xB0, 1, 0, 4, 0, 0, 0, 1, 0, 0, 0, 3}, {}), "holds 3 pictures"},
        {joined(plain, plain), "holds 2 pictures"},
        {pngOf(animated), "is an animation"},
        {webpOfFrames(), "is an animation"},
        {tiffWithSubdirectory(folder, 0), "holds 2 pages"},
        {pngOf(floods), "more metadata"},
        {pngWithDamagedTexts(200), "too many parts"}};
#ifdef KT7_HAVE_JXL
    cases.push_back({jxlOfFrames(), "is an animation"});
#else
    cases.push_back({{0xFF, 0x0A, 0, 0}, "JPEG XL, which this kt7 was built without"});
#endif
#ifdef KT7_HAVE_HEIF
    // A track of frames beside the picture, whatever the brand says.
    for (const FileFormat* format : {&heicFormat, &avifFormat})
        cases.push_back(
            {joined(encode(smoothPhoto(), *format, 90).bytes, {0, 0, 0, 8, 'm', 'o', 'o', 'v'}),
             "is a sequence"});
#else
    cases.push_back({{0, 0, 0, 16, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c'}, "built without"});
#endif
    for (const auto& [bytes, complaint] : cases) {
        const std::string refusal = refusalOf(bytes);
        EXPECT_NE(refusal.find(complaint), std::string::npos) << refusal << " for " << complaint;
        EXPECT_LT(refusal.size(), 300u);
    }
    const Bytes small = encode(smoothPhoto(16, 16), jpegFormat, 90).bytes;
    for (const Bytes& partly : {multiPicture(1), joined(plain, small), pngWithDamagedTexts(3),
                                tiffWithSubdirectory(folder, FILETYPE_REDUCEDIMAGE)})
        EXPECT_EQ(decode(partly).remarks.size(), 1u);
    EXPECT_THROW(checkSize(60'000, 60'000, 1, 3000), CodecError); // whatever the memory
    const std::uint64_t most = availableMemory() / 20; // decoded it fits, but it can't be denoised
    EXPECT_THROW(checkSize(most / 1000, 1000, 3, most), CodecError);
    EXPECT_NO_THROW(checkSize(1, 1, 3, 10));
}

TEST(PhotoFile, RefusesFilesCutAnywhere) {
    for (const FileFormat* format : fileFormats()) {
        const Bytes whole = encode(smoothPhoto(), *format, 90).bytes;
        for (const std::size_t percent : {1u, 5u, 30u, 60u, 90u, 97u})
            EXPECT_NE(refusalOf({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(
                                                                    whole.size() * percent / 100)}),
                      "read without complaint")
                << format->name << percent;
    }
}

TEST(PhotoFile, APhotoOnItsSideIsWrittenInEveryFormat) {
    const ScratchFolder folder;
    Photo photo = smoothPhoto();
    photo.metadata.orientation = 6;
    for (const FileFormat* format : fileFormats()) {
        const std::string path = folder / format->name;
        ASSERT_NO_THROW(writePhoto(photo, path, *format, 90, Existing::refuse)) << format->name;
        const Photo again = readPhoto(path);
        EXPECT_EQ(again.metadata.orientation, again.width == 48 ? 1 : 6) << format->name;
    }
}

TEST(PhotoFile, InputIsAFileOrAPipeAndNothingElse) {
    const ScratchFolder folder;
    const struct {
        std::string path;
        const char* complaint;
    } cases[] = {{folder / "", "directory"},
                 {folder / "none.png", "No such file"},
                 {"https://example.com/a.png", "is an address"},
                 {"/dev/zero", "neither a file nor a pipe"}};
    for (const auto& [path, complaint] : cases)
        try {
            readPhoto(path);
            ADD_FAILURE() << path;
        } catch (const UserError& error) {
            EXPECT_NE(std::string(error.what()).find(complaint), std::string::npos) << error.what();
        }
}

} // namespace
} // namespace kt7::tool
