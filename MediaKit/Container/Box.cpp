// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/Box.h"

#include <array>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t implausiblePayload = std::uint64_t{1} << 29U;

void requirePlausible(const Box& box) {
  if (box.payloadSize() >= implausiblePayload) {
    throw MediaError::malformed(box.type.description() + " box is implausibly large");
  }
}

}  // namespace

std::optional<Box> BoxReader::box(std::uint64_t offset, std::optional<std::uint64_t> limit) const {
  const std::uint64_t end = limit.value_or(size());
  if (end < 8 || offset > end - 8) {
    return std::nullopt;
  }
  std::array<std::uint8_t, 16> header{};
  const std::size_t got = source_->readInto(offset, header);
  if (got < 8) {
    return std::nullopt;
  }
  Box box{.type = FourCC(bigEndian<std::uint32_t>(header, 4)), .offset = offset};
  if (!box.type.isPlausible()) {
    return std::nullopt;
  }
  const auto compactSize = bigEndian<std::uint32_t>(header, 0);
  if (compactSize == 0) {
    box.size = end - offset;
  } else if (compactSize == 1) {
    box.headerSize = 16;
    box.size = bigEndian<std::uint64_t>(header, 8);
    if (got < 16) {
      return std::nullopt;
    }
  } else {
    box.size = compactSize;
  }
  if (box.size < box.headerSize) {
    return std::nullopt;
  }
  if (box.size > end - offset) {
    box.size = end - offset;
    box.truncated = true;
  }
  // A 64-bit header of which the limit leaves only a part has no payload at all.
  return box.size >= box.headerSize ? std::optional(box) : std::nullopt;
}

std::vector<Box> BoxReader::children(std::uint64_t from, std::uint64_t to) const {
  std::vector<Box> boxes;
  for (std::uint64_t position = from;
       position <= to && to - position >= 8 && boxes.size() < mostSiblings;) {
    const auto next = box(position, to);
    if (!next) {
      break;
    }
    boxes.push_back(*next);
    if (next->truncated || next->size == 0) {
      break;
    }
    position = next->end();
  }
  return boxes;
}

std::vector<Box> BoxReader::children(const Box& container, std::uint64_t skip) const {
  if (container.payloadSize() < skip) {
    return {};
  }
  return children(container.payloadOffset() + skip, container.end());
}

std::optional<Box> BoxReader::child(const Box& container, FourCC type) const {
  for (const Box& box : children(container)) {
    if (box.type == type) {
      return box;
    }
  }
  return std::nullopt;
}

std::vector<std::uint8_t> BoxReader::payload(const Box& box) const {
  requirePlausible(box);
  return data(box.payloadOffset(), static_cast<std::size_t>(box.payloadSize()));
}

std::vector<std::uint8_t> BoxReader::whole(const Box& box) const {
  requirePlausible(box);
  return data(box.offset, static_cast<std::size_t>(box.size));
}

std::vector<std::uint8_t> BoxReader::detached(const Box& box) const {
  std::vector<std::uint8_t> bytes = whole(box);
  const bool wide = box.headerSize == 16;
  const std::size_t fieldEnd = wide ? 16 : 4;
  std::uint64_t size = bytes.size();
  for (std::size_t i = 0; i < (wide ? 8U : 4U) && bytes.size() >= fieldEnd; ++i, size >>= 8U) {
    bytes[fieldEnd - 1 - i] = static_cast<std::uint8_t>(size & 0xFFU);
  }
  return bytes;
}

}  // namespace tallowmark
