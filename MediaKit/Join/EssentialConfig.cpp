// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/EssentialConfig.h"

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark::ClipJoin {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

void append(Bytes& bytes, View more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// The box header and the fields ahead of the child boxes (ISO/IEC 14496-12 §12.1.3, §12.2.3; the
// longer versions of sound descriptions are QuickTime's).
std::size_t fixedPartOf(View entry, Track::Kind kind) {
  if (kind == Track::Kind::video) {
    return 86;
  }
  switch (bigEndianOrZero<std::uint16_t>(entry, 16)) {
    case 1:
      return 52;
    case 2:
      return 72;
    default:
      return 36;
  }
}

// QuickTime wraps the descriptor of AAC sound in a box of its own, once.
enum class Level { sampleEntry, wrapped };

void appendChildren(Bytes& essential, View children, Level level);

void appendChild(Bytes& essential, View child, Level level) {
  const FourCC type(bigEndian<std::uint32_t>(child, 4));
  if (type == "btrt") {
    return;
  }
  if (type == "esds") {
    if (const auto stream = esdsEssentials(child)) {
      append(essential, *stream);
      return;
    }
  }
  if (type == "wave" && level == Level::sampleEntry) {
    append(essential, child.subspan(4, 4));
    appendChildren(essential, child.subspan(8), Level::wrapped);
    return;
  }
  append(essential, child);
}

void appendChildren(Bytes& essential, View children, Level level) {
  while (children.size() >= 8) {
    const auto size = bigEndian<std::uint32_t>(children, 0);
    if (size < 8 || size > children.size()) {
      append(essential, children);
      return;
    }
    appendChild(essential, children.first(size), level);
    children = children.subspan(size);
  }
}

// Descriptors one after another, each a tag, a length of up to four bytes with seven bits in each,
// and a body (ISO/IEC 14496-1 §8.3.3).
class DescriptorReader {
 public:
  explicit DescriptorReader(View bytes) : left_(bytes) {}

  /// Steps into the body of the next descriptor and returns the body; nothing when it has another
  /// tag or runs past the end.
  std::optional<View> enter(std::uint8_t tag) {
    if (left_.empty() || left_[0] != tag) {
      return std::nullopt;
    }
    left_ = left_.subspan(1);
    std::size_t length = 0;
    for (int i = 0; i < 4; ++i) {
      if (left_.empty()) {
        return std::nullopt;
      }
      const std::uint8_t byte = left_[0];
      left_ = left_.subspan(1);
      length = (length << 7U) | (byte & 0x7FU);
      if ((byte & 0x80U) == 0) {
        break;
      }
    }
    if (length > left_.size()) {
      return std::nullopt;
    }
    return left_.first(length);
  }

  bool nextIs(std::uint8_t tag) const { return !left_.empty() && left_[0] == tag; }

  /// False when fewer bytes are left.
  bool skip(std::size_t count) {
    if (count > left_.size()) {
      return false;
    }
    left_ = left_.subspan(count);
    return true;
  }

  std::optional<std::uint8_t> byte() {
    if (left_.empty()) {
      return std::nullopt;
    }
    const std::uint8_t value = left_[0];
    left_ = left_.subspan(1);
    return value;
  }

 private:
  View left_;
};

// From the body of an ES descriptor to the descriptor behind its optional fields.
bool skipStreamFields(DescriptorReader& reader) {
  if (!reader.skip(2)) {
    return false;
  }
  const auto flags = reader.byte();
  if (!flags) {
    return false;
  }
  if ((*flags & 0x80U) != 0 && !reader.skip(2)) {
    return false;
  }
  if ((*flags & 0x40U) != 0) {
    const auto length = reader.byte();
    if (!length || !reader.skip(*length)) {
      return false;
    }
  }
  return (*flags & 0x20U) == 0 || reader.skip(2);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> esdsEssentials(std::span<const std::uint8_t> esds) {
  constexpr std::uint8_t streamTag = 3;
  constexpr std::uint8_t decoderTag = 4;
  constexpr std::uint8_t specificTag = 5;
  constexpr std::size_t decoderFields = 13;
  if (esds.size() < 13) {
    return std::nullopt;
  }
  DescriptorReader reader(esds.subspan(12));
  if (!reader.enter(streamTag) || !skipStreamFields(reader)) {
    return std::nullopt;
  }
  const auto decoder = reader.enter(decoderTag);
  if (!decoder || decoder->size() < 2) {
    return std::nullopt;
  }
  Bytes essential{(*decoder)[0], static_cast<std::uint8_t>((*decoder)[1] & 0xFCU)};
  if (reader.skip(decoderFields) && reader.nextIs(specificTag)) {
    const auto specific = reader.enter(specificTag);
    if (!specific) {
      return std::nullopt;
    }
    append(essential, *specific);
  }
  return essential;
}

std::vector<std::uint8_t> essentialConfig(std::span<const std::uint8_t> sampleEntry,
                                          Track::Kind kind) {
  const std::size_t fixedPart = kind == Track::Kind::other ? 0 : fixedPartOf(sampleEntry, kind);
  if (kind == Track::Kind::other || sampleEntry.size() < fixedPart) {
    return {sampleEntry.begin(), sampleEntry.end()};
  }
  Bytes essential(sampleEntry.begin() + 4,
                  sampleEntry.begin() + static_cast<std::ptrdiff_t>(fixedPart));
  appendChildren(essential, sampleEntry.subspan(fixedPart), Level::sampleEntry);
  return essential;
}

}  // namespace tallowmark::ClipJoin
