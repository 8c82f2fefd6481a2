// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/DamagedIndex.h"

#include <algorithm>
#include <span>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/IndexDamage.h"
#include "MediaKit/Sound/AACConfig.h"

namespace tallowmark::DamagedIndex {

namespace {

// Whether a sample entry has a row of zeros or ones behind the fields that all entries of its kind
// have: longer ones than any description holds in good faith.
bool hasHole(std::span<const std::uint8_t> entry, std::size_t fields) {
  constexpr int longest = 16;
  const auto boxes = entry.subspan(std::min(fields, entry.size()));
  const auto hasRow = [&](std::uint8_t of) {
    return std::search_n(boxes.begin(), boxes.end(), longest, of) != boxes.end();
  };
  return hasRow(0) || hasRow(0xFF);
}

// Whether a picture brings the sets along that decoders need (ITU-T H.264 and H.265 table 7-1).
bool bringsSets(const Sample& picture, NALFormat::Codec codec, const ByteSource& clip) {
  constexpr std::size_t head = 5;
  constexpr int mostUnits = 16;
  const std::uint64_t end = picture.offset + picture.size;
  std::uint64_t at = picture.offset;
  for (int units = 0; units < mostUnits && at < end && end - at > head; ++units) {
    const auto bytes = clip.read(at, head);
    if (bytes.size() < head) break;
    const bool isSet =
        codec == NALFormat::Codec::h264 ? (bytes[4] & 31U) == 7 : ((bytes[4] >> 1U) & 63U) == 33;
    if (isSet) return true;
    at += 4 + std::uint64_t{bigEndian<std::uint32_t>(bytes, 0)};
  }
  return false;
}

bool lacksSets(const Track& video, const ByteSource& clip) {
  // ISO/IEC 14496-12 §12.1.3
  constexpr std::size_t fields = 86;
  const bool promisesSets = video.codec == "avc1" || video.codec == "hvc1";
  if (!promisesSets || video.samples.empty() || !hasHole(video.sampleEntry, fields)) {
    return false;
  }
  const NALFormat::Codec codec = *codecOf(video.codec);
  const ParameterSets sets = ParameterSets::of(video.sampleEntry, codec);
  return (sets.sequences.empty() || sets.pictures.empty()) &&
         !bringsSets(video.samples.front(), codec, clip);
}

bool lacksSoundSettings(const Track& sound) {
  // ISO/IEC 14496-12 §12.2.3
  constexpr std::size_t fields = 36;
  return sound.codec == "mp4a" && !sound.samples.empty() && hasHole(sound.sampleEntry, fields) &&
         !AACConfig::of(sound.sampleEntry);
}

}  // namespace

bool isDamaged(const Movie& movie, const Box& moov, const ByteSource& clip) {
  return IndexDamage::isIn(moov, movie, BoxReader(clip)) ||
         std::any_of(movie.tracks.begin(), movie.tracks.end(), [&](const Track& track) {
           return track.kind == Track::Kind::video
                      ? lacksSets(track, clip)
                      : track.kind == Track::Kind::audio && lacksSoundSettings(track);
         });
}

}  // namespace tallowmark::DamagedIndex
