// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/CameraDetails.h"

#include <algorithm>
#include <array>
#include <string>

#include <exiv2/exiv2.hpp>

#include "ImageKit/CanonDetails.h"
#include "MediaKit/Photo/JPEGRepair.h"

namespace tallowmark {
namespace {

constexpr std::uint16_t orientationTag = 0x0112;
constexpr std::uint16_t pixelWidthTag = 0xA002;
constexpr std::uint16_t pixelHeightTag = 0xA003;

// TIFF 6.0 fields that tell about the picture, not about the file it is stored in: description,
// make, model, resolution and its unit, software, date, artist, host computer, copyright.
constexpr std::array<std::uint16_t, 11> descriptiveTags{
    0x010E, 0x010F, 0x0110, 0x011A, 0x011B, 0x0128, 0x0131, 0x0132, 0x013B, 0x013C, 0x8298};

// EXIF fields that point into the file or speak of its own picture: maker note, the
// interoperability directory, the picture's size, padding.
constexpr std::array<std::uint16_t, 5> fileBoundTags{0x927C, 0xA005, pixelWidthTag, pixelHeightTag,
                                                     0xEA1C};

// An EXIF segment holds 64 KiB in all.
constexpr long largestValue = 16384;

bool contains(const auto& tags, std::uint16_t tag) {
  return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

ImageProperty property(const Exiv2::Exifdatum& datum) {
  constexpr int undefinedType = 7;
  constexpr int lastType = 13;
  const int type = datum.typeId();
  ImageProperty result{.tag = datum.tag(),
                       .type = static_cast<std::uint16_t>(type <= lastType ? type : undefinedType),
                       .value = std::vector<std::uint8_t>(static_cast<std::size_t>(datum.size()))};
  datum.copy(result.value.data(), Exiv2::littleEndian);
  return result;
}

void addProperty(const Exiv2::Exifdatum& datum, const std::string& group,
                 ImageProperties& properties) {
  if (datum.size() <= 0 || datum.size() > largestValue) {
    return;
  }
  if (group == "Photo" && !contains(fileBoundTags, datum.tag())) {
    properties.exif.push_back(property(datum));
  } else if (group == "GPSInfo") {
    properties.gps.push_back(property(datum));
  } else if (group == "Image" && contains(descriptiveTags, datum.tag())) {
    properties.tiff.push_back(property(datum));
  } else if (group == "Image" && datum.tag() == orientationTag) {
    const auto orientation = datum.toLong();
    if (orientation >= 1 && orientation <= 8) {
      properties.orientation = static_cast<int>(orientation);
    }
  }
}

// A TIFF file whose only directory is what `group` would be in a photo's EXIF.
void addDirectory(const std::vector<std::uint8_t>& tiff, const std::string& group,
                  ImageProperties& properties) {
  if (tiff.empty()) {
    return;
  }
  Exiv2::ExifData data;
  Exiv2::ExifParser::decode(data, tiff.data(), static_cast<std::uint32_t>(tiff.size()));
  for (const Exiv2::Exifdatum& datum : data) {
    if (datum.groupName() == "Image") {
      addProperty(datum, group, properties);
    }
  }
}

ImageProperties canonProperties(const CanonDetails& details) {
  ImageProperties properties;
  addDirectory(details.tiff, "Image", properties);
  addDirectory(details.exif, "Photo", properties);
  addDirectory(details.gps, "GPSInfo", properties);
  return properties;
}

auto openImage(ByteView image) {
  auto opened = Exiv2::ImageFactory::open(image.data(), static_cast<long>(image.size()));
  opened->readMetadata();
  return opened;
}

void setProperties(const std::vector<ImageProperty>& properties, const std::string& group,
                   Exiv2::ExifData& data) {
  for (const ImageProperty& property : properties) {
    const auto value = Exiv2::Value::create(static_cast<Exiv2::TypeId>(property.type));
    value->read(property.value.data(), static_cast<long>(property.value.size()),
                Exiv2::littleEndian);
    const Exiv2::ExifKey key(property.tag, group);
    data[key.key()].setValue(value.get());
  }
}

void setPictureSize(const JPEGRepair::Dimensions& size, Exiv2::ExifData& data) {
  data["Exif.Photo.PixelXDimension"] = static_cast<std::uint32_t>(size.width);
  data["Exif.Photo.PixelYDimension"] = static_cast<std::uint32_t>(size.height);
}

std::vector<std::uint8_t> written(Exiv2::Image& image) {
  image.writeMetadata();
  Exiv2::BasicIo& io = image.io();
  io.open();
  io.seek(0, Exiv2::BasicIo::beg);
  const Exiv2::DataBuf bytes = io.read(static_cast<long>(io.size()));
  return {bytes.pData_, bytes.pData_ + bytes.size_};
}

bool picturesAreSame(ByteView a, ByteView b) {
  const auto first = JPEGRepair::parseHeader(a);
  const auto second = JPEGRepair::parseHeader(b);
  return first && second &&
         std::ranges::equal(a.subspan(first->sos.offset), b.subspan(second->sos.offset));
}

}  // namespace

void prepareCameraDetails() {
  static const bool prepared = [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::enableBMFF(true);
    try {
      return Exiv2::XmpParser::initialize();
    } catch (...) {  // of a kind of its own, and nothing but memory can be missing here
      throw std::bad_alloc();
    }
  }();
  (void)prepared;
}

ImageProperties cameraDetails(ByteView image) {
  try {
    if (const auto canon = canonDetails(image)) {
      return canonProperties(*canon);
    }
    ImageProperties properties;
    const auto opened = openImage(image);
    for (const Exiv2::Exifdatum& datum : opened->exifData()) {
      addProperty(datum, datum.groupName(), properties);
    }
    return properties;
  } catch (...) {  // its XMP errors are no std::exception
    return {};
  }
}

std::optional<std::vector<std::uint8_t>> withCameraDetails(ByteView jpeg,
                                                           const ImageProperties& properties) {
  try {
    const auto header = JPEGRepair::parseHeader(jpeg);
    const auto size = header ? header->dimensions() : std::nullopt;
    if (!size) {
      return std::nullopt;
    }
    const auto image = openImage(jpeg);
    Exiv2::ExifData& data = image->exifData();
    setProperties(properties.exif, "Photo", data);
    setProperties(properties.gps, "GPSInfo", data);
    setProperties(properties.tiff, "Image", data);
    if (properties.orientation) {
      data["Exif.Image.Orientation"] = static_cast<std::uint16_t>(*properties.orientation);
    }
    setPictureSize(*size, data);
    std::vector<std::uint8_t> merged = written(*image);
    return picturesAreSame(jpeg, merged) ? std::optional(std::move(merged)) : std::nullopt;
  } catch (...) {  // its XMP errors are no std::exception
    return std::nullopt;
  }
}

}  // namespace tallowmark
