// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/ReadMap.h"

#include <charconv>
#include <iterator>

namespace tallowmark {

namespace {

constexpr std::string_view firstLine = "tallowmark map 1";

std::string_view takeUpTo(std::string_view& text, char end) {
  const std::size_t at = text.find(end);
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
  return taken;
}

std::optional<std::uint64_t> numberIn(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

std::optional<ReadMap::State> stateNamed(std::string_view word) {
  if (word == "read") return ReadMap::State::read;
  if (word == "bad") return ReadMap::State::bad;
  return std::nullopt;
}

// "read 0 8388608" into the map; false when it says something else, or what the card has not.
bool takeStretch(std::string_view line, ReadMap& map) {
  const auto state = stateNamed(takeUpTo(line, ' '));
  const auto offset = numberIn(takeUpTo(line, ' '));
  const auto length = numberIn(line);
  if (!state || !offset || !length || *offset > map.size() || *length > map.size() - *offset) {
    return false;
  }
  map.mark(*offset, *length, *state);
  return true;
}

}  // namespace

ReadMap::ReadMap(std::uint64_t size) : size_(size) {
  starts_.emplace(0, State::untried);
  count(size, State::untried, true);
}

void ReadMap::count(std::uint64_t length, State state, bool isAdded) {
  std::uint64_t& bytes = bytes_[static_cast<std::size_t>(state)];
  bytes = isAdded ? bytes + length : bytes - length;
}

void ReadMap::splitAt(std::uint64_t offset) {
  if (offset < size_) {
    const auto before = std::prev(starts_.upper_bound(offset));
    starts_.emplace_hint(std::next(before), offset, before->second);
  }
}

void ReadMap::mark(std::uint64_t offset, std::uint64_t length, State state) {
  if (length == 0) {
    return;
  }
  const std::uint64_t end = offset + length;
  splitAt(offset);
  splitAt(end);
  const auto first = starts_.find(offset);
  const auto last = starts_.lower_bound(end);
  for (auto stretch = first; stretch != last; ++stretch) {
    const auto next = std::next(stretch);
    const std::uint64_t upTo = next == starts_.end() ? size_ : next->first;
    count(upTo - stretch->first, stretch->second, false);
  }
  count(length, state, true);
  first->second = state;
  starts_.erase(std::next(first), last);
  if (last != starts_.end() && last->second == state) {
    starts_.erase(last);
  }
  if (first != starts_.begin() && std::prev(first)->second == state) {
    starts_.erase(first);
  }
}

std::vector<ReadMap::Stretch> ReadMap::stretches(State state) const {
  std::vector<Stretch> found;
  for (auto stretch = starts_.begin(); stretch != starts_.end(); ++stretch) {
    const auto next = std::next(stretch);
    if (stretch->second == state) {
      const std::uint64_t end = next == starts_.end() ? size_ : next->first;
      found.push_back({stretch->first, end - stretch->first});
    }
  }
  return found;
}

std::string ReadMap::text() const {
  std::string text(firstLine);
  text +=
      "\n# What of a card stands in the image beside this file: offset and length in "
      "bytes.\nsize " +
      std::to_string(size_) + "\n";
  for (auto stretch = starts_.begin(); stretch != starts_.end(); ++stretch) {
    if (stretch->second == State::untried) {
      continue;
    }
    const auto next = std::next(stretch);
    const std::uint64_t end = next == starts_.end() ? size_ : next->first;
    text += stretch->second == State::read ? "read " : "bad ";
    text += std::to_string(stretch->first) + " " + std::to_string(end - stretch->first) + "\n";
  }
  return text;
}

std::optional<ReadMap> ReadMap::parse(std::string_view text) {
  if (takeUpTo(text, '\n') != firstLine) {
    return std::nullopt;
  }
  std::optional<ReadMap> map;
  while (!text.empty()) {
    const bool isWhole = text.find('\n') != std::string_view::npos;
    std::string_view line = takeUpTo(text, '\n');
    if (!isWhole) {
      break;  // a number that lost its last digits is another number
    }
    if (line.empty() || line.front() == '#') {
      continue;
    }
    if (map) {
      if (!takeStretch(line, *map)) return std::nullopt;
      continue;
    }
    const bool isSize = takeUpTo(line, ' ') == "size";
    const auto size = numberIn(line);
    if (!isSize || !size) {
      return std::nullopt;
    }
    map.emplace(*size);
  }
  return map;
}

}  // namespace tallowmark
