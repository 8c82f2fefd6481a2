// SPDX-License-Identifier: GPL-3.0-or-later
#include <sys/stat.h>

#include <cerrno>
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Interruption.h"
#include "CommandLine/JsonText.h"
#include "CommandLine/ProgressBar.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/Disks/DiskEnumerator.h"
#include "DeviceKit/Imaging/CardImage.h"
#include "DeviceKit/Imaging/ImageError.h"
#include "DeviceKit/Imaging/ImageFile.h"
#include "DeviceKit/PendingFile.h"
#include "DeviceKit/SourceOpener.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

fs::path folderOf(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

// A card is never written to, not even through its own file system.
void requireOtherPlace(const RawDevice& card, const fs::path& file) {
  struct stat device {};
  struct stat folder {};
  if (::fstat(card.descriptor(), &device) == 0 && ::stat(folderOf(file).c_str(), &folder) == 0 &&
      liesOn(folder, device)) {
    throw ImageError::onTheCard(file);
  }
}

// Only a word: what was never used on a card takes no room in the image.
void warnOfLittleRoom(const RawDevice& card, const fs::path& file) {
  const auto room = availableSpace(folderOf(file));
  struct stat begun {};
  const bool isBegun = ::stat(ImageFile::mapName(file).c_str(), &begun) == 0;
  if (room && *room < card.size() && !isBegun) {
    std::cerr << "The card holds " << sizeText(card.size()) << ", and only " << sizeText(*room)
              << " are free in " << folderOf(file).string()
              << ". The copy fits only if much of the card was never used.\n";
  }
}

struct Copied {
  CardImage::Result result;
  std::size_t blockSize = 0;
};

Copied copyCard(const ImageRequest& request) {
  const auto card =
      SourceOpener::openDevice(request.device.string(), DiskEnumerator::privilegedOpener());
  requireOtherPlace(*card, request.file);
  removeAbandonedFiles(folderOf(request.file));
  warnOfLittleRoom(*card, request.file);
  ProgressBar bar({card->size()});
  const auto progress = [&](std::uint64_t tried) {
    bar.update(0, static_cast<double>(tried) / static_cast<double>(card->size()));
  };
  return {CardImage::copy(*card, request.file, progress, Interruption::token()), card->blockSize()};
}

// What stands when a copy ends early, and what to do.
std::string resumeText(const fs::path& file) {
  const fs::path unfinished = ImageFile::unfinishedName(file);
  std::error_code error;
  const fs::path& kept = fs::exists(unfinished, error) ? unfinished : file;
  return " What was read is in " + kept.string() + "; the same command again goes on from there.";
}

std::string outcomeText(const ImageRequest& request, const CardImage::Result& result) {
  std::string text = "Saved as " + request.file.string() + " · " + sizeText(result.size);
  if (result.unreadableBlocks == 0) {
    return text + " · every block was read";
  }
  return text + " · " + std::to_string(result.unreadableBlocks) +
         (result.unreadableBlocks == 1 ? " block" : " blocks") + " could not be read (" +
         sizeText(result.unreadableBytes) +
         " of zeros in their place) · the same command again tries them once more";
}

Json outcomeJson(const Copied& copied) {
  const CardImage::Result& result = copied.result;
  return {{"state", "saved"},
          {"size", result.size},
          {"blockSize", copied.blockSize},
          {"unreadableBlocks", result.unreadableBlocks},
          {"unreadableBytes", result.unreadableBytes},
          {"readBefore", result.readBefore}};
}

void print(const ImageRequest& request, const Json& fields, const std::string& sentence) {
  if (!request.json) {
    std::cout << request.device.string() << ": " << sentence << '\n';
    return;
  }
  Json line{{"device", request.device.string()}, {"file", request.file.string()}};
  line["map"] = ImageFile::mapName(request.file).string();
  line.update(fields);
  std::cout << lineOf(line) << '\n';
}

int refuse(const ImageRequest& request, const char* state, const std::string& message) {
  print(request, {{"state", state}, {"message", message}}, message);
  return ExitStatus::someNotWell;
}

// What the system's word for a failed write means for a copy that has begun, or cannot begin.
std::string adviceFor(const DeviceError& error, const ImageRequest& request) {
  if (error.kind() != DeviceError::Kind::writeFailed) {
    return {};
  }
  if (error.errorNumber() == EFBIG) {
    return ". The disk there takes no file as large as the card. Choose another one.";
  }
  std::error_code unknown;
  if (!fs::exists(ImageFile::mapName(request.file), unknown)) {
    return {};
  }
  return (error.errorNumber() == ENOSPC ? ". The disk is full: make room on it." : ".") +
         resumeText(request.file);
}

}  // namespace

int runImage(const ImageRequest& request) {
  try {
    const Copied copied = copyCard(request);
    print(request, outcomeJson(copied), outcomeText(request, copied.result));
    return copied.result.unreadableBlocks == 0 ? ExitStatus::allWell : ExitStatus::someNotWell;
  } catch (const Stopped&) {
    return refuse(request, "stopped", "Stopped." + resumeText(request.file));
  } catch (const ImageError& error) {
    const bool canGoOn = error.kind() == ImageError::Kind::noAnswer;
    return refuse(request, "failed",
                  error.what() + (canGoOn ? resumeText(request.file) : std::string()));
  } catch (const DeviceError& error) {
    return refuse(request, "failed", error.what() + adviceFor(error, request));
  }
}

}  // namespace tallowmark
