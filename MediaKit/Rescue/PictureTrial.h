// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <future>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/PictureDecoder.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// Tries some of a rebuilt clip's pictures: key pictures, runs behind them and, where damage hit
/// these, single ones, put behind a good key picture. A reference of another resolution or of other
/// settings teaches where the frames lie all the same, and nothing but decoding them shows that its
/// parameter sets are not theirs: they fit where the decoding of a picture ends with its data.
/// Pictures are written for it into hidden files in `folder`, one or two at a time. Throws
/// MediaError::noVideo when hardly any fits and the reference's do, DeviceError, Stopped. A plan
/// that was not rebuilt has its own parameter sets and passes, as does everything where nothing can
/// be tried or written.
void requireDecodable(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureDecoder& decoder, const StopToken& stop);

/// The same beside other work, on a thread of its own that ends with it. What it is given must
/// outlive it.
class RunningPictureTrial {
 public:
  RunningPictureTrial(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureDecoder& decoder);
  ~RunningPictureTrial();
  RunningPictureTrial(const RunningPictureTrial&) = delete;
  RunningPictureTrial& operator=(const RunningPictureTrial&) = delete;
  RunningPictureTrial(RunningPictureTrial&&) = delete;
  RunningPictureTrial& operator=(RunningPictureTrial&&) = delete;

  /// Throws what requireDecodable throws, if that has happened by now.
  void check();
  /// The same once the trial is over.
  void wait(const StopToken& stop);

 private:
  StopSource end_;
  std::future<void> trial_;
};

}  // namespace tallowmark
