// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/Teacher.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Sound/AACConfig.h"

namespace tallowmark::VideoRepair {

namespace {

constexpr std::size_t samplesForHeaders = 600;
// Cameras have one or two; each costs a look at thousands of samples.
constexpr std::size_t mostOtherTracks = 4;

void learnStreams(Teacher& teacher, const ByteSource& reference) {
  teacher.format.learnHeaders(teacher.video->samples, reference, samplesForHeaders);
  teacher.evidence = StreamEvidence::learn(*teacher.video, reference, teacher.format);
  std::size_t others = 0;
  for (const Track& track : teacher.movie.tracks) {
    if (&track == teacher.video || track.kind != Track::Kind::video || others == mostOtherTracks) {
      continue;
    }
    ++others;
    const auto format = NALFormat::of(track.sampleEntry, track.codec);
    if (format && format->codec == teacher.format.codec &&
        format->lengthSize == teacher.format.lengthSize) {
      if (auto other = StreamEvidence::learn(track, reference, *format)) {
        teacher.otherTracks.push_back(std::move(*other));
      }
    }
  }
  if (!teacher.otherTracks.empty()) teacher.turns = turnsOf(teacher.movie, *teacher.video);
}

// Sound of kinds that nothing but an index finds stands between pictures as other side tracks do.
void setOtherSoundAside(Movie& movie) {
  for (Track& track : movie.tracks) {
    const bool isKnown = PCMLayout::ofEvenSamples(track) || AACConfig::of(track.sampleEntry);
    if (track.kind == Track::Kind::audio && !isKnown) track.kind = Track::Kind::other;
  }
}

// Whether sound of another kind takes now more bytes and now fewer: beside that nothing tells where
// PCM begins.
bool hasUnevenSoundAside(const Movie& movie) {
  return std::any_of(movie.tracks.begin(), movie.tracks.end(), [](const Track& track) {
    const std::uint32_t largest = track.samples.largestSize();
    const auto& runs = track.samples.runs();
    return track.kind == Track::Kind::other && track.handler == "soun" &&
           std::any_of(runs.begin(), runs.end(),
                       [&](const SampleRun& run) { return run.first.size != largest; });
  });
}

}  // namespace

Teacher learn(Movie movie, const ByteSource& reference, Depth depth) {
  Teacher teacher;
  teacher.movie = std::move(movie);
  // One that is cut short teaches what is there.
  for (Track& track : teacher.movie.tracks) {
    track.samples = track.samples.endingBy(reference.size());
  }
  teacher.hasSound = teacher.movie.audioTrack() != nullptr;
  if (depth == Depth::full) setOtherSoundAside(teacher.movie);
  teacher.video = teacher.movie.videoTrack();
  teacher.audio = teacher.movie.audioTrack();
  if (teacher.video == nullptr) {
    throw MediaError::unsupported("The reference clip has no video.");
  }
  const auto format = NALFormat::of(teacher.video->sampleEntry, teacher.video->codec);
  if (!format) {
    throw MediaError::unsupported("Repair supports H.264 and HEVC video. The reference clip uses " +
                                  teacher.video->codec.description() + ".");
  }
  teacher.format = *format;
  teacher.pcm = teacher.audio != nullptr ? PCMLayout::of(*teacher.audio) : std::nullopt;
  if (depth == Depth::basic) {
    teacher.format.learnHeaders(teacher.video->samples, reference, samplesForHeaders);
    return teacher;
  }
  learnStreams(teacher, reference);
  teacher.fitting.emplace(*teacher.video, reference, teacher.format);
  teacher.side = SideLessons::learn(teacher.movie, reference);
  if (teacher.audio != nullptr) {
    teacher.pcm = PCMLayout::ofEvenSamples(*teacher.audio);
    if (teacher.pcm) teacher.beside = BlockLayout::learnBeside(teacher.movie, reference);
    teacher.sound =
        SoundLayout::learn(teacher.movie, reference, teacher.beside ? &*teacher.beside : nullptr);
    teacher.mayBlend = hasUnevenSoundAside(teacher.movie);
    teacher.blocks = BlockLayout::learn(teacher.movie, reference);
  }
  if (teacher.evidence && teacher.blocks) {
    teacher.evidence->expectSound(teacher.blocks->mostBytes());
  }
  return teacher;
}

std::uint32_t frameDuration(const Track& video) {
  const std::uint32_t typical = video.typicalDuration();
  const std::uint64_t mean =
      video.samples.empty() ? typical : video.duration() / video.samples.size();
  const bool isUsual = mean <= std::uint64_t{typical} * 2 && mean >= typical / 2;
  return isUsual || mean == 0 ? typical
                              : static_cast<std::uint32_t>(std::min<std::uint64_t>(
                                    mean, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace tallowmark::VideoRepair
