// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/PictureTrial.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <system_error>
#include <vector>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/ClipStart.h"
#include "MediaKit/Video/PictureExcerpt.h"

namespace tallowmark {

namespace {

constexpr std::size_t keysToTry = 4;
constexpr std::size_t dependentPlaces = 8;
constexpr std::size_t runsToTry = 6;
// Enough for pictures to refer to as many as they can; and to most that encoders do.
constexpr std::uint64_t longRun = 40;
constexpr std::uint64_t shortRun = 16;
// In smaller ones nearly anything ends well.
constexpr std::uint32_t smallestDependent = 768;

using End = PictureExcerpt::End;

// Where pictures are decoded, and by whom.
struct Trying {
  const std::filesystem::path& folder;
  const PictureDecoder& decoder;
  const StopToken& stop;

  std::optional<DecodedPictures> decode(const PictureExcerpt& excerpt, End end) const {
    try {
      PendingFile file(folder);
      excerpt.write(file.sink(), end, stop);
      return decoder(file.temporaryPath(), stop);
    } catch (const DeviceError& error) {
      if (error.kind() == DeviceError::Kind::writeFailed) {
        return std::nullopt;
      }
      throw;
    }
  }

  // Whether the pictures decode, and the last one's data ends where its decoding does. A decoder of
  // HEVC makes something of any bytes without a complaint, and one that takes a picture for a
  // smaller one stops where that is full.
  std::optional<bool> fits(const PictureExcerpt& excerpt) const {
    const auto plain = decode(excerpt, End::asItIs);
    if (!plain || !plain->whole || !excerpt.hasSliceEnd()) {
      return plain ? std::optional(plain->whole) : std::nullopt;
    }
    const auto ended = decode(excerpt, End::otherBytes);
    if (ended && ended->whole && ended->sums == plain->sums) {
      return false;
    }
    const auto longer = decode(excerpt, End::moreBytes);
    return !longer || (longer->whole && longer->sums == plain->sums);
  }
};

// What the tried pictures say of the parameter sets: how many times likelier they are if these are
// theirs, as a logarithm. Of HEVC pictures of 1,400 bytes, 320 × 180, read with sets for 320 × 240,
// about one in four ended well by chance; larger ones are taken to do so as much less often as they
// are larger.
class Evidence {
 public:
  void add(std::optional<bool> fits, std::uint32_t pictureSize) {
    if (!fits) {
      return;
    }
    ++tried_;
    fitting_ += *fits ? 1U : 0U;
    const double byChance = std::min(intactShare, chanceBytes / std::max(pictureSize, 1U));
    weight_ += *fits ? std::log(intactShare / byChance) : std::log(1 - intactShare);
  }

  std::size_t tried() const { return tried_; }
  bool speaksForThem() const { return fitting_ > 0 && weight_ >= 0; }
  bool settlesIt() const { return weight_ > settled; }

 private:
  // Of the pictures of a badly damaged clip.
  static constexpr double intactShare = 0.3;
  static constexpr double chanceBytes = 350;
  static constexpr double settled = 1;

  std::size_t tried_ = 0;
  std::size_t fitting_ = 0;
  double weight_ = 0;
};

std::vector<Sample> keyPicturesOf(const Movie& movie, std::size_t most) {
  std::vector<Sample> keys;
  for (const std::uint64_t key : VideoRepair::keyPictures(movie, most)) {
    keys.push_back(movie.videoTrack()->samples[key]);
  }
  return keys;
}

// Some that are no key pictures, spread over a track; the smaller ones, which damage hit least.
std::vector<Sample> dependentPicturesOf(const SampleList& samples) {
  std::vector<Sample> found;
  const std::uint64_t stretch = samples.size() / dependentPlaces + 1;
  for (std::uint64_t from = 0; from < samples.size(); from += stretch) {
    std::optional<Sample> best;
    for (const Sample picture : samples.slice(from, std::min(samples.size(), from + stretch))) {
      const bool canTell = !picture.isSync && picture.size >= smallestDependent;
      if (canTell && (!best || picture.size < best->size)) best = picture;
    }
    if (best) found.push_back(*best);
  }
  return found;
}

// A good clip's first key picture; nothing when that does not decode here either.
std::optional<PictureExcerpt> goodKey(const ByteSource& reference, const Trying& trying) {
  const Movie movie = MovieParser::parse(BoxReader(reference));
  const auto keys = keyPicturesOf(movie, 1);
  if (keys.empty()) {
    return std::nullopt;
  }
  PictureExcerpt excerpt(*movie.videoTrack());
  const bool fits = excerpt.add(keys.front(), reference) && trying.fits(excerpt) == true;
  return fits ? std::optional(std::move(excerpt)) : std::nullopt;
}

// A key picture and up to `most` behind it, before the next one.
std::optional<PictureExcerpt> runFrom(std::uint64_t key, std::uint64_t most, const Track& video,
                                      const ByteSource& source) {
  PictureExcerpt excerpt(video);
  std::uint64_t number = 0;
  for (const Sample sample : video.samples.slice(key, std::min(video.samples.size(), key + most))) {
    if ((number > 0 && sample.isSync) || !excerpt.add(sample, source)) break;
    ++number;
  }
  return number > 0 ? std::optional(std::move(excerpt)) : std::nullopt;
}

// Whether two in three runs of pictures that begin with a key picture decode; shorter ones where
// damage is frequent. Settings that were worked out from the pictures' headers leave key pictures
// as they are; others show them wrong, and a few pictures behind one now and then right.
bool runsDecode(const Track& video, const Movie& movie, const ByteSource& source,
                const Trying& trying) {
  for (const std::uint64_t length : {longRun, shortRun}) {
    std::size_t tried = 0;
    std::size_t whole = 0;
    for (const std::uint64_t key : VideoRepair::keyPictures(movie, runsToTry)) {
      trying.stop.check();
      const auto run = runFrom(key, length, video, source);
      const auto decoded = run ? trying.decode(*run, End::asItIs) : std::nullopt;
      tried += decoded ? 1U : 0U;
      whole += decoded && decoded->whole ? 1U : 0U;
    }
    if (whole * 3 >= tried * 2) {
      return true;
    }
  }
  return false;
}

// Pictures each put behind the same beginning.
struct Candidates {
  PictureExcerpt beginning;
  std::vector<Sample> pictures;
  const ByteSource& source;

  // Those that hold what no encoder writes are damaged; asked without them unless there are no
  // others.
  Evidence ask(const Trying& trying) const {
    const Evidence undamaged = ask(trying, false);
    return undamaged.tried() > 0 ? undamaged : ask(trying, true);
  }

 private:
  Evidence ask(const Trying& trying, bool damaged) const {
    Evidence evidence;
    for (const Sample& picture : pictures) {
      trying.stop.check();
      PictureExcerpt excerpt = beginning;
      if (excerpt.add(picture, source) && excerpt.isSurelyDamaged() == damaged) {
        evidence.add(trying.fits(excerpt), picture.size);
      }
      if (evidence.settlesIt()) break;
    }
    return evidence;
  }
};

}  // namespace

void requireDecodable(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureDecoder& decoder, const StopToken& stop) {
  if (!plan.rebuilt || reference == nullptr || !decoder || plan.movie.videoTrack() == nullptr) {
    return;
  }
  const Trying trying{folder, decoder, stop};
  const Track& video = *plan.movie.videoTrack();
  if (plan.hasOtherSettings && !runsDecode(video, plan.movie, source, trying)) {
    throw MediaError::noVideo();
  }
  const Candidates keyPictures{PictureExcerpt(video), keyPicturesOf(plan.movie, keysToTry), source};
  const Evidence keys = keyPictures.ask(trying);
  if (keys.tried() == 0 || keys.speaksForThem()) {
    return;
  }
  // What a picture shows upon another stream's key picture is wrong, how it is read is not.
  const auto good = goodKey(*reference, trying);
  if (!good) {
    return;
  }
  const Candidates others{*good, dependentPicturesOf(video.samples), source};
  if (!others.ask(trying).speaksForThem()) {
    throw MediaError::noVideo();
  }
}

RunningPictureTrial::RunningPictureTrial(const VideoRepair::Plan& plan, const ByteSource& source,
                                         const ByteSource* reference,
                                         const std::filesystem::path& folder,
                                         const PictureDecoder& decoder) {
  const auto trial = [=, &plan, &source, &folder, &decoder, stop = end_.token()] {
    requireDecodable(plan, source, reference, folder, decoder, stop);
  };
  try {
    trial_ = std::async(std::launch::async, trial);
  } catch (const std::system_error&) {
    // No thread is to be had: it runs when it is waited for.
    trial_ = std::async(std::launch::deferred, trial);
  }
}

RunningPictureTrial::~RunningPictureTrial() {
  end_.requestStop();
  if (trial_.valid() && trial_.wait_for(std::chrono::seconds(0)) != std::future_status::deferred) {
    trial_.wait();
  }
}

void RunningPictureTrial::check() {
  if (trial_.valid() && trial_.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
    trial_.get();
  }
}

void RunningPictureTrial::wait(const StopToken& stop) {
  while (trial_.valid()) {
    stop.check();
    if (trial_.wait_for(std::chrono::milliseconds(20)) == std::future_status::deferred) {
      trial_.get();
    } else {
      check();
    }
  }
}

}  // namespace tallowmark
