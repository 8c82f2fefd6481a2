// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/Reordering.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "MediaKit/Bitstream/ParameterSetWriting.h"
#include "MediaKit/Bitstream/ParameterSets.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

// H.264 §A.3.1, H.265 §A.4.2
constexpr std::uint32_t mostKept = 16;
// Pictures that encoders keep beside those that wait: more would leave the levels they are made
// for.
constexpr std::uint32_t besides = 2;

// Limits that allow `pictures`; nothing when they do already, or no decoder could.
std::optional<std::vector<std::uint32_t>> raised(const CodedNumbers& limits, NALFormat::Codec codec,
                                                 std::size_t pictures) {
  std::vector<std::uint32_t> numbers = limits.numbers;
  const bool hevc = codec == NALFormat::Codec::hevc;
  std::uint32_t& reordered = hevc ? *(numbers.end() - 2) : numbers.front();
  std::uint32_t& kept = hevc ? *(numbers.end() - 3) : numbers.back();
  const std::uint32_t most = hevc ? mostKept - 1 : mostKept;
  if (reordered >= pictures || pictures > most) {
    return std::nullopt;
  }
  const auto wanted = static_cast<std::uint32_t>(pictures);
  kept = std::max(kept, std::min(wanted + besides, most));
  reordered = wanted;
  if (hevc) {
    numbers.back() = 0;  // no limit of its own for how long a picture waits
  }
  return numbers;
}

// A parameter set that allows `pictures`; nothing when it does already or says nothing.
std::optional<Bytes> raised(View unit, NALFormat::Codec codec, std::size_t pictures) {
  const auto limits = readOutputLimits(unit, codec);
  const auto numbers = limits ? raised(*limits, codec, pictures) : std::nullopt;
  if (!numbers) {
    return std::nullopt;
  }
  Bytes written = withNumbers(unit, codec, *limits, *numbers);
  const auto read = readOutputLimits(written, codec);
  return read && read->numbers == *numbers ? std::optional(std::move(written)) : std::nullopt;
}

}  // namespace

std::vector<std::uint8_t> allowingReordering(std::span<const std::uint8_t> sampleEntry,
                                             NALFormat::Codec codec, std::size_t pictures) {
  return withParameterSets(sampleEntry, codec,
                           [&](View unit) { return raised(unit, codec, pictures); });
}

}  // namespace tallowmark
