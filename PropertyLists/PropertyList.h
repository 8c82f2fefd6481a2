// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowmark {

/// A value in a property list (plist(5)), XML or binary. A key that is missing, or holds another
/// kind of value than asked for, gives nothing. Keeps the whole list alive; only read.
class PropertyList {
 public:
  /// Nothing for what is no property list.
  static std::optional<PropertyList> parse(std::string_view bytes);

  std::optional<std::string> text(const char* key) const;
  std::optional<bool> flag(const char* key) const;
  std::optional<std::uint64_t> number(const char* key) const;
  /// The elements of an array; none where there is no array.
  std::vector<PropertyList> items(const char* key) const;
  /// Whether there is an array of that name.
  bool hasItems(const char* key) const;

 private:
  using Node = void*;
  PropertyList(std::shared_ptr<void> root, Node node) : root_(std::move(root)), node_(node) {}
  Node valueOf(const char* key, int type) const;

  std::shared_ptr<void> root_;
  Node node_;
};

}  // namespace tallowmark
