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
