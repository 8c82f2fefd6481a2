// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/PictureTrial.h"

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/ClipStart.h"
#include "MediaKit/Video/NALFormat.h"

namespace tallowmark {

namespace {

constexpr std::size_t placesToTry = 8;
// A decoder of H.264 that reads with another stream's parameter sets complains at once. One of HEVC
// may find its way through a picture or two, and skips without a word what it cannot decode from
// here.
constexpr std::uint64_t picturesOfHEVC = 12;
// A single one may be what the damage hit.
constexpr std::size_t fewestToJudgeBy = 2;
// Of heavily damaged clips more decode; with parameter sets of another stream none should.
constexpr std::size_t leastShareWhole = 3;

std::optional<bool> tryAt(const Movie& movie, std::uint64_t key, const ByteSource& source,
                          const std::filesystem::path& folder, const PictureTrial& trial,
                          const StopToken& stop) {
  try {
    PendingFile excerpt(folder);
    const Track& video = *movie.videoTrack();
    const bool isHEVC = codecOf(video.codec) == NALFormat::Codec::hevc;
    VideoRepair::write(VideoRepair::excerptOf(movie, key, isHEVC ? picturesOfHEVC : 1), source,
                       excerpt.sink(), stop);
    return trial(excerpt.temporaryPath(), stop);
  } catch (const DeviceError& error) {
    if (error.kind() == DeviceError::Kind::writeFailed) {
      return std::nullopt;
    }
    throw;
  }
}

// A decoder that cannot read the camera's good clip either says nothing of the rebuilt one.
bool referenceDecodes(const ByteSource& reference, const std::filesystem::path& folder,
                      const PictureTrial& trial, const StopToken& stop) {
  const Movie movie = MovieParser::parse(BoxReader(reference));
  const auto keys = VideoRepair::keyPictures(movie, 1);
  return !keys.empty() && tryAt(movie, keys.front(), reference, folder, trial, stop) == true;
}

}  // namespace

void requireDecodable(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureTrial& trial, const StopToken& stop) {
  if (!plan.rebuilt || reference == nullptr || !trial) {
    return;
  }
  std::size_t tried = 0;
  std::size_t whole = 0;
  for (const std::uint64_t key : VideoRepair::keyPictures(plan.movie, placesToTry)) {
    stop.check();
    if (const auto decodes = tryAt(plan.movie, key, source, folder, trial, stop)) {
      ++tried;
      whole += *decodes ? 1U : 0U;
    }
    // Parameter sets that fit one picture fit the others.
    if (whole > 0 && whole * leastShareWhole >= tried) {
      return;
    }
  }
  if (tried >= fewestToJudgeBy && whole * leastShareWhole < tried &&
      referenceDecodes(*reference, folder, trial, stop)) {
    throw MediaError::noVideo();
  }
}

}  // namespace tallowmark
