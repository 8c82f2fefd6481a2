// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowmark {

/// Which bytes of a card stand in its image. As text, a line a stretch:
///
///     tallowmark map 1
///     size 63864569856
///     read 0 8388608
///     bad 8388608 512
///
/// with offset and length in bytes. What no line names was not tried yet. Lines that start with "#"
/// are remarks.
class ReadMap {
 public:
  enum class State : std::uint8_t { untried, read, bad };

  struct Stretch {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    friend bool operator==(const Stretch&, const Stretch&) = default;
  };

  /// Nothing was tried of a card of that many bytes.
  explicit ReadMap(std::uint64_t size);

  std::uint64_t size() const { return size_; }
  /// The stretch lies on the card.
  void mark(std::uint64_t offset, std::uint64_t length, State state);
  /// The longest stretches in that state, in rising order.
  std::vector<Stretch> stretches(State state) const;
  /// How many bytes are in that state.
  std::uint64_t bytes(State state) const { return bytes_[static_cast<std::size_t>(state)]; }

  std::string text() const;
  /// Nothing for what is no map, or one that contradicts itself. A map that lost its end claims
  /// less than was read, never more.
  static std::optional<ReadMap> parse(std::string_view text);

 private:
  void splitAt(std::uint64_t offset);
  void count(std::uint64_t length, State state, bool isAdded);

  std::uint64_t size_;
  // Where each stretch starts; it ends where the next one does, the last at size_.
  std::map<std::uint64_t, State> starts_;
  std::array<std::uint64_t, 3> bytes_{};
};

}  // namespace tallowmark
