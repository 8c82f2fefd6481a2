// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/FourCC.h"
#include "MediaKit/Container/SampleList.h"

namespace tallowmark {

/// How a camera lays its pictures into MP4 and MOV: units of ITU-T H.264 or H.265 behind length
/// prefixes (ISO/IEC 14496-15 §5.3, §8.3). Learnt from a good clip, asked at every byte of a
/// damaged one.
struct NALFormat {
  enum class Codec { h264, hevc };

  /// One unit, as far as its first bytes tell.
  struct Unit {
    /// nal_unit_type (H.264 table 7-1, H.265 table 7-1).
    int type = 0;
    /// A coded slice.
    bool isVCL = false;
    /// A coded slice that is the first of its picture.
    bool firstInPicture = false;
    /// A type that stands only at the start of an access unit.
    bool startsAccessUnit = false;
    /// A slice of a random-access picture.
    bool isKeyframe = false;
    /// Bytes, length prefix included.
    std::size_t length = 0;
    /// The first header byte for H.264, both as one number for HEVC.
    std::uint16_t header = 0;
  };

  /// One access unit; `offset` counts in the buffer that was searched.
  struct Frame {
    std::size_t offset = 0;
    std::size_t size = 0;
    bool isKeyframe = false;
  };

  Codec codec = Codec::h264;
  /// Bytes of each unit's big-endian length prefix: 1 to 4.
  std::size_t lengthSize = 4;
  /// The unit headers seen in the reference; absent when any is accepted.
  std::optional<std::set<std::uint16_t>> knownHeaders;
  /// H.264: each picture is one unit of type 14 (§7.3.1, a prefix for scalable decoders) that holds
  /// the slice behind a start code of its own, as some phones write slow motion. Only who reads
  /// unit heads looks inside.
  bool wrapsSlices = false;

  /// From a reference's sample entry and its type. Nothing when the codec is another, or its
  /// configuration record is not there.
  static std::optional<NALFormat> of(std::span<const std::uint8_t> sampleEntry, FourCC codec);

  /// Fills knownHeaders from the first `limit` samples of the reference. Throws DeviceError.
  void learnHeaders(const SampleList& samples, const ByteSource& source, std::size_t limit);

  /// The unit at `position`, at most `maxSize` bytes long; nothing when none can stand there.
  std::optional<Unit> unit(std::span<const std::uint8_t> bytes, std::size_t position,
                           std::size_t maxSize, bool checkKnown) const;

  /// The access unit at `position`; nothing when none starts there.
  std::optional<Frame> frame(std::span<const std::uint8_t> bytes, std::size_t position,
                             std::size_t maxFrameSize) const;

  /// What a unit's header says of it, `afterHeader` being the first byte of its payload; nothing
  /// for headers no camera writes. `length` is left 0.
  std::optional<Unit> describe(std::uint16_t header, std::uint8_t afterHeader) const;

  /// Bytes of a unit's header: 1 for H.264, 2 for HEVC.
  std::size_t headerSize() const { return codec == Codec::h264 ? 1 : 2; }

  friend bool operator==(const NALFormat&, const NALFormat&) = default;
};

/// Where the decoder configuration record (avcC, hvcC) starts in a sample entry; nothing when it is
/// not there.
std::optional<std::size_t> configurationRecord(std::span<const std::uint8_t> sampleEntry,
                                               NALFormat::Codec codec);

/// The codec of a sample entry's type; nothing when it is neither.
std::optional<NALFormat::Codec> codecOf(FourCC sampleEntryType);

}  // namespace tallowmark
