// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/PhotoRepair.h"

#include <cerrno>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/RebuiltPicture.h"

namespace tallowmark {
namespace {

using JPEGRepair::PictureCheck;
using JPEGRepair::Repaired;

constexpr int proofPixels = 256;
constexpr double previewQuality = 0.7;

bool opens(const Repaired& repaired, const ImageService& images) {
  if (images.imageCount(repaired.bytes) == 0 || !borrowedPartsFit(repaired)) {
    return false;
  }
  // The data was decoded to its end already: decoding it once more would tell nothing new.
  if (repaired.check && repaired.check->verdict == PictureCheck::Verdict::complete) {
    return true;
  }
  const auto picture = images.thumbnail(repaired.bytes, proofPixels, Turn::asStored);
  const bool judged =
      repaired.check && repaired.check->verdict != PictureCheck::Verdict::notDecoded;
  // Where nothing but the decoder can judge borrowed tables, its complaint counts.
  return picture && (repaired.result.borrowed.empty() || judged || !picture->complained);
}

}  // namespace

Repaired repairPhoto(ByteView photo, std::optional<ByteView> reference,
                     const ImageService& images) {
  Repaired repaired = JPEGRepair::repair(photo, reference);
  if (opens(repaired, images)) {
    return repaired;
  }
  const bool used = reference && repaired.result.fix == JPEGRepair::Result::Fix::rebuiltHeader;
  throw MediaError::unsupported(
      used ? "The rebuilt photo still won't open. Check that the reference photo was taken on the "
             "same camera, at the same size and quality setting."
           : "The repaired photo still won't open.");
}

bool makePhotoPreview(ByteView image, const std::filesystem::path& destination, int maxPixels,
                      const ImageService& images) {
  const auto thumbnail = images.thumbnail(image, maxPixels, Turn::byOrientation);
  const auto jpeg = thumbnail ? images.encodeJPEG(thumbnail->pixels, previewQuality) : std::nullopt;
  if (!jpeg) {
    return false;
  }
  try {
    PendingFile file(destination.parent_path());
    file.sink().append(*jpeg);
    std::filesystem::remove(destination);
    const auto nameAt = [&](unsigned attempt) {
      if (attempt > 1) {
        throw DeviceError::writeFailed(destination.string(), EEXIST);
      }
      return destination.filename().string();
    };
    file.publish(nameAt, std::nullopt);
    return true;
  } catch (const DeviceError&) {
    return false;
  } catch (const std::filesystem::filesystem_error&) {
    return false;
  }
}

}  // namespace tallowmark
