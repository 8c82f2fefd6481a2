// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/IndexFit.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"

namespace tallowmark::IndexFit {

namespace {

// Fewer that do not fit may be damaged themselves; fewer that fit teach nothing.
constexpr std::size_t enoughMisfits = 4;
constexpr std::uint64_t fewestThatFit = 12;

// Start codes in place of lengths (H.264 Annex B), as some programs write them, are nothing that
// moved.
bool startsWithCode(const std::vector<std::uint8_t>& bytes) {
  static constexpr std::array<std::uint8_t, 4> code{0, 0, 0, 1};
  return bytes.size() > code.size() && std::equal(code.begin(), code.end(), bytes.begin());
}

// The clip's last pictures, and some spread over it, from the end on.
std::vector<std::uint64_t> picturesToLookAt(std::uint64_t count) {
  constexpr std::uint64_t spread = 56;
  constexpr std::uint64_t last = 8;
  std::vector<std::uint64_t> numbers;
  const std::uint64_t end = count - std::min(count, last);
  const std::uint64_t step = std::max<std::uint64_t>(1, end / spread);
  for (std::uint64_t i = 0; i < end; i += step) numbers.push_back(i);
  for (std::uint64_t i = end; i < count; ++i) numbers.push_back(i);
  std::reverse(numbers.begin(), numbers.end());
  return numbers;
}

// The number of the first picture from which on none stands where the index says.
std::optional<std::uint64_t> firstMisfit(const SampleList& pictures, std::size_t lengthSize,
                                         const ByteSource& clip) {
  const auto fit = [&](std::uint64_t number) { return fitOf(pictures[number], lengthSize, clip); };
  std::size_t misfits = 0;
  std::uint64_t first = pictures.size();
  std::uint64_t fitting = 0;
  const auto numbers = picturesToLookAt(pictures.size());
  for (const std::uint64_t number : numbers) {
    const Fit found = fit(number);
    if (found == Fit::fits) {
      fitting = number + 1;
      break;
    }
    if (found == Fit::misfits) {
      ++misfits;
      first = number;
    }
  }
  if (misfits < enoughMisfits) {
    return std::nullopt;
  }
  while (fitting < first) {
    const std::uint64_t middle = fitting + (first - fitting) / 2;
    if (fit(middle) == Fit::fits) {
      fitting = middle + 1;
    } else {
      first = middle;
    }
  }
  return first;
}

}  // namespace

bool isMadeOfUnits(const Sample& sample, std::size_t lengthSize, const ByteSource& clip) {
  // So many that lead on to one another are no chance.
  constexpr int enoughUnits = 256;
  std::uint64_t at = sample.offset;
  const std::uint64_t end = sample.offset + sample.size;
  int units = 0;
  for (; at < end && units < enoughUnits; ++units) {
    std::uint64_t length = 0;
    for (const std::uint8_t byte : clip.read(at, lengthSize)) {
      length = length << 8U | byte;
    }
    const std::uint64_t unit = length + lengthSize;
    if (length == 0 || unit > end - at) return false;
    at += unit;
  }
  return sample.size > 0 && (at == end || units == enoughUnits);
}

Fit fitOf(const Sample& picture, std::size_t lengthSize, const ByteSource& clip) {
  constexpr std::size_t head = 64;
  if (isMadeOfUnits(picture, lengthSize, clip)) {
    return Fit::fits;
  }
  const auto bytes = clip.read(picture.offset, std::min<std::size_t>(head, picture.size));
  const auto isAll = [&](std::uint8_t of) {
    return std::all_of(bytes.begin(), bytes.end(), [&](std::uint8_t byte) { return byte == of; });
  };
  return isAll(0) || isAll(0xFF) ? Fit::isEmpty : startsWithCode(bytes) ? Fit::fits : Fit::misfits;
}

std::optional<std::uint64_t> endOfFit(const Movie& movie, const ByteSource& clip) {
  const Track* video = movie.videoTrack();
  const auto format =
      video == nullptr ? std::nullopt : NALFormat::of(video->sampleEntry, video->codec);
  if (!format || !movie.lostPieces.empty()) {
    return std::nullopt;
  }
  const SampleList pictures = video->samples.endingBy(clip.size());
  const auto first =
      pictures.empty() ? std::nullopt : firstMisfit(pictures, format->lengthSize, clip);
  if (!first) {
    return std::nullopt;
  }
  const bool teaches = *first >= fewestThatFit;
  return teaches ? pictures[*first - 1].offset + pictures[*first - 1].size : 0;
}

void cutToFit(Movie& movie, const ByteSource& clip) {
  const auto end = endOfFit(movie, clip);
  if (!end) {
    return;
  }
  for (Track& track : movie.tracks) {
    track.samples = track.samples.endingBy(*end);
  }
  movie.lostPieces.push_back({.from = *end, .to = clip.size(), .isMoved = true});
}

}  // namespace tallowmark::IndexFit
