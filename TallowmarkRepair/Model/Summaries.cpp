// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/Summaries.h"

#include <algorithm>
#include <limits>

namespace tallowmark {

namespace {

std::int64_t whole(std::uint64_t count) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::min<std::uint64_t>(count, most));
}

Clip::Summary summary(const VideoRepair::Result& result) {
  using AudioOutcome = Clip::Summary::AudioOutcome;
  Clip::Summary clip{whole(result.videoFrames), result.seconds, AudioOutcome::none, {}};
  if (result.audioPackets > 0) {
    clip.audio = AudioOutcome::recovered;
    constexpr std::uint64_t worthTelling = 100;
    const std::uint64_t blocks = result.soundBlocksFound + result.soundBlocksLost;
    clip.isSoundIncomplete = blocks > 0 && result.soundBlocksLost >= blocks / worthTelling + 1;
  } else if (result.audioDropped) {
    clip.audio = AudioOutcome::notRecoverable;
  }
  return clip;
}

Clip::Summary summary(const JPEGRepair::Result& result) {
  Clip::PhotoFacts facts;
  facts.width = result.width;
  facts.height = result.height;
  facts.incomplete = result.incomplete;
  facts.borrowed = result.borrowed;
  Clip::Summary photo;
  photo.photo = std::move(facts);
  return photo;
}

Clip::Summary summary(const RescuedPicture& picture) {
  Clip::PhotoFacts facts;
  facts.width = picture.width;
  facts.height = picture.height;
  facts.incomplete = picture.incomplete;
  facts.fromRAW = true;
  facts.keptDetails = picture.keptDetails;
  Clip::Summary raw;
  raw.photo = std::move(facts);
  return raw;
}

Clip::State state(const FileState::Healthy& found) {
  return Clip::Healthy{found.info};
}
Clip::State state(const FileState::Truncated& found) {
  return Clip::Truncated{whole(found.missingSamples)};
}
Clip::State state(const FileState::MissingIndex&) {
  return Clip::MissingIndex{};
}
Clip::State state(const FileState::RawFile&) {
  return Clip::RawFile{};
}
Clip::State state(const FileState::NotAVideo&) {
  return Clip::NotAVideo{};
}
Clip::State state(const FileState::Failed& found) {
  return Clip::Failed{found.message};
}

}  // namespace

Clip::Summary summaryOf(const CopyFacts& facts) {
  return std::visit([](const auto& result) { return summary(result); }, facts);
}

Clip::State stateAfterChecking(const FileState::Any& found) {
  return std::visit([](const auto& diagnosis) { return state(diagnosis); }, found);
}

}  // namespace tallowmark
