// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/JsonText.h"
#include "DeviceKit/Disks/DiskEnumerator.h"

namespace tallowmark {

namespace {

Json diskJson(const ExternalDisk& disk) {
  return {{"deviceIdentifier", disk.deviceIdentifier},
          {"mediaName", disk.mediaName},
          {"sizeBytes", disk.sizeBytes},
          {"volumeNames", disk.volumeNames},
          {"rawPath", disk.rawPath()},
          {"isMemoryCard", disk.isMemoryCard()}};
}

std::string diskSentence(const ExternalDisk& disk) {
  std::string text = disk.rawPath() + ": " + disk.displayName() + " · " + disk.sizeDescription();
  if (!disk.mediaName.empty() && disk.mediaName != disk.displayName()) {
    text += " · " + disk.mediaName;
  }
  return text + (disk.isMemoryCard() ? " · memory card" : "");
}

}  // namespace

int runDisks(const DisksRequest& request) {
  const std::vector<ExternalDisk> disks = DiskEnumerator::externalDisks(false);
  if (disks.empty()) {
    std::cerr << "No memory cards or external disks were found.\n";
  }
  for (const ExternalDisk& disk : disks) {
    std::cout << (request.json ? lineOf(diskJson(disk)) : diskSentence(disk)) << '\n';
  }
  return ExitStatus::allWell;
}

}  // namespace tallowmark
