#include "tools/kt7/files/imageFile.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/files/inputBytes.h"
#include "tools/kt7/say.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace kt7::tool {
namespace {

/// Texts of codecs may hold anything that a damaged file does.
std::string oneLine(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
    while (text.ends_with(' ') || text.ends_with('.'))
        text.pop_back();
    return text;
}

void sayNames(const std::string& path, const std::string& what,
              const std::vector<std::string>& names) {
    if (names.empty())
        return;
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    say(about(path, what + oneLine(list)));
}

/// An encoder that went wrong without a word must not cost anybody a photo. All of it is decoded: a
/// file that was cut short begins well.
void checkReadable(const Coded& coded, const Photo& photo) {
    const Photo again = decode(coded.bytes);
    // HEIC and AVIF turn a picture on its side.
    if (std::minmax(again.width, again.height) != std::minmax(photo.width, photo.height))
        throw CodecError("what was coded has another size");
}

} // namespace

Photo readPhoto(const std::string& path) {
    const Bytes bytes = readInput(path);
    Photo photo;
    try {
        photo = decode(bytes);
    } catch (const CodecError& error) {
        throw UserError(about(path, oneLine(error.what())));
    }
    sayNames(path, "left out: ", photo.remarks);
    return photo;
}

const FileFormat& writableFormat(const std::string& path, const std::string& format,
                                 const Photo& photo) {
    std::string name = format;
    if (name.empty() && path != "-" && std::filesystem::path(path).has_extension())
        name = std::filesystem::path(path).extension().string().substr(1);
    if (name.empty())
        name = photo.coding.format.empty() ? pngFormat.name : photo.coding.format;
    const FileFormat* const found = formatNamed(name);
    if (found != nullptr)
        return *found;
    throw UserError(about(path, "no picture can be written as \"" + oneLine(name) +
                                    "\"; known are " + formatNames()));
}

Coded writePhoto(const Photo& photo, const std::string& path, const FileFormat& format, int quality,
                 Existing existing) {
    Coded coded;
    try {
        coded = encode(photo, format, quality);
        checkReadable(coded, photo);
    } catch (const CodecError& error) {
        throw UserError(about(path, std::string("cannot write as ") + format.name + ": " +
                                        oneLine(error.what())));
    }
    sayNames(path, std::string(format.name) + " can't hold, left out: ", coded.lost);
    publish(coded.bytes, path, existing);
    coded.bytes = {};
    return coded;
}

Photo pictureFrom(const Photo& photo, std::int32_t width, std::int32_t height,
                  const std::vector<std::uint8_t>& rgb, const Bytes& profile) {
    Photo picture;
    picture.width = width;
    picture.height = height;
    picture.samples.assign(rgb.begin(), rgb.end());
    picture.metadata.orientation = photo.metadata.orientation;
    picture.metadata.icc = profile;
    return picture;
}

} // namespace kt7::tool
