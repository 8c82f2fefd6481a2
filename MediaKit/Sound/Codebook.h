// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace tallowmark {

/// One Huffman codebook of AAC. All of them are canonical: codewords of one length are consecutive
/// numbers, longer ones go on behind shorter ones, and none is left over. So a book is the number
/// of codewords of each length and what each codeword, in order, stands for.
class Codebook {
 public:
  /// What stands at a position of the stream.
  struct Codeword {
    /// Bits of the codeword and of what follows it at once (signs).
    std::uint8_t length = 0;
    std::int8_t value = 0;
  };
  /// What a codeword stands for.
  struct Meaning {
    /// Bits that follow it.
    std::uint8_t extraBits = 0;
    std::int8_t value = 0;
  };

  /// The most bits of a codeword of a spectrum, with its signs (§4.6.3.3).
  static constexpr unsigned longest = 20;

  /// `counts[i]` codewords have i + 1 bits.
  Codebook(std::span<const std::uint8_t> counts, std::span<const Meaning> meanings);

  /// The codeword that a stream starts with, the next 32 bits of which are the top of `window`.
  Codeword at(std::uint64_t window) const {
    const Codeword word = short_[window >> (64 - shortBits)];
    return word.length != 0 ? word : longAt(static_cast<std::uint32_t>(window >> 32U));
  }

  /// Codewords one behind the other.
  struct Run {
    std::uint8_t count = 0;
    /// Bits of all of them and of what follows each at once.
    std::uint8_t length = 0;
  };
  /// As many codewords as are told at once, from 1 to `most`.
  Run runAt(std::uint64_t window, unsigned most) const {
    Run run = runs_[window >> (64 - shortBits)];
    if (run.count - 1U >= most) {
      run = {1, at(window).length};
    }
    return run;
  }

 private:
  static constexpr unsigned shortBits = 11;

  /// The codewords of one length.
  struct Group {
    /// Windows that start with one of them are below this.
    std::uint64_t limit = 0;
    std::uint32_t firstCode = 0;
    unsigned bits = 0;
    std::size_t firstWord = 0;
  };

  void gatherRuns();
  Codeword longAt(std::uint32_t window) const;

  // By the first bits of a stream; empty where these are too few.
  std::array<Codeword, 1U << shortBits> short_{};
  std::array<Run, 1U << shortBits> runs_{};
  std::vector<Codeword> words_;
  std::vector<Group> longGroups_;
};

}  // namespace tallowmark
