// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Container/SampleList.h"

namespace tallowmark {

/// Parameter sets that a stream brings along ahead of its key pictures (ITU-T H.264 §7.4.1.2.1,
/// H.265 §7.4.2.4.2): whole units without length prefixes, as they stand there.
struct CarriedSets {
  std::vector<std::vector<std::uint8_t>> units;

  friend bool operator==(const CarriedSets&, const CarriedSets&) = default;

  /// The sets that key pictures at their places in `source` bring along: of a few of them, most
  /// the same; nothing when most bring none, or not all that a decoder needs. Throws DeviceError.
  static std::optional<CarriedSets> of(const SampleList& pictures, const ByteSource& source,
                                       const NALFormat& format);

  /// The same where no picture is known: looks for them in the next 64 MiB from `from` on. Throws
  /// DeviceError, Stopped.
  static std::optional<CarriedSets> search(const ByteSource& source, std::uint64_t from,
                                           const NALFormat& format, const StopToken& stop);

  /// What they say, by number.
  ParameterSets read(NALFormat::Codec codec) const;

  /// Whether a sample entry's configuration record holds each of them.
  bool areIn(std::span<const std::uint8_t> sampleEntry, NALFormat::Codec codec) const;

  /// A sample entry with these sets and their picture size in place of its own (ISO/IEC 14496-15
  /// §5.3.3, §8.3.3); nothing when it has no configuration record.
  std::optional<std::vector<std::uint8_t>> describe(std::span<const std::uint8_t> sampleEntry,
                                                    NALFormat::Codec codec) const;
};

}  // namespace tallowmark
