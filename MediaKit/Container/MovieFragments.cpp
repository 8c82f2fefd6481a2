// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieFragments.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/FragmentReading.h"
#include "MediaKit/Container/NameSearch.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Container/TrackEnd.h"

namespace tallowmark::MovieFragments {

namespace {

/// What a fragment says of itself, before any of it is believed.
struct Survey {
  bool isWhole = true;
  /// From the first byte of its samples to the last.
  std::uint64_t from = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t to = 0;
  /// Whether a track starts before its samples so far end, and how many seconds later one does.
  bool isEarlier = false;
  double later = 0;
  /// How far from where the file says, modulo 2^64.
  std::uint64_t moved = 0;
};

/// Reads the fragments of a file one after the other, and looks for the next where damage hides it.
class Fragments {
 public:
  Fragments(const Box& extends, const BoxReader& reader, Movie& movie);

  void readAll();

 private:
  /// Where a row of boxes ends.
  struct RowEnd {
    std::uint64_t at = 0;
    Box last;
    std::size_t boxes = 0;
  };

  RowEnd readRow(std::uint64_t from);
  void take(const Box& moof);
  Survey survey(const Box& moof) const;
  Survey survey(const Box& moof, DataPlace place) const;
  bool isDamaged(const Box& moof, const Survey& seen) const;
  std::uint32_t sequenceOf(const Box& moof) const;
  std::optional<Box> findBehind(std::uint64_t from);
  bool goesOn(const Box& moof) const;
  void noteTail(const RowEnd& end);
  bool isZero(std::uint64_t from) const;
  void openLoss(std::uint64_t from) { lossFrom_ = lossFrom_.value_or(from); }
  void closeLoss(std::uint64_t to);

  const BoxReader& reader_;
  Movie& movie_;
  DefaultsByTrack defaults_;
  std::map<std::uint32_t, TrackEnd> ends_;
  DataPlace place_;
  /// Of the fragments read, and the last one's number.
  std::uint64_t count_ = 0;
  std::uint32_t sequence_ = 0;
  /// Behind the last byte that they describe.
  std::uint64_t described_ = 0;
  /// Whether boxes did not lead on: then bytes may be missing, or more than there were.
  bool isTorn_ = false;
  /// Where a lost piece starts whose end is not known yet.
  std::optional<std::uint64_t> lossFrom_;
  /// Bytes that may still be looked into for a fragment: its name in ten thousand places must not
  /// have the same bytes read as often.
  std::uint64_t searchable_;
};

Fragments::Fragments(const Box& extends, const BoxReader& reader, Movie& movie)
    : reader_(reader),
      movie_(movie),
      defaults_(readDefaults(extends, reader, movie)),
      searchable_(saturatingMultiply(reader.size(), 2)) {
  for (Track& track : movie.tracks) ends_.try_emplace(track.trackID, track, movie.lostPieces);
  place_.unclaimed = reader.size();
}

void Fragments::closeLoss(std::uint64_t to) {
  if (lossFrom_) movie_.lostPieces.push_back({std::min(*lossFrom_, to), to, {}});
  lossFrom_.reset();
}

// §8.8.5
std::uint32_t Fragments::sequenceOf(const Box& moof) const {
  constexpr std::uint64_t headerSize = 16;
  const auto header = reader_.box(moof.payloadOffset(), moof.end());
  const bool isOne = header && header->type == "mfhd" && header->size == headerSize;
  return isOne ? bigEndianOrZero<std::uint32_t>(reader_.payload(*header), 4) : 0;
}

// Behind damage, samples that would just fill the media box that follows have moved with it.
Survey Fragments::survey(const Box& moof) const {
  const Survey seen = survey(moof, place_);
  const auto media = isTorn_ ? reader_.box(moof.end()) : std::nullopt;
  if (!media || media->type != "mdat" || media->truncated || seen.from >= seen.to ||
      seen.from == media->payloadOffset() || seen.to - seen.from != media->payloadSize()) {
    return seen;
  }
  DataPlace place = place_;
  place.moved += media->payloadOffset() - seen.from;
  const Survey again = survey(moof, place);
  return again.from == media->payloadOffset() ? again : seen;
}

Survey Fragments::survey(const Box& moof, DataPlace place) const {
  Survey seen;
  seen.moved = place.moved;
  const TrackEnd* end = nullptr;
  bool isEmpty = false;
  bool areEmpty = false;
  FragmentListener listener;
  listener.onTrack = [&](std::uint32_t trackID) {
    const auto known = ends_.find(trackID);
    end = known == ends_.end() ? nullptr : &known->second;
  };
  listener.onTime = [&](std::uint64_t time) {
    if (end == nullptr) return;
    seen.isEarlier = seen.isEarlier || time < end->time();
    seen.later = std::max(seen.later, end->seconds(time) - end->seconds(end->time()));
  };
  listener.onSamples = [&](const Sample& first, std::uint64_t count) {
    if (end == nullptr) return;
    seen.from = std::min(seen.from, first.offset);
    seen.to = std::max(seen.to, saturatingAdd(first.offset, saturatingMultiply(first.size, count)));
    const bool wasEmpty = isEmpty;
    isEmpty = first.size == 0 && end->track().kind != Track::Kind::other;
    areEmpty = areEmpty || (wasEmpty && isEmpty);
  };
  seen.isWhole = readFragment(moof, reader_, defaults_, place, listener);
  // Zeros over a part of a table: no recorder writes two pictures or sounds without a byte.
  seen.isWhole = seen.isWhole && !areEmpty;
  return seen;
}

// The last one of a file that was cut off is read as far as it goes.
bool Fragments::isDamaged(const Box& moof, const Survey& seen) const {
  if ((seen.isWhole && seen.to <= reader_.size()) || reader_.size() - moof.end() < 8) {
    return false;
  }
  const auto behind = reader_.box(moof.end());
  return !seen.isWhole || !behind || !behind->truncated;
}

void Fragments::take(const Box& moof) {
  const Survey seen = survey(moof);
  if (isDamaged(moof, seen)) {
    openLoss(moof.offset);
    return;
  }
  closeLoss(moof.offset);
  ++count_;
  place_.moved = seen.moved;
  sequence_ = std::max(sequence_, sequenceOf(moof));
  described_ = std::max(described_, std::min(seen.to, reader_.size()));
  TrackEnd* end = nullptr;
  FragmentListener listener;
  listener.onTrack = [&](std::uint32_t trackID) {
    const auto known = ends_.find(trackID);
    end = known == ends_.end() ? nullptr : &known->second;
  };
  listener.onTime = [&](std::uint64_t time) {
    if (end != nullptr) end->startAt(time);
  };
  listener.onSamples = [&](const Sample& first, std::uint64_t count) {
    if (end != nullptr) end->append(first, count);
  };
  (void)readFragment(moof, reader_, defaults_, place_, listener);
}

Fragments::RowEnd Fragments::readRow(std::uint64_t from) {
  RowEnd end{from, {}, 0};
  reader_.visit(from, reader_.size(), [&](const Box& box) {
    if (box.type == "moof" && !box.truncated) take(box);
    end = {box.end(), box, end.boxes + 1};
    return true;
  });
  return end;
}

// Whether the fragment at a place that no box leads to is this recording's: it is whole, its
// samples lie in the media box behind it, and its number and its times go on.
bool Fragments::goesOn(const Box& moof) const {
  const std::uint32_t sequence = sequenceOf(moof);
  if (sequence <= sequence_) return false;
  const auto media = reader_.box(moof.end());
  if (!media || media->type != "mdat") return false;
  const Survey seen = survey(moof);
  if (!seen.isWhole || seen.isEarlier || seen.from < media->payloadOffset() ||
      seen.to <= seen.from || (seen.to > media->end() && !media->truncated)) {
    return false;
  }
  double reached = 0;
  for (const auto& [trackID, end] : ends_) reached = std::max(reached, end.seconds(end.time()));
  // An earlier recording on the card may be numbered from anywhere.
  constexpr double mostUneven = 4;
  return count_ == 0 || reached == 0 ||
         seen.later <= mostUneven * (sequence - sequence_) * reached / static_cast<double>(count_);
}

std::optional<Box> Fragments::findBehind(std::uint64_t from) {
  constexpr std::uint64_t largest = std::uint64_t{16} << 20U;
  isTorn_ = true;
  std::optional<Box> found;
  visitNames({"moof"}, reader_.source(), from, reader_.size(), [&](std::uint64_t place) {
    const auto box = place >= from + 4 ? reader_.box(place - 4) : std::nullopt;
    if (!box || box->truncated || box->size > largest) return true;
    // Every look costs some reads, however small the box is.
    constexpr std::uint64_t leastCost = 4096;
    const std::uint64_t cost = std::max(box->size, leastCost);
    if (cost > searchable_) return false;
    searchable_ -= cost;
    if (goesOn(*box)) found = box;
    return !found;
  });
  return found;
}

bool Fragments::isZero(std::uint64_t from) const {
  constexpr std::size_t step = std::size_t{1} << 16U;
  for (std::uint64_t at = from; at < reader_.size(); at += step) {
    const auto bytes = reader_.data(at, step);
    if (std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte != 0; })) {
      return false;
    }
  }
  return true;
}

// No fragment can be read behind the last box. A piece may stand there all the same, or the rest of
// the last one; what was cut off while it was written, or set aside and never written, is none.
void Fragments::noteTail(const RowEnd& end) {
  constexpr std::uint64_t leastPiece = 4096;
  const bool isCut = end.last.truncated && (end.last.type == "mdat" || end.last.type == "moof");
  const Track* video = movie_.videoTrack();
  const bool isInPieces = count_ > 0 || (video != nullptr && video->samples.empty());
  const std::uint64_t from = std::max(end.last.truncated ? end.last.offset : end.at, described_);
  const bool isBoxLost = !end.last.truncated && described_ > end.at;
  const bool isPiece = isInPieces && from + leastPiece < reader_.size() && !isZero(from);
  if (!isCut && (isBoxLost || isPiece)) openLoss(from);
}

void Fragments::readAll() {
  // Damage has come to an end long before; a file made of it must not take memory.
  constexpr std::size_t mostLosses = std::size_t{1} << 14U;
  for (std::uint64_t from = 0; movie_.lostPieces.size() < mostLosses;) {
    const RowEnd end = readRow(from);
    const bool isAtEnd = !end.last.truncated && reader_.size() - end.at < 8;
    if (isAtEnd || end.boxes == 0 || end.boxes == BoxReader::mostSiblings) break;
    // A media box that leads nowhere may have another size than it claims.
    const bool isSizeDoubted = end.last.truncated || end.last.type == "mdat";
    const std::uint64_t searchFrom = isSizeDoubted ? end.last.payloadOffset() : end.at;
    const auto next = findBehind(searchFrom);
    if (!next) {
      noteTail(end);
      break;
    }
    const std::uint64_t stop = !end.last.truncated && end.at <= next->offset ? end.at : searchFrom;
    described_ = std::min(described_, next->offset);
    openLoss(std::max(stop, described_));
    from = next->offset;
  }
  closeLoss(reader_.size());
  for (auto& [trackID, end] : ends_) end.flush();
}

}  // namespace

void append(const Box& moov, const BoxReader& reader, Movie& movie) {
  if (const std::optional<Box> extends = reader.child(moov, "mvex")) {
    Fragments(*extends, reader, movie).readAll();
  }
}

}  // namespace tallowmark::MovieFragments
