// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/PictureExcerpt.h"

#include <algorithm>
#include <span>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/EmulationRule.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

namespace {

// Up to four times as much is held while pictures are tried.
constexpr std::size_t mostHeld = std::size_t{24} << 20U;
// Entropy-coded, 128 bits hardly ever stand for the same blocks as 128 others.
constexpr std::size_t changedBytes = 16;
constexpr std::uint8_t strangeByte = 0xA5;

// Never the same, and never zero: zeros could form a start code.
std::uint8_t another(std::uint8_t byte) {
  return static_cast<std::uint8_t>((byte ^ 0x5AU) | 0x11U);
}

// Slices may be padded with zeros and, inside the unit, with words of 00 00 03
// (ITU-T H.264 §7.3.2.10, H.265 §7.3.2.9).
std::size_t withoutPadding(const std::vector<std::uint8_t>& bytes, std::size_t start,
                           std::size_t end) {
  const auto isPadding = [&](std::size_t at) {
    return bytes[at] == 0 ||
           (bytes[at] == 3 && at >= start + 2 && bytes[at - 1] == 0 && bytes[at - 2] == 0);
  };
  while (end > start && isPadding(end - 1)) --end;
  return end;
}

// Whether a length prefix can say that a unit has this many bytes.
bool holdsLength(const NALFormat& format, std::size_t bytes) {
  return format.lengthSize >= sizeof(bytes) || bytes >> (8 * format.lengthSize) == 0;
}

bool isOfBaseLayer(const NALFormat& format, const NALFormat::Unit& unit) {
  return format.codec == NALFormat::Codec::h264 || (unit.header & 0x1F8U) == 0;
}

}  // namespace

PictureExcerpt::PictureExcerpt(const Track& video) {
  video_.trackID = 1;
  video_.kind = Track::Kind::video;
  video_.timescale = video.timescale;
  video_.sampleEntry = video.sampleEntry;
  video_.codec = video.codec;
  video_.width = video.width;
  video_.height = video.height;
  video_.handler = video.handler;
}

bool PictureExcerpt::add(const Sample& picture, const ByteSource& source) {
  if (picture.size > mostHeld - bytes_.size()) {
    return false;
  }
  const auto bytes = source.read(picture.offset, picture.size);
  if (bytes.size() < picture.size) {
    return false;
  }
  video_.samples.append(
      {bytes_.size(), picture.size, std::max(picture.duration, 1U), 0, picture.isSync});
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return true;
}

std::optional<PictureExcerpt::Slice> PictureExcerpt::lastSlice() const {
  const auto format = NALFormat::of(video_.sampleEntry, video_.codec);
  if (!format || video_.samples.empty()) {
    return std::nullopt;
  }
  std::optional<Slice> last;
  auto at = static_cast<std::size_t>(video_.samples.back().offset);
  while (const auto unit = format->unit(bytes_, at, bytes_.size() - at, false)) {
    if (unit->isVCL && isOfBaseLayer(*format, *unit)) {
      const std::size_t end = at + unit->length;
      const std::size_t bodyAt = at + format->lengthSize;
      last = Slice{at, bodyAt, withoutPadding(bytes_, bodyAt, end), end};
    }
    at += unit->length;
  }
  const bool canChange = last && last->end - last->at > 4 * changedBytes &&
                         holdsLength(*format, last->unitEnd - last->at + changedBytes);
  return canChange ? last : std::nullopt;
}

bool PictureExcerpt::hasSliceEnd() const {
  return lastSlice().has_value();
}

bool PictureExcerpt::isSurelyDamaged() const {
  const auto slice = lastSlice();
  return slice &&
         findForbiddenStretch(std::span(bytes_).subspan(slice->bodyAt, slice->end - slice->bodyAt));
}

std::vector<std::uint8_t> PictureExcerpt::bytesEndingIn(End end) const {
  std::vector<std::uint8_t> bytes = bytes_;
  if (end == End::asItIs) {
    return bytes;
  }
  const Slice slice = lastSlice().value();
  const auto behind = bytes.begin() + static_cast<std::ptrdiff_t>(slice.end);
  if (end == End::otherBytes) {
    std::transform(behind - changedBytes, behind, behind - changedBytes, another);
    return bytes;
  }
  std::size_t length = slice.unitEnd - slice.bodyAt + changedBytes;
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(slice.unitEnd), changedBytes,
               strangeByte);
  for (std::size_t at = slice.bodyAt; at-- > slice.at; length >>= 8U) {
    bytes[at] = static_cast<std::uint8_t>(length);
  }
  return bytes;
}

void PictureExcerpt::write(FileSink& destination, End end, const StopToken& stop) const {
  Movie movie;
  movie.timescale = video_.timescale;
  Track video = video_;
  const MemorySource media(bytesEndingIn(end));
  if (media.size() > bytes_.size()) {
    Sample last = video.samples.back();
    video.samples = video.samples.slice(0, video.samples.size() - 1);
    last.size += changedBytes;
    video.samples.append(last);
  }
  movie.tracks = {std::move(video)};
  MovieWriter::write(movie, media, {0, media.size()}, destination, {}, stop);
}

}  // namespace tallowmark
