// JPEG XL, by libjxl.
#include "tools/kt7/defaults.h"
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/iccProfile.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/metadata.h"
#include "tools/kt7/files/silence.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include <jxl/decode_cxx.h>
#include <jxl/encode_cxx.h>
#include <jxl/thread_parallel_runner_cxx.h>

namespace kt7::tool {
namespace {

constexpr std::size_t exifOffsetBytes = 4; // before the TIFF stream

[[noreturn]] void damaged() {
    throw CodecError("is damaged or cut short");
}

void checkInfo(const JxlBasicInfo& info, std::size_t fileBytes) {
    if (info.have_animation != 0)
        throw CodecError("is an animation; only single pictures are denoised");
    if (info.exponent_bits_per_sample != 0 || info.bits_per_sample > 16)
        throw CodecError("has floating-point samples; save it with 16 bits first");
    const std::uint32_t alpha = info.alpha_bits > 0 ? 1 : 0;
    if ((info.num_color_channels != 1 && info.num_color_channels != 3) ||
        info.num_extra_channels > alpha)
        throw CodecError("has channels beside grey or RGB and alpha");
    checkSize(info.xsize, info.ysize, static_cast<int>(info.num_color_channels + alpha), fileBytes);
}

/// One metadata box at a time, into a buffer that grows.
class BoxReader {
  public:
    BoxReader(JxlDecoder* decoder, Metadata& metadata) : decoder_(decoder), metadata_(metadata) {}

    void begin() {
        finish();
        JxlBoxType type;
        if (JxlDecoderGetBoxType(decoder_, type, JXL_TRUE) != JXL_DEC_SUCCESS)
            damaged();
        target_ = std::memcmp(type, "Exif", 4) == 0   ? &metadata_.exif
                  : std::memcmp(type, "xml ", 4) == 0 ? &metadata_.xmp
                                                      : nullptr;
        if (target_ != nullptr && target_->empty())
            grow();
        else
            target_ = nullptr;
    }
    void grow() {
        constexpr std::size_t step = std::size_t{1} << 16;
        const std::size_t filled =
            buffer_.empty() ? 0 : buffer_.size() - JxlDecoderReleaseBoxBuffer(decoder_);
        if (filled > mostMetadataBytes)
            throw CodecError("has more metadata than a photo needs");
        buffer_.resize(filled + std::max(filled, step));
        if (JxlDecoderSetBoxBuffer(decoder_, buffer_.data() + filled, buffer_.size() - filled) !=
            JXL_DEC_SUCCESS)
            damaged();
    }
    void finish() {
        if (target_ == nullptr)
            return;
        buffer_.resize(buffer_.size() - JxlDecoderReleaseBoxBuffer(decoder_));
        *target_ = std::move(buffer_);
        buffer_ = {};
        target_ = nullptr;
    }

  private:
    JxlDecoder* decoder_;
    Metadata& metadata_;
    Bytes* target_ = nullptr;
    Bytes buffer_;
};

void takeColours(JxlDecoder* decoder, Photo& photo) {
    JxlColorEncoding encoding{};
    const bool named =
        JxlDecoderGetColorAsEncodedProfile(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA,
                                           &encoding) == JXL_DEC_SUCCESS;
    const bool usualColours =
        encoding.color_space == JXL_COLOR_SPACE_GRAY || encoding.primaries == JXL_PRIMARIES_SRGB;
    if (named && usualColours && encoding.white_point == JXL_WHITE_POINT_D65 &&
        encoding.transfer_function == JXL_TRANSFER_FUNCTION_SRGB)
        return; // what a picture without a profile is taken for
    std::size_t size = 0;
    Bytes profile;
    if (JxlDecoderGetICCProfileSize(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, &size) ==
            JXL_DEC_SUCCESS &&
        size <= mostMetadataBytes)
        profile.resize(size);
    if (!profile.empty() &&
        JxlDecoderGetColorAsICCProfile(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA,
                                       profile.data(), size) == JXL_DEC_SUCCESS)
        photo.metadata.icc = std::move(profile);
    else
        photo.remarks.push_back(damagedProfile);
}

void split(const std::vector<std::uint16_t>& image, bool alpha, Photo& photo) {
    const auto colours = static_cast<std::size_t>(photo.channels);
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    photo.samples.resize(pixels * colours);
    photo.alpha.resize(alpha ? pixels : 0);
    const std::uint16_t* in = image.data();
    for (std::size_t i = 0; i < pixels; ++i) {
        for (std::size_t c = 0; c < colours; ++c)
            photo.samples[i * colours + c] = *in++;
        if (alpha)
            photo.alpha[i] = *in++;
    }
}

Photo decodeJxl(std::span<const std::uint8_t> bytes, Depth depth) {
    const Silence silence;
    const JxlDecoderPtr owner = JxlDecoderMake(nullptr);
    const JxlThreadParallelRunnerPtr threads =
        JxlThreadParallelRunnerMake(nullptr, JxlThreadParallelRunnerDefaultNumWorkerThreads());
    if (!owner || !threads)
        throw std::bad_alloc();
    JxlDecoder* const decoder = owner.get();
    JxlDecoderSetParallelRunner(decoder, JxlThreadParallelRunner, threads.get());
    JxlDecoderSetKeepOrientation(decoder, JXL_TRUE);
    JxlDecoderSetDecompressBoxes(decoder, JXL_TRUE);
    JxlDecoderSubscribeEvents(decoder, JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING |
                                           JXL_DEC_FULL_IMAGE | JXL_DEC_BOX);
    JxlDecoderSetInput(decoder, bytes.data(), bytes.size());

    Photo photo;
    photo.coding.format = "jxl";
    BoxReader boxes(decoder, photo.metadata);
    std::vector<std::uint16_t> image;
    bool alpha = false, whole = false, closed = false;
    for (;;) {
        const JxlDecoderStatus status = JxlDecoderProcessInput(decoder);
        if (status == JXL_DEC_BASIC_INFO) {
            JxlBasicInfo info{};
            JxlDecoderGetBasicInfo(decoder, &info);
            checkInfo(info, bytes.size());
            photo.width = static_cast<std::int32_t>(info.xsize);
            photo.height = static_cast<std::int32_t>(info.ysize);
            photo.channels = static_cast<std::int32_t>(info.num_color_channels);
            photo.bits = std::max(static_cast<std::int32_t>(info.bits_per_sample), 8);
            photo.premultiplied = info.alpha_premultiplied != 0;
            photo.metadata.orientation = static_cast<std::uint16_t>(info.orientation);
            photo.coding.lossless = info.uses_original_profile != 0;
            if (info.have_preview != 0)
                photo.remarks.push_back("its smaller previews");
            alpha = info.alpha_bits > 0;
            if (depth == Depth::header)
                return photo;
        } else if (status == JXL_DEC_COLOR_ENCODING) {
            takeColours(decoder, photo);
        } else if (status == JXL_DEC_NEED_IMAGE_OUT_BUFFER) {
            const JxlPixelFormat format{static_cast<std::uint32_t>(photo.channels) +
                                            (alpha ? 1 : 0),
                                        JXL_TYPE_UINT16, JXL_NATIVE_ENDIAN, 0};
            image.resize(static_cast<std::size_t>(photo.pixels()) * format.num_channels);
            if (JxlDecoderSetImageOutBuffer(decoder, &format, image.data(),
                                            image.size() * sizeof image[0]) != JXL_DEC_SUCCESS)
                damaged();
        } else if (status == JXL_DEC_FULL_IMAGE) {
            if (whole)
                throw CodecError("holds several pictures; only files of one are denoised");
            whole = true;
        } else if (status == JXL_DEC_BOX) {
            boxes.begin();
        } else if (status == JXL_DEC_BOX_NEED_MORE_OUTPUT) {
            boxes.grow();
        } else if (status == JXL_DEC_NEED_MORE_INPUT && whole && !closed) {
            JxlDecoderCloseInput(decoder);
            closed = true;
        } else if (status == JXL_DEC_SUCCESS) {
            break;
        } else {
            damaged();
        }
    }
    boxes.finish();
    if (!whole || image.empty())
        damaged();
    if (Bytes& exif = photo.metadata.exif; !exif.empty())
        exif.erase(exif.begin(), exif.begin() + static_cast<std::ptrdiff_t>(
                                                    std::min(exifOffsetBytes, exif.size())));
    // Samples came on the scale of 16 bits; those of fewer come back exactly.
    const std::uint32_t white = photo.white();
    for (std::uint16_t& sample : image)
        sample = static_cast<std::uint16_t>((sample * white + 32767u) / 65535u);
    split(image, alpha, photo);
    return photo;
}

void require(JxlEncoderStatus status) {
    if (status != JXL_ENC_SUCCESS)
        throw CodecError("the coder failed");
}

JxlBasicInfo infoOf(const Photo& photo, bool lossless) {
    JxlBasicInfo info;
    JxlEncoderInitBasicInfo(&info);
    info.xsize = static_cast<std::uint32_t>(photo.width);
    info.ysize = static_cast<std::uint32_t>(photo.height);
    info.bits_per_sample = static_cast<std::uint32_t>(photo.bits);
    info.num_color_channels = static_cast<std::uint32_t>(photo.channels);
    info.uses_original_profile = lossless ? JXL_TRUE : JXL_FALSE;
    info.orientation = static_cast<JxlOrientation>(photo.metadata.orientation);
    if (!photo.alpha.empty()) {
        info.num_extra_channels = 1;
        info.alpha_bits = info.bits_per_sample;
        info.alpha_premultiplied = photo.premultiplied ? JXL_TRUE : JXL_FALSE;
    }
    return info;
}

/// Samples as the coder takes them: those of at most 8 bits in bytes.
Bytes pixelsOf(const Photo& photo) {
    const auto colours = static_cast<std::size_t>(photo.channels);
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    Bytes bytes;
    const auto put = [&](std::uint16_t sample) {
        if (photo.bits == 8) {
            bytes.push_back(static_cast<std::uint8_t>(sample));
            return;
        }
        // On the scale of the type.
        const auto wide =
            static_cast<std::uint16_t>((sample * 65535u + photo.white() / 2) / photo.white());
        bytes.push_back(static_cast<std::uint8_t>(wide & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(wide >> 8));
    };
    bytes.reserve((photo.samples.size() + photo.alpha.size()) * (photo.bits == 8 ? 1 : 2));
    for (std::size_t i = 0; i < pixels; ++i) {
        for (std::size_t c = 0; c < colours; ++c)
            put(photo.samples[i * colours + c]);
        if (!photo.alpha.empty())
            put(photo.alpha[i]);
    }
    return bytes;
}

void addBox(JxlEncoder* encoder, const char* name, const Bytes& bytes) {
    JxlBoxType type;
    std::memcpy(type, name, sizeof type);
    require(JxlEncoderAddBox(encoder, type, bytes.data(), bytes.size(), JXL_FALSE));
}

/// JPEG's quality as a distance in units of what is just visible.
float distanceOf(int quality) {
    constexpr float best = 0.1f, perStep = 0.09f;
    return best + perStep * static_cast<float>(100 - quality);
}

Coded encodeJxl(const Photo& photo, int quality) {
    const Silence silence;
    const bool lossless = quality == 0 && photo.coding.format == "jxl" && photo.coding.lossless;
    Coded coded{.bits = photo.bits, .lossless = lossless};
    coded.quality = lossless ? 0 : quality == 0 ? defaults::lossyQuality : quality;
    const JxlEncoderPtr owner = JxlEncoderMake(nullptr);
    const JxlThreadParallelRunnerPtr threads =
        JxlThreadParallelRunnerMake(nullptr, JxlThreadParallelRunnerDefaultNumWorkerThreads());
    if (!owner || !threads)
        throw std::bad_alloc();
    JxlEncoder* const encoder = owner.get();
    const Metadata& metadata = photo.metadata;
    require(JxlEncoderSetParallelRunner(encoder, JxlThreadParallelRunner, threads.get()));
    require(JxlEncoderUseBoxes(encoder));
    const JxlBasicInfo info = infoOf(photo, lossless);
    // Above 12 bits lossless coding is of the highest level.
    if (lossless && photo.bits > 12)
        require(JxlEncoderSetCodestreamLevel(encoder, 10));
    require(JxlEncoderSetBasicInfo(encoder, &info));
    // A profile of another colour model, as some cameras' grey pictures have, ends the process.
    const ProfileKind fitting = photo.channels == 1 ? ProfileKind::grey : ProfileKind::rgb;
    const bool described = !metadata.icc.empty() && profileKind(metadata.icc) == fitting &&
                           JxlEncoderSetICCProfile(encoder, metadata.icc.data(),
                                                   metadata.icc.size()) == JXL_ENC_SUCCESS;
    if (!metadata.icc.empty() && !described)
        coded.lost.push_back("its colour profile");
    if (!described) {
        JxlColorEncoding colours;
        JxlColorEncodingSetToSRGB(&colours, photo.channels == 1 ? JXL_TRUE : JXL_FALSE);
        require(JxlEncoderSetColorEncoding(encoder, &colours));
    }
    JxlEncoderFrameSettings* const settings = JxlEncoderFrameSettingsCreate(encoder, nullptr);
    constexpr int effort = 5; // the usual 7 takes three times as long for 2 % of the size
    require(JxlEncoderFrameSettingsSetOption(settings, JXL_ENC_FRAME_SETTING_EFFORT, effort));
    if (lossless)
        require(JxlEncoderSetFrameLossless(settings, JXL_TRUE));
    else
        require(JxlEncoderSetFrameDistance(settings, distanceOf(coded.quality)));
    if (!metadata.exif.empty()) {
        Bytes block(exifOffsetBytes, 0);
        block.insert(block.end(), metadata.exif.begin(), metadata.exif.end());
        addBox(encoder, "Exif", block);
    }
    if (!metadata.xmp.empty())
        addBox(encoder, "xml ", metadata.xmp);
    const Bytes pixels = pixelsOf(photo);
    const JxlPixelFormat format{info.num_color_channels + info.num_extra_channels,
                                photo.bits == 8 ? JXL_TYPE_UINT8 : JXL_TYPE_UINT16,
                                JXL_LITTLE_ENDIAN, 0};
    require(JxlEncoderAddImageFrame(settings, &format, pixels.data(), pixels.size()));
    JxlEncoderCloseInput(encoder);
    std::size_t filled = 0;
    for (JxlEncoderStatus status = JXL_ENC_NEED_MORE_OUTPUT; status != JXL_ENC_SUCCESS;) {
        constexpr std::size_t step = std::size_t{1} << 18;
        coded.bytes.resize(filled + std::max(filled, step));
        std::uint8_t* next = coded.bytes.data() + filled;
        std::size_t room = coded.bytes.size() - filled;
        status = JxlEncoderProcessOutput(encoder, &next, &room);
        filled = coded.bytes.size() - room;
        if (status == JXL_ENC_ERROR)
            throw CodecError("the coder failed");
    }
    coded.bytes.resize(filled);
    return coded;
}

constexpr const char* extensions[] = {"jxl"};

} // namespace

const FileFormat jxlFormat{
    .name = "jxl",
    .extensions = extensions,
    .isIn =
        [](std::span<const std::uint8_t> bytes) {
            const JxlSignature signature = JxlSignatureCheck(bytes.data(), bytes.size());
            return signature == JXL_SIG_CODESTREAM || signature == JXL_SIG_CONTAINER;
        },
    .holdsAlpha = true,
    .holdsPremultiplied = true,
    .holdsIptc = false,
    .holdsTexts = false,
    .holdsDensity = false,
    .largestSide = 1 << 30,
    .bitsFor = [](std::int32_t bits) { return bits; },
    .decode = decodeJxl,
    .encode = encodeJxl};

} // namespace kt7::tool
