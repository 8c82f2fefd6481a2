// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/MediaStart.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"

namespace tallowmark::VideoRepair {

namespace {

// As much room as an index in front is made with.
constexpr std::size_t searchedForBox = std::size_t{16} << 20U;
constexpr std::uint64_t shortHeader = 8;

// The first media-data box behind a stretch of zeros that starts at `from`. The first byte that is
// none belongs to its size or, where this is 0, to its name.
std::optional<Box> boxBehindZeros(const BoxReader& reader, std::uint64_t from) {
  const std::vector<std::uint8_t> bytes = reader.data(from, searchedForBox);
  const auto written =
      std::find_if(bytes.begin(), bytes.end(), [](auto byte) { return byte != 0; });
  const auto zeros = static_cast<std::uint64_t>(written - bytes.begin());
  if (zeros < shortHeader || written == bytes.end()) {
    return std::nullopt;
  }
  constexpr std::uint64_t sizeField = 4;
  for (std::uint64_t ahead = 0; ahead <= sizeField; ++ahead) {
    std::optional<Box> media;
    reader.visit(from + zeros - ahead, reader.size(), [&](const Box& box) {
      if (box.type == "mdat") media = box;
      return !media;
    });
    if (media) {
      return media;
    }
  }
  return std::nullopt;
}

}  // namespace

std::uint64_t mediaStart(const BoxReader& reader, Depth depth) {
  const auto layout = MovieParser::layoutIfAny(reader);
  if (layout && !layout->mdats.empty()) {
    return layout->mdats.front().payloadOffset();
  }
  std::uint64_t end = 0;
  if (layout) {
    reader.visit(0, reader.size(), [&](const Box& box) {
      end = box.end();
      return true;
    });
  }
  if (const auto media = depth == Depth::full ? boxBehindZeros(reader, end) : std::nullopt) {
    return media->payloadOffset();
  }
  if (!layout) {
    return 0;
  }
  if (end + shortHeader >= reader.size()) {
    throw MediaError::malformed("no media data (mdat) was found");
  }
  return end + shortHeader;
}

}  // namespace tallowmark::VideoRepair
