// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/Part.h"

#include <algorithm>
#include <system_error>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"

namespace tallowmark::ClipJoin {

namespace {

bool reachesPast(const Movie& movie, std::uint64_t end) {
  return std::any_of(movie.tracks.begin(), movie.tracks.end(), [&](const Track& track) {
    const auto& runs = track.samples.runs();
    return std::any_of(runs.begin(), runs.end(),
                       [&](const SampleRun& run) { return run.end() > end; });
  });
}

}  // namespace

std::optional<FileStamp> FileStamp::of(const std::filesystem::path& file) {
  std::error_code error;
  FileStamp stamp;
  stamp.size = std::filesystem::file_size(file, error);
  if (error) {
    return std::nullopt;
  }
  stamp.modified = std::filesystem::last_write_time(file, error);
  return error ? std::nullopt : std::optional(stamp);
}

Part readPart(const std::filesystem::path& url) {
  // Looked at before it is read: what changes meanwhile differs from it later.
  Part part{url, {}, FileStamp::of(url)};
  const FileSource source(url.string());
  try {
    part.movie = MovieParser::parse(BoxReader(source));
    MovieParser::readHandlerNames(BoxReader(source), part.movie);
  } catch (const MediaError&) {
    throw MediaError::unsupported(part.name() +
                                  " doesn't open. Repair it first, then join the repaired copy.");
  }
  if (reachesPast(part.movie, source.size()) || !part.movie.lostPieces.empty()) {
    throw MediaError::unsupported(part.name() +
                                  " is cut short. Repair it first, then join the repaired copy.");
  }
  return part;
}

}  // namespace tallowmark::ClipJoin
