// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

namespace tallowmark {

/// One sample of a track: a picture, an audio frame or packet, a piece of telemetry.
struct Sample {
  /// Absolute position of the first byte in the file, unless an operation says otherwise.
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  /// In the track's timescale.
  std::uint32_t duration = 0;
  /// Presentation time minus decoding time, in the track's timescale.
  std::int32_t compositionOffset = 0;
  /// A key sample: decoding can start here.
  bool isSync = false;

  friend bool operator==(const Sample&, const Sample&) = default;
};

/// `count` samples alike but for their offsets, lying back to back from `first.offset` on.
struct SampleRun {
  Sample first;
  std::uint64_t count = 0;
  /// Number of samples of the list before this run.
  std::uint64_t start = 0;

  /// Position just behind the last sample; the largest number when that overflows.
  std::uint64_t end() const;
  /// Ticks of the whole run; the largest number when that overflows.
  std::uint64_t duration() const;
  /// The i-th sample of the run.
  Sample at(std::uint64_t i) const {
    Sample sample = first;
    sample.offset += i * first.size;
    return sample;
  }
  /// How many of the run's samples, from the first on, end at or before `limit`.
  std::uint64_t countEndingBy(std::uint64_t limit) const;
};

/// A track's samples in decoding order, stored as runs: an hour of PCM sound has 172.8 million
/// samples and a few hundred thousand runs. Memory and every operation but iteration grow with the
/// runs.
class SampleList {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Sample;
    using difference_type = std::ptrdiff_t;
    using pointer = const Sample*;
    using reference = Sample;

    Iterator() = default;
    Sample operator*() const { return (*runs_)[run_].at(within_); }
    Iterator& operator++() {
      if (++within_ == (*runs_)[run_].count) {
        within_ = 0;
        ++run_;
      }
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) {
      return a.run_ == b.run_ && a.within_ == b.within_;
    }

   private:
    friend class SampleList;
    Iterator(const std::vector<SampleRun>* runs, std::size_t run) : runs_(runs), run_(run) {}
    const std::vector<SampleRun>* runs_ = nullptr;
    std::size_t run_ = 0;
    std::uint64_t within_ = 0;
  };

  SampleList() = default;
  SampleList(std::initializer_list<Sample> samples);

  std::uint64_t size() const { return runs_.empty() ? 0 : runs_.back().start + runs_.back().count; }
  bool empty() const { return runs_.empty(); }
  /// Samples by number; takes time logarithmic in the runs. The number must be below size().
  Sample operator[](std::uint64_t index) const;
  Sample front() const { return runs_.front().first; }
  Sample back() const { return runs_.back().at(runs_.back().count - 1); }
  Iterator begin() const { return {&runs_, 0}; }
  Iterator end() const { return {&runs_, runs_.size()}; }
  const std::vector<SampleRun>& runs() const { return runs_; }

  /// Appends `count` samples like `first`, back to back from its offset on; joins them to the last
  /// run where they continue it.
  void append(const Sample& first, std::uint64_t count = 1);
  void append(const SampleList& more);
  void clear() { runs_.clear(); }
  void reserveRuns(std::size_t count) { runs_.reserve(count); }

  /// Sum of all durations; the largest number when that overflows.
  std::uint64_t duration() const;
  /// The duration that most samples have, of several the one met first; 1 without samples.
  std::uint32_t typicalDuration() const;
  /// The size of the largest sample; 0 without samples.
  std::uint32_t largestSize() const;

  /// The samples from number `from` up to, not including, `to`.
  SampleList slice(std::uint64_t from, std::uint64_t to) const;
  /// The samples that end at or before `limit`, in order.
  SampleList endingBy(std::uint64_t limit) const;
  /// The list with every offset moved by `delta` (modulo 2^64).
  SampleList movedBy(std::uint64_t delta) const;

  friend bool operator==(const SampleList& a, const SampleList& b);

 private:
  std::vector<SampleRun> runs_;
};

}  // namespace tallowmark
