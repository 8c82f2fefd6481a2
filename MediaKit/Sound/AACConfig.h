// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace tallowmark {

/// What a sample entry says of its AAC stream, as far as the stream's syntax depends on it.
struct AACConfig {
  /// Index into the table of sampling rates (ISO/IEC 14496-3 §1.6.3.4) of the core coder: with
  /// spectral band replication half of what is heard.
  unsigned rateIndex = 0;
  /// 0: the stream lists its channels itself.
  unsigned channelConfiguration = 0;
  /// Samples of the core coder in one block: 1024 or 960.
  unsigned frameLength = 1024;

  /// Nothing unless `sampleEntry` holds the description of an AAC-LC stream, with or without
  /// spectral band replication on top of it.
  static std::optional<AACConfig> of(std::span<const std::uint8_t> sampleEntry);

  /// The rate of an AAC-LC stream without band replication, which states it by its index alone;
  /// nothing for others.
  static std::optional<std::uint32_t> soleRate(std::span<const std::uint8_t> sampleEntry);
  /// Lets such a stream state another one; returns whether it has an index.
  static bool setSoleRate(std::span<std::uint8_t> sampleEntry, std::uint32_t rate);

  /// Channels by the configuration, or as many as a stream that lists them itself may have.
  unsigned mostChannels() const;

  friend bool operator==(const AACConfig&, const AACConfig&) = default;
};

}  // namespace tallowmark
