// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/EntryTable.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark {

namespace {

// Walks (count, value) entries; `left` samples of the current entry are still to come.
class RunCursor {
 public:
  explicit RunCursor(const EntryTable& table) : table_(table) { skipEmpty(); }

  bool atEnd() const { return left_ == 0; }
  std::uint64_t left() const { return left_; }
  std::uint32_t value() const { return value_; }
  void advance(std::uint64_t samples) {
    left_ -= samples;
    skipEmpty();
  }

 private:
  // At the end the last value stays, for tables that are shorter than the track.
  void skipEmpty() {
    while (left_ == 0 && next_ < table_.count()) {
      left_ = table_.field(next_, 0);
      value_ = left_ > 0 ? table_.field(next_, 4) : value_;
      ++next_;
    }
  }

  const EntryTable& table_;
  std::uint64_t next_ = 0;
  std::uint64_t left_ = 0;
  std::uint32_t value_ = 0;
};

// Tells sync samples by number (§8.6.2). Without the table every sample is one.
class SyncCursor {
 public:
  explicit SyncCursor(const std::optional<EntryTable>& table)
      : table_(table ? &*table : nullptr), count_(table ? table->count() : 0) {
    if (table && !table->isInOrder()) {
      sorted_ = table->firstFields("stss");
      std::sort(sorted_.begin(), sorted_.end());
    }
  }

  /// Whether sample `index` (from 0) is one; indexes come in rising order.
  bool isSync(std::uint64_t index) {
    while (next_ < count_ && number(next_) < index + 1) ++next_;
    return table_ == nullptr || (next_ < count_ && number(next_) == index + 1);
  }
  /// Samples from `index` on that share its answer.
  std::uint64_t sameFor(std::uint64_t index) {
    if (table_ == nullptr) {
      return std::numeric_limits<std::uint64_t>::max();
    }
    if (isSync(index)) {
      return 1;
    }
    return next_ < count_ ? number(next_) - (index + 1) : std::numeric_limits<std::uint64_t>::max();
  }

 private:
  std::uint32_t number(std::uint64_t entry) const {
    return sorted_.empty() ? table_->field(entry, 0) : sorted_[static_cast<std::size_t>(entry)];
  }

  const EntryTable* table_;
  std::uint64_t count_;
  std::vector<std::uint32_t> sorted_;
  std::uint64_t next_ = 0;
};

// Samples per chunk by chunk number (§8.7.4): the last entry in the table's order whose first chunk
// is not after the chunk asked for.
class ChunkSizes {
 public:
  explicit ChunkSizes(const EntryTable& table) : table_(table) {
    if (!table.isInOrder()) {
      firsts_ = table.firstFields("stsc");
      order_.resize(firsts_.size());
      std::iota(order_.begin(), order_.end(), std::uint32_t{0});
      std::stable_sort(order_.begin(), order_.end(),
                       [&](std::uint32_t a, std::uint32_t b) { return firsts_[a] < firsts_[b]; });
    }
  }

  /// Chunk numbers count from 1 and come in rising order.
  std::uint32_t samplesIn(std::uint64_t chunk) {
    for (; next_ < table_.count() && firstOfNext() <= chunk; ++next_) {
      const std::uint64_t entry = order_.empty() ? next_ : order_[static_cast<std::size_t>(next_)];
      current_ = current_ ? std::max(*current_, entry) : entry;
    }
    return current_ ? table_.field(*current_, 4) : 1;
  }

 private:
  std::uint32_t firstOfNext() const {
    return order_.empty() ? table_.field(next_, 0)
                          : firsts_[order_[static_cast<std::size_t>(next_)]];
  }

  const EntryTable& table_;
  std::vector<std::uint32_t> firsts_;
  std::vector<std::uint32_t> order_;
  std::uint64_t next_ = 0;
  std::optional<std::uint64_t> current_;
};

// §8.7.3.2
struct SizeTable {
  std::uint32_t commonSize = 0;
  std::uint64_t count = 0;
  EntryTable sizes;

  std::uint32_t sizeOf(std::uint64_t index) const {
    return commonSize != 0 ? commonSize : sizes.field(index, 0);
  }
  /// Samples from `index` on, at most `limit`, that have the size of the first.
  std::uint64_t sameFor(std::uint64_t index, std::uint64_t limit) const {
    if (commonSize != 0) {
      return limit;
    }
    std::uint64_t same = 1;
    while (same < limit && sizeOf(index + same) == sizeOf(index)) ++same;
    return same;
  }
};

struct Tables {
  EntryTable durations;
  EntryTable compositionOffsets;
  std::optional<EntryTable> syncSamples;
  EntryTable samplesPerChunk;
  SizeTable sizes;
  EntryTable chunkOffsets;
  bool wideOffsets = false;

  std::uint64_t chunkOffset(std::uint64_t chunk) const {
    // No file reaches past 2^62 bytes; a claim beyond it only has to stay out of reach.
    constexpr std::uint64_t outOfReach = std::uint64_t{1} << 62U;
    return wideOffsets ? std::min(chunkOffsets.field<std::uint64_t>(chunk, 0), outOfReach)
                       : chunkOffsets.field(chunk, 0);
  }
};

void readSampleDescription(const Box& stsd, const BoxReader& reader, Track& track) {
  // Far more than parameter sets of any camera take.
  constexpr std::uint64_t longestEntry = std::uint64_t{4} << 20U;
  BoxReader::requirePlausible(stsd);
  if (stsd.payloadSize() < 8) {
    return;
  }
  reader.visit(stsd.payloadOffset() + 8, stsd.end(), [&](const Box& entry) {
    track.codec = entry.type;
    track.sampleEntry =
        entry.size <= longestEntry ? reader.detached(entry) : std::vector<std::uint8_t>{};
    return false;
  });
}

SizeTable readSizes(const Box& box, const BoxReader& reader) {
  const auto head = reader.payload(box, 12);
  SizeTable sizes;
  sizes.commonSize = bigEndianOrZero<std::uint32_t>(head, 4);
  if (sizes.commonSize == 0) {
    sizes.sizes = EntryTable(box, reader, 12, 4);
    sizes.count = sizes.sizes.count();
  } else {
    sizes.count = bigEndianOrZero<std::uint32_t>(head, 8);
  }
  return sizes;
}

Tables readTables(const Box& stbl, const BoxReader& reader, Track& track) {
  Tables tables;
  reader.visitChildren(stbl, [&](const Box& box) {
    BoxReader::requirePlausible(box);
    if (box.type == "stsd") {
      readSampleDescription(box, reader, track);
    } else if (box.type == "stts") {
      tables.durations = EntryTable(box, reader, 8, 8);
    } else if (box.type == "ctts") {
      tables.compositionOffsets = EntryTable(box, reader, 8, 8);
    } else if (box.type == "stss") {
      tables.syncSamples = EntryTable(box, reader, 8, 4);
    } else if (box.type == "stsc") {
      tables.samplesPerChunk = EntryTable(box, reader, 8, 12);
    } else if (box.type == "stsz") {
      tables.sizes = readSizes(box, reader);
    } else if (box.type == "stco" || box.type == "co64") {
      tables.wideOffsets = box.type == "co64";
      tables.chunkOffsets = EntryTable(box, reader, 8, tables.wideOffsets ? 8 : 4);
    }
    return true;
  });
  return tables;
}

void requirePlausible(const SampleList& samples) {
  if (samples.runs().size() > mostSampleRuns) {
    throw MediaError::malformed("its index is implausibly large");
  }
}

// Lays the tables side by side and appends stretches in which none of them changes.
SampleList expand(const Tables& tables) {
  SampleList samples;
  const std::uint64_t runs =
      tables.sizes.commonSize == 0 ? tables.sizes.count : tables.chunkOffsets.count();
  samples.reserveRuns(static_cast<std::size_t>(std::min<std::uint64_t>(runs, mostSampleRuns)));
  RunCursor durations(tables.durations);
  RunCursor offsets(tables.compositionOffsets);
  SyncCursor sync(tables.syncSamples);
  ChunkSizes chunkSizes(tables.samplesPerChunk);
  const bool hasDurations = !durations.atEnd();

  std::uint64_t index = 0;
  for (std::uint64_t chunk = 0; chunk < tables.chunkOffsets.count() && index < tables.sizes.count;
       ++chunk) {
    std::uint64_t offset = tables.chunkOffset(chunk);
    std::uint64_t left =
        std::min<std::uint64_t>(chunkSizes.samplesIn(chunk + 1), tables.sizes.count - index);
    while (left > 0) {
      std::uint64_t count = std::min(left, sync.sameFor(index));
      if (!durations.atEnd()) count = std::min(count, durations.left());
      if (!offsets.atEnd()) count = std::min(count, offsets.left());
      count = tables.sizes.sameFor(index, count);

      Sample sample{.offset = offset, .size = tables.sizes.sizeOf(index)};
      sample.duration = hasDurations ? durations.value() : 1;
      sample.compositionOffset = offsets.atEnd() ? 0 : static_cast<std::int32_t>(offsets.value());
      sample.isSync = sync.isSync(index);
      samples.append(sample, count);
      requirePlausible(samples);

      if (!durations.atEnd()) durations.advance(count);
      if (!offsets.atEnd()) offsets.advance(count);
      offset = saturatingAdd(offset, saturatingMultiply(count, sample.size));
      index += count;
      left -= count;
    }
  }
  return samples;
}

}  // namespace

void readSampleTable(const Box& stbl, const BoxReader& reader, Track& track) {
  track.samples = expand(readTables(stbl, reader, track));
}

}  // namespace tallowmark
