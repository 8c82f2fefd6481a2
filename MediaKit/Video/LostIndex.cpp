// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/LostIndex.h"

#include <algorithm>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/NameSearch.h"
#include "MediaKit/Video/IndexFit.h"

namespace tallowmark::LostIndex {

namespace {

// The index of an hour takes some ten megabytes.
constexpr std::uint64_t searched = std::uint64_t{16} << 20U;
// One that stands in front was made with room to spare, or for a short clip.
constexpr std::uint64_t searchedInFront = std::uint64_t{4} << 20U;

// Looks at pictures spread over the clip. Some may be overwritten.
bool describes(const Movie& movie, const ByteSource& clip) {
  constexpr std::uint64_t looks = 64;
  const Track* video = movie.videoTrack();
  if (video == nullptr) return false;
  const auto format = NALFormat::of(video->sampleEntry, video->codec);
  const SampleList present = video->samples.endingBy(clip.size());
  if (!format || present.empty()) return false;
  const std::uint64_t count = std::min(looks, present.size());
  std::uint64_t right = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const Sample sample = present[present.size() / count * i];
    if (IndexFit::isMadeOfUnits(sample, format->lengthSize, clip)) ++right;
  }
  return right * 2 >= count;
}

// The box of an index whose name stands at `name`. It opens with the movie's header (ISO/IEC
// 14496-12 §8.2.2).
std::optional<Box> indexAt(std::uint64_t name, const BoxReader& reader) {
  const auto box = name >= 4 ? reader.box(name - 4) : std::nullopt;
  const auto header = box && !box->truncated ? reader.box(box->payloadOffset()) : std::nullopt;
  return header && header->type == "mvhd" ? box : std::nullopt;
}

std::optional<Movie> movieOf(const Box& index, const ByteSource& clip) {
  try {
    Movie movie = MovieParser::parseMoov(index, BoxReader(clip), {});
    return describes(movie, clip) ? std::optional(std::move(movie)) : std::nullopt;
  } catch (const MediaError&) {
    return std::nullopt;
  }
}

std::optional<Movie> findWithin(std::uint64_t from, std::uint64_t to, const ByteSource& clip) {
  constexpr int mostTried = 16;
  const BoxReader reader(clip);
  std::optional<Movie> movie;
  int tried = 0;
  visitNames({"moov"}, clip, from, to, [&](std::uint64_t place) {
    const auto index = indexAt(place, reader);
    if (!index) return true;
    movie = movieOf(*index, clip);
    return !movie && ++tried < mostTried;
  });
  return movie;
}

// A length of four bytes, and what tells the unit's kind.
constexpr std::size_t unitHead = 7;

// Whether a unit may start here that some camera writes.
bool mayBeUnit(std::span<const std::uint8_t> bytes, std::size_t at, NALFormat::Codec codec) {
  constexpr std::uint32_t largest = 1U << 24U;
  const auto length = bigEndian<std::uint32_t>(bytes, at);
  if (length < 2 || length >= largest) return false;
  const std::uint8_t header = bytes[at + 4];
  if (codec == NALFormat::Codec::hevc) {
    // Base layer, some temporal layer, a type that is not reserved (H.265 §7.3.1.2).
    const int type = header >> 1;
    return (header & 0x81) == 0 && bytes[at + 5] >= 1 && bytes[at + 5] <= 7 &&
           (type <= 9 || (type >= 16 && type <= 21) || (type >= 32 && type <= 40));
  }
  const int type = header & 0x1F;
  const bool isReference = (header & 0x60) != 0;
  const bool neverReference = type == 6 || type == 9;
  const bool alwaysReference = type == 5 || type == 7 || type == 8;
  return (header & 0x80) == 0 && (type == 1 || neverReference || alwaysReference) &&
         !(neverReference && isReference) && !(alwaysReference && !isReference);
}

// How often a unit follows upon a unit.
int countFollowing(std::span<const std::uint8_t> bytes, NALFormat::Codec codec, int enough) {
  int following = 0;
  for (std::size_t at = 0; at + unitHead <= bytes.size() && following < enough;) {
    std::size_t next = at;
    int units = 0;
    while (next + unitHead <= bytes.size() && mayBeUnit(bytes, next, codec)) {
      next += 4 + bigEndian<std::uint32_t>(bytes, next);
      ++units;
    }
    following += std::max(0, units - 1);
    at = units > 1 ? std::min(next, bytes.size()) : at + 1;
  }
  return following;
}

// How often what may be a unit starts as the most frequent of them do: pictures of one kind begin
// with the same bytes, whatever stands between them.
int countOfOneKind(std::span<const std::uint8_t> bytes, NALFormat::Codec codec) {
  const std::size_t second = codec == NALFormat::Codec::hevc ? 6 : 5;
  std::vector<int> counts(std::size_t{1} << 16U);
  for (std::size_t at = 0; at + unitHead <= bytes.size(); ++at) {
    if (mayBeUnit(bytes, at, codec)) {
      ++counts[std::size_t{bytes[at + 4]} << 8U | bytes[at + second]];
    }
  }
  return *std::max_element(counts.begin(), counts.end());
}

}  // namespace

std::optional<Movie> find(const ByteSource& clip) {
  const std::uint64_t tail = clip.size() - std::min(clip.size(), searched);
  auto found = findWithin(tail, clip.size(), clip);
  return found || tail == 0 ? found : findWithin(0, std::min(tail, searchedInFront), clip);
}

bool holdsPictures(const ByteSource& clip) {
  // In as much noise as is searched a unit follows upon a unit once in ten times, and of each kind
  // there is one.
  constexpr int enoughFollowing = 6;
  const std::vector<std::uint8_t> bytes = clip.read(0, static_cast<std::size_t>(searched));
  const int enoughOfOneKind = 6 + static_cast<int>(18 * bytes.size() / searched);
  const auto isSeen = [&](NALFormat::Codec codec) {
    return countFollowing(bytes, codec, enoughFollowing) >= enoughFollowing ||
           countOfOneKind(bytes, codec) >= enoughOfOneKind;
  };
  return isSeen(NALFormat::Codec::h264) || isSeen(NALFormat::Codec::hevc);
}

}  // namespace tallowmark::LostIndex
