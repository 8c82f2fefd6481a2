// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/NALFormat.h"

#include <algorithm>
#include <string_view>

#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark {

namespace {

constexpr MediaWindow::ReadAhead sampleReadAhead{512, std::size_t{4} << 10U};

// H.264 table 7-1: 13 (SPS extension) and 22 upward are not written by cameras.
std::optional<NALFormat::Unit> describeH264(std::uint16_t header, std::uint8_t afterHeader) {
  NALFormat::Unit unit;
  unit.header = header;
  unit.type = header & 31;
  if ((header & 0x80U) != 0 || unit.type == 0 || unit.type == 13 || unit.type > 21) {
    return std::nullopt;
  }
  unit.isVCL = unit.type <= 5;
  // first_mb_in_slice is an Exp-Golomb number: a leading 1 bit is macroblock 0.
  unit.firstInPicture = unit.isVCL && (afterHeader & 0x80U) != 0;
  unit.startsAccessUnit = unit.type >= 6 && unit.type <= 9;
  unit.isKeyframe = unit.type == 5;
  return unit;
}

// H.265 table 7-1 and §7.4.2.2: base layer only. Type 41 is reserved, yet some cameras use it.
std::optional<NALFormat::Unit> describeHEVC(std::uint16_t header, std::uint8_t afterHeader) {
  NALFormat::Unit unit;
  unit.header = header;
  unit.type = (header >> 9) & 63;
  const bool forbiddenBit = (header & 0x8000U) != 0;
  const unsigned layer = (header >> 3U) & 63U;
  const unsigned temporalIdPlusOne = header & 7U;
  const int t = unit.type;
  if (forbiddenBit || layer != 0 || temporalIdPlusOne == 0 || (t > 9 && t < 16) ||
      (t > 21 && t < 32) || t > 41) {
    return std::nullopt;
  }
  unit.isVCL = t < 32;
  unit.firstInPicture = unit.isVCL && (afterHeader & 0x80U) != 0;
  unit.startsAccessUnit = (t >= 32 && t <= 35) || t == 39;
  unit.isKeyframe = t >= 16 && t <= 21;
  return unit;
}

}  // namespace

std::optional<NALFormat::Codec> codecOf(FourCC type) {
  if (type == "avc1" || type == "avc3") return NALFormat::Codec::h264;
  if (type == "hvc1" || type == "hev1") return NALFormat::Codec::hevc;
  return std::nullopt;
}

std::optional<std::size_t> configurationRecord(std::span<const std::uint8_t> entry,
                                               NALFormat::Codec codec) {
  const std::string_view name = codec == NALFormat::Codec::h264 ? "avcC" : "hvcC";
  const auto found = std::search(
      entry.begin(), entry.end(), name.begin(), name.end(),
      [](std::uint8_t byte, char letter) { return byte == static_cast<unsigned char>(letter); });
  const auto at = static_cast<std::size_t>(found - entry.begin());
  // There must be room for the box's size before its type.
  return found == entry.end() || at < 4 ? std::nullopt : std::optional(at + name.size());
}

std::optional<NALFormat> NALFormat::of(std::span<const std::uint8_t> sampleEntry, FourCC type) {
  const auto codec = codecOf(type);
  const auto record = codec ? configurationRecord(sampleEntry, *codec) : std::nullopt;
  if (!record) {
    return std::nullopt;
  }
  const std::size_t sizeAt = *record + (*codec == Codec::h264 ? 4 : 21);
  if (sizeAt >= sampleEntry.size()) {
    return std::nullopt;
  }
  return NALFormat{*codec, (sampleEntry[sizeAt] & 3U) + 1U, std::nullopt};
}

void NALFormat::learnHeaders(const SampleList& samples, const ByteSource& source,
                             std::size_t limit) {
  // Only heads are read: a sample can claim gigabytes.
  MediaWindow window(source, source.size(), sampleReadAhead);
  std::set<std::uint16_t> seen;
  std::size_t looked = 0;
  for (auto sample = samples.begin(); sample != samples.end() && looked < limit;
       ++sample, ++looked) {
    const Sample s = *sample;
    const std::uint64_t end = std::min(saturatingAdd(s.offset, s.size), source.size());
    for (std::uint64_t at = s.offset; at < end;) {
      const auto head = readUnitHead(window, at, end, *this);
      if (!head || at + lengthSize + headerSize() >= end ||
          !describe(head->header, head->afterHeader())) {
        break;
      }
      seen.insert(head->header);
      at += head->length;
    }
  }
  knownHeaders = seen.empty() ? std::nullopt : std::optional(std::move(seen));
}

std::optional<NALFormat::Unit> NALFormat::unit(std::span<const std::uint8_t> bytes,
                                               std::size_t position, std::size_t maxSize,
                                               bool checkKnown) const {
  if (position > bytes.size() || bytes.size() - position < lengthSize + 2) {
    return std::nullopt;
  }
  const auto here = bytes.subspan(position);
  std::size_t length = 0;
  for (std::size_t i = 0; i < lengthSize; ++i) {
    length = (length << 8U) | here[i];
  }
  if (length < 2 || lengthSize + length > maxSize || lengthSize + length > here.size()) {
    return std::nullopt;
  }
  const std::size_t bodyAt = lengthSize + headerSize();
  if (bodyAt >= here.size()) {
    return std::nullopt;
  }
  const auto header = static_cast<std::uint16_t>(
      codec == Codec::h264 ? here[lengthSize] : (here[lengthSize] << 8U) | here[lengthSize + 1]);
  if (checkKnown && knownHeaders && !knownHeaders->contains(header)) {
    return std::nullopt;
  }
  auto found = describe(header, here[bodyAt]);
  if (found) {
    found->length = lengthSize + length;
  }
  return found;
}

std::optional<NALFormat::Unit> NALFormat::describe(std::uint16_t header,
                                                   std::uint8_t afterHeader) const {
  return codec == Codec::h264 ? describeH264(header, afterHeader)
                              : describeHEVC(header, afterHeader);
}

std::optional<NALFormat::Frame> NALFormat::frame(std::span<const std::uint8_t> bytes,
                                                 std::size_t position,
                                                 std::size_t maxFrameSize) const {
  Frame frame{position, 0, false};
  bool sliceSeen = false;
  for (std::size_t at = position;;) {
    const auto next = unit(bytes, at, maxFrameSize, true);
    const bool belongsToNext =
        next && sliceSeen && (next->startsAccessUnit || next->firstInPicture);
    if (!next || belongsToNext) {
      frame.size = at - position;
      return sliceSeen ? std::optional(frame) : std::nullopt;
    }
    if (next->isVCL) {
      if (!next->firstInPicture && !sliceSeen) {
        return std::nullopt;  // a picture cannot begin in its middle
      }
      sliceSeen = true;
      frame.isKeyframe = frame.isKeyframe || next->isKeyframe;
    }
    at += next->length;
    if (at - position > maxFrameSize) {
      return std::nullopt;
    }
  }
}

}  // namespace tallowmark
