// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/JoinWriting.h"

#include <memory>
#include <vector>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MediaError.h"

namespace tallowmark::ClipJoin {

namespace {

// A file that someone still writes to, or put another one in the place of, would give bytes that
// its index does not mean.
void requireUnchanged(const Part& part) {
  if (part.stamp && FileStamp::of(part.url) != part.stamp) {
    throw MediaError::unsupported(
        part.name() + " has changed since it was checked. Check it again when it is complete.");
  }
}

}  // namespace

void writeJoined(std::span<const Part> parts, const Plan& joined, FileSink& destination,
                 const Progress& progress, const StopToken& stop) {
  std::vector<std::unique_ptr<FileSource>> sources;
  std::vector<Segment> segments;
  for (std::size_t i = 0; i < joined.ranges.size(); ++i) {
    sources.push_back(std::make_unique<FileSource>(parts[i].url.string()));
    segments.push_back({sources.back().get(), joined.ranges[i]});
  }
  for (std::size_t i = 0; i < sources.size(); ++i) {
    requireUnchanged(parts[i]);
    if (joined.ranges[i].upper > sources[i]->size()) {
      throw MediaError::unsupported(parts[i].name() +
                                    " is cut short. Repair it first, then join the repaired copy.");
    }
  }
  MovieWriter::write(joined.movie, segments, destination, progress, stop);
  for (const Part& part : parts) requireUnchanged(part);
}

}  // namespace tallowmark::ClipJoin
