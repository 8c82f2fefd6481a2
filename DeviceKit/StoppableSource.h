// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// Another source, read in pieces between which a stop is looked at: whatever reads it ends soon
/// when it is asked to, also where it knows no stop of its own.
class StoppableSource final : public ByteSource {
 public:
  StoppableSource(std::unique_ptr<const ByteSource> source, StopToken stop)
      : source_(std::move(source)), stop_(std::move(stop)) {}

  std::uint64_t size() const override { return source_->size(); }
  std::int64_t badReads() const override { return source_->badReads(); }
  std::string descriptionForReport() const override { return source_->descriptionForReport(); }
  /// Throws as the source does, and Stopped.
  std::size_t readInto(std::uint64_t offset, std::span<std::uint8_t> into) const override;
  std::optional<int> descriptor() const override { return source_->descriptor(); }

 private:
  std::unique_ptr<const ByteSource> source_;
  StopToken stop_;
};

}  // namespace tallowmark
