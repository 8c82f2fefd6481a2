// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/Sentences.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tallowmark {

namespace {

std::string counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

struct CheckText {
  std::optional<Kind> kind;

  std::string operator()(const FileState::Healthy& healthy) const {
    const ClipInfo& info = healthy.info;
    if (kind == Kind::photo) {
      return "Opens · " + info.summary() + " · nothing to fix";
    }
    return "Plays · " + info.summary() + " · " + durationText(info.seconds) + " · " +
           info.audioCodec.value_or("no sound") + " · nothing to fix";
  }
  // The number of samples lost says nothing to people: one picture, or a 48,000th of a second.
  std::string operator()(const FileState::Truncated&) const {
    return "Cut short · ready to repair";
  }
  std::string operator()(const FileState::MissingIndex& missing) const {
    if (!missing.needsReference) {
      return "Header damaged · ready to repair";
    }
    return kind == Kind::photo ? "Header damaged · needs reference"
                               : "Won't open · needs reference";
  }
  std::string operator()(const FileState::RawFile&) const { return "RAW · picture can be rescued"; }
  std::string operator()(const FileState::NotAVideo&) const {
    if (!kind) {
      return "Not a kind of file Repair takes: MP4 and MOV clips, JPEG and RAW photos";
    }
    return kind == Kind::photo ? "Not a JPEG Repair can read" : "Not a video Repair can read";
  }
  std::string operator()(const FileState::Failed& failed) const { return failed.message; }
};

std::string soundText(const VideoRepair::Result& result) {
  if (result.audioDropped) {
    return "the camera's sound couldn't be found";
  }
  if (result.audioPackets == 0) {
    return "no sound";
  }
  const std::uint64_t heard = result.soundBlocksFound;
  const std::uint64_t lost = result.soundBlocksLost;
  if (lost == 0 || heard == 0) {
    return "with sound";
  }
  // Blocks say nothing to people.
  const std::uint64_t percent = std::max<std::uint64_t>(100 * lost / (heard + lost), 1);
  return "with sound, about " + std::to_string(percent) + " % of it lost";
}

std::string sideTracksText(const VideoRepair::Result& result) {
  std::string text = result.telemetrySamples > 0 ? " · with telemetry" : "";
  return text + (result.timecodeRestored ? " · with timecode" : "");
}

std::string sizeText(int width, int height) {
  return std::to_string(width) + "×" + std::to_string(height);
}

struct CopyText {
  std::string operator()(const VideoRepair::Result& result) const {
    return counted(result.videoFrames, "frame") + " · " + durationText(result.seconds) + " · " +
           soundText(result) + sideTracksText(result);
  }
  std::string operator()(const JPEGRepair::Result& result) const {
    std::string text = sizeText(result.width, result.height);
    if (result.fix == JPEGRepair::Result::Fix::rebuiltHeader) {
      text += " · header rebuilt";
      const char* separator = ", from the reference: ";
      for (const std::string& part : result.borrowed) {
        text += separator + part;
        separator = ", ";
      }
    }
    return text + (result.incomplete ? incompleteText : "");
  }
  std::string operator()(const RescuedPicture& picture) const {
    return sizeText(picture.width, picture.height) +
           " · the picture the camera stored in the RAW file" +
           (picture.keptDetails ? " · with camera details" : " · without camera details") +
           (picture.incomplete ? incompleteText : "");
  }
  static constexpr const char* incompleteText = " · its end was missing, the bottom shows gray";
};

std::string needsReferenceText(const Item& item) {
  return item.kind == Kind::photo
             ? ". Add a photo that opens from the same camera, with the same settings"
             : ". Add a clip that plays from the same camera, with the same settings";
}

struct JoinText {
  std::string operator()(const JoinState::Saved& saved) const {
    const ClipJoin::Result& result = saved.result;
    std::string text = "Saved as " + saved.path.string() + " · " +
                       counted(static_cast<std::uint64_t>(result.parts), "part") + " · " +
                       counted(static_cast<std::uint64_t>(result.videoFrames), "frame") + " · " +
                       durationText(result.seconds);
    if (result.extraTracksDropped > 0) {
      text += " · " +
              counted(static_cast<std::uint64_t>(result.extraTracksDropped), "extra track") +
              " left out, not in every part";
    }
    return text;
  }
  std::string operator()(const JoinState::Incompatible& incompatible) const {
    return "Can't be joined: " + incompatible.message;
  }
  std::string operator()(const JoinState::Failed& failed) const {
    return "Couldn't join: " + failed.message;
  }
};

}  // namespace

std::string checkSentence(const Item& item, const FileState::Any& state) {
  return item.path.string() + ": " + std::visit(CheckText{item.kind}, state);
}

std::string repairSentence(const Item& item, const RepairOutcome& outcome) {
  const std::string name = item.path.string() + ": ";
  if (outcome.output) {
    return name + "Saved as " + outcome.output->string() + " · " +
           std::visit(CopyText{}, outcome.facts);
  }
  if (const auto* failed = std::get_if<FileState::Failed>(&outcome.state)) {
    return name + "Couldn't repair: " + failed->message;
  }
  const bool lacksReference = std::holds_alternative<FileState::MissingIndex>(outcome.state);
  return checkSentence(item, outcome.state) + (lacksReference ? needsReferenceText(item) : "");
}

std::string joinSentence(const JoinOutcome& outcome) {
  std::string text;
  for (const auto& part : outcome.join.parts) {
    text += (text.empty() ? "" : " + ") + part.string();
  }
  text += (text.empty() ? "" : ": ") + std::visit(JoinText{}, *outcome.end);
  // A failure's sentence is the note already.
  const bool isNoteTold = !outcome.join.joinable || outcome.join.note.empty();
  return isNoteTold ? text : text + ". " + outcome.join.note;
}

std::string durationText(double seconds) {
  constexpr double longest = 1e9;
  const auto whole = static_cast<long>(std::min(std::max(std::round(seconds), 0.0), longest));
  std::array<char, 64> text{};
  if (whole >= 3600) {
    (void)std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60,
                        whole % 60);
  } else {
    (void)std::snprintf(text.data(), text.size(), "%ld:%02ld", whole / 60, whole % 60);
  }
  return text.data();
}

}  // namespace tallowmark
