// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/Recordings.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace tallowmark::ClipJoin {

namespace {

using Files = std::span<const LocatedFile>;

/// A camera file's place in what may be one recording.
struct Piece {
  int number = 0;
  std::size_t index = 0;
};

/// Pieces that one camera may have numbered: a GoPro recording, or all DJI files of one lens.
struct Candidates {
  bool goPro = false;
  std::vector<Piece> pieces;
};

// DJI_20240501123045_0007_W.MP4: drones with several lenses use one number for all of them, and
// tell the lens behind it.
std::string lensOf(std::string_view name) {
  const std::string upper = upperCased(name);
  const std::size_t lastMark = upper.rfind('_');
  const std::string_view last = std::string_view(upper).substr(lastMark + 1);
  const bool isLens = !last.empty() && last[0] >= 'A' && last[0] <= 'Z';
  return isLens ? std::string(last) : std::string();
}

std::map<std::string, Candidates> candidatesAmong(Files files, std::vector<std::size_t>& copies) {
  std::map<std::string, Candidates> found;
  std::set<std::pair<std::string, std::uint64_t>> seen;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const FileName& file = files[i].file;
    const auto chapter = goProChapter(file.name);
    const auto number = chapter ? std::optional(chapter->order) : djiNumber(file.name);
    if (!number) {
      continue;
    }
    if (!seen.emplace(upperCased(file.name), file.size).second) {
      copies.push_back(i);
      continue;
    }
    Candidates& candidates = found[chapter ? "GoPro " + chapter->key : "DJI " + lensOf(file.name)];
    candidates.goPro = chapter.has_value();
    candidates.pieces.push_back({*number, i});
  }
  return found;
}

// One number twice: two cameras, or one that started counting anew. Then only folders tell which
// pieces belong together.
std::vector<Candidates> toldApart(Candidates candidates, Files files) {
  std::set<int> numbers;
  for (const Piece& piece : candidates.pieces) numbers.insert(piece.number);
  if (numbers.size() == candidates.pieces.size()) {
    return {std::move(candidates)};
  }
  std::map<std::string_view, Candidates> folders;
  for (const Piece& piece : candidates.pieces) {
    Candidates& folder = folders[files[piece.index].folder];
    folder.goPro = candidates.goPro;
    folder.pieces.push_back(piece);
  }
  std::vector<Candidates> apart;
  apart.reserve(folders.size());
  for (auto& [name, folder] : folders) apart.push_back(std::move(folder));
  return apart;
}

std::vector<Group> groupsAmong(const Candidates& candidates, Files files) {
  std::vector<FileName> names;
  names.reserve(candidates.pieces.size());
  for (const Piece& piece : candidates.pieces) names.push_back(files[piece.index].file);
  std::vector<Group> groups = splitRecordings(names);
  for (Group& group : groups) {
    for (std::size_t& index : group) index = candidates.pieces[index].index;
  }
  return groups;
}

// The name that the camera gave the chapter of that number, by the name of another one.
std::string chapterName(const std::string& sibling, int order) {
  const bool oldStyle = upperCased(sibling).starts_with("GP") || upperCased(sibling)[1] == 'O';
  if (oldStyle && order == 0) {
    return "GOPR" + sibling.substr(4);
  }
  std::string digits = std::to_string(order);
  digits.insert(0, 2 - std::min<std::size_t>(digits.size(), 2), '0');
  return (oldStyle ? "GP" : sibling.substr(0, 2)) + digits + sibling.substr(4);
}

std::string listed(const std::vector<std::string>& names) {
  std::string text = names.front();
  for (std::size_t i = 1; i < names.size(); ++i) {
    text += (i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return text;
}

std::optional<IncompleteRecording> missingChapters(const Candidates& candidates, Files files) {
  std::map<int, std::size_t> present;
  for (const Piece& piece : candidates.pieces) present.emplace(piece.number, piece.index);
  const std::string& sibling = files[present.begin()->second].file.name;
  const int firstOrder = upperCased(sibling)[1] == 'P' || upperCased(sibling)[1] == 'O' ? 0 : 1;

  IncompleteRecording recording;
  for (const auto& [order, index] : present) recording.present.push_back(index);
  for (int order = firstOrder; order < present.rbegin()->first; ++order) {
    if (!present.contains(order)) recording.missing.push_back(chapterName(sibling, order));
  }
  if (recording.missing.empty()) {
    return std::nullopt;
  }
  const bool one = recording.missing.size() == 1;
  recording.sentence = listed(recording.missing) + (one ? " is" : " are") +
                       " missing from this recording. Add " + (one ? "it" : "them") +
                       " to join the whole of it.";
  return recording;
}

// A DJI file near the limit promises another one.
std::vector<IncompleteRecording> missingEnds(const Candidates& candidates, Files files) {
  std::set<int> numbers;
  for (const Piece& piece : candidates.pieces) numbers.insert(piece.number);
  std::vector<IncompleteRecording> recordings;
  for (const Piece& piece : candidates.pieces) {
    const FileName& file = files[piece.index].file;
    if (file.size >= smallestSplitDJIFile && !numbers.contains(piece.number + 1)) {
      recordings.push_back(
          {{piece.index},
           {},
           "This recording seems to go on after " + file.name + ", but the next file is missing."});
    }
  }
  return recordings;
}

}  // namespace

FoundRecordings findRecordings(std::span<const LocatedFile> files) {
  FoundRecordings found;
  for (auto& [key, all] : candidatesAmong(files, found.copies)) {
    for (const Candidates& candidates : toldApart(std::move(all), files)) {
      std::vector<Group> groups = groupsAmong(candidates, files);
      std::move(groups.begin(), groups.end(), std::back_inserter(found.groups));
      if (!candidates.goPro) {
        auto ends = missingEnds(candidates, files);
        std::move(ends.begin(), ends.end(), std::back_inserter(found.incomplete));
      } else if (auto chapters = missingChapters(candidates, files)) {
        found.incomplete.push_back(std::move(*chapters));
      }
    }
  }
  std::stable_sort(found.groups.begin(), found.groups.end(),
                   [](const Group& a, const Group& b) { return a.front() < b.front(); });
  return found;
}

}  // namespace tallowmark::ClipJoin
