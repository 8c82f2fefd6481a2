// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/JoinPlan.h"

#include <algorithm>

#include "MediaKit/Join/Recordings.h"

namespace tallowmark {

namespace {

void addPart(PlannedJoin& join, const Item& item) {
  join.parts.push_back(item.path);
  join.size += item.size;
}

PlannedJoin joinOf(std::span<const std::size_t> indexes, std::span<const Item> items) {
  PlannedJoin join;
  for (const std::size_t index : indexes) addPart(join, items[index]);
  return join;
}

bool isClip(const Item& item) {
  std::error_code error;
  return item.kind == Kind::video && std::filesystem::is_regular_file(item.path, error);
}

std::vector<PlannedJoin> unreadable(std::span<const Item> items) {
  std::vector<PlannedJoin> joins;
  for (const Item& item : items) {
    const FileState::Any state = checkItem(item);
    if (const auto* failed = std::get_if<FileState::Failed>(&state)) {
      joins.push_back({{item.path}, item.size, {}, failed->message, false});
    }
  }
  return joins;
}

// A recording that lacks only its beginning or its end is joined all the same, and told so.
bool noteOnGroup(const ClipJoin::IncompleteRecording& recording,
                 std::span<const ClipJoin::Group> groups, std::span<PlannedJoin> joins) {
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (std::find(groups[i].begin(), groups[i].end(), recording.present.front()) !=
        groups[i].end()) {
      joins[i].missing = recording.missing;
      joins[i].note = recording.sentence;
      return true;
    }
  }
  return false;
}

}  // namespace

PlannedJoin joinInNameOrder(std::span<const Item> items) {
  std::vector<Item> inOrder(items.begin(), items.end());
  std::stable_sort(inOrder.begin(), inOrder.end(), [](const Item& a, const Item& b) {
    return a.path.filename() < b.path.filename();
  });
  PlannedJoin join;
  for (const Item& item : inOrder) addPart(join, item);
  return join;
}

std::vector<PlannedJoin> findJoins(std::span<const Item> items) {
  std::vector<Item> clips;
  std::vector<Item> others;
  std::vector<ClipJoin::LocatedFile> files;
  for (const Item& item : items) {
    if (!isClip(item)) {
      others.push_back(item);
      continue;
    }
    clips.push_back(item);
    files.push_back({item.path.parent_path().string(), {item.path.filename().string(), item.size}});
  }
  const ClipJoin::FoundRecordings found = ClipJoin::findRecordings(files);
  std::vector<PlannedJoin> joins;
  for (const ClipJoin::Group& group : found.groups) joins.push_back(joinOf(group, clips));
  for (const ClipJoin::IncompleteRecording& recording : found.incomplete) {
    if (!noteOnGroup(recording, found.groups, joins)) {
      PlannedJoin& join = joins.emplace_back(joinOf(recording.present, clips));
      join.missing = recording.missing;
      join.note = recording.sentence;
      join.joinable = false;
    }
  }
  const std::vector<PlannedJoin> lost = unreadable(others);
  joins.insert(joins.end(), lost.begin(), lost.end());
  return joins;
}

}  // namespace tallowmark
