// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

/// Marker codes of ISO/IEC 10918-1, table B.1: the byte that follows 0xFF.
namespace tallowmark::JPEGMarker {

/// Means nothing to decoders and may stand anywhere.
inline constexpr std::uint8_t temporary = 0x01;
inline constexpr std::uint8_t baselineFrame = 0xC0;
inline constexpr std::uint8_t extendedFrame = 0xC1;
inline constexpr std::uint8_t progressiveFrame = 0xC2;
inline constexpr std::uint8_t losslessFrame = 0xC3;
inline constexpr std::uint8_t huffmanTables = 0xC4;
inline constexpr std::uint8_t arithmeticConditioning = 0xCC;
inline constexpr std::uint8_t firstRestart = 0xD0;
inline constexpr std::uint8_t startOfImage = 0xD8;
inline constexpr std::uint8_t endOfImage = 0xD9;
inline constexpr std::uint8_t startOfScan = 0xDA;
inline constexpr std::uint8_t quantizationTables = 0xDB;
inline constexpr std::uint8_t numberOfLines = 0xDC;
inline constexpr std::uint8_t restartInterval = 0xDD;
inline constexpr std::uint8_t application0 = 0xE0;
inline constexpr std::uint8_t application15 = 0xEF;
inline constexpr std::uint8_t comment = 0xFE;

/// RST0 to RST7.
constexpr bool isRestart(std::uint8_t code) {
  return (code & 0xF8U) == 0xD0U;
}

/// Start of frame of any coding process; DHT, JPG and DAC lie among their codes.
constexpr bool isFrame(std::uint8_t code) {
  return code >= 0xC0 && code <= 0xCF && code != huffmanTables && code != 0xC8 &&
         code != arithmeticConditioning;
}

/// A segment that may stand between two scans of one picture (clause B.2.4).
constexpr bool isMiscellaneous(std::uint8_t code) {
  return code == quantizationTables || code == huffmanTables || code == arithmeticConditioning ||
         code == restartInterval || code == numberOfLines || code == comment ||
         (code >= application0 && code <= application15);
}

}  // namespace tallowmark::JPEGMarker
