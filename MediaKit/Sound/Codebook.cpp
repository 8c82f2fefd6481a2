// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/Codebook.h"

#include <algorithm>

namespace tallowmark {

Codebook::Codebook(std::span<const std::uint8_t> counts, std::span<const Meaning> meanings) {
  std::uint32_t code = 0;
  for (unsigned bits = 1; bits <= counts.size(); ++bits, code <<= 1U) {
    const std::size_t count = counts[bits - 1];
    if (bits > shortBits && count > 0) {
      longGroups_.push_back(
          {(std::uint64_t{code} + count) << (32 - bits), code, bits, words_.size()});
    }
    for (std::size_t i = 0; i < count; ++i, ++code) {
      const Meaning& meaning = meanings[words_.size()];
      words_.push_back({static_cast<std::uint8_t>(bits + meaning.extraBits), meaning.value});
      if (bits <= shortBits) {
        const std::size_t places = std::size_t{1} << (shortBits - bits);
        std::fill_n(short_.begin() + static_cast<std::ptrdiff_t>(code * places), places,
                    words_.back());
      }
    }
  }
  gatherRuns();
}

// The signs of the last one may lie behind the first bits.
void Codebook::gatherRuns() {
  for (std::size_t first = 0; first < runs_.size(); ++first) {
    Run& run = runs_[first];
    while (run.length < shortBits) {
      const Codeword word = short_[(first << run.length) % short_.size()];
      if (word.length == 0 || (run.count > 0 && run.length + word.length > shortBits)) {
        break;
      }
      run.length = static_cast<std::uint8_t>(run.length + word.length);
      ++run.count;
    }
  }
}

Codebook::Codeword Codebook::longAt(std::uint32_t window) const {
  for (const Group& group : longGroups_) {
    if (window < group.limit) {
      return words_[group.firstWord + (window >> (32 - group.bits)) - group.firstCode];
    }
  }
  return {};
}

}  // namespace tallowmark
