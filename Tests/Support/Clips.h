// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tallowmark::testing {

/// A clip for ffmpeg to make: moving test pictures and, unless `audio` is empty, a tone.
struct ClipRecipe {
  /// ffmpeg's name of the video encoder: libx264, libx265.
  std::string codec = "libx264";
  /// mp4 or mov.
  std::string container = "mp4";
  /// ffmpeg's name of the audio encoder: aac, pcm_s16le (sowt), pcm_s16be (twos), pcm_s24be, ….
  std::string audio = "aac";
  int bFrames = 0;
  int slices = 1;
  double seconds = 2;
  int framesPerSecond = 25;
  int width = 320;
  int height = 240;
  /// Frames from one key frame to the next.
  int keyInterval = 25;
  /// More settings of the encoder, ":" ahead of each.
  std::string settings;
  /// ffmpeg's condition for a picture to stay ("n": its number); the others leave pauses.
  std::string keep;
  /// How strong the noise in the pictures is, as a sensor's.
  int grain = 0;
  /// ffmpeg's source of the sound, its rate and its channels.
  std::string sound = "sine=frequency=440:sample_rate=48000";
  int sampleRate = 48000;
  int channels = 1;
  /// Sound tracks, each the same sound again, a little louder.
  int soundTracks = 1;
  /// ffmpeg's filter for the last of them, "," ahead: one that starts late or ends early, say.
  std::string lastTrack;
  /// Of the last of them, where it has others than the rest.
  std::optional<int> lastChannels;
  std::optional<int> lastSampleRate;
  /// Tells clips of one recipe apart: another number, other pictures.
  int variant = 0;
};

/// Sound of that many channels with attacks, noise and stillness, which makes an encoder use all of
/// its tools. `variant` changes the notes.
std::string livelySound(int channels, int sampleRate, int variant = 0);

/// Whether ffmpeg is there; otherwise skip, saying so.
bool canMakeClips();

/// The finished clip; made once and kept in the build folder for later runs. Treat it as read-only.
/// Throws std::runtime_error with ffmpeg's own words.
std::filesystem::path makeClip(const ClipRecipe& recipe);

/// Whether ffmpeg decodes every picture and sound of the file without a word of complaint.
/// Returns the complaint; empty when there is none.
std::string decodingComplaints(const std::filesystem::path& clip);

/// The checksums of the file's pictures in the order in which ffmpeg shows them, a line for each.
std::string decodedPictures(const std::filesystem::path& clip);

}  // namespace tallowmark::testing
