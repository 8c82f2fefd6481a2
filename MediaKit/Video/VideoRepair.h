// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Telemetry/SideTracks.h"

/// Says what is wrong with a clip and writes a copy that plays. Clips are only read.
namespace tallowmark::VideoRepair {

/// The index is whole, but this many samples over all tracks lie wholly or partly behind the
/// file's end. None, when the index is there and the file's boxes do not lead to it, where a clip
/// written in pieces lacks the index of some, or where what lies behind some place has moved.
struct Truncated {
  std::uint64_t samplesMissing = 0;
  friend bool operator==(const Truncated&, const Truncated&) = default;
};
/// The index is whole and every sample lies inside the file.
struct Healthy {
  friend bool operator==(const Healthy&, const Healthy&) = default;
};
/// There is no complete index, or it describes no video, contradicts itself, or fits the pictures
/// nowhere; or no piece of a clip written in pieces can be read.
struct MissingIndex {
  friend bool operator==(const MissingIndex&, const MissingIndex&) = default;
};
/// The top level cannot be read as a movie, and nothing looks like pictures.
struct NotAMovie {
  friend bool operator==(const NotAMovie&, const NotAMovie&) = default;
};
using Diagnosis = std::variant<Truncated, Healthy, MissingIndex, NotAMovie>;

/// Bytes of the media data that became nothing, by what they are.
struct UnusedBytes {
  /// Pictures of the reference's other video tracks.
  std::uint64_t otherPictures = 0;
  /// Sound that could not be placed, or of which nothing tells whose it is.
  std::uint64_t sound = 0;
  /// Samples of tracks that are neither picture nor sound, by their format codes.
  BytesByTrack byTrack;
  /// What else stands beside sound in gaps as the reference has them: records, padding.
  std::uint64_t sideTracks = 0;
  std::uint64_t unknown = 0;

  std::uint64_t total() const;
  friend bool operator==(const UnusedBytes&, const UnusedBytes&) = default;
};

/// How much of a clip a rebuild brings back.
enum class Depth {
  full,
  /// Pictures by their framing alone and PCM sound by the size of its gaps: for comparison.
  basic
};

/// What a repair wrote.
struct Result {
  /// Samples of the written video and sound.
  std::uint64_t videoFrames = 0;
  std::uint64_t audioPackets = 0;
  /// Length of the written movie.
  double seconds = 0;
  /// The reference has sound, data lay between the frames, and none of it could be taken as sound.
  bool audioDropped = false;
  /// Bytes of the media data that became nothing; `unusedBy` adds up to them.
  std::uint64_t unusedBytes = 0;
  UnusedBytes unusedBy;
  /// Blocks of compressed sound in each track: found in the file; about how many are lost, as far
  /// as the clip shows; silent ones that take the time of those of them beside which the picture
  /// goes on.
  std::uint64_t soundBlocksFound = 0;
  std::uint64_t soundBlocksLost = 0;
  std::uint64_t soundBlocksFilled = 0;
  /// Samples of the camera's telemetry, and whether its timecode is there again.
  std::uint64_t telemetrySamples = 0;
  bool timecodeRestored = false;
  /// The pictures of a rebuilt clip are shown in the order that they themselves ask for; otherwise
  /// in the order they are stored in.
  bool orderRestored = false;

  friend bool operator==(const Result&, const Result&) = default;
};

/// Throws only for a top level that could be read and an index that cannot: MediaError::malformed,
/// DeviceError.
Diagnosis diagnose(const ByteSource& source, Depth depth = Depth::full);

/// The same from the index in the box `moov`, which was read already. Throws as above.
Diagnosis diagnose(const Movie& movie, const Box& moov, const ByteSource& source,
                   Depth depth = Depth::full);

/// Whether the index is there and nothing that it describes as pictures was ever written. Throws as
/// above.
bool isBlank(const ByteSource& source);

/// Bytes that a clip lacks: samples reach them as if it went on with them from `at`.
struct AddedBytes {
  std::uint64_t at = 0;
  std::vector<std::uint8_t> bytes;
};

/// A repaired clip that is worked out but not written.
struct Plan {
  /// Sample offsets are positions in the damaged clip.
  Movie movie;
  /// What writing it gives.
  Result result;
  /// The index was made anew from the media data, which was walked for it.
  bool rebuilt = false;
  /// The movie's video parameter sets are not the reference's, but changed to fit the pictures.
  bool hasOtherSettings = false;
  /// Silence, for the time of sound that is lost.
  AddedBytes added;
  /// Where working it out left the progress: at a half where the clip was walked through once, each
  /// further walk took half of the rest.
  double progressDone = 0;
};

/// Works out what `repair` writes; reads the clip and writes nothing. `progress` runs up to where
/// the writing goes on. Throws as repair.
Plan plan(const ByteSource& source, const ByteSource* reference, const Progress& progress = {},
          const StopToken& stop = {}, Depth depth = Depth::full);

/// Writes a plan for `source`, which must still be what it was planned for. Throws MediaError,
/// DeviceError of either end, Stopped; `destination` then holds nothing of use.
void write(const Plan& plan, const ByteSource& source, FileSink& destination,
           const Progress& progress = {}, const StopToken& stop = {});

/// What reports the writing of a plan so that it goes on where working it out left `progress`.
Progress writingProgress(const Plan& plan, const Progress& progress);

/// Trims a clip that was cut short, copies a healthy one, or rebuilds a missing index by what
/// `reference`, a good clip of the same camera (null for none), teaches. Throws MediaError with the
/// user's sentence, DeviceError of either end, Stopped; `destination` then holds nothing of use.
Result repair(const ByteSource& source, const ByteSource* reference, FileSink& destination,
              const Progress& progress = {}, const StopToken& stop = {}, Depth depth = Depth::full);

/// Keeps every sample that lies inside the file. Throws as repair.
Plan planTrim(const ByteSource& source);
Result trim(const ByteSource& source, FileSink& destination, const Progress& progress = {},
            const StopToken& stop = {});

/// Finds pictures, PCM and AAC sound, telemetry and timecode in the media data and makes a new
/// index for them. Throws as repair.
Plan planRebuild(const ByteSource& source, const ByteSource& reference,
                 const Progress& progress = {}, const StopToken& stop = {},
                 Depth depth = Depth::full);
Result rebuild(const ByteSource& source, const ByteSource& reference, FileSink& destination,
               const Progress& progress = {}, const StopToken& stop = {},
               Depth depth = Depth::full);

/// The plan of a rebuild by what a clip's own index teaches, as far as `known` has it. Throws as
/// repair.
Plan planRebuildFrom(const Movie& known, const ByteSource& source, const Progress& progress = {},
                     const StopToken& stop = {});

}  // namespace tallowmark::VideoRepair
