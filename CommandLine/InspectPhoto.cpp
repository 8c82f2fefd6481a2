// SPDX-License-Identifier: GPL-3.0-or-later
#include <iomanip>
#include <ostream>

#include "CommandLine/Inspect.h"
#include "CommandLine/JsonText.h"
#include "DeviceKit/FileSource.h"
#include "ImageKit/LibraryImageService.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "MediaKit/Rescue/WholePhoto.h"

namespace tallowmark {

namespace {

using JPEGRepair::Segment;

// What the readers see in one JPEG. Segments borrow the photo's bytes.
struct PhotoInspection {
  JPEGRepair::Diagnosis diagnosis = JPEGRepair::Diagnosis::notJPEG;
  std::vector<Segment> segments;
  std::optional<std::size_t> scanStart;
  std::size_t entropyLength = 0;
  bool hasEnd = false;
  bool isComplete = false;
  JPEGRepair::Dimensions size;
};

PhotoInspection inspect(ByteView photo) {
  PhotoInspection seen;
  seen.diagnosis = JPEGRepair::diagnose(photo);
  seen.hasEnd = JPEGRepair::hasEnd(photo);
  if (const auto header = JPEGRepair::parseHeader(photo)) {
    seen.segments = header->segments;
    seen.scanStart = header->scanStart;
    seen.isComplete = header->isComplete();
    seen.size = header->dimensions().value_or(JPEGRepair::Dimensions{});
  } else if (const auto scan = JPEGRepair::findMainScan(photo)) {
    seen.scanStart = scan->scanStart;
  }
  if (seen.scanStart) {
    seen.entropyLength = JPEGRepair::entropyLength(photo, *seen.scanStart);
  }
  return seen;
}

const char* nameOf(JPEGRepair::Diagnosis diagnosis) {
  switch (diagnosis) {
    case JPEGRepair::Diagnosis::healthy:
      return "healthy";
    case JPEGRepair::Diagnosis::truncated:
      return "truncated";
    case JPEGRepair::Diagnosis::damagedHeader:
      return "damagedHeader";
    case JPEGRepair::Diagnosis::notJPEG:
      break;
  }
  return "notJPEG";
}

// As the segment's own length field says: without the marker.
std::size_t lengthOf(const Segment& segment) {
  return segment.bytes.size() - 2;
}

Json photoJson(const std::string& file, const PhotoInspection& seen) {
  Json object{{"file", file}, {"diagnosis", nameOf(seen.diagnosis)}, {"segments", Json::array()}};
  for (const Segment& segment : seen.segments) {
    object["segments"].push_back(
        {{"marker", segment.marker}, {"offset", segment.offset}, {"length", lengthOf(segment)}});
  }
  object["scanStart"] = seen.scanStart ? Json(*seen.scanStart) : Json(nullptr);
  object["entropyLength"] = seen.entropyLength;
  object["hasEnd"] = seen.hasEnd;
  object["isComplete"] = seen.isComplete;
  object["width"] = seen.size.width;
  object["height"] = seen.size.height;
  return object;
}

void printPhoto(const std::string& file, const PhotoInspection& seen, std::ostream& out) {
  out << file << ": " << nameOf(seen.diagnosis) << ", " << seen.size.width << "×"
      << seen.size.height << (seen.isComplete ? "" : ", header not complete")
      << (seen.hasEnd ? "\n" : ", no end\n");
  for (const Segment& segment : seen.segments) {
    out << "FF" << std::uppercase << std::hex << std::setw(2) << std::setfill('0')
        << int{segment.marker} << std::dec << " at " << segment.offset << ", length "
        << lengthOf(segment) << '\n';
  }
  if (seen.scanStart) {
    out << "scan at " << *seen.scanStart << ", " << seen.entropyLength << " bytes\n";
  }
}

const char* nameOf(RAWPreview::Diagnosis diagnosis) {
  return diagnosis == RAWPreview::Diagnosis::opens ? "opens" : "damaged";
}

Json candidateJson(const RAWPreview::Candidate& candidate) {
  return {{"start", candidate.start},
          {"end", candidate.end},
          {"width", candidate.width},
          {"height", candidate.height},
          {"incomplete", candidate.incomplete}};
}

void printCandidate(const RAWPreview::Candidate& candidate, std::ostream& out) {
  out << "JPEG at " << candidate.start << ", " << candidate.end - candidate.start << " bytes, "
      << candidate.width << "×" << candidate.height << (candidate.incomplete ? ", no end\n" : "\n");
}

}  // namespace

void inspectPhoto(const InspectRequest& request, std::ostream& out) {
  const std::string file = request.file.string();
  const std::vector<std::uint8_t> photo = readWholePhoto(FileSource(file));
  const PhotoInspection seen = inspect(photo);
  if (request.json) {
    out << lineOf(photoJson(file, seen)) << '\n';
  } else {
    printPhoto(file, seen, out);
  }
}

void inspectRaw(const InspectRequest& request, std::ostream& out) {
  const std::string file = request.file.string();
  const std::vector<std::uint8_t> raw = readWholePhoto(FileSource(file));
  const char* diagnosis = nameOf(RAWPreview::diagnose(raw, LibraryImageService()));
  const std::vector<RAWPreview::Candidate> candidates = RAWPreview::embeddedJPEGs(raw);
  if (!request.json) {
    out << file << ": " << diagnosis << '\n';
    for (const RAWPreview::Candidate& candidate : candidates) printCandidate(candidate, out);
    return;
  }
  Json object{{"file", file}, {"diagnosis", diagnosis}, {"candidates", Json::array()}};
  for (const auto& candidate : candidates) {
    object["candidates"].push_back(candidateJson(candidate));
  }
  out << lineOf(object) << '\n';
}

}  // namespace tallowmark
