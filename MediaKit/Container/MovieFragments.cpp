// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieFragments.h"

#include <algorithm>
#include <limits>
#include <map>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::MovieFragments {

namespace {

using Bytes = std::vector<std::uint8_t>;

// A piece of a recording has some hundreds of samples.
constexpr std::uint64_t longestPayload = std::uint64_t{1} << 26U;

// Reads the fields of a full box one after the other; behind the end all is 0.
class Fields {
 public:
  explicit Fields(Bytes payload) : payload_(std::move(payload)) {}

  std::uint8_t version() const { return payload_.empty() ? std::uint8_t{0} : payload_[0]; }
  bool has(std::uint32_t flag) const {
    return (bigEndianOrZero<std::uint32_t>(payload_, 0) & flag) != 0;
  }
  template <typename Number = std::uint32_t>
  Number next() {
    const auto number = bigEndianOrZero<Number>(payload_, at_);
    at_ += sizeof(Number);
    return number;
  }
  // The next field when that flag is set, otherwise what stands in for it.
  std::uint32_t nextIf(std::uint32_t flag, std::uint32_t otherwise) {
    return has(flag) ? next() : otherwise;
  }
  std::uint64_t left() const { return payload_.size() > at_ ? payload_.size() - at_ : 0; }

 private:
  Bytes payload_;
  std::size_t at_ = 4;
};

// What samples are like that do not say it themselves.
struct Defaults {
  std::uint32_t duration = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
};

// Appends to one track. The last samples are held back: a fragment that starts later than they end
// makes the last of them longer.
class TrackEnd {
 public:
  Defaults defaults;

  TrackEnd() = default;
  explicit TrackEnd(Track& track) : track_(&track), time_(track.duration()) {}

  void startAt(std::uint64_t time) {
    if (count_ > 0 && time > time_) {
      if (--count_ > 0) track_->samples.append(held_, count_);
      held_.offset += count_ * held_.size;
      count_ = 1;
      const std::uint64_t longer = saturatingAdd(held_.duration, time - time_);
      held_.duration = static_cast<std::uint32_t>(
          std::min<std::uint64_t>(longer, std::numeric_limits<std::uint32_t>::max()));
    }
    time_ = std::max(time, time_);
  }

  void append(const Sample& first, std::uint64_t count) {
    if (track_ == nullptr || count == 0) return;
    flush();
    held_ = first;
    count_ = count;
    time_ = saturatingAdd(time_, saturatingMultiply(first.duration, count));
  }

  void flush() {
    if (count_ > 0) track_->samples.append(held_, count_);
    count_ = 0;
  }

 private:
  Track* track_ = nullptr;
  Sample held_;
  std::uint64_t count_ = 0;
  std::uint64_t time_ = 0;
};

using TrackEnds = std::map<std::uint32_t, TrackEnd>;

// §8.8.3
void readDefaults(const Box& extends, const BoxReader& reader, TrackEnds& ends) {
  reader.visitChildren(extends, [&](const Box& box) {
    if (box.type != "trex") return true;
    Fields fields(reader.payload(box, longestPayload));
    const auto end = ends.find(fields.next());
    if (end == ends.end()) return true;
    fields.next();  // which sample description: only the first is known
    end->second.defaults.duration = fields.next();
    end->second.defaults.size = fields.next();
    end->second.defaults.flags = fields.next();
    return true;
  });
}

// Where the data of runs stands.
struct DataPlace {
  std::uint64_t base = 0;
  // Behind the run ahead: there stand the samples of a run that does not say where.
  std::uint64_t next = 0;
  // Bytes that samples without fields of their own may still claim: no more than the file has, for
  // a few bytes could claim them over and over.
  std::uint64_t unclaimed = 0;
  // Of samples, so far.
  std::size_t runs = 0;

  std::uint64_t claim(std::uint64_t count, std::uint32_t size) {
    const std::uint64_t granted = size == 0 ? 0 : std::min(count, unclaimed / size);
    unclaimed -= granted * size;
    return granted;
  }
};

// §8.8.8
void readRun(Fields fields, const Defaults& defaults, DataPlace& place, TrackEnd& end) {
  constexpr std::uint32_t hasOffset = 0x1;
  constexpr std::uint32_t hasFirstFlags = 0x4;
  constexpr std::uint32_t hasDuration = 0x100;
  constexpr std::uint32_t hasSize = 0x200;
  constexpr std::uint32_t hasFlags = 0x400;
  constexpr std::uint32_t hasComposition = 0x800;
  constexpr std::uint32_t isNotSync = 0x10000;

  std::uint64_t count = fields.next();
  if (fields.has(hasOffset)) {
    place.next = place.base + static_cast<std::uint64_t>(static_cast<std::int32_t>(fields.next()));
  }
  const std::uint32_t firstFlags = fields.nextIf(hasFirstFlags, defaults.flags);
  std::uint64_t entrySize = 0;
  for (const auto field : {hasDuration, hasSize, hasFlags, hasComposition}) {
    entrySize += fields.has(field) ? 4U : 0U;
  }
  count = entrySize > 0 ? std::min(count, fields.left() / entrySize)
                        : place.claim(count, defaults.size);
  for (std::uint64_t i = 0; i < count;) {
    Sample sample;
    sample.offset = place.next;
    sample.duration = fields.nextIf(hasDuration, defaults.duration);
    sample.size = fields.nextIf(hasSize, defaults.size);
    const std::uint32_t flags = fields.nextIf(hasFlags, i == 0 ? firstFlags : defaults.flags);
    sample.isSync = (flags & isNotSync) == 0;
    sample.compositionOffset = static_cast<std::int32_t>(fields.nextIf(hasComposition, 0));
    // Samples without fields of their own are alike, but for the first one's flags.
    const std::uint64_t alike = entrySize > 0 || i == 0 ? 1 : count - i;
    if (++place.runs > mostSampleRuns) {
      throw MediaError::malformed("its index is implausibly large");
    }
    end.append(sample, alike);
    place.next = saturatingAdd(place.next, saturatingMultiply(sample.size, alike));
    i += alike;
  }
}

// §8.8.7, §8.8.12
void readTrackFragment(const Box& traf, const BoxReader& reader, std::uint64_t moofOffset,
                       DataPlace& place, TrackEnds& ends) {
  constexpr std::uint32_t hasBase = 0x1;
  constexpr std::uint32_t hasDescription = 0x2;
  constexpr std::uint32_t hasDuration = 0x8;
  constexpr std::uint32_t hasSize = 0x10;
  constexpr std::uint32_t hasFlags = 0x20;
  constexpr std::uint32_t baseIsMoof = 0x20000;

  const std::optional<Box> headerBox = reader.child(traf, "tfhd");
  if (!headerBox) return;
  Fields header(reader.payload(*headerBox, longestPayload));
  const auto known = ends.find(header.next());
  TrackEnd leftOut;
  TrackEnd& end = known != ends.end() ? known->second : leftOut;
  if (header.has(hasBase)) {
    place.next = header.next<std::uint64_t>();
  } else if (header.has(baseIsMoof)) {
    place.next = moofOffset;
  }
  place.base = place.next;
  header.nextIf(hasDescription, 0);
  Defaults defaults;
  defaults.duration = header.nextIf(hasDuration, end.defaults.duration);
  defaults.size = header.nextIf(hasSize, end.defaults.size);
  defaults.flags = header.nextIf(hasFlags, end.defaults.flags);
  reader.visitChildren(traf, [&](const Box& box) {
    if (box.type == "tfdt") {
      Fields time(reader.payload(box, longestPayload));
      end.startAt(time.version() == 1 ? time.next<std::uint64_t>() : time.next());
    } else if (box.type == "trun") {
      readRun(Fields(reader.payload(box, longestPayload)), defaults, place, end);
    }
    return true;
  });
}

}  // namespace

void append(const Box& moov, const BoxReader& reader, Movie& movie) {
  const std::optional<Box> extends = reader.child(moov, "mvex");
  if (!extends) return;
  TrackEnds ends;
  for (Track& track : movie.tracks) ends.try_emplace(track.trackID, track);
  readDefaults(*extends, reader, ends);
  DataPlace place;
  place.unclaimed = reader.size();
  reader.visit(0, reader.size(), [&](const Box& moof) {
    if (moof.type != "moof" || moof.truncated) return true;
    place.next = moof.offset;
    reader.visitChildren(moof, [&](const Box& traf) {
      if (traf.type == "traf") readTrackFragment(traf, reader, moof.offset, place, ends);
      return true;
    });
    return true;
  });
  for (auto& [trackID, end] : ends) end.flush();
}

}  // namespace tallowmark::MovieFragments
