// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/DiskInfo.h"

#include "DeviceKit/Disks/DiskEnumerator.h"

namespace tallowmark {

DiskInfo diskInfo(const PropertyList& info) {
  const auto isTrue = [&](const char* key) { return info.flag(key).value_or(false); };
  return {.isDiskImage = info.text("BusProtocol") == "Disk Image",
          .isVirtual = info.text("VirtualOrPhysical") == "Virtual",
          .isSystemMedia = isTrue("OSInternalMedia") || isTrue("SystemImage"),
          .hasRemovableMedia = isTrue("RemovableMedia"),
          .isRemovableOrExternal = isTrue("RemovableMediaOrExternalDevice"),
          .isEjectable = isTrue("Ejectable"),
          .isInternal = isTrue("Internal")};
}

bool DiskEnumerator::isMemoryCardLike(const DiskInfo& info, bool allowDiskImages) {
  if (info.isDiskImage) {
    return allowDiskImages;
  }
  if (info.isVirtual || info.isSystemMedia) {
    return false;
  }
  const bool isRemovable =
      info.hasRemovableMedia || (info.isRemovableOrExternal && info.isEjectable);
  return !info.isInternal || isRemovable;
}

}  // namespace tallowmark
