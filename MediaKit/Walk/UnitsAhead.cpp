// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/UnitsAhead.h"

#include <algorithm>
#include <span>
#include <vector>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

namespace {

constexpr std::size_t lengthBytes = 4;
// An encoder's message about its settings is the longest of them.
constexpr std::uint64_t mostBytes = 8192;

bool leadsPicture(std::uint8_t first, std::uint8_t second, NALFormat::Codec codec) {
  if (codec == NALFormat::Codec::h264) {
    const unsigned type = first & 31U;
    const bool isImportant = (first & 0x60U) != 0;
    const bool isSet = type == 7 || type == 8;
    return (first & 0x80U) == 0 &&
           ((isSet && isImportant) || ((type == 6 || type == 9) && !isImportant));
  }
  const unsigned type = first >> 1U;
  return (type >= 32 && type <= 35) || type == 39 ? (first & 1U) == 0 && second == 1 : false;
}

}  // namespace

std::uint64_t startOfUnitsAhead(std::uint64_t from, std::uint64_t picture, const NALFormat& format,
                                const ByteSource& source) {
  if (format.lengthSize != lengthBytes || from >= picture) {
    return picture;
  }
  const std::uint64_t first = std::max(from, picture - std::min(picture, mostBytes));
  const std::vector<std::uint8_t> bytes =
      source.read(first, static_cast<std::size_t>(picture - first));
  std::vector<bool> leads(bytes.size() + 1);
  leads.back() = bytes.size() == picture - first;
  std::size_t start = bytes.size();
  for (std::size_t at = bytes.size(); at-- > 0;) {
    const std::size_t left = bytes.size() - at;
    if (left < lengthBytes + 2 || bytes[at] != 0 || bytes[at + 1] != 0) continue;
    const auto length = bigEndian<std::uint32_t>(bytes, at);
    if (length < 2 || length > left - lengthBytes || !leads[at + lengthBytes + length]) continue;
    leads[at] = leadsPicture(bytes[at + lengthBytes], bytes[at + lengthBytes + 1], format.codec);
    if (leads[at]) start = at;
  }
  return first + start;
}

bool describeOthers(std::uint64_t start, std::uint64_t picture, const NALFormat& format,
                    const ParameterSets& known, const ByteSource& source) {
  const std::vector<std::uint8_t> bytes =
      source.read(start, static_cast<std::size_t>(picture - start));
  for (std::size_t at = 0; at + lengthBytes < bytes.size();) {
    const std::span<const std::uint8_t> behind = std::span(bytes).subspan(at + lengthBytes);
    const auto length = bigEndian<std::uint32_t>(bytes, at);
    if (length < 2 || length > behind.size()) {
      return false;
    }
    const int type = format.codec == NALFormat::Codec::h264 ? behind[0] & 31 : behind[0] >> 1;
    const bool isSequence = type == (format.codec == NALFormat::Codec::h264 ? 7 : 33);
    const auto found =
        isSequence ? readSequenceParameters(behind.first(length), format.codec) : std::nullopt;
    const auto same = found ? known.sequences.find(found->first) : known.sequences.end();
    if (found && !known.sequences.empty() &&
        (same == known.sequences.end() || same->second.width != found->second.width ||
         same->second.height != found->second.height ||
         same->second.bitDepth != found->second.bitDepth)) {
      return true;
    }
    at += lengthBytes + length;
  }
  return false;
}

}  // namespace tallowmark
