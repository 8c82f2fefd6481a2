// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "PropertyLists/PropertyList.h"

namespace tallowmark {

/// What decides whether a disk is one that people put cards and cameras' files on.
struct DiskInfo {
  bool isDiskImage = false;
  bool isVirtual = false;
  /// Built in by the maker of the computer, or what the system runs from.
  bool isSystemMedia = false;
  bool hasRemovableMedia = false;
  bool isRemovableOrExternal = false;
  bool isEjectable = false;
  bool isInternal = false;
};

/// The same from what the Mac's disk utility tells of a disk. A key that is missing, or not of the
/// kind it should be, counts as false.
DiskInfo diskInfo(const PropertyList& info);

}  // namespace tallowmark
