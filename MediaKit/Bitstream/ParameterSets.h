// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"

namespace tallowmark {

/// How far pictures of a stream that sends no order counts stand apart (H.264 §8.2.1.2).
struct OrderCycle {
  bool alwaysAsExpected = false;
  std::int32_t offsetForNonReference = 0;
  std::vector<std::int32_t> offsetsForReferences;

  friend bool operator==(const OrderCycle&, const OrderCycle&) = default;
};

/// What a sequence parameter set says that decides how slice headers read (H.264 §7.3.2.1.1, H.265
/// §7.3.2.2).
struct SequenceParameters {
  std::uint32_t profile = 0;
  std::uint32_t chromaFormat = 1;
  bool separateColourPlanes = false;
  std::uint32_t bitDepth = 8;
  /// Luma samples, before cropping.
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  /// After cropping.
  std::uint32_t shownWidth = 0;
  std::uint32_t shownHeight = 0;
  /// H.264: width of frame_num in bits.
  unsigned frameNumBits = 0;
  /// H.264: pic_order_cnt_type; HEVC behaves as 0.
  unsigned orderType = 0;
  /// Width of the picture order count's low bits; 0 when there are none.
  unsigned orderBits = 0;
  /// H.264 with order type 1.
  OrderCycle orderCycle;
  /// The most pictures that are decoded before one and shown after it, where the stream says so.
  std::optional<std::uint32_t> mostReordered;
  /// H.264: every picture is a whole frame.
  bool framesOnly = true;
  /// HEVC: width of slice_segment_address in bits.
  unsigned segmentAddressBits = 0;

  friend bool operator==(const SequenceParameters&, const SequenceParameters&) = default;
};

/// What an H.264 picture parameter set says of slice headers behind the order count (§7.3.2.2).
struct SliceTailParameters {
  /// CABAC: slice data starts on a whole byte.
  bool arithmeticCoding = false;
  bool countsBottomFields = false;
  /// Pictures in lists 0 and 1 where a slice does not say, and from which bit of the unit's payload
  /// on that is told.
  std::array<std::uint32_t, 2> references{1, 1};
  std::size_t referencesAtBit = 0;
  /// Weights stand in headers of P slices; and in those of B slices (1), or follow from the
  /// pictures' distances (2).
  bool weighsP = false;
  std::uint32_t weighsB = 0;
  /// Of the unit's payload: weighted_pred_flag, with weighted_bipred_idc behind it.
  std::size_t weightsAtBit = 0;
  std::int32_t quantizer = 26;
  bool controlsDeblocking = false;
  bool hasRedundantPictures = false;
};

/// What a picture parameter set says of slice headers (H.264 §7.3.2.2, H.265 §7.3.2.3).
struct PictureParameters {
  std::uint32_t sequence = 0;
  /// H.264 without slice groups.
  std::optional<SliceTailParameters> tail;
  bool dependentSegments = false;
  bool outputFlag = false;
  unsigned extraHeaderBits = 0;
};

/// The parameter sets of one stream, by number.
struct ParameterSets {
  std::map<std::uint32_t, SequenceParameters> sequences;
  std::map<std::uint32_t, PictureParameters> pictures;

  /// Those of a sample entry's configuration record (ISO/IEC 14496-15 §5.3.3, §8.3.3); what cannot
  /// be read is left out.
  static ParameterSets of(std::span<const std::uint8_t> sampleEntry, NALFormat::Codec codec);

  /// Takes a set in from a whole unit without length prefix; other units change nothing.
  void add(std::span<const std::uint8_t> unit, NALFormat::Codec codec);

  /// The sets that slices naming picture set `id` go by; null when they are not known.
  const PictureParameters* picture(std::uint32_t id) const;
  const SequenceParameters* sequenceOf(std::uint32_t pictureId) const;
};

/// Where a unit lies among others.
struct UnitPlace {
  std::size_t at = 0;
  std::size_t size = 0;
};

/// The parameter set units of a sample entry's configuration record, each behind its length in 16
/// bits; in the order in which they stand there, as places in the entry.
std::vector<UnitPlace> parameterUnits(std::span<const std::uint8_t> sampleEntry,
                                      NALFormat::Codec codec);

/// Numbers that follow one another in a parameter set, each an Exp-Golomb code, and where: bits of
/// the unit's payload behind its header.
struct CodedNumbers {
  std::size_t firstBit = 0;
  std::size_t endBit = 0;
  std::vector<std::uint32_t> numbers;
};

/// What an H.264 sequence parameter set says of how pictures are numbered and kept (§7.3.2.1.1):
/// log2_max_frame_num_minus4, pic_order_cnt_type, with type 0 log2_max_pic_order_cnt_lsb_minus4,
/// and max_num_ref_frames. Nothing when it does not read as one, or with type 1.
std::optional<CodedNumbers> readNumbering(std::span<const std::uint8_t> unit);

/// What a sequence parameter set or HEVC's video parameter set says of the pictures that a decoder
/// keeps; nothing when it does not read as one or says nothing. H.264 (§E.1.1):
/// max_num_reorder_frames, max_dec_frame_buffering. HEVC (§7.3.2.1, §7.3.2.2): for each sub-layer
/// sps_max_dec_pic_buffering_minus1, sps_max_num_reorder_pics, sps_max_latency_increase_plus1, or
/// the video parameter set's.
std::optional<CodedNumbers> readOutputLimits(std::span<const std::uint8_t> unit,
                                             NALFormat::Codec codec);

/// Seconds of the clock tick that a sequence parameter set states (H.264 §E.2.1, H.265 §E.3.1), of
/// which pictures take one, two or more; nothing when it does not.
std::optional<double> readClockTick(std::span<const std::uint8_t> unit, NALFormat::Codec codec);

/// The number and content of a sequence parameter set unit; nothing when it does not read as one.
std::optional<std::pair<std::uint32_t, SequenceParameters>> readSequenceParameters(
    std::span<const std::uint8_t> unit, NALFormat::Codec codec);

}  // namespace tallowmark
