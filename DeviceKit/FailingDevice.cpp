// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FailingDevice.h"

#include <algorithm>
#include <cerrno>

namespace tallowmark {

ReadOutcome FailingDevice::outcomeOf(std::uint64_t offset, std::size_t count) const {
  const std::uint64_t end = offset + count;
  if (offset % blockSize_ != 0 || end > data_.size() ||
      (count % blockSize_ != 0 && end != data_.size())) {
    return {0, EINVAL};
  }
  if (!present_ || mute_) {
    return {0, present_ ? EIO : ENXIO};
  }
  const auto firstBad = bad_.lower_bound(offset / blockSize_);
  if (firstBad == bad_.end() || *firstBad * blockSize_ >= end) {
    return {count, 0};
  }
  const auto before = static_cast<std::size_t>(*firstBad * blockSize_ - offset);
  return {bringsWhatComesBefore ? before : 0, EIO};
}

ReadOutcome FailingDevice::readAt(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (beforeRead) {
    // A card changes under the reader's hands; what the reader holds of it is const all the same.
    beforeRead(const_cast<FailingDevice&>(*this), reads_);
  }
  const ReadOutcome outcome = outcomeOf(offset, into.size());
  ++reads_;
  failedReads_ += outcome.error != 0 ? 1 : 0;
  std::copy_n(data_.begin() + static_cast<std::ptrdiff_t>(outcome.count > 0 ? offset : 0),
              outcome.count, into.begin());
  return outcome;
}

}  // namespace tallowmark
