// SPDX-License-Identifier: GPL-3.0-or-later
#include "Chapters.h"

#include <algorithm>
#include <limits>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/MovieWriter.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark::testing {

namespace fs = std::filesystem;

namespace {

/// The first samples of the chapters in each track; one more that stands for the end.
using Cuts = std::vector<std::uint64_t>;

Cuts keyFrameCuts(const SampleList& video, std::size_t count) {
  std::vector<std::uint64_t> keys;
  for (std::uint64_t i = 0; i < video.size(); ++i) {
    if (video[i].isSync) keys.push_back(i);
  }
  Cuts cuts;
  for (std::size_t chapter = 0; chapter < count; ++chapter) {
    cuts.push_back(keys[keys.size() * chapter / count]);
  }
  cuts.push_back(video.size());
  return cuts;
}

// Sound is cut by its time, extra tracks, whose times may all be zero, by where they lie.
Cuts cutsOf(const Track& track, const Track& video, const Cuts& videoCuts) {
  Cuts cuts{0};
  for (std::size_t chapter = 1; chapter + 1 < videoCuts.size(); ++chapter) {
    std::uint64_t index = cuts.back();
    const auto isBefore = [&] {
      return track.kind == Track::Kind::audio
                 ? startOf(track, index) < startOf(video, videoCuts[chapter])
                 : track.samples[index].offset < video.samples[videoCuts[chapter]].offset;
    };
    while (index < track.samples.size() && isBefore()) ++index;
    cuts.push_back(index);
  }
  cuts.push_back(track.samples.size());
  return cuts;
}

ByteRange stretchOf(const Movie& movie) {
  ByteRange stretch{std::numeric_limits<std::uint64_t>::max(), 0};
  for (const Track& track : movie.tracks) {
    for (const SampleRun& run : track.samples.runs()) {
      stretch.lower = std::min(stretch.lower, run.first.offset);
      stretch.upper = std::max(stretch.upper, run.end());
    }
  }
  return stretch;
}

}  // namespace

std::vector<fs::path> cutIntoChapters(const fs::path& clip, const fs::path& folder,
                                      std::size_t count) {
  const FileSource source(clip.string());
  Movie whole = MovieParser::parse(BoxReader(source));
  MovieParser::readHandlerNames(BoxReader(source), whole);
  const Track& video = *whole.videoTrack();
  const Cuts videoCuts = keyFrameCuts(video.samples, count);
  std::vector<fs::path> files;
  for (std::size_t chapter = 0; chapter < count; ++chapter) {
    Movie movie = whole;
    Track* timecode = nullptr;
    for (Track& track : movie.tracks) {
      const Cuts cuts =
          track.kind == Track::Kind::video ? videoCuts : cutsOf(track, video, videoCuts);
      track.samples = track.samples.slice(cuts[chapter], cuts[chapter + 1]);
      if (track.handler == "tmcd") timecode = &track;
    }
    if (timecode != nullptr) timecode->samples.clear();
    const ByteRange stretch = stretchOf(movie);
    for (Track& track : movie.tracks) {
      track.samples = track.samples.movedBy(std::uint64_t{0} - stretch.lower);
    }
    Bytes counter;
    if (timecode != nullptr) {
      const Sample original = whole.tracks[timecode->trackID - 1].samples[0];
      const auto start = bigEndian<std::uint32_t>(source.read(original.offset, 4), 0);
      counter = u32(start + static_cast<std::uint32_t>(videoCuts[chapter]));
      const auto ticks = static_cast<std::uint32_t>(movie.videoTrack()->duration());
      timecode->samples.append({stretch.length(), 4, ticks, 0, true});
    }
    const MemorySource counterSource(counter);
    files.push_back(folder / ("GX0" + std::to_string(chapter + 1) + "0001.MP4"));
    FileSink sink(files.back().string());
    const std::vector<Segment> segments{{&source, stretch}, {&counterSource, {0, counter.size()}}};
    MovieWriter::write(movie, segments, sink);
  }
  return files;
}

std::vector<ClipJoin::Part> readParts(const std::vector<fs::path>& files) {
  std::vector<ClipJoin::Part> parts;
  parts.reserve(files.size());
  for (const fs::path& file : files) parts.push_back(ClipJoin::readPart(file));
  return parts;
}

Movie parsed(const fs::path& file) {
  const FileSource source(file.string());
  Movie movie = MovieParser::parse(BoxReader(source));
  MovieParser::readHandlerNames(BoxReader(source), movie);
  return movie;
}

double startOf(const Track& track, std::uint64_t index) {
  return static_cast<double>(track.samples.slice(0, index).duration()) / track.timescale;
}

Bytes payloadOf(const fs::path& file, const Track& track) {
  const FileSource source(file.string());
  Bytes payload;
  for (const SampleRun& run : track.samples.runs()) {
    const Bytes stretch = source.read(run.first.offset, run.count * run.first.size);
    payload.insert(payload.end(), stretch.begin(), stretch.end());
  }
  return payload;
}

}  // namespace tallowmark::testing
