// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

/// What commands are called differs between systems, as the programs do that they name.
namespace tallowmark::PlatformWords {

/// "Show in Finder".
QString showInFileManager();

/// "Show Parts in Finder".
QString showPartsInFileManager();

}  // namespace tallowmark::PlatformWords
