// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/FrameOpenings.h"

#include <algorithm>

#include "MediaKit/Bitstream/BitReader.h"

namespace tallowmark {

namespace {

constexpr std::size_t bytesAtOnce = 4 * ByteLanes::width;
/// Frames of 16 MiB and more are not searched for: any byte could be the first of their length.
constexpr std::size_t prefixWithZero = 4;

/// Whether the byte behind its header may begin the first slice of a picture (H.264 §7.3.3): at
/// block 0, of a type that there is.
bool mayBeginH264(std::uint8_t byte) {
  constexpr std::uint32_t lastSliceType = 9;
  BitReader bits(std::span(&byte, 1));
  const bool atFirstBlock = bits.ue() == 0;
  return atFirstBlock && (bits.ue() <= lastSliceType || !bits.ok());
}

/// As above (H.265 §7.3.6.1): flagged as the first, of a picture parameter set that is known.
bool mayBeginHEVC(std::uint8_t header, std::uint8_t byte, const ParameterSets& sets) {
  const unsigned type = header >> 1U;
  const bool isRandomAccess = type >= 16 && type <= 23;
  BitReader bits(std::span(&byte, 1));
  const bool isFirst = bits.flag();
  bits.skip(isRandomAccess ? 1 : 0);
  const std::uint32_t picture = bits.ue();
  return isFirst && (!bits.ok() || sets.pictures.empty() || sets.picture(picture) != nullptr);
}

}  // namespace

FrameOpenings::FrameOpenings(const StreamEvidence& evidence, std::uint64_t maxFrameSize)
    : prefix_(evidence.format().lengthSize) {
  if (evidence.format().wrapsSlices) {
    openOnWrappers(maxFrameSize);
  } else {
    for (const UnitHabit& habit : evidence.habits()) {
      if (habit.starts) {
        learn(habit, evidence, maxFrameSize);
      }
    }
  }
  mostBodyOfAny_ = *std::max_element(mostBody_.begin(), mostBody_.end());
  if (!empty()) {
    gatherRanges();
  }
}

// Units of type 14 of any priority.
void FrameOpenings::openOnWrappers(std::uint64_t maxFrameSize) {
  for (const std::uint8_t first : std::array<std::uint8_t, 4>{0x0E, 0x2E, 0x4E, 0x6E}) {
    seconds_.at(first).fill(true);
    thirds_.at(first).fill(true);
    mostBody_.at(first) = maxFrameSize;
  }
}

// The bytes behind the length prefix that a frame of this build opens with: its header, and what a
// picture's first slice may have behind it.
void FrameOpenings::learn(const UnitHabit& habit, const StreamEvidence& evidence,
                          std::uint64_t maxFrameSize) {
  const bool h264 = evidence.format().codec == NALFormat::Codec::h264;
  const auto first = static_cast<std::uint8_t>(h264 ? habit.header : habit.header >> 8U);
  const std::uint64_t most =
      habit.isSlice ? maxFrameSize : std::min(maxFrameSize, habit.mostBytes());
  mostBody_[first] = std::max(mostBody_[first], most);
  for (unsigned value = 0; value < 256; ++value) {
    const auto byte = static_cast<std::uint8_t>(value);
    bool& second = seconds_[first][byte];
    bool& third = thirds_[first][byte];
    if (h264) {
      second = second || !habit.isSlice || habit.firstSlices.empty() || mayBeginH264(byte);
      third = true;
    } else {
      second = second || byte == (habit.header & 0xFFU);
      third = third || !habit.isSlice || mayBeginHEVC(first, byte, evidence.parameterSets());
    }
  }
}

void FrameOpenings::gatherRanges() {
  ByteValues firsts{};
  ByteValues seconds{};
  for (std::size_t first = 0; first < firsts.size(); ++first) {
    for (std::size_t second = 0; second < seconds.size(); ++second) {
      firsts.at(first) = firsts.at(first) || seconds_[first][second];
      seconds.at(second) = seconds.at(second) || seconds_[first][second];
    }
  }
  headerFirsts_ = ByteSet<4>(firsts);
  headerSeconds_ = ByteSet<1>(seconds);
  const std::uint64_t most = std::min<std::uint64_t>(mostBodyOfAny_ >> 16U, 0xFF);
  lengthSeconds_ = {0, static_cast<std::uint8_t>(most)};
}

bool FrameOpenings::mayOpen(const std::uint8_t* data) const {
  const std::uint8_t first = data[prefix_];
  if ((prefix_ == prefixWithZero && data[0] != 0) || !seconds_[first][data[prefix_ + 1]] ||
      !thirds_[first][data[prefix_ + 2]]) {
    return false;
  }
  std::uint64_t body = 0;
  for (std::size_t i = 0; i < prefix_; ++i) body = (body << 8U) | data[i];
  return body >= 2 && body <= mostBody_[first];
}

ByteLanes::Mask FrameOpenings::mayBeLength(const std::uint8_t* data) const {
  if (prefix_ != prefixWithZero) {
    return ByteLanes::all();
  }
  return ByteLanes::equal(data, 0) & ByteLanes::within(data + 1, lengthSeconds_) &
         ByteLanes::notAllZero(data + 1, data + 2, data + 3);
}

ByteLanes::Mask FrameOpenings::mayBeHeader(const std::uint8_t* data) const {
  return headerFirsts_.has(data) & headerSeconds_.has(data + 1);
}

// One question for four steps: what most media gives is no.
bool FrameOpenings::mayOpenInStride(const std::uint8_t* data) const {
  std::array<ByteLanes::Mask, bytesAtOnce / ByteLanes::width> lengths;
  ByteLanes::Mask any{};
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    lengths[i] = mayBeLength(data + i * ByteLanes::width);
    any |= lengths[i];
  }
  if (!ByteLanes::any(any)) {
    return false;
  }
  any = ByteLanes::Mask{};
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    any |= lengths[i] & mayBeHeader(data + i * ByteLanes::width + prefix_);
  }
  return ByteLanes::any(any);
}

std::optional<std::size_t> FrameOpenings::find(std::span<const std::uint8_t> bytes,
                                               std::size_t from) const {
  const std::uint8_t* const data = bytes.data();
  const std::size_t last = bytes.size() < length() ? 0 : bytes.size() - length() + 1;
  std::size_t at = from;
  while (at < last) {
    const bool isWhole = at + bytesAtOnce <= last;
    const std::size_t end = isWhole ? at + bytesAtOnce : last;
    if (!isWhole || mayOpenInStride(data + at)) {
      for (std::size_t i = at; i < end; ++i) {
        if (mayOpen(data + i)) {
          return i;
        }
      }
    }
    at = end;
  }
  return std::nullopt;
}

}  // namespace tallowmark
