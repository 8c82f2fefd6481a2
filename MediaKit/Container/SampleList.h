// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
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

class SampleRuns;

/// A track's samples in decoding order, stored as runs: an hour of PCM sound has 172.8 million
/// samples and a few hundred thousand runs. Memory and every operation but iteration grow with the
/// runs. A run takes 20 bytes: a join of thirty hours holds several millions of them.
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
    Sample operator*() const {
      Sample sample = list_->firstOf(run_);
      sample.offset += within_ * sample.size;
      return sample;
    }
    Iterator& operator++() {
      if (++within_ == list_->places_[run_].count) {
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
    Iterator(const SampleList* list, std::size_t run) : list_(list), run_(run) {}
    const SampleList* list_ = nullptr;
    std::size_t run_ = 0;
    std::uint64_t within_ = 0;
  };

  SampleList() = default;
  SampleList(std::initializer_list<Sample> samples);

  std::uint64_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// Samples by number; takes time logarithmic in the runs. The number must be below size().
  Sample operator[](std::uint64_t index) const;
  Sample front() const { return firstOf(0); }
  Sample back() const { return (*this)[size_ - 1]; }
  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {this, places_.size()}; }
  /// The runs as values made on the way; the list must outlive them.
  SampleRuns runs() const;

  /// Appends `count` samples like `first`, back to back from its offset on; joins them to the last
  /// run where they continue it.
  void append(const Sample& first, std::uint64_t count = 1);
  void append(const SampleList& more);
  /// Takes the last sample away; there must be one.
  void removeLast();
  /// Lets the last sample, if there is one, last so much longer, as far as a duration can.
  void lengthenLast(std::uint64_t ticks);
  void clear() { *this = SampleList(); }
  void reserveRuns(std::size_t count);

  /// Sum of all durations; the largest number when that overflows.
  std::uint64_t duration() const;
  /// The duration that most samples have, of several the one met first; 1 without samples.
  std::uint32_t typicalDuration() const;
  /// The size of the largest sample; 0 without samples.
  std::uint32_t largestSize() const;

  /// The samples from number `from` up to, not including, `to`. Grows with the runs of these alone.
  SampleList slice(std::uint64_t from, std::uint64_t to) const;
  /// The samples that end at or before `limit`, in order.
  SampleList endingBy(std::uint64_t limit) const;
  /// The list with every offset moved by `delta` (modulo 2^64).
  SampleList movedBy(std::uint64_t delta) const;

  friend bool operator==(const SampleList& a, const SampleList& b);

 private:
  friend class SampleRuns;

  // The number of samples ahead is kept for every 64th run.
  static constexpr std::size_t stride = 64;
  struct Place {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    std::uint32_t count = 0;
  };
  // What few kinds of samples share, even where every sample has a size of its own.
  struct Traits {
    std::uint32_t duration = 0;
    std::int32_t compositionOffset = 0;
    bool isSync = false;
    friend bool operator==(const Traits&, const Traits&) = default;
  };

  Sample firstOf(std::size_t run) const {
    const Place& place = places_[run];
    const Traits& traits = traits_[traitsOf_[run]];
    return {place.offset, place.size, traits.duration, traits.compositionOffset, traits.isSync};
  }
  // The number of samples ahead of a run; of all for the number of runs.
  std::uint64_t startOf(std::size_t run) const;
  std::uint32_t indexOf(const Traits& traits);
  void addRun(const Sample& first, std::uint32_t count);

  std::vector<Place> places_;
  std::vector<std::uint32_t> traitsOf_;
  // May hold one kind several times.
  std::vector<Traits> traits_;
  // Where kinds met lately stand in traits_.
  std::array<std::uint32_t, 16> lately_{};
  std::vector<std::uint64_t> starts_;
  std::uint64_t size_ = 0;
};

/// The runs of a list, in order.
class SampleRuns {
 public:
  class Iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = SampleRun;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = SampleRun;

    /// Holds the run that `->` looks into.
    struct Pointer {
      SampleRun run;
      const SampleRun* operator->() const { return &run; }
    };

    Iterator() = default;
    Pointer operator->() const { return {**this}; }
    SampleRun operator*() const {
      return {list_->firstOf(run_), list_->places_[run_].count, start_};
    }
    Iterator& operator++() {
      start_ += list_->places_[run_].count;
      ++run_;
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    Iterator& operator--() {
      --run_;
      start_ -= list_->places_[run_].count;
      return *this;
    }
    Iterator& operator+=(difference_type runs) {
      run_ = static_cast<std::size_t>(static_cast<difference_type>(run_) + runs);
      start_ = list_->startOf(run_);
      return *this;
    }
    Iterator operator+(difference_type runs) const { return Iterator(*this) += runs; }
    difference_type operator-(const Iterator& other) const {
      return static_cast<difference_type>(run_) - static_cast<difference_type>(other.run_);
    }
    friend auto operator<=>(const Iterator& a, const Iterator& b) { return a.run_ <=> b.run_; }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.run_ == b.run_; }

   private:
    friend class SampleRuns;
    Iterator(const SampleList* list, std::size_t run)
        : list_(list), run_(run), start_(list->startOf(run)) {}
    const SampleList* list_ = nullptr;
    std::size_t run_ = 0;
    std::uint64_t start_ = 0;
  };

  explicit SampleRuns(const SampleList& list) : list_(&list) {}

  std::size_t size() const { return list_->places_.size(); }
  bool empty() const { return list_->empty(); }
  SampleRun operator[](std::size_t run) const {
    return {list_->firstOf(run), list_->places_[run].count, list_->startOf(run)};
  }
  SampleRun front() const { return (*this)[0]; }
  SampleRun back() const { return (*this)[size() - 1]; }
  Iterator begin() const { return {list_, 0}; }
  Iterator end() const { return {list_, size()}; }

 private:
  const SampleList* list_;
};

inline SampleRuns SampleList::runs() const {
  return SampleRuns(*this);
}

}  // namespace tallowmark
