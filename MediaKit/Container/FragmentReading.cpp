// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/FragmentReading.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::MovieFragments {

namespace {

// A piece of a recording has some hundreds of samples.
constexpr std::uint64_t longestPayload = std::uint64_t{1} << 26U;

// Reads the fields of a full box one after the other; behind the end all is 0.
class Fields {
 public:
  explicit Fields(std::vector<std::uint8_t> payload) : payload_(std::move(payload)) {}

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
  bool isPastEnd() const { return at_ > payload_.size(); }

 private:
  std::vector<std::uint8_t> payload_;
  std::size_t at_ = 4;
};

// Goes through one fragment.
class FragmentReader {
 public:
  FragmentReader(BoxReader reader, std::uint64_t start, const DefaultsByTrack& defaults,
                 DataPlace& place, const FragmentListener& listener)
      : reader_(reader), start_(start), defaults_(defaults), place_(place), listener_(listener) {}

  void read(const Box& moof);
  bool isWhole() const { return isWhole_; }

 private:
  template <typename Reading>
  void visit(const Box& container, Reading reading);
  void readTrack(const Box& traf);
  void readRun(Fields fields, const Defaults& defaults);

  BoxReader reader_;
  std::uint64_t start_;
  const DefaultsByTrack& defaults_;
  DataPlace& place_;
  const FragmentListener& listener_;
  bool isWhole_ = true;
};

template <typename Reading>
void FragmentReader::visit(const Box& container, Reading reading) {
  std::uint64_t end = container.payloadOffset();
  reader_.visitChildren(container, [&](const Box& box) {
    end = box.truncated ? 0 : box.end();
    reading(box);
    return true;
  });
  isWhole_ = isWhole_ && end == container.end();
}

void FragmentReader::read(const Box& moof) {
  place_.next = start_;
  visit(moof, [&](const Box& box) {
    if (box.type == "traf") readTrack(box);
  });
}

// §8.8.7, §8.8.12
void FragmentReader::readTrack(const Box& traf) {
  constexpr std::uint32_t hasBase = 0x1;
  constexpr std::uint32_t hasDescription = 0x2;
  constexpr std::uint32_t hasDuration = 0x8;
  constexpr std::uint32_t hasSize = 0x10;
  constexpr std::uint32_t hasFlags = 0x20;
  constexpr std::uint32_t baseIsMoof = 0x20000;

  const std::optional<Box> headerBox = reader_.child(traf, "tfhd");
  if (!headerBox) {
    isWhole_ = false;
    return;
  }
  Fields header(reader_.payload(*headerBox, longestPayload));
  const std::uint32_t trackID = header.next();
  if (header.has(hasBase)) {
    place_.next = header.next<std::uint64_t>() + place_.moved;
  } else if (header.has(baseIsMoof)) {
    place_.next = start_;
  }
  place_.base = place_.next;
  header.nextIf(hasDescription, 0);
  const auto known = defaults_.find(trackID);
  Defaults defaults = known != defaults_.end() ? known->second : Defaults{};
  defaults.duration = header.nextIf(hasDuration, defaults.duration);
  defaults.size = header.nextIf(hasSize, defaults.size);
  defaults.flags = header.nextIf(hasFlags, defaults.flags);
  isWhole_ = isWhole_ && !header.isPastEnd();
  listener_.onTrack(trackID);
  visit(traf, [&](const Box& box) {
    if (box.type == "tfdt") {
      Fields time(reader_.payload(box, longestPayload));
      listener_.onTime(time.version() == 1 ? time.next<std::uint64_t>() : time.next());
    } else if (box.type == "trun") {
      readRun(Fields(reader_.payload(box, longestPayload)), defaults);
    }
  });
}

// §8.8.8
void FragmentReader::readRun(Fields fields, const Defaults& defaults) {
  constexpr std::uint32_t hasOffset = 0x1;
  constexpr std::uint32_t hasFirstFlags = 0x4;
  constexpr std::uint32_t hasDuration = 0x100;
  constexpr std::uint32_t hasSize = 0x200;
  constexpr std::uint32_t hasFlags = 0x400;
  constexpr std::uint32_t hasComposition = 0x800;
  constexpr std::uint32_t isNotSync = 0x10000;

  std::uint64_t count = fields.next();
  if (fields.has(hasOffset)) {
    place_.next =
        place_.base + static_cast<std::uint64_t>(static_cast<std::int32_t>(fields.next()));
  }
  const std::uint32_t firstFlags = fields.nextIf(hasFirstFlags, defaults.flags);
  std::uint64_t entrySize = 0;
  for (const auto field : {hasDuration, hasSize, hasFlags, hasComposition}) {
    entrySize += fields.has(field) ? 4U : 0U;
  }
  isWhole_ = isWhole_ && !fields.isPastEnd() && fields.left() == count * entrySize;
  count = entrySize > 0 ? std::min(count, fields.left() / entrySize)
                        : place_.claim(count, defaults.size);
  for (std::uint64_t i = 0; i < count;) {
    Sample sample;
    sample.offset = place_.next;
    sample.duration = fields.nextIf(hasDuration, defaults.duration);
    sample.size = fields.nextIf(hasSize, defaults.size);
    const std::uint32_t flags = fields.nextIf(hasFlags, i == 0 ? firstFlags : defaults.flags);
    sample.isSync = (flags & isNotSync) == 0;
    sample.compositionOffset = static_cast<std::int32_t>(fields.nextIf(hasComposition, 0));
    // Samples without fields of their own are alike, but for the first one's flags.
    const std::uint64_t alike = entrySize > 0 || i == 0 ? 1 : count - i;
    if (++place_.runs > mostSampleRuns) {
      throw MediaError::malformed("its index is implausibly large");
    }
    listener_.onSamples(sample, alike);
    place_.next = saturatingAdd(place_.next, saturatingMultiply(sample.size, alike));
    i += alike;
  }
}

}  // namespace

std::uint64_t DataPlace::claim(std::uint64_t count, std::uint32_t size) {
  const std::uint64_t granted = size == 0 ? 0 : std::min(count, unclaimed / size);
  unclaimed -= granted * size;
  return granted;
}

DefaultsByTrack readDefaults(const Box& extends, const BoxReader& reader, const Movie& movie) {
  DefaultsByTrack defaults;
  for (const Track& track : movie.tracks) defaults.try_emplace(track.trackID);
  reader.visitChildren(extends, [&](const Box& box) {
    if (box.type != "trex") return true;
    Fields fields(reader.payload(box, longestPayload));
    const auto known = defaults.find(fields.next());
    if (known == defaults.end()) return true;
    fields.next();  // which sample description: only the first is known
    known->second.duration = fields.next();
    known->second.size = fields.next();
    known->second.flags = fields.next();
    return true;
  });
  return defaults;
}

bool readFragment(const Box& moof, const BoxReader& reader, const DefaultsByTrack& defaults,
                  DataPlace& place, const FragmentListener& listener) {
  // A small one is read at once rather than box by box.
  constexpr std::uint64_t readAtOnce = std::uint64_t{1} << 20U;
  if (moof.size > readAtOnce) {
    FragmentReader fragment(reader, moof.offset, defaults, place, listener);
    fragment.read(moof);
    return fragment.isWhole();
  }
  const MemorySource bytes(reader.whole(moof));
  Box inner = moof;
  inner.offset = 0;
  FragmentReader fragment(BoxReader(bytes), moof.offset, defaults, place, listener);
  fragment.read(inner);
  return fragment.isWhole();
}

}  // namespace tallowmark::MovieFragments
