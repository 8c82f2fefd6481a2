// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/FourCC.h"

namespace tallowmark {

/// One box header as found in a file (ISO/IEC 14496-12 §4.2).
struct Box {
  FourCC type;
  /// Absolute position of the header's first byte.
  std::uint64_t offset = 0;
  /// 8, or 16 with a 64-bit size.
  std::uint32_t headerSize = 8;
  /// From `offset` to the box's end as far as it can be read, header included.
  std::uint64_t size = 8;
  /// The declared size ran past the limit and was clipped.
  bool truncated = false;

  std::uint64_t payloadOffset() const { return offset + headerSize; }
  std::uint64_t payloadSize() const { return size - headerSize; }
  std::uint64_t end() const { return offset + size; }

  friend bool operator==(const Box&, const Box&) = default;
};

/// Reads boxes from a source without trusting it. Keeps no position and no cache; the source must
/// outlive it. Everything here passes the source's errors through.
class BoxReader {
 public:
  explicit BoxReader(const ByteSource& source) : source_(&source) {}

  const ByteSource& source() const { return *source_; }
  std::uint64_t size() const { return source_->size(); }
  std::vector<std::uint8_t> data(std::uint64_t offset, std::size_t count) const {
    return source_->read(offset, count);
  }

  /// The header at `offset`, or nothing when no plausible box starts there. A box that runs past
  /// `limit` (the source's end when absent) is clipped.
  std::optional<Box> box(std::uint64_t offset,
                         std::optional<std::uint64_t> limit = std::nullopt) const;

  /// Told box after box; false ends the walk.
  using Visitor = std::function<bool(const Box&)>;

  /// Walks the run of siblings from `from` up to `to`: the good prefix, whose last box may be
  /// truncated. At most mostSiblings of them.
  void visit(std::uint64_t from, std::uint64_t to, const Visitor& visitor) const;

  /// As visit, for the boxes inside a container.
  void visitChildren(const Box& container, const Visitor& visitor) const;

  /// The boxes of that walk. A hostile file has a million of them: where they are looked at one by
  /// one, visit.
  std::vector<Box> children(std::uint64_t from, std::uint64_t to) const;

  /// The boxes inside a container, after `skip` bytes of its payload (4 for a full box's version
  /// and flags).
  std::vector<Box> children(const Box& container, std::uint64_t skip = 0) const;

  /// The first child of that type, not looking into it.
  std::optional<Box> child(const Box& container, FourCC type) const;

  /// Throws MediaError::malformed for payloads of 2^29 bytes or more: an index box is never that
  /// large, and a damaged size must not take the memory.
  static void requirePlausible(const Box& box);

  /// Throws as requirePlausible.
  std::vector<std::uint8_t> payload(const Box& box) const;

  /// The payload, or as much from its start on as `most`. Throws as requirePlausible.
  std::vector<std::uint8_t> payload(const Box& box, std::uint64_t most) const;

  /// The box with its header. Throws like payload.
  std::vector<std::uint8_t> whole(const Box& box) const;

  /// As whole, with the size that the box really has in its header. A box that claimed more than
  /// its parent held, or all that was left, would swallow what stands behind it elsewhere.
  std::vector<std::uint8_t> detached(const Box& box) const;

  /// No recorder writes that many boxes side by side; a file made of nothing but headers must not
  /// take memory several times its size.
  static constexpr std::size_t mostSiblings = std::size_t{1} << 20U;

 private:
  class Headers;

  const ByteSource* source_;
};

}  // namespace tallowmark
