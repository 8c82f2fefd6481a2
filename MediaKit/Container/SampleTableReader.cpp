// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/SampleTable.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;

// A table of fixed-width entries after a version word and a count; never longer than its bytes.
class Table {
 public:
  Table() = default;
  Table(Bytes payload, std::size_t entriesAt, std::size_t entrySize)
      : payload_(std::move(payload)), at_(entriesAt), entrySize_(entrySize) {
    const std::uint64_t held =
        payload_.size() > at_ ? (payload_.size() - at_) / entrySize_ : std::uint64_t{0};
    count_ = std::min<std::uint64_t>(held, bigEndianOrZero<std::uint32_t>(payload_, at_ - 4));
  }

  std::uint64_t count() const { return count_; }
  template <typename Number = std::uint32_t>
  Number field(std::uint64_t entry, std::size_t byte) const {
    return bigEndian<Number>(payload_, at_ + static_cast<std::size_t>(entry) * entrySize_ + byte);
  }

 private:
  Bytes payload_;
  std::size_t at_ = 8;
  std::size_t entrySize_ = 1;
  std::uint64_t count_ = 0;
};

// Walks (count, value) entries; `left` samples of the current entry are still to come.
class RunCursor {
 public:
  explicit RunCursor(const Table& table) : table_(table) { skipEmpty(); }

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

  const Table& table_;
  std::uint64_t next_ = 0;
  std::uint64_t left_ = 0;
  std::uint32_t value_ = 0;
};

// Tells sync samples by number (§8.6.2). Without the table every sample is one.
class SyncCursor {
 public:
  explicit SyncCursor(const std::optional<Table>& table) : all_(!table) {
    if (table) {
      numbers_.reserve(static_cast<std::size_t>(table->count()));
      for (std::uint64_t i = 0; i < table->count(); ++i) numbers_.push_back(table->field(i, 0));
      if (!std::is_sorted(numbers_.begin(), numbers_.end())) {
        std::sort(numbers_.begin(), numbers_.end());
      }
    }
  }

  /// Whether sample `index` (from 0) is one; indexes come in rising order.
  bool isSync(std::uint64_t index) {
    while (next_ < numbers_.size() && numbers_[next_] < index + 1) ++next_;
    return all_ || (next_ < numbers_.size() && numbers_[next_] == index + 1);
  }
  /// Samples from `index` on that share its answer.
  std::uint64_t sameFor(std::uint64_t index) {
    if (all_) {
      return std::numeric_limits<std::uint64_t>::max();
    }
    if (isSync(index)) {
      return 1;
    }
    return next_ < numbers_.size() ? numbers_[next_] - (index + 1)
                                   : std::numeric_limits<std::uint64_t>::max();
  }

 private:
  bool all_;
  std::vector<std::uint32_t> numbers_;
  std::size_t next_ = 0;
};

// Samples per chunk by chunk number (§8.7.4): the last entry in the table's order whose first chunk
// is not after the chunk asked for.
class ChunkSizes {
 public:
  explicit ChunkSizes(const Table& table) : table_(table) {
    order_.resize(static_cast<std::size_t>(table.count()));
    std::iota(order_.begin(), order_.end(), std::uint32_t{0});
    std::stable_sort(order_.begin(), order_.end(), [&](std::uint32_t a, std::uint32_t b) {
      return table_.field(a, 0) < table_.field(b, 0);
    });
  }

  /// Chunk numbers count from 1 and come in rising order.
  std::uint32_t samplesIn(std::uint64_t chunk) {
    for (; next_ < order_.size() && table_.field(order_[next_], 0) <= chunk; ++next_) {
      current_ = current_ ? std::max(*current_, order_[next_]) : order_[next_];
    }
    return current_ ? table_.field(*current_, 4) : 1;
  }

 private:
  const Table& table_;
  std::vector<std::uint32_t> order_;
  std::size_t next_ = 0;
  std::optional<std::uint32_t> current_;
};

// §8.7.3.2
struct SizeTable {
  std::uint32_t commonSize = 0;
  std::uint64_t count = 0;
  Table sizes;

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
  Table durations;
  Table compositionOffsets;
  std::optional<Table> syncSamples;
  Table samplesPerChunk;
  SizeTable sizes;
  Table chunkOffsets;
  bool wideOffsets = false;

  std::uint64_t chunkOffset(std::uint64_t chunk) const {
    // No file reaches past 2^62 bytes; a claim beyond it only has to stay out of reach.
    constexpr std::uint64_t outOfReach = std::uint64_t{1} << 62U;
    return wideOffsets ? std::min(chunkOffsets.field<std::uint64_t>(chunk, 0), outOfReach)
                       : chunkOffsets.field(chunk, 0);
  }
};

void readSampleDescription(const Box& stsd, const BoxReader& reader, Track& track) {
  const std::vector<Box> entries = reader.children(stsd, 8);
  if (!entries.empty()) {
    track.codec = entries.front().type;
    track.sampleEntry = reader.detached(entries.front());
  }
}

SizeTable readSizes(Bytes payload) {
  SizeTable sizes;
  sizes.commonSize = bigEndianOrZero<std::uint32_t>(payload, 4);
  const auto claimed = bigEndianOrZero<std::uint32_t>(payload, 8);
  if (sizes.commonSize == 0) {
    sizes.sizes = Table(std::move(payload), 12, 4);
    sizes.count = sizes.sizes.count();
  } else {
    sizes.count = claimed;
  }
  return sizes;
}

Tables readTables(const Box& stbl, const BoxReader& reader, Track& track) {
  Tables tables;
  for (const Box& box : reader.children(stbl)) {
    Bytes payload = reader.payload(box);
    if (box.type == "stsd") {
      readSampleDescription(box, reader, track);
    } else if (box.type == "stts") {
      tables.durations = Table(std::move(payload), 8, 8);
    } else if (box.type == "ctts") {
      tables.compositionOffsets = Table(std::move(payload), 8, 8);
    } else if (box.type == "stss") {
      tables.syncSamples = Table(std::move(payload), 8, 4);
    } else if (box.type == "stsc") {
      tables.samplesPerChunk = Table(std::move(payload), 8, 12);
    } else if (box.type == "stsz") {
      tables.sizes = readSizes(std::move(payload));
    } else if (box.type == "stco" || box.type == "co64") {
      tables.wideOffsets = box.type == "co64";
      tables.chunkOffsets = Table(std::move(payload), 8, tables.wideOffsets ? 8 : 4);
    }
  }
  return tables;
}

// Lays the tables side by side and appends stretches in which none of them changes.
SampleList expand(const Tables& tables) {
  SampleList samples;
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
