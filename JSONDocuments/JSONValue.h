// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallowmark {

/// A value in a JSON document (RFC 8259). A key that is missing, or holds another kind of value
/// than asked for, gives nothing, as does every key of what is no object. Keeps the whole document
/// alive; only read.
class JSONValue {
 public:
  /// Nothing for what is no JSON.
  static std::optional<JSONValue> parse(std::string_view text);

  bool isObject() const;
  std::optional<std::string> text(const char* key) const;
  std::optional<bool> flag(const char* key) const;
  /// Whole numbers that are not negative.
  std::optional<std::uint64_t> number(const char* key) const;
  /// The elements of an array; none where there is no array.
  std::vector<JSONValue> items(const char* key) const;
  /// Those elements of an array that are texts.
  std::vector<std::string> texts(const char* key) const;

 private:
  using Node = const void*;
  JSONValue(std::shared_ptr<const void> root, Node node) : root_(std::move(root)), node_(node) {}

  std::shared_ptr<const void> root_;
  Node node_;
};

}  // namespace tallowmark
