// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/SplitRecordings.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

namespace tallowmark::ClipJoin {

namespace {

std::optional<int> numberIn(std::string_view digits) {
  const bool allDigits = !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) {
    return c >= '0' && c <= '9';
  });
  int value = 0;
  if (!allDigits ||
      std::from_chars(digits.data(), digits.data() + digits.size(), value).ec != std::errc()) {
    return std::nullopt;
  }
  return value;
}

// The pieces between underscores; empty ones do not count.
std::vector<std::string_view> piecesOf(std::string_view stem) {
  std::vector<std::string_view> pieces;
  while (!stem.empty()) {
    const std::size_t end = std::min(stem.find('_'), stem.size());
    if (end > 0) pieces.push_back(stem.substr(0, end));
    stem.remove_prefix(std::min(end + 1, stem.size()));
  }
  return pieces;
}

// Letters, not bytes: names are UTF-8.
std::size_t lengthOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

/// A file's place in a recording or in the camera's count, and its index in the caller's list.
using Place = std::pair<int, std::size_t>;

void sortByNumber(std::vector<Place>& places) {
  std::stable_sort(places.begin(), places.end(),
                   [](const Place& a, const Place& b) { return a.first < b.first; });
}

Group indexesOf(const std::vector<Place>& places) {
  Group group;
  for (const Place& place : places) group.push_back(place.second);
  return group;
}

std::vector<Group> goProSplits(std::span<const FileName> files) {
  std::map<std::string, std::vector<Place>> recordings;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (auto chapter = goProChapter(files[i].name)) {
      recordings[std::move(chapter->key)].emplace_back(chapter->order, i);
    }
  }
  std::vector<Group> groups;
  for (auto& [key, places] : recordings) {
    sortByNumber(places);
    const auto gap =
        std::adjacent_find(places.begin(), places.end(),
                           [](const Place& a, const Place& b) { return b.first != a.first + 1; });
    if (places.size() >= 2 && gap == places.end()) {
      groups.push_back(indexesOf(places));
    }
  }
  return groups;
}

}  // namespace

std::string upperCased(std::string_view name) {
  std::string upper(name);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

std::optional<Chapter> goProChapter(std::string_view name) {
  const std::string upper = upperCased(name);
  std::string_view stem = upper;
  if (!stem.ends_with(".MP4")) {
    return std::nullopt;
  }
  stem.remove_suffix(4);
  if (stem.size() != 8) {
    return std::nullopt;
  }
  const auto file = numberIn(stem.substr(4));
  if (stem.starts_with("GOPR") && file) {
    return Chapter{"GP" + std::to_string(*file), 0};
  }
  const std::string_view prefix = stem.substr(0, 2);
  const auto chapter = numberIn(stem.substr(2, 2));
  if (!file || !chapter || (prefix != "GH" && prefix != "GX" && prefix != "GP")) {
    return std::nullopt;
  }
  return Chapter{std::string(prefix) + std::to_string(*file), *chapter};
}

std::optional<int> djiNumber(std::string_view name) {
  const std::string upper = upperCased(name);
  std::string_view stem = upper;
  if (!stem.starts_with("DJI_") || !(stem.ends_with(".MP4") || stem.ends_with(".MOV"))) {
    return std::nullopt;
  }
  stem.remove_suffix(4);
  const std::vector<std::string_view> pieces = piecesOf(stem);
  // DJI_0001, or with the date DJI_20240501123045_0001 and perhaps more.
  if (pieces.size() < 2 || (pieces.size() > 2 && lengthOf(pieces[1]) != 14)) {
    return std::nullopt;
  }
  const std::string_view number = pieces[pieces.size() == 2 ? 1 : 2];
  return number.size() == 4 ? numberIn(number) : std::nullopt;
}

std::vector<Group> djiSplits(std::span<const FileName> files) {
  std::vector<Place> places;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (const auto number = djiNumber(files[i].name)) {
      places.emplace_back(*number, i);
    }
  }
  sortByNumber(places);

  std::vector<Group> groups;
  std::vector<Place> run;
  const auto finishRun = [&] {
    if (run.size() >= 2) groups.push_back(indexesOf(run));
    run.clear();
  };
  for (const Place& place : places) {
    const bool goesOn = !run.empty() && place.first == run.back().first + 1 &&
                        files[run.back().second].size >= smallestSplitDJIFile;
    if (!goesOn) finishRun();
    run.push_back(place);
  }
  finishRun();
  return groups;
}

std::vector<Group> splitRecordings(std::span<const FileName> files) {
  std::vector<Group> groups = goProSplits(files);
  std::vector<Group> dji = djiSplits(files);
  std::move(dji.begin(), dji.end(), std::back_inserter(groups));
  std::stable_sort(groups.begin(), groups.end(),
                   [](const Group& a, const Group& b) { return a.front() < b.front(); });
  return groups;
}

}  // namespace tallowmark::ClipJoin
