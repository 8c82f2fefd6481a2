// SPDX-License-Identifier: GPL-3.0-or-later
// The part of RepairModel that has to do with split recordings.
#include <algorithm>
#include <iterator>

#include "TallowmarkRepair/Model/RepairModel.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

bool contains(const std::vector<fs::path>& parts, const fs::path& part) {
  return std::find(parts.begin(), parts.end(), part) != parts.end();
}

bool containsAll(const std::vector<fs::path>& parts, const std::vector<fs::path>& others) {
  return std::all_of(others.begin(), others.end(),
                     [&](const fs::path& other) { return contains(parts, other); });
}

}  // namespace

void RepairModel::findSplitRecordings() {
  unwanted_.clear();
  offerSplitRecordings();
}

void RepairModel::offerSplitRecordings() {
  for (auto& recording : splitRecordingsAmong(clips())) {
    if (!updateKnownRecording(recording) && splitRecording(recording.front()) == nullptr &&
        !isUnwanted(recording)) {
      prepareNewJoin(std::move(recording), true);
    }
  }
}

// Chapters may be added one after another: a recording that was found grows with them, until it is
// saved, and what was found as two turns out to be one.
bool RepairModel::updateKnownRecording(const std::vector<fs::path>& recording) {
  bool isKnown = false;
  std::vector<QUuid> growing;
  for (const Join& join : joins()) {
    if (join.foundAutomatically && !join.parts.empty() && containsAll(recording, join.parts)) {
      isKnown = true;
      if (!join.is<Join::Saved>() && !join.is<Join::Joining>()) growing.push_back(join.id);
    }
  }
  if (growing.empty()) {
    return isKnown;
  }
  Join grown = *joins_.find(growing.front());
  if (grown.parts != recording) {
    grown.parts = recording;
    joins_.replace(grown);
    joinWork_.prepare(grown.id);
  }
  for (auto piece = std::next(growing.begin()); piece != growing.end(); ++piece) {
    joinWork_.forget(*piece);
    joins_.remove(*piece);
    if (selection_ == *piece) select(grown.id);
  }
  return true;
}

bool RepairModel::isUnwanted(const std::vector<fs::path>& recording) const {
  return std::any_of(unwanted_.begin(), unwanted_.end(),
                     [&](const auto& parts) { return containsAll(parts, recording); });
}

void RepairModel::wantAgain(const fs::path& part) {
  std::erase_if(unwanted_, [&](const auto& parts) { return contains(parts, part); });
}

void RepairModel::join(std::vector<fs::path> urls) {
  std::stable_sort(urls.begin(), urls.end(), [](const fs::path& a, const fs::path& b) {
    return a.filename() < b.filename();
  });
  prepareNewJoin(std::move(urls), false);
}

void RepairModel::prepareNewJoin(std::vector<fs::path> parts, bool foundAutomatically) {
  const QUuid id = QUuid::createUuid();
  joins_.append({Join{id, std::move(parts), foundAutomatically}});
  joinWork_.prepare(id);
}

const Join* RepairModel::splitRecording(const fs::path& url) const {
  const auto found = std::find_if(joins().begin(), joins().end(),
                                  [&](const Join& join) { return contains(join.parts, url); });
  return found == joins().end() ? nullptr : &*found;
}

std::optional<std::pair<std::size_t, std::size_t>> RepairModel::splitPart(
    const fs::path& url) const {
  const Join* join = splitRecording(url);
  if (join == nullptr) {
    return std::nullopt;
  }
  const auto place = std::find(join->parts.begin(), join->parts.end(), url) - join->parts.begin();
  return std::pair(static_cast<std::size_t>(place) + 1, join->parts.size());
}

}  // namespace tallowmark
