// SPDX-License-Identifier: GPL-3.0-or-later
#include "JSONDocuments/JSONValue.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace tallowmark {

namespace {

using nlohmann::json;

const json& valueOf(const void* node) {
  return *static_cast<const json*>(node);
}

// Null for a missing key.
const json* find(const void* node, const char* key) {
  const json& value = valueOf(node);
  const auto found = value.find(key);  // the end where the value is no object
  return found == value.end() ? nullptr : &*found;
}

}  // namespace

std::optional<JSONValue> JSONValue::parse(std::string_view text) {
  auto root = std::make_shared<const json>(json::parse(text, nullptr, false));
  if (root->is_discarded()) {
    return std::nullopt;
  }
  const Node node = root.get();
  return JSONValue(std::move(root), node);
}

bool JSONValue::isObject() const {
  return valueOf(node_).is_object();
}

std::optional<std::string> JSONValue::text(const char* key) const {
  const json* value = find(node_, key);
  return value != nullptr && value->is_string() ? std::optional(value->get<std::string>())
                                                : std::nullopt;
}

std::optional<bool> JSONValue::flag(const char* key) const {
  const json* value = find(node_, key);
  return value != nullptr && value->is_boolean() ? std::optional(value->get<bool>()) : std::nullopt;
}

std::optional<std::uint64_t> JSONValue::number(const char* key) const {
  const json* value = find(node_, key);
  return value != nullptr && value->is_number_unsigned()
             ? std::optional(value->get<std::uint64_t>())
             : std::nullopt;
}

std::vector<JSONValue> JSONValue::items(const char* key) const {
  std::vector<JSONValue> items;
  if (const json* value = find(node_, key); value != nullptr && value->is_array()) {
    for (const json& item : *value) items.push_back(JSONValue(root_, &item));
  }
  return items;
}

std::vector<std::string> JSONValue::texts(const char* key) const {
  std::vector<std::string> texts;
  if (const json* value = find(node_, key); value != nullptr && value->is_array()) {
    for (const json& item : *value) {
      if (item.is_string()) texts.push_back(item.get<std::string>());
    }
  }
  return texts;
}

}  // namespace tallowmark
