// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>
#include <optional>
#include <ostream>

#include "CommandLine/Inspect.h"
#include "CommandLine/JsonText.h"
#include "DeviceKit/Disks/DiskEnumerator.h"
#include "DeviceKit/SourceOpener.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

namespace {

// What the readers see in one file.
struct Inspection {
  std::string file;
  std::uint64_t fileSize = 0;
  std::unique_ptr<ByteSource> source;
  VideoRepair::Diagnosis diagnosis;
  std::optional<Movie> movie;
  // Blocks of a device that were taken for zeros.
  std::int64_t badReads = 0;
};

Inspection inspect(const std::filesystem::path& file) {
  Inspection seen;
  seen.file = file.string();
  seen.source = SourceOpener::open(file.string(), DiskEnumerator::privilegedOpener());
  seen.fileSize = seen.source->size();
  const BoxReader reader(*seen.source);
  try {
    const FileLayout layout = MovieParser::layout(reader);
    seen.diagnosis = VideoRepair::MissingIndex{};
    if (layout.moov) {
      // Read once: the index of a long clip is the work here.
      seen.movie = MovieParser::parseMoov(*layout.moov, reader, {});
      seen.diagnosis = VideoRepair::diagnose(*seen.movie, *layout.moov, *seen.source);
    }
  } catch (const MediaError& error) {
    if (error.kind() != MediaError::Kind::notAMovie) {
      throw;
    }
    seen.diagnosis = VideoRepair::NotAMovie{};
  }
  seen.badReads = seen.source->badReads();
  return seen;
}

struct DiagnosisName {
  const char* operator()(const VideoRepair::Truncated&) const { return "truncated"; }
  const char* operator()(const VideoRepair::Healthy&) const { return "healthy"; }
  const char* operator()(const VideoRepair::MissingIndex&) const { return "missingIndex"; }
  const char* operator()(const VideoRepair::NotAMovie&) const { return "notAMovie"; }
};

std::uint64_t samplesMissing(const VideoRepair::Diagnosis& diagnosis) {
  const auto* truncated = std::get_if<VideoRepair::Truncated>(&diagnosis);
  return truncated == nullptr ? 0 : truncated->samplesMissing;
}

const char* kindName(Track::Kind kind) {
  switch (kind) {
    case Track::Kind::video:
      return "video";
    case Track::Kind::audio:
      return "audio";
    case Track::Kind::other:
      break;
  }
  return "other";
}

Json boxJson(const Box& box) {
  return {{"type", box.type.description()},
          {"offset", box.offset},
          {"headerSize", box.headerSize},
          {"size", box.size},
          {"truncated", box.truncated}};
}

Json trackJson(const Track& track) {
  Json object{{"trackID", track.trackID},
              {"kind", kindName(track.kind)},
              {"handler", track.handler.description()},
              {"codec", track.codec.description()},
              {"timescale", track.timescale},
              {"width", track.width},
              {"height", track.height},
              {"language", track.language},
              {"mediaStart", track.mediaStart},
              {"startDelay", track.startDelay},
              {"duration", track.duration()},
              {"typicalDuration", track.typicalDuration()},
              {"sampleCount", track.samples.size()}};
  if (const auto format = NALFormat::of(track.sampleEntry, track.codec)) {
    object["nal"] = {{"lengthSize", format->lengthSize}};
  }
  return object;
}

// An object's text without its closing brace, so that a long list can follow piece by piece: an
// hour of PCM sound has more samples than a document tree has room for.
std::string opened(const Json& object) {
  std::string text = lineOf(object);
  text.pop_back();
  return text;
}

void printSamplesJson(const SampleList& samples, std::ostream& out) {
  out << ",\"samples\":[";
  const char* separator = "";
  for (const Sample& sample : samples) {
    out << separator << '[' << sample.offset << ',' << sample.size << ',' << sample.duration << ','
        << sample.compositionOffset << ',' << (sample.isSync ? "true" : "false") << ']';
    separator = ",";
  }
  out << ']';
}

// The boxes of the top level, of which a file can have a million.
void printBoxesJson(const Inspection& seen, std::ostream& out) {
  out << ",\"boxes\":[";
  const char* separator = "";
  BoxReader(*seen.source).visit(0, seen.fileSize, [&](const Box& box) {
    out << separator << lineOf(boxJson(box));
    separator = ",";
    return true;
  });
  out << "],";
}

void printJson(const Inspection& seen, bool samples, std::ostream& out) {
  out << opened({{"file", seen.file}, {"fileSize", seen.fileSize}});
  printBoxesJson(seen, out);
  Json head;
  head["diagnosis"] = std::visit(DiagnosisName{}, seen.diagnosis);
  head["samplesMissing"] = samplesMissing(seen.diagnosis);
  if (seen.badReads > 0) {
    head["badReads"] = seen.badReads;
  }
  if (!seen.movie) {
    out << lineOf(head).substr(1) << '\n';
    return;
  }
  head["timescale"] = seen.movie->timescale;
  head["creationTime"] = seen.movie->creationTime;
  head["seconds"] = seen.movie->seconds();
  out << opened(head).substr(1) << ",\"tracks\":[";
  const char* separator = "";
  for (const Track& track : seen.movie->tracks) {
    out << separator << opened(trackJson(track));
    if (samples) printSamplesJson(track.samples, out);
    out << '}';
    separator = ",";
  }
  out << "]}\n";
}

void printTrack(const Track& track, bool samples, std::ostream& out) {
  out << "track " << track.trackID << ": " << kindName(track.kind) << ", "
      << track.codec.description();
  if (track.kind == Track::Kind::video) out << ", " << track.width << "×" << track.height;
  const double ticks = track.timescale == 0 ? 1 : track.timescale;
  out << ", " << track.samples.size() << " samples, "
      << static_cast<double>(track.duration()) / ticks << " s\n";
  if (!samples) {
    return;
  }
  out << "  offset size duration compositionOffset\n";
  for (const Sample& sample : track.samples) {
    out << "  " << sample.offset << ' ' << sample.size << ' ' << sample.duration << ' '
        << sample.compositionOffset << (sample.isSync ? " key\n" : "\n");
  }
}

void printText(const Inspection& seen, bool samples, std::ostream& out) {
  out << seen.file << ": " << seen.fileSize << " bytes, "
      << std::visit(DiagnosisName{}, seen.diagnosis);
  if (const std::uint64_t missing = samplesMissing(seen.diagnosis); missing > 0) {
    out << ", " << missing << " samples missing";
  }
  if (seen.badReads > 0) {
    out << ", unreadable in " << seen.badReads << " places";
  }
  out << '\n';
  BoxReader(*seen.source).visit(0, seen.fileSize, [&](const Box& box) {
    out << box.type.description() << " at " << box.offset << ", " << box.size << " bytes"
        << (box.truncated ? ", runs past the end of the file\n" : "\n");
    return true;
  });
  if (!seen.movie) {
    return;
  }
  for (const Track& track : seen.movie->tracks) printTrack(track, samples, out);
}

}  // namespace

void inspectMovie(const InspectRequest& request, std::ostream& out) {
  const Inspection seen = inspect(request.file);
  if (request.json) {
    printJson(seen, request.samples, out);
  } else {
    printText(seen, request.samples, out);
  }
}

}  // namespace tallowmark
