// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/ClipJobs.h"

#include <algorithm>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Rescue/Checking.h"
#include "MediaKit/Rescue/Explain.h"
#include "TallowmarkRepair/Model/Summaries.h"

namespace tallowmark::ClipJobs {

namespace {

// Absent where there is no index, and for a file that is gone: its repair is done all the same.
std::optional<double> secondsInIndex(const std::filesystem::path& clip, const FileOpener& open) {
  try {
    const auto whole = ClipInfo::of(*open(clip).bytes);
    return whole ? std::optional(whole->seconds) : std::nullopt;
  } catch (const DeviceError&) {
    return std::nullopt;
  }
}

// Or begins behind it.
bool goesOnBehindLosses(const Movie& movie) {
  const Track* video = movie.videoTrack();
  if (video == nullptr || video->samples.empty()) {
    return false;
  }
  const std::uint64_t last = video->samples.back().offset;
  return std::any_of(movie.lostPieces.begin(), movie.lostPieces.end(), [&](const LostPiece& piece) {
    return piece.isMoved ? last >= piece.from : piece.resumptionOf(video->trackID) != nullptr;
  });
}

RepairDetails detailsOf(const RepairPreview& made, const std::filesystem::path& file,
                        const std::optional<std::filesystem::path>& reference,
                        const FileOpener& open) {
  RepairDetails details{made.facts, {}, false, {}, false, reference};
  if (made.learnt) {
    const VideoRepair::Plan& plan = made.learnt->plan;
    details.info = ClipInfo::of(plan.movie);
    details.rebuilt = plan.rebuilt;
    details.secondsRecorded = plan.rebuilt ? std::nullopt : secondsInIndex(file, open);
    details.isDamagedInside = !plan.rebuilt && goesOnBehindLosses(plan.movie);
  }
  return details;
}

}  // namespace

FileState::Any run(const Check& job, const Surroundings& with, const StopToken& stop) {
  try {
    return checkFile(job.file, job.kind, stoppable(with.open, stop));
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    return FileState::Failed{explain(error, false)};
  }
}

PreviewResult run(const Preview& job, const Surroundings& with, const Progress& progress,
                  const StopToken& stop) {
  PreviewResult result;
  const FileOpener open = stoppable(with.open, stop);
  try {
    (void)firstThatServes(job.tries, [&](const std::optional<std::filesystem::path>& reference) {
      result.reference = reference;
      const RepairPreview made =
          previewRepair({job.file, job.kind, reference}, job.files, *with.images, with.previewer,
                        progress, stop, open, with.decoder);
      result.details = detailsOf(made, job.file, reference, open);
      result.state = Clip::Preview{summaryOf(made.facts)};
      result.learnt = made.learnt;
      if (made.viewable) result.preview = job.files.preview;
    });
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    result.state = Clip::Failed{explain(error, result.reference.has_value())};
  }
  return result;
}

SaveResult run(const Save& job, const Surroundings& with, const Progress& progress,
               const StopToken& stop) {
  try {
    removeAbandonedFiles(job.folder);
    SavedCopy saved = saveRepairedCopy(job.file, job.folder, *with.images, progress, stop,
                                       stoppable(with.open, stop), with.decoder);
    return {Clip::Saved{summaryOf(saved.facts)}, std::move(saved.path)};
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    return {Clip::Failed{explain(error, job.file.reference.has_value())}, {}};
  }
}

}  // namespace tallowmark::ClipJobs
