// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/ItemTexts.h"

#include <QCoreApplication>
#include <algorithm>
#include <cmath>

namespace tallowmark::ItemTexts {

namespace {

QString translated(const char* sentence) {
  return QCoreApplication::translate("ItemTexts", sentence);
}

QString textOf(const Join::Incompatible&, const Join&) {
  return translated("Can't be joined");
}
QString textOf(const Join::Joining& state, const Join&) {
  return state.fraction > 0 ? translated("Joining… %1%").arg(static_cast<int>(state.fraction * 100))
                            : translated("Joining…");
}
QString textOf(const Join::Preview& state, const Join&) {
  return translated("%1 parts · %2 · ready to join")
      .arg(state.result.parts)
      .arg(duration(state.result.seconds));
}
QString textOf(const Join::Saved&, const Join&) {
  return translated("Saved as one clip");
}
QString textOf(const Join::Failed&, const Join&) {
  return translated("Couldn't join");
}
QString textOf(const Join::Checking&, const Join& join) {
  return translated("Checking %1 parts…").arg(join.parts.size());
}

// What is said in one way of clips, in another of photos and RAW files.
QString byKind(const Clip& clip, const char* video, const char* photo) {
  return translated(clip.kind() == Kind::video ? video : photo);
}

QString size(std::int64_t width, std::int64_t height) {
  return QStringLiteral("%1×%2").arg(width).arg(height);
}

QString withFact(const QString& start, const QString& fact) {
  return fact.isEmpty() ? start : QStringLiteral("%1 · %2").arg(start, fact);
}

QString factOf(const ClipInfo& info) {
  return info.seconds > 0 ? duration(info.seconds)
         : info.width > 0 ? size(info.width, info.height)
                          : QString();
}

QString factOf(const Clip::Summary& summary) {
  return summary.photo ? size(summary.photo->width, summary.photo->height)
                       : duration(summary.seconds);
}

// Only what is less than people hope for.
QString soundOf(const Clip::Summary& summary) {
  return summary.audio == Clip::Summary::AudioOutcome::notRecoverable ? translated("without sound")
         : summary.isSoundIncomplete ? translated("some sound lost")
                                     : QString();
}

/// The status of a file, by state.
struct ClipStatus {
  const Clip& clip;
  const RowFacts& facts;

  QString operator()(const Clip::Healthy& state) const {
    // A row has room for one of them.
    const QString fact =
        facts.isReference ? QString()
        : facts.part ? translated("part %1 of %2").arg(facts.part->first).arg(facts.part->second)
        : state.info ? factOf(*state.info)
                     : QString();
    return translated("%1 · nothing to fix").arg(withFact(byKind(clip, "Plays", "Opens"), fact));
  }
  QString operator()(const Clip::Truncated&) const {
    return translated("Cut short · ready to repair");
  }
  QString operator()(const Clip::Repairing& state) const {
    return state.fraction > 0
               ? translated("Repairing… %1%").arg(static_cast<int>(state.fraction * 100))
               : translated("Repairing…");
  }
  QString operator()(const Clip::Preview& state) const {
    const QString done = translated(clip.kind() == Kind::raw ? "Rescued" : "Repaired");
    return withFact(withFact(done, factOf(state.summary)), soundOf(state.summary));
  }
  QString operator()(const Clip::Saved& state) const {
    return withFact(withFact(translated("Saved"), factOf(state.summary)), soundOf(state.summary));
  }
  QString operator()(const Clip::Failed&) const { return translated("Couldn't repair"); }
  QString operator()(const Clip::Checking&) const { return translated("Checking…"); }
  QString operator()(const Clip::MissingIndex&) const {
    return byKind(clip, "Won't open · needs reference", "Header damaged · needs reference");
  }
  QString operator()(const Clip::RawFile&) const {
    return translated("RAW · picture can be rescued");
  }
  QString operator()(const Clip::NotAVideo&) const {
    return byKind(clip, "Not a video Repair can read", "Not a JPEG Repair can read");
  }
};

}  // namespace

QString duration(double seconds) {
  constexpr double mostSeconds = 1e9;
  const auto whole = static_cast<qint64>(
      std::isfinite(seconds) ? std::clamp(std::round(seconds), 0.0, mostSeconds) : 0.0);
  const auto twoDigits = [](qint64 number) {
    return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0'));
  };
  const qint64 minutes = whole / 60;
  return minutes < 60 ? QStringLiteral("%1:%2").arg(minutes).arg(twoDigits(whole % 60))
                      : QStringLiteral("%1:%2:%3")
                            .arg(minutes / 60)
                            .arg(twoDigits(minutes % 60), twoDigits(whole % 60));
}

QString rowStatus(const Clip& clip, const RowFacts& facts) {
  const QString status = std::visit(ClipStatus{clip, facts}, clip.state);
  return facts.isReference ? translated("%1 · reference").arg(status) : status;
}

QString rowStatus(const Join& join) {
  return std::visit([&](const auto& state) { return textOf(state, join); }, join.state);
}

QString introduction(const Join& join) {
  return translated(join.foundAutomatically
                        ? "The camera split this recording into %1 files to stay under the card's "
                          "4 GB file limit. Repair joins them back into one clip."
                        : "Repair joins these %1 clips into one, in the order shown.")
      .arg(join.parts.size());
}

QString missingPreview(Kind kind) {
  return translated(kind == Kind::video
                        ? "No preview available. Saving still writes the repaired clip."
                        : "No preview available. Saving still writes the repaired photo.");
}

}  // namespace tallowmark::ItemTexts
