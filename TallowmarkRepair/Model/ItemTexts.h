// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"

/// What rows and panes say of single items.
namespace tallowmark::ItemTexts {

/// "4:05", "1:02:03".
QString duration(double seconds);

/// The status line of a join's row.
QString rowStatus(const Join& join);

/// The first sentences of a join's detail pane.
QString introduction(const Join& join);

/// What stands where the preview of a repaired file of that kind should be, but could not be made.
QString missingPreview(Kind kind);

}  // namespace tallowmark::ItemTexts
