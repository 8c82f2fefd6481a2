// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PaneFacts.h"

#include <QLocale>
#include <algorithm>
#include <limits>

#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/Detail/PaneWords.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;
using AudioOutcome = Clip::Summary::AudioOutcome;
using Facts = std::vector<Fact>;
using PaneWords::tr;

QString text(const std::string& text) {
  return QString::fromStdString(text);
}

QString number(std::int64_t count) {
  return QLocale().toString(static_cast<qlonglong>(count));
}

// "12 megapixels" tells people more than the product.
QString pictureSize(std::int64_t width, std::int64_t height) {
  const QString pixels = QStringLiteral("%1×%2").arg(width).arg(height);
  const double millions = static_cast<double>(width) * static_cast<double>(height) / 1e6;
  return millions < 1 ? pixels
                      : tr("%1 (%2 megapixels)")
                            .arg(pixels, QLocale().toString(millions, 'f', millions < 10 ? 1 : 0));
}

void addInfo(Facts& facts, const ClipInfo& info) {
  if (info.seconds <= 0 && info.framesPerSecond <= 0) {
    facts.push_back({tr("Format"), text(info.videoCodec)});
    facts.push_back({tr("Picture"), pictureSize(info.width, info.height)});
    return;
  }
  facts.push_back({tr("Video"), text(info.summary())});
  facts.push_back({tr("Length"), ItemTexts::duration(info.seconds)});
  facts.push_back({tr("Sound"), info.audioCodec ? text(*info.audioCodec) : tr("None")});
}

QString lengthText(const Clip::Summary& summary, const ClipBackground& background) {
  const QString length = ItemTexts::duration(summary.seconds);
  const auto recorded =
      background.details ? background.details->secondsRecorded : std::optional<double>();
  const QString whole = recorded ? ItemTexts::duration(*recorded) : length;
  return whole == length ? length : tr("%1 of %2 recorded").arg(length, whole);
}

QString soundText(const Clip::Summary& summary, const ClipBackground& background) {
  switch (summary.audio) {
    case AudioOutcome::none:
      return tr("None");
    case AudioOutcome::notRecoverable:
      return tr("Could not be recovered");
    case AudioOutcome::recovered:
      break;
  }
  const auto* details = background.details ? &*background.details : nullptr;
  const bool isNamed = details != nullptr && details->info && details->info->audioCodec;
  const QString recovered = summary.isSoundIncomplete ? tr("Recovered in part") : tr("Recovered");
  return isNamed ? tr("%1 (%2)").arg(recovered, text(*details->info->audioCodec)) : recovered;
}

void addClipResult(Facts& facts, const Clip::Summary& summary, const ClipBackground& background) {
  const auto& details = background.details;
  if (details && details->info) {
    facts.push_back({tr("Video"), text(details->info->summary())});
  }
  facts.push_back({tr("Length"), lengthText(summary, background)});
  facts.push_back({tr("Frames"), number(summary.frames)});
  facts.push_back({tr("Sound"), soundText(summary, background)});
  const auto* result = details ? std::get_if<VideoRepair::Result>(&details->facts) : nullptr;
  if (result != nullptr && result->unusedBytes > 0) {
    facts.push_back({tr("Not used"), PaneFacts::size(result->unusedBytes)});
  }
}

void addPictureResult(Facts& facts, const Clip::PhotoFacts& photo) {
  facts.push_back({tr("Picture"), pictureSize(photo.width, photo.height)});
  if (photo.fromRAW) {
    facts.push_back({tr("Camera details"),
                     photo.keptDetails ? tr("Copied from the RAW file") : tr("Not copied")});
  }
  if (!photo.borrowed.empty()) {
    QString borrowed;
    for (const std::string& part : photo.borrowed) {
      borrowed += (borrowed.isEmpty() ? QString() : QStringLiteral(", ")) + tr(part.c_str());
    }
    facts.push_back({tr("From the reference"), borrowed});
  }
}

void addResult(Facts& facts, const Clip::Summary& summary, const ClipBackground& background) {
  summary.photo ? addPictureResult(facts, *summary.photo)
                : addClipResult(facts, summary, background);
  if (background.details && background.details->reference) {
    facts.push_back({tr("Reference"), text(background.details->reference->filename().string())});
  }
}

/// What is known of a clip in its state.
struct StateFacts {
  Facts& facts;
  const ClipBackground& background;

  void operator()(const Clip::Healthy& state) const {
    if (state.info) addInfo(facts, *state.info);
  }
  void operator()(const Clip::Preview& state) const { addResult(facts, state.summary, background); }
  void operator()(const Clip::Saved& state) const { addResult(facts, state.summary, background); }
  template <class Other>
  void operator()(const Other&) const {}
};

const ClipJoin::Result* resultOf(const Join& join) {
  if (const auto* preview = std::get_if<Join::Preview>(&join.state)) return &preview->result;
  if (const auto* saved = std::get_if<Join::Saved>(&join.state)) return &saved->result;
  return nullptr;
}

QString trackText(const ClipJoin::Result& result) {
  if (result.extraTracksDropped == 0) {
    return tr("%1 kept").arg(number(result.extraTracksKept));
  }
  return tr("%1 kept, %2 left out")
      .arg(number(result.extraTracksKept), number(result.extraTracksDropped));
}

void addCopy(Facts& facts, const std::optional<fs::path>& copy) {
  if (copy) facts.push_back({tr("Saved copy"), text(copy->string())});
}

}  // namespace

QString PaneFacts::size(std::uint64_t bytes) {
  constexpr std::uint64_t most = std::numeric_limits<qint64>::max();
  return QLocale().formattedDataSize(static_cast<qint64>(std::min(bytes, most)), 1,
                                     QLocale::DataSizeSIFormat);
}

std::vector<Fact> PaneFacts::of(const Clip& clip, const ClipBackground& background) {
  Facts facts;
  std::visit(StateFacts{facts, background}, clip.state);
  facts.push_back({tr("File size"), size(clip.size)});
  facts.push_back({tr("Original"), text(clip.url.string())});
  addCopy(facts, background.savedCopy);
  return facts;
}

std::vector<Fact> PaneFacts::of(const Join& join, const JoinBackground& background) {
  Facts facts;
  if (const ClipJoin::Result* result = resultOf(join)) {
    facts.push_back({tr("Length"), ItemTexts::duration(result->seconds)});
    facts.push_back({tr("Frames"), number(result->videoFrames)});
    facts.push_back({tr("Size"), size(result->bytes)});
    if (result->extraTracksKept + result->extraTracksDropped > 0) {
      facts.push_back({tr("Extra tracks"), trackText(*result)});
    }
  }
  if (!join.parts.empty()) {
    facts.push_back({tr("Folder"), text(join.parts.front().parent_path().string())});
  }
  addCopy(facts, background.savedCopy);
  return facts;
}

std::vector<Fact> PaneFacts::parts(const Join& join, const JoinBackground& background) {
  Facts facts;
  for (std::size_t i = 0; i < join.parts.size(); ++i) {
    QString part = text(join.parts[i].filename().string());
    if (i < background.parts.size()) {
      part += QStringLiteral(" · %1 · %2")
                  .arg(size(background.parts[i].size),
                       ItemTexts::duration(background.parts[i].seconds));
    }
    facts.push_back({tr("Part %1").arg(i + 1), part});
  }
  return facts;
}

}  // namespace tallowmark
