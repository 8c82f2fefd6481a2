// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/JsonText.h"

namespace tallowmark {

namespace {

Json kindJson(const std::optional<Kind>& kind) {
  if (!kind) return nullptr;
  switch (*kind) {
    case Kind::photo:
      return "photo";
    case Kind::raw:
      return "raw";
    case Kind::video:
      break;
  }
  return "video";
}

Json infoJson(const ClipInfo& info) {
  return {{"videoCodec", info.videoCodec},
          {"width", info.width},
          {"height", info.height},
          {"framesPerSecond", info.framesPerSecond},
          {"seconds", info.seconds},
          {"audioCodec", info.audioCodec ? Json(*info.audioCodec) : Json(nullptr)},
          {"summary", info.summary()}};
}

// The fields that a state has of its own.
struct StateFields {
  Json operator()(const FileState::Healthy& healthy) const {
    return {{"state", "healthy"}, {"info", infoJson(healthy.info)}};
  }
  Json operator()(const FileState::Truncated& truncated) const {
    return {{"state", "truncated"}, {"missingSamples", truncated.missingSamples}};
  }
  Json operator()(const FileState::MissingIndex&) const { return {{"state", "missingIndex"}}; }
  Json operator()(const FileState::RawFile&) const { return {{"state", "rawFile"}}; }
  Json operator()(const FileState::NotAVideo&) const { return {{"state", "notAVideo"}}; }
  Json operator()(const FileState::Failed& failed) const {
    return {{"state", "failed"}, {"message", failed.message}};
  }
};

const char* fixName(JPEGRepair::Result::Fix fix) {
  using Fix = JPEGRepair::Result::Fix;
  if (fix == Fix::closedEnd) {
    return "closedEnd";
  }
  return fix == Fix::rebuiltHeader ? "rebuiltHeader" : "none";
}

// The kinds add up to the unused bytes.
Json unusedJson(const VideoRepair::UnusedBytes& unused) {
  Json kinds{{"otherPictures", unused.otherPictures},
             {"sound", unused.sound},
             {"sideTracks", unused.sideTracks},
             {"unknown", unused.unknown}};
  for (const auto& [track, bytes] : unused.byTrack) kinds[track] = bytes;
  return kinds;
}

struct ResultFields {
  Json operator()(const VideoRepair::Result& result) const {
    return {{"videoFrames", result.videoFrames},
            {"audioPackets", result.audioPackets},
            {"seconds", result.seconds},
            {"audioDropped", result.audioDropped},
            {"unusedBytes", result.unusedBytes},
            {"unusedBy", unusedJson(result.unusedBy)},
            {"soundBlocksFound", result.soundBlocksFound},
            {"soundBlocksLost", result.soundBlocksLost},
            {"soundBlocksFilled", result.soundBlocksFilled},
            {"telemetrySamples", result.telemetrySamples},
            {"timecodeRestored", result.timecodeRestored}};
  }
  Json operator()(const JPEGRepair::Result& result) const {
    return {{"fix", fixName(result.fix)},
            {"width", result.width},
            {"height", result.height},
            {"borrowed", result.borrowed},
            {"incomplete", result.incomplete}};
  }
  Json operator()(const RescuedPicture& picture) const {
    return {{"width", picture.width},
            {"height", picture.height},
            {"incomplete", picture.incomplete},
            {"keptDetails", picture.keptDetails}};
  }
};

struct JoinFields {
  Json operator()(const JoinState::Saved& saved) const {
    return {{"state", "saved"},
            {"output", saved.path.string()},
            {"result",
             {{"parts", saved.result.parts},
              {"seconds", saved.result.seconds},
              {"videoFrames", saved.result.videoFrames},
              {"bytes", saved.result.bytes},
              {"extraTracksKept", saved.result.extraTracksKept},
              {"extraTracksDropped", saved.result.extraTracksDropped}}}};
  }
  Json operator()(const JoinState::Incompatible& incompatible) const {
    return {{"state", "incompatible"}, {"message", incompatible.message}};
  }
  Json operator()(const JoinState::Failed& failed) const {
    return {{"state", "failed"}, {"message", failed.message}};
  }
};

}  // namespace

std::string lineOf(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json checkJson(const Item& item, const FileState::Any& state) {
  Json line{{"file", item.path.string()}, {"kind", kindJson(item.kind)}};
  line.update(std::visit(StateFields{}, state));
  const auto* missing = std::get_if<FileState::MissingIndex>(&state);
  line["needsReference"] = missing != nullptr && missing->needsReference;
  return line;
}

Json repairJson(const Item& item, const RepairOutcome& outcome) {
  Json line = checkJson(item, outcome.state);
  line["reference"] = outcome.reference ? Json(outcome.reference->string()) : Json(nullptr);
  if (outcome.output) {
    line["state"] = "saved";
    line["output"] = outcome.output->string();
    line["result"] = std::visit(ResultFields{}, outcome.facts);
  }
  return line;
}

Json joinJson(const JoinOutcome& outcome) {
  Json line{{"parts", Json::array()}};
  for (const auto& part : outcome.join.parts) line["parts"].push_back(part.string());
  line.update(std::visit(JoinFields{}, *outcome.end));
  if (!outcome.join.missing.empty()) {
    line["missing"] = outcome.join.missing;
  }
  if (!outcome.join.note.empty() && !line.contains("message")) {
    line["message"] = outcome.join.note;
  }
  return line;
}

}  // namespace tallowmark
