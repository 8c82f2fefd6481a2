// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/FirstSlices.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark {

namespace {

// Weights for many pictures are the longest part of a header.
constexpr std::size_t bytesOfSlice = 512;
constexpr int unitsLookedAt = 64;
constexpr std::size_t slicesOfPicture = 4;

/// Reads the first slices of pictures.
class SliceReader {
 public:
  SliceReader(const ByteSource& source, NALFormat format)
      : format_(std::move(format)), window_(source, source.size(), {bytesOfSlice, bytesOfSlice}) {}

  /// The picture's first slices; none when it brings parameter sets or is not of whole units.
  std::vector<FirstSlices::Bytes> read(const Sample& sample) {
    std::vector<FirstSlices::Bytes> slices;
    const std::uint64_t end = sample.offset + sample.size;
    std::uint64_t at = sample.offset;
    for (int unit = 0; unit < unitsLookedAt && at < end && slices.size() < slicesOfPicture;
         ++unit) {
      const auto head = readUnitHead(window_, at, end, format_);
      if (!head || head->type() == 7 || head->type() == 8) {
        return {};
      }
      if (head->type() == 6 && slices.empty()) {
        lookForNotes(*head);
      }
      if (head->type() == 1 || head->type() == 5) {
        const auto bytes = window_.at(at + format_.lengthSize, bytesOfSlice);
        const auto size = std::min<std::uint64_t>(head->length - format_.lengthSize, bytes.size());
        slices.emplace_back(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      }
      at += head->length;
    }
    return slices;
  }

  std::optional<bool> weighsB() const { return weighsB_; }

 private:
  void lookForNotes(const UnitHead& head);

  NALFormat format_;
  MediaWindow window_;
  std::optional<bool> weighsB_;
};

// Some encoders write their settings into a message ahead of the first picture (§D.2.6).
void SliceReader::lookForNotes(const UnitHead& head) {
  constexpr std::uint64_t longest = 2048;
  constexpr std::string_view setting = " weightb=";
  const auto size = static_cast<std::size_t>(std::min(head.length - format_.lengthSize, longest));
  const auto all = window_.at(head.at + format_.lengthSize, size);
  const auto bytes = all.first(std::min(all.size(), size));
  const auto found = std::search(bytes.begin(), bytes.end(), setting.begin(), setting.end());
  if (static_cast<std::size_t>(bytes.end() - found) > setting.size()) {
    weighsB_ = *(found + static_cast<std::ptrdiff_t>(setting.size())) != '0';
  }
}

}  // namespace

FirstSlices FirstSlices::read(const SampleList& samples, const ByteSource& source,
                              const NALFormat& format, std::span<const std::uint64_t> losses,
                              const StopToken& stop) {
  SliceReader reader(source, format);
  std::vector<Slice> slices;
  std::uint64_t number = 0;
  auto loss = losses.begin();
  for (const Sample& sample : samples) {
    if (slices.size() == enough) break;
    stop.check();
    const bool isBehindLoss = loss != losses.end() && *loss == number;
    loss += isBehindLoss ? 1 : 0;
    auto read = reader.read(sample);
    if (read.empty()) {
      return {};
    }
    FirstSlices::Bytes first = std::move(read.front());
    read.erase(read.begin());
    slices.push_back({std::move(first), std::move(read), isBehindLoss});
    ++number;
  }
  return {std::move(slices), reader.weighsB()};
}

}  // namespace tallowmark
