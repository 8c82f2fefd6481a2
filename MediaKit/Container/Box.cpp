// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/Box.h"

#include <algorithm>
#include <array>
#include <span>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t implausiblePayload = std::uint64_t{1} << 29U;
constexpr std::size_t longestBoxHeader = 16;

// The header whose bytes `header` holds, as many as there are of it.
std::optional<Box> boxFrom(std::span<const std::uint8_t> header, std::uint64_t offset,
                           std::uint64_t end) {
  if (header.size() < 8) {
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
    if (header.size() < longestBoxHeader) {
      return std::nullopt;
    }
    box.size = bigEndian<std::uint64_t>(header, 8);
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

}  // namespace

std::optional<Box> BoxReader::box(std::uint64_t offset, std::optional<std::uint64_t> limit) const {
  const std::uint64_t end = limit.value_or(size());
  if (end < 8 || offset > end - 8) {
    return std::nullopt;
  }
  std::array<std::uint8_t, longestBoxHeader> header{};
  const std::size_t got = source_->readInto(offset, header);
  return boxFrom(std::span(header).first(got), offset, end);
}

/// Reads the headers of one box after another: behind a small box more than one at a time.
class BoxReader::Headers {
 public:
  explicit Headers(const ByteSource& source) : source_(source) {}

  std::span<const std::uint8_t> at(std::uint64_t offset) {
    const bool isHeld = offset >= start_ && offset - start_ + longestBoxHeader <= held_;
    if (!isHeld) {
      const bool isNear = held_ > 0 && offset - start_ < bytes_.size();
      const std::size_t wanted = isNear ? bytes_.size() : longestBoxHeader;
      held_ = source_.readInto(offset, std::span(bytes_).first(wanted));
      start_ = offset;
    }
    const auto skipped = static_cast<std::size_t>(offset - start_);
    return std::span(bytes_).first(held_).subspan(skipped).first(
        std::min(held_ - skipped, longestBoxHeader));
  }

 private:
  const ByteSource& source_;
  std::array<std::uint8_t, 1024> bytes_{};
  std::uint64_t start_ = 0;
  std::size_t held_ = 0;
};

void BoxReader::visit(std::uint64_t from, std::uint64_t to, const Visitor& visitor) const {
  Headers headers(*source_);
  std::uint64_t position = from;
  for (std::size_t seen = 0; seen < mostSiblings && position <= to && to - position >= 8; ++seen) {
    const auto next = boxFrom(headers.at(position), position, to);
    if (!next || !visitor(*next) || next->truncated || next->size == 0) {
      return;
    }
    position = next->end();
  }
}

void BoxReader::visitChildren(const Box& container, const Visitor& visitor) const {
  visit(container.payloadOffset(), container.end(), visitor);
}

std::vector<Box> BoxReader::children(std::uint64_t from, std::uint64_t to) const {
  std::vector<Box> boxes;
  visit(from, to, [&](const Box& box) {
    boxes.push_back(box);
    return true;
  });
  return boxes;
}

std::vector<Box> BoxReader::children(const Box& container, std::uint64_t skip) const {
  if (container.payloadSize() < skip) {
    return {};
  }
  return children(container.payloadOffset() + skip, container.end());
}

std::optional<Box> BoxReader::child(const Box& container, FourCC type) const {
  std::optional<Box> found;
  visitChildren(container, [&](const Box& box) {
    if (box.type == type) {
      found = box;
    }
    return !found;
  });
  return found;
}

void BoxReader::requirePlausible(const Box& box) {
  if (box.payloadSize() >= implausiblePayload) {
    throw MediaError::malformed(box.type.description() + " box is implausibly large");
  }
}

std::vector<std::uint8_t> BoxReader::payload(const Box& box) const {
  return payload(box, implausiblePayload);
}

std::vector<std::uint8_t> BoxReader::payload(const Box& box, std::uint64_t most) const {
  requirePlausible(box);
  return data(box.payloadOffset(), static_cast<std::size_t>(std::min(box.payloadSize(), most)));
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
