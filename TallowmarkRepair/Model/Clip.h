// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

/// One file that the user added.
struct Clip {
  /// What is to be said of a repaired photo or a rescued picture.
  struct PhotoFacts {
    /// Pixels.
    std::int64_t width = 0;
    std::int64_t height = 0;
    /// The end of the picture was missing: the bottom shows gray.
    bool incomplete = false;
    /// Names of the parts of the header that came from the reference.
    std::vector<std::string> borrowed;
    /// The picture is the one stored inside a RAW file …
    bool fromRAW = false;
    /// … and has that file's date, settings and orientation.
    bool keptDetails = false;

    friend bool operator==(const PhotoFacts&, const PhotoFacts&) = default;
  };

  /// What a repair produced.
  struct Summary {
    enum class AudioOutcome {
      /// The clip has no sound.
      none,
      recovered,
      /// The camera's compressed sound cannot be rebuilt without the index.
      notRecoverable,
    };

    /// Of video; 0 for photos.
    std::int64_t frames = 0;
    double seconds = 0;
    AudioOutcome audio = AudioOutcome::none;
    /// Of photos and RAW files.
    std::optional<PhotoFacts> photo;
    /// One part in a hundred or more of recovered sound is missing.
    bool isSoundIncomplete = false;

    friend bool operator==(const Summary&, const Summary&) = default;
  };

  /// The file opens; it can serve as a reference.
  struct Healthy {
    std::optional<ClipInfo> info;
    friend bool operator==(const Healthy&, const Healthy&) = default;
  };
  /// The file ended early; ready to repair without a reference.
  struct Truncated {
    std::int64_t missingSamples = 0;
    friend bool operator==(const Truncated&, const Truncated&) = default;
  };
  /// A repair, a preview or a save is running.
  struct Repairing {
    /// From 0 to 1.
    double fraction = 0;
    friend bool operator==(const Repairing&, const Repairing&) = default;
  };
  /// Repaired; can be looked at and saved.
  struct Preview {
    Summary summary;
    friend bool operator==(const Preview&, const Preview&) = default;
  };
  /// A full-quality copy stands in the folder that the user chose.
  struct Saved {
    Summary summary;
    friend bool operator==(const Saved&, const Saved&) = default;
  };
  /// Reading or repairing went wrong; a sentence for the user.
  struct Failed {
    std::string text;
    friend bool operator==(const Failed&, const Failed&) = default;
  };
  /// The file is being diagnosed.
  struct Checking {
    friend bool operator==(const Checking&, const Checking&) = default;
  };
  /// A video without index, a photo with a damaged header.
  struct MissingIndex {
    friend bool operator==(const MissingIndex&, const MissingIndex&) = default;
  };
  /// A RAW photo, whose embedded picture can be rescued.
  struct RawFile {
    friend bool operator==(const RawFile&, const RawFile&) = default;
  };
  /// Nothing the program can read.
  struct NotAVideo {
    friend bool operator==(const NotAVideo&, const NotAVideo&) = default;
  };
  using State = std::variant<Healthy, Truncated, Repairing, Preview, Saved, Failed, Checking,
                             MissingIndex, RawFile, NotAVideo>;

  QUuid id;
  /// The user's original; never written to.
  std::filesystem::path url;
  /// Bytes when it was added.
  std::uint64_t size = 0;
  State state = Checking{};
  /// It can only be repaired with a reference.
  bool needsReference = false;

  /// Decides who checks and repairs it; by the extension.
  Kind kind() const { return kindOf(url).value_or(Kind::video); }

  /// Whether it is in that state: clip.is<Clip::Healthy>().
  template <class Case>
  bool is() const {
    return std::holds_alternative<Case>(state);
  }

  friend bool operator==(const Clip&, const Clip&) = default;
};

}  // namespace tallowmark
