#include "tools/kt7/files/metadata.h"

#include "tools/kt7/files/exifBlock.h"
#include "tools/kt7/files/iccProfile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exiv2/exiv2.hpp>
#include <iterator>
#include <mutex>

namespace kt7::tool {
namespace {

using Exiv2::ExifData;

constexpr const char* photoshopBlocks = "Photoshop settings";

/// Exiv2 keeps some state of its own, and prints.
class Exiv2Session {
  public:
    Exiv2Session() { Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute); }

  private:
    static std::recursive_mutex& mutex() {
        static std::recursive_mutex one;
        return one;
    }
    std::scoped_lock<std::recursive_mutex> lock_{mutex()};
};

Exiv2::ByteOrder decodeExif(const Bytes& exif, ExifData& data) {
    return Exiv2::ExifParser::decode(data, exif.data(), static_cast<std::uint32_t>(exif.size()));
}

/// A TIFF stream without a picture. (Exiv2's own coder of Exif blocks throws out what makes them
/// larger than a segment of JPEG, for all formats.)
Bytes encodeExif(const ExifData& data, Exiv2::ByteOrder order) {
    if (data.empty())
        return {};
    Exiv2::TiffImage image(Exiv2::BasicIo::AutoPtr(new Exiv2::MemIo), true);
    image.setByteOrder(order);
    image.setExifData(data);
    image.writeMetadata();
    Exiv2::BasicIo& io = image.io();
    const Exiv2::byte* const bytes = io.mmap();
    return {bytes, bytes + io.size()};
}

long numberOf(const ExifData& data, const char* key, long otherwise) {
    const auto found = data.findKey(Exiv2::ExifKey(key));
    return found != data.end() && found->count() > 0 ? found->toLong() : otherwise;
}

/// Changes a tag that is there; true when its value was another.
bool change(ExifData& data, const char* key, std::int32_t value) {
    const auto found = data.findKey(Exiv2::ExifKey(key));
    if (found == data.end() || (found->count() == 1 && found->toLong() == value))
        return false;
    // In the type that it has: then it fits where it stands.
    if (found->typeId() == Exiv2::unsignedShort && value <= 0xFFFF)
        *found = static_cast<std::uint16_t>(value);
    else
        *found = static_cast<std::uint32_t>(value);
    return true;
}

/// Puts changed values back, in place if they fit.
void store(Bytes& exif, const ExifData& data, Exiv2::ByteOrder order) {
    Exiv2::Blob moved;
    Bytes inPlace = exif;
    if (Exiv2::ExifParser::encode(moved, inPlace.data(), static_cast<std::uint32_t>(inPlace.size()),
                                  order, data) == Exiv2::wmNonIntrusive)
        exif = std::move(inPlace);
    else
        exif = encodeExif(data, order);
}

constexpr std::uint16_t unitInch = 2, unitCentimetre = 3;

std::optional<Density> densityOf(const ExifData& data) {
    const auto x = data.findKey(Exiv2::ExifKey("Exif.Image.XResolution"));
    const auto y = data.findKey(Exiv2::ExifKey("Exif.Image.YResolution"));
    if (x == data.end() || y == data.end() || x->count() != 1 || y->count() != 1 ||
        x->toRational().second == 0 || y->toRational().second == 0)
        return {};
    const long unit = numberOf(data, "Exif.Image.ResolutionUnit", unitInch);
    const Density density{static_cast<double>(x->toFloat()), static_cast<double>(y->toFloat()),
                          unit == unitCentimetre ? Density::Unit::centimetre
                          : unit == unitInch     ? Density::Unit::inch
                                                 : Density::Unit::none};
    if (density.x <= 0.0 || density.y <= 0.0)
        return {};
    return density;
}

/// Adds what the block doesn't say and no other place of the file can.
void addToExif(Metadata& metadata, bool density) {
    ExifData data;
    Exiv2::ByteOrder order = Exiv2::bigEndian;
    if (!metadata.exif.empty())
        order = decodeExif(metadata.exif, data);
    bool changed = false;
    const auto isMissing = [&](const char* key) {
        return data.findKey(Exiv2::ExifKey(key)) == data.end();
    };
    if (metadata.orientation != 1 && isMissing("Exif.Image.Orientation")) {
        data["Exif.Image.Orientation"] = metadata.orientation;
        changed = true;
    }
    if (density && metadata.density && isMissing("Exif.Image.XResolution")) {
        const auto rational = [](double v) {
            constexpr int parts = 10000;
            return Exiv2::URational(static_cast<std::uint32_t>(std::lround(v * parts)), parts);
        };
        data["Exif.Image.XResolution"] = rational(std::min(metadata.density->x, 1e5));
        data["Exif.Image.YResolution"] = rational(std::min(metadata.density->y, 1e5));
        const auto unit = metadata.density->unit;
        data["Exif.Image.ResolutionUnit"] =
            static_cast<std::uint16_t>(unit == Density::Unit::inch         ? unitInch
                                       : unit == Density::Unit::centimetre ? unitCentimetre
                                                                           : 1);
        changed = true;
    }
    if (changed)
        metadata.exif = encodeExif(data, order);
}

void tidyExif(Photo& photo) {
    Metadata& metadata = photo.metadata;
    if (metadata.exif.empty())
        return;
    if (metadata.exif.size() > 6 && std::memcmp(metadata.exif.data(), "Exif\0\0", 6) == 0)
        metadata.exif.erase(metadata.exif.begin(), metadata.exif.begin() + 6);
    if (!isTiffStream(metadata.exif)) {
        metadata.exif.clear();
        photo.remarks.push_back("an Exif block that is none");
        return;
    }
    dropThumbnail(metadata.exif);
    ExifData data;
    const Exiv2::ByteOrder order = decodeExif(metadata.exif, data);
    const long turned = numberOf(data, "Exif.Image.Orientation", 1);
    if (metadata.orientation == 0)
        metadata.orientation = static_cast<std::uint16_t>(turned >= 1 && turned <= 8 ? turned : 1);
    if (!metadata.density)
        metadata.density = densityOf(data);
    if (numberOf(data, "Exif.Photo.ColorSpace", 1) != 1)
        std::erase_if(metadata.extras, [](const Extra& extra) { return extra.name == "sRGB"; });
    bool changed = change(data, "Exif.Image.Orientation", metadata.orientation);
    changed |= change(data, "Exif.Photo.PixelXDimension", photo.width);
    changed |= change(data, "Exif.Photo.PixelYDimension", photo.height);
    changed |= change(data, "Exif.Image.ImageWidth", photo.width);
    changed |= change(data, "Exif.Image.ImageLength", photo.height);
    if (changed)
        store(metadata.exif, data, order);
}

/// Tags of a TIFF that say how its pixels are coded or where they and other blocks stand.
bool isStructural(const Exiv2::Exifdatum& datum) {
    constexpr std::uint16_t tags[] = {
        0x00fe, 0x00ff, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x0107, 0x0108, 0x0109, 0x010a,
        0x0111, 0x0115, 0x0116, 0x0117, 0x0118, 0x0119, 0x011c, 0x0120, 0x0121, 0x0122, 0x0123,
        0x0124, 0x0125, 0x012d, 0x013d, 0x013e, 0x013f, 0x0140, 0x0141, 0x0142, 0x0143, 0x0144,
        0x0145, 0x0146, 0x0147, 0x0148, 0x014a, 0x014c, 0x014d, 0x014e, 0x0150, 0x0151, 0x0152,
        0x0153, 0x0154, 0x0155, 0x0156, 0x0157, 0x0158, 0x0159, 0x015b, 0x0200, 0x0201, 0x0202,
        0x0203, 0x0205, 0x0206, 0x0207, 0x0208, 0x0209, 0x0211, 0x0212, 0x0213, 0x0214, 0x02bc,
        0x80e3, 0x80e4, 0x80e5, 0x80e6, 0x83bb, 0x8649, 0x8773, 0x935c};
    const std::string group = datum.groupName();
    if (group == "Image")
        return std::ranges::binary_search(tags, datum.tag());
    return group.starts_with("SubImage") || group.starts_with("Image") || group == "Thumbnail";
}

ExifData withoutStructure(const ExifData& all) {
    ExifData kept;
    for (const Exiv2::Exifdatum& datum : all)
        if (!isStructural(datum))
            kept.add(datum);
    return kept;
}

Bytes rawValue(const ExifData& data, const char* key, Exiv2::ByteOrder order) {
    const auto found = data.findKey(Exiv2::ExifKey(key));
    if (found == data.end())
        return {};
    Bytes bytes(static_cast<std::size_t>(found->size()));
    found->copy(bytes.data(), order);
    return bytes;
}

Bytes recordsOf(const Exiv2::IptcData& data) {
    if (data.empty())
        return {};
    const Exiv2::DataBuf buffer = Exiv2::IptcParser::encode(data);
    return {buffer.pData_, buffer.pData_ + buffer.size_};
}

Exiv2::IptcData iptcOf(const Bytes& records) {
    Exiv2::IptcData data;
    Exiv2::IptcParser::decode(data, records.data(), static_cast<std::uint32_t>(records.size()));
    return data;
}

/// Takes one resource block out; what it held.
Bytes cutResource(Bytes& resources, std::uint16_t number) {
    const Exiv2::byte* record = nullptr;
    std::uint32_t header = 0, size = 0;
    if (resources.empty() ||
        Exiv2::Photoshop::locateIrb(resources.data(), static_cast<long>(resources.size()), number,
                                    &record, &header, &size) != 0)
        return {};
    const auto begin = record - resources.data();
    const auto data = begin + static_cast<std::ptrdiff_t>(header);
    Bytes held(resources.begin() + data, resources.begin() + data + size);
    const auto end = std::min(data + static_cast<std::ptrdiff_t>(size + (size & 1)),
                              static_cast<std::ptrdiff_t>(resources.size()));
    resources.erase(resources.begin() + begin, resources.begin() + end);
    return held;
}

} // namespace

Density inInches(const Density& density) {
    constexpr double centimetres = 2.54;
    if (density.unit != Density::Unit::centimetre)
        return density;
    return {density.x * centimetres, density.y * centimetres, Density::Unit::inch};
}

void tidyMetadata(Photo& photo) {
    const Exiv2Session session;
    try {
        tidyExif(photo);
    } catch (const Exiv2::AnyError&) {
        // The block stays as it is.
    }
    if (photo.metadata.orientation < 1 || photo.metadata.orientation > 8)
        photo.metadata.orientation = 1;
}

void fitMetadata(Photo& photo, const FileFormat& format, std::vector<std::string>& lost) {
    Metadata& metadata = photo.metadata;
    if (!metadata.icc.empty() && profileKind(metadata.icc) == ProfileKind::unusable) {
        metadata.icc.clear();
        lost.push_back(damagedProfile);
    }
    if (!format.holdsIptc && !metadata.iptc.empty()) {
        metadata.iptc.clear();
        lost.push_back("IPTC");
    }
    if (!format.holdsTexts && !metadata.texts.empty()) {
        metadata.texts.clear();
        lost.push_back("comments");
    }
    for (Extra& extra : metadata.extras)
        if (extra.said && photo.coding.format != format.name &&
            std::ranges::find(lost, extra.name) == lost.end())
            lost.push_back(extra.name);
    if (photo.coding.format != format.name)
        metadata.extras.clear();
    const Exiv2Session session;
    try {
        addToExif(metadata, !format.holdsDensity);
        // Re-coded without the gap of the thumbnail it may fit into its segment.
        constexpr std::size_t mostInSegment = 65527;
        if (&format == &jpegFormat && metadata.exif.size() > mostInSegment) {
            ExifData data;
            const Exiv2::ByteOrder order = decodeExif(metadata.exif, data);
            metadata.exif = encodeExif(data, order);
        }
    } catch (const Exiv2::AnyError&) {
        lost.push_back("resolution and orientation");
    }
}

void takeResources(const Bytes& resources, Metadata& metadata) {
    if (resources.empty())
        return;
    const Exiv2Session session;
    constexpr std::uint16_t oldThumbnail = 0x0409, thumbnail = 0x040C;
    Bytes rest = resources;
    const Bytes records = cutResource(rest, Exiv2::Photoshop::iptc_);
    if (metadata.iptc.empty())
        metadata.iptc = records;
    cutResource(rest, oldThumbnail);
    cutResource(rest, thumbnail);
    if (!rest.empty())
        metadata.extras.push_back({photoshopBlocks, rest, true});
}

Bytes resourcesOf(const Metadata& metadata) {
    const Exiv2Session session;
    Bytes resources;
    for (const Extra& extra : metadata.extras)
        if (extra.name == photoshopBlocks)
            resources = extra.bytes;
    if (metadata.iptc.empty())
        return resources;
    const Exiv2::DataBuf with = Exiv2::Photoshop::setIptcIrb(
        resources.data(), static_cast<long>(resources.size()), iptcOf(metadata.iptc));
    return {with.pData_, with.pData_ + with.size_};
}

bool checkMultiPicture(const Bytes& index, Photo& photo) {
    if (!isTiffStream(index))
        return false;
    const Exiv2Session session;
    constexpr std::size_t entryBytes = 16;
    constexpr std::uint32_t typeMask = 0xFFFFFF, preview = 0x010000, previewMask = 0xFF0000;
    Bytes entries;
    Exiv2::ByteOrder order = Exiv2::bigEndian;
    std::size_t others = 0, unnamed = 0, previews = 0;
    try {
        ExifData data;
        order = decodeExif(index, data);
        entries = rawValue(data, "Exif.Image.0xb002", order);
        // A damaged index may have lost its entries, and still the number of them.
        const Bytes number = rawValue(data, "Exif.Image.0xb001", order);
        const std::size_t listed = std::max<std::size_t>(entries.size() / entryBytes, 1);
        const std::size_t told = number.size() == 4 ? Exiv2::getULong(number.data(), order) : 0;
        others = told > listed ? told - listed : 0;
    } catch (const Exiv2::AnyError&) {
        return false;
    }
    for (std::size_t at = entryBytes; at + entryBytes <= entries.size(); at += entryBytes) {
        const std::uint32_t type = Exiv2::getULong(&entries[at], order) & typeMask;
        if (type == 0)
            ++unnamed;
        else
            ++((type & previewMask) == preview ? previews : others);
    }
    const std::string_view xmp(reinterpret_cast<const char*>(photo.metadata.xmp.data()),
                               photo.metadata.xmp.size());
    const bool gainMap = xmp.find("hdrgm:") != std::string_view::npos ||
                         xmp.find("HDRGainMap") != std::string_view::npos;
    if (others > 0 || (unnamed > 0 && !gainMap))
        throw CodecError("holds " + std::to_string(others + unnamed + 1) +
                         " pictures; only files of one picture are denoised");
    if (unnamed > 0)
        photo.remarks.push_back("its gain map for bright screens");
    if (previews > 0)
        photo.remarks.push_back("its smaller previews");
    return previews + unnamed > 0;
}

void takeTiffMetadata(std::span<const std::uint8_t> file, Photo& photo) {
    const Exiv2Session session;
    Metadata& metadata = photo.metadata;
    try {
        const auto image = Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
        image->readMetadata();
        const Exiv2::ByteOrder order = image->byteOrder();
        const ExifData& all = image->exifData();
        metadata.xmp = rawValue(all, "Exif.Image.XMLPacket", order);
        metadata.iptc = recordsOf(image->iptcData());
        takeResources(rawValue(all, "Exif.Image.ImageResources", order), metadata);
        metadata.exif = encodeExif(withoutStructure(all), order);
    } catch (const Exiv2::AnyError&) {
        photo.remarks.push_back("Exif, XMP and IPTC that can't be read");
    }
}

Bytes withTiffMetadata(Bytes file, const Metadata& metadata, std::vector<std::string>& lost) {
    if (metadata.exif.empty() && metadata.xmp.empty() && metadata.iptc.empty())
        return file;
    const Exiv2Session session;
    try {
        const auto image = Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
        image->readMetadata();
        if (!metadata.exif.empty()) {
            ExifData given;
            decodeExif(metadata.exif, given);
            for (const Exiv2::Exifdatum& datum : withoutStructure(given)) {
                const auto key = Exiv2::ExifKey(datum.key());
                const auto found = image->exifData().findKey(key);
                if (found != image->exifData().end())
                    image->exifData().erase(found);
                image->exifData().add(datum);
            }
        }
        if (!metadata.iptc.empty())
            image->setIptcData(iptcOf(metadata.iptc));
        if (!metadata.xmp.empty()) {
            const std::string packet(metadata.xmp.begin(), metadata.xmp.end());
            if (Exiv2::XmpParser::decode(image->xmpData(), packet) != 0)
                lost.push_back("XMP");
        }
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        const Exiv2::byte* const bytes = io.mmap();
        return {bytes, bytes + io.size()};
    } catch (const Exiv2::AnyError&) {
        lost.push_back("Exif, XMP and IPTC");
        return file;
    }
}

} // namespace kt7::tool
