// SPDX-License-Identifier: GPL-3.0-or-later
#include "PropertyLists/PropertyList.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>

namespace tallowmark {

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  const auto length = static_cast<std::uint32_t>(bytes.size());
  plist_t root = nullptr;
  if (plist_is_binary(bytes.data(), length) != 0) {
    plist_from_bin(bytes.data(), length, &root);
  } else {
    plist_from_xml(bytes.data(), length, &root);
  }
  if (root == nullptr) {
    return std::nullopt;
  }
  return PropertyList(std::shared_ptr<void>(root, plist_free), root);
}

PropertyList::Node PropertyList::valueOf(const char* key, int type) const {
  if (plist_get_node_type(node_) != PLIST_DICT) {
    return nullptr;
  }
  plist_t value = plist_dict_get_item(node_, key);
  return value != nullptr && plist_get_node_type(value) == type ? value : nullptr;
}

std::optional<std::string> PropertyList::text(const char* key) const {
  plist_t value = valueOf(key, PLIST_STRING);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::uint64_t length = 0;
  const char* const start = plist_get_string_ptr(value, &length);
  return std::string(start, static_cast<std::size_t>(length));
}

std::optional<bool> PropertyList::flag(const char* key) const {
  plist_t value = valueOf(key, PLIST_BOOLEAN);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::uint8_t flag = 0;
  plist_get_bool_val(value, &flag);
  return flag != 0;
}

std::optional<std::uint64_t> PropertyList::number(const char* key) const {
  plist_t value = valueOf(key, PLIST_UINT);
  if (value == nullptr) {
    return std::nullopt;
  }
  std::uint64_t number = 0;
  plist_get_uint_val(value, &number);
  return number;
}

bool PropertyList::hasItems(const char* key) const {
  return valueOf(key, PLIST_ARRAY) != nullptr;
}

std::vector<PropertyList> PropertyList::items(const char* key) const {
  plist_t array = valueOf(key, PLIST_ARRAY);
  std::vector<PropertyList> found;
  if (array == nullptr) {
    return found;
  }
  plist_array_iter step = nullptr;
  plist_array_new_iter(array, &step);
  const std::unique_ptr<void, decltype(&::free)> owned(step, &::free);
  for (std::uint32_t left = plist_array_get_size(array); left > 0; --left) {
    plist_t item = nullptr;
    plist_array_next_item(array, step, &item);
    found.push_back(PropertyList(root_, item));
  }
  return found;
}

}  // namespace tallowmark
