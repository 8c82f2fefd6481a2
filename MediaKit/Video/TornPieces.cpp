// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/TornPieces.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/NameSearch.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Video/IndexFit.h"

namespace tallowmark::TornPieces {

namespace {

// Behind the last lost piece nothing but they tells that more is lost, unless they stand elsewhere.
constexpr std::uint64_t enoughMisfits = 4;

/// Samples of a track from one lost piece to the next that it goes on behind.
struct Stretch {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  /// The number of the lost piece behind; as many as there are when the clip ends there.
  std::size_t piece = 0;
  /// That of the piece that the track goes on behind; as many as there are when it does not.
  std::size_t resumesBehind = 0;
};

/// What became of a piece that lost bytes or got some: what ends by `from` is where the index says;
/// what it says to start at `to` or behind has moved `by` so much.
struct Tear {
  std::uint64_t from = 0;
  std::uint64_t to = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t by = 0;

  bool hasMoved() const { return to != std::numeric_limits<std::uint64_t>::max(); }
};

/// By the number of the lost piece behind.
using Tears = std::vector<std::optional<Tear>>;

// Behind the last piece's media there may be a table that tells where each is (ISO/IEC 14496-12
// §8.8.9, §8.8.11).
std::optional<std::uint64_t> tableOfPieces(const BoxReader& reader) {
  constexpr std::uint64_t lastBox = 16;
  const std::uint64_t end = reader.size();
  const auto last = end < lastBox ? std::nullopt : reader.box(end - lastBox);
  if (!last || last->type != "mfro" || last->size != lastBox) return std::nullopt;
  const std::uint64_t size = bigEndianOrZero<std::uint32_t>(reader.payload(*last), 4);
  const auto table = size > end ? std::nullopt : reader.box(end - size);
  const bool isOne = table && table->type == "mfra" && table->size == size;
  return isOne ? std::optional(table->offset) : std::nullopt;
}

// Where the index stands that most cameras write behind all media.
std::optional<std::uint64_t> indexBehind(std::uint64_t media, const BoxReader& reader) {
  constexpr std::uint64_t searched = std::uint64_t{32} << 20U;
  const std::uint64_t end = reader.size();
  const std::uint64_t from = std::max(media, end - std::min(end, searched));
  std::optional<std::uint64_t> found;
  visitNames({"moov"}, reader.source(), from, end, [&](std::uint64_t name) {
    const auto index = name < 4 ? std::nullopt : reader.box(name - 4);
    const auto header = index ? reader.box(index->payloadOffset(), index->end()) : std::nullopt;
    if (header && !index->truncated && header->type == "mvhd") found = index->offset;
    return !found;
  });
  return found;
}

// `media`: where it begins.
std::uint64_t endOfMedia(std::uint64_t media, const ByteSource& clip) {
  const BoxReader reader(clip);
  if (const auto table = tableOfPieces(reader)) return *table;
  return indexBehind(media, reader).value_or(clip.size());
}

/// Finds what is torn.
class Search {
 public:
  Search(const Movie& movie, std::size_t lengthSize, const ByteSource& clip)
      : movie_(movie),
        video_(movie.videoTrack()->samples),
        lengthSize_(lengthSize),
        clip_(clip),
        pieces_(movie.lostPieces.size()),
        reach_(pieces_ + 1),
        tears_(pieces_ + 1) {}

  Tears find();
  std::vector<Stretch> stretchesOf(const Track& track) const;

 private:
  bool fits(std::uint64_t picture, std::uint64_t movedBy) const;
  std::uint64_t shiftOf(const Stretch& pictures) const;
  bool isHopeless(const Stretch& pictures) const;
  void lookAt(const Stretch& pictures);
  void findMoved(const Stretch& pictures, std::uint64_t first, Tear& tear) const;
  std::uint64_t endOf(std::size_t piece) const;

  const Movie& movie_;
  const SampleList& video_;
  std::size_t lengthSize_;
  const ByteSource& clip_;
  /// Once it has been asked for.
  mutable std::optional<std::uint64_t> mediaEnd_;
  std::size_t pieces_;
  /// Behind the last byte that the samples ahead of each lost piece claim.
  std::vector<std::uint64_t> reach_;
  Tears tears_;
};

std::vector<Stretch> Search::stretchesOf(const Track& track) const {
  std::vector<Stretch> stretches;
  Stretch stretch;
  for (std::size_t i = 0; i < pieces_; ++i) {
    if (const auto* place = movie_.lostPieces[i].resumptionOf(track.trackID)) {
      stretch.to = place->sample;
      stretch.resumesBehind = i;
      stretches.push_back(stretch);
      stretch = {place->sample, 0, i + 1, 0};
    }
  }
  stretch.to = track.samples.size();
  stretch.resumesBehind = pieces_;
  stretches.push_back(stretch);
  return stretches;
}

// Where the media ends that the stretch ahead of that piece is in.
std::uint64_t Search::endOf(std::size_t piece) const {
  const std::uint64_t end = piece < pieces_ ? movie_.lostPieces[piece].to : clip_.size();
  if (end < clip_.size()) return end;
  if (!mediaEnd_) mediaEnd_ = endOfMedia(video_.front().offset, clip_);
  return *mediaEnd_;
}

bool Search::fits(std::uint64_t picture, std::uint64_t movedBy) const {
  Sample sample = video_[picture];
  sample.offset += movedBy;
  return saturatingAdd(sample.offset, sample.size) <= clip_.size() &&
         IndexFit::fitOf(sample, lengthSize_, clip_) == IndexFit::Fit::fits;
}

// How far samples of the stretch have moved when all ends where the next piece starts.
std::uint64_t Search::shiftOf(const Stretch& pictures) const {
  return endOf(pictures.piece) - reach_[pictures.piece];
}

// Whether the index is of no use for what does not fit, however much that is.
bool Search::isHopeless(const Stretch& pictures) const {
  return pieces_ == 0 && !fits(pictures.to - 1, shiftOf(pictures));
}

// The pictures up to the stretch's last one that have moved. Where most are torn that teach little,
// another clip teaches more.
void Search::findMoved(const Stretch& pictures, std::uint64_t first, Tear& tear) const {
  constexpr std::uint64_t enoughToTeach = 12;
  const std::uint64_t by = shiftOf(pictures);
  std::uint64_t moved = pictures.to;
  while (moved > first && fits(moved - 1, by)) --moved;
  const std::uint64_t torn = moved - first;
  const std::uint64_t known = video_.size() - torn;
  const bool isLittle = pieces_ == 0 && known < torn && known < enoughToTeach;
  if (by == 0 || moved == pictures.to || isLittle) return;
  const std::uint64_t to = video_[moved].offset;
  // An index that is made up has its samples anywhere.
  if (to < tear.from || to + by > clip_.size()) return;
  tear.to = to;
  tear.by = by;
}

void Search::lookAt(const Stretch& pictures) {
  if (pictures.from == pictures.to) return;
  const bool isAhead = pictures.piece < pieces_;
  // What is cut off says nothing.
  const std::uint64_t inside = isAhead ? pictures.to : video_.endingBy(clip_.size()).size();
  std::uint64_t end = std::clamp(inside, pictures.from, pictures.to);
  std::uint64_t misfits = 0;
  for (; end > pictures.from && !fits(end - 1, 0); --end) {
    if (++misfits == enoughMisfits && isHopeless(pictures)) return;
  }
  const bool isTorn =
      isAhead ? end < pictures.to || reach_[pictures.piece] > endOf(pictures.piece) : misfits > 0;
  if (!isTorn) return;
  const std::uint64_t last = std::max(end, pictures.from + 1) - 1;
  Tear tear;
  const std::uint64_t fitting = end > pictures.from ? video_[last].size : 0;
  tear.from = std::min(saturatingAdd(video_[last].offset, fitting), clip_.size());
  findMoved(pictures, end, tear);
  if (isAhead || tear.hasMoved() || (pieces_ > 0 && misfits >= enoughMisfits)) {
    tears_[pictures.piece] = tear;
  }
}

Tears Search::find() {
  for (const Track& track : movie_.tracks) {
    for (const Stretch& stretch : stretchesOf(track)) {
      if (stretch.from == stretch.to) continue;
      const Sample last = track.samples[stretch.to - 1];
      std::uint64_t& reach = reach_[stretch.piece];
      reach = std::max(reach, saturatingAdd(last.offset, last.size));
    }
  }
  for (const Stretch& stretch : stretchesOf(*movie_.videoTrack())) lookAt(stretch);
  return tears_;
}

/// A track that is made anew, stretch by stretch.
class MendedTrack {
 public:
  MendedTrack(Track& track, std::vector<LostPiece>& pieces) : track_(track), pieces_(pieces) {}

  void append(const Stretch& stretch, const std::optional<Tear>& tear);
  void finish() { track_.samples = std::move(samples_); }

 private:
  Track& track_;
  std::vector<LostPiece>& pieces_;
  SampleList samples_;
};

// What is torn is left out, and the sample ahead lasts as long where the track goes on.
void MendedTrack::append(const Stretch& stretch, const std::optional<Tear>& tear) {
  const SampleList all = track_.samples.slice(stretch.from, stretch.to);
  const SampleList ahead = tear ? all.endingBy(tear->from) : all;
  SampleList behind;
  for (const SampleRun& run : all.runs()) {
    if (tear && run.first.offset >= tear->to && run.end() > tear->from)
      behind.append(run.first, run.count);
  }
  const std::uint64_t kept = saturatingAdd(ahead.duration(), behind.duration());
  const std::uint64_t lost = all.duration() - std::min(kept, all.duration());
  auto* place = stretch.resumesBehind < pieces_.size()
                    ? pieces_[stretch.resumesBehind].resumptionOf(track_.trackID)
                    : nullptr;
  samples_.append(ahead);
  if (place != nullptr || !behind.empty()) samples_.lengthenLast(lost);
  if (!behind.empty()) {
    auto& resumptions = pieces_[stretch.piece].resumptions;
    const bool isSame = place != nullptr && stretch.piece == stretch.resumesBehind;
    auto& gap = isSame ? *place : resumptions.emplace_back();
    gap = {track_.trackID, samples_.size(), lost};
    samples_.append(behind.movedBy(tear->by));
    if (isSame) return;
  } else if (place != nullptr && lost > 0) {
    place->ticks = lost;
  }
  if (place != nullptr) place->sample = samples_.size();
}

}  // namespace

bool isMended(const Movie& movie, const ByteSource& clip) {
  const Track* video = movie.videoTrack();
  const auto format =
      video == nullptr ? std::nullopt : NALFormat::of(video->sampleEntry, video->codec);
  return format && Search(movie, format->lengthSize, clip).find().back().has_value();
}

void mend(Movie& movie, const ByteSource& clip) {
  const Track* video = movie.videoTrack();
  const auto format =
      video == nullptr ? std::nullopt : NALFormat::of(video->sampleEntry, video->codec);
  if (!format) return;
  Search search(movie, format->lengthSize, clip);
  const Tears tears = search.find();
  if (std::none_of(tears.begin(), tears.end(), [](const auto& tear) { return tear.has_value(); })) {
    return;
  }
  if (tears.back()) movie.lostPieces.push_back({tears.back()->from, clip.size(), false, {}});
  for (Track& track : movie.tracks) {
    MendedTrack mended(track, movie.lostPieces);
    for (const Stretch& stretch : search.stretchesOf(track)) {
      mended.append(stretch, tears[stretch.piece]);
    }
    mended.finish();
  }
  for (std::size_t i = 0; i < movie.lostPieces.size(); ++i) {
    LostPiece& piece = movie.lostPieces[i];
    if (!tears[i]) continue;
    // The last picture that begins where the index says may be torn behind that.
    if (tears[i]->hasMoved()) piece.to = tears[i]->to + tears[i]->by;
    piece.from = std::min({piece.from, tears[i]->from, piece.to});
  }
}

}  // namespace tallowmark::TornPieces
