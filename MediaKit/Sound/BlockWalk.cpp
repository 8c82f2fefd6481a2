// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/BlockWalk.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "MediaKit/Sound/BitWindow.h"
#include "MediaKit/Sound/SpectrumCodebooks.h"

namespace tallowmark {

namespace {

// Numbers of codebooks with a meaning of their own (§4.6.3.3, §4.6.8.2, §4.6.13).
constexpr unsigned zeroBook = 0;
constexpr unsigned lastBookOfFour = 4;
constexpr unsigned escapeBook = 11;
constexpr unsigned reservedBook = 12;
constexpr unsigned noiseBook = 13;
constexpr unsigned firstIntensityBook = 14;

ElementPattern withElement(ElementPattern pattern, BlockElement kind, unsigned tag) {
  return (pattern << 8U) | 0x80U | (static_cast<unsigned>(kind) << 4U) | tag;
}

unsigned elementCount(ElementPattern pattern) {
  unsigned count = 0;
  for (; pattern != 0; pattern >>= 8U) {
    ++count;
  }
  return count;
}

bool startsWith(ElementPattern pattern, ElementPattern prefix) {
  const unsigned count = elementCount(pattern);
  const unsigned wanted = elementCount(prefix);
  return wanted <= count && pattern >> (8 * (count - wanted)) == prefix;
}

/// One window or eight short ones, which may share their scalefactors in groups.
struct Window {
  bool isShort = false;
  unsigned bands = 0;
  unsigned groups = 1;
  std::array<std::uint8_t, 8> groupLengths{1};
};

/// Neighbouring bands that are coded with one book.
struct Section {
  std::uint8_t book = 0;
  std::uint8_t bands = 0;
  std::uint16_t coefficients = 0;
};

constexpr unsigned mostZeros = 32;

unsigned zerosAtTop(std::uint64_t bits) {
  return static_cast<unsigned>(std::countl_zero(bits));
}

// A value of 16 or more is written as n ones, a zero and n + 4 bits; no value has more than 13
// (§4.6.3.3).
bool passEscapes(BitWindow& bits, int count) {
  constexpr unsigned mostOnes = 8;
  bits.fill();
  for (; count > 0; --count) {
    const auto ones = static_cast<unsigned>(std::countl_one(bits.held()));
    if (ones > mostOnes) {
      return false;
    }
    bits.drop(2 * ones + 5);
  }
  return true;
}

/// Where a channel may use what only one place allows.
enum class Intensity { allowed, forbidden };

/// One walk over one block. Each step gives whether the syntax holds so far.
class Walk {
 public:
  Walk(std::span<const std::uint8_t> bytes, const ScalefactorBands& bands, const BlockRules& rules)
      : bits_(bytes), bands_(bands), rules_(rules), books_(SpectrumCodebooks::standard()) {}

  std::optional<RawBlock> run();
  std::size_t position() const { return bits_.position(); }

 private:
  bool element(BlockElement kind);
  bool joinsPattern(BlockElement kind, unsigned tag);
  bool channelPair();
  bool channel(const Window* common, Intensity intensity);
  bool coupling();
  bool couplingGains(unsigned lists, bool isIndependent);
  bool windowInfo(Window& window);
  bool sections(const Window& window, Intensity intensity);
  bool scalefactors(int value);
  bool pulses(const Window& window);
  bool noiseShaping(const Window& window);
  bool spectrum();
  void tuples(const Codebook& book, unsigned count);
  bool escapedTuples(unsigned count);
  void data();
  void programConfig();
  void fill();
  std::optional<RawBlock> finish();
  void align() { bits_.skip((8 - bits_.position() % 8) % 8); }

  BitWindow bits_;
  const ScalefactorBands& bands_;
  const BlockRules& rules_;
  const SpectrumCodebooks& books_;
  RawBlock block_;
  // Eight groups of fifteen bands at most, or one of fifty-one.
  std::array<Section, 120> sections_;
  std::size_t sectionCount_ = 0;
};

std::optional<RawBlock> Walk::run() {
  while (!bits_.isOver()) {
    const auto kind = static_cast<BlockElement>(bits_.take(3));
    if (kind == BlockElement::end) {
      return finish();
    }
    if (block_.firstElement == BlockElement::end) {
      block_.firstElement = kind;
    }
    if (!element(kind)) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

bool Walk::element(BlockElement kind) {
  switch (kind) {
    case BlockElement::singleChannel:
    case BlockElement::lowFrequency:
      return joinsPattern(kind, bits_.take(4)) && channel(nullptr, Intensity::forbidden);
    case BlockElement::channelPair:
      return joinsPattern(kind, bits_.take(4)) && channelPair();
    case BlockElement::coupling:
      return joinsPattern(kind, bits_.take(4)) && coupling();
    case BlockElement::data:
      data();
      return true;
    case BlockElement::programConfig:
      programConfig();
      return true;
    case BlockElement::fill:
      fill();
      return true;
    case BlockElement::end:
      break;
  }
  return false;
}

bool Walk::joinsPattern(BlockElement kind, unsigned tag) {
  constexpr unsigned mostElements = 8;
  if (elementCount(block_.pattern) == mostElements) {
    return false;
  }
  block_.pattern = withElement(block_.pattern, kind, tag);
  return rules_.patterns.empty() ||
         std::any_of(rules_.patterns.begin(), rules_.patterns.end(),
                     [&](ElementPattern known) { return startsWith(known, block_.pattern); });
}

// The end marker is followed by as many bits as the byte has left (§4.4.2.1).
std::optional<RawBlock> Walk::finish() {
  const auto left = static_cast<unsigned>((8 - bits_.position() % 8) % 8);
  block_.isPaddedWithZeros = left == 0 || bits_.take(left) == 0;
  block_.size = static_cast<std::uint32_t>(bits_.position() / 8);
  const bool isKnownPattern =
      rules_.patterns.empty() || std::find(rules_.patterns.begin(), rules_.patterns.end(),
                                           block_.pattern) != rules_.patterns.end();
  if (bits_.isOver() || block_.pattern == 0 || !isKnownPattern ||
      (rules_.paddingIsZero && !block_.isPaddedWithZeros)) {
    return std::nullopt;
  }
  return block_;
}

// §4.4.2.1, channel_pair_element
bool Walk::channelPair() {
  if (!bits_.flag()) {
    block_.traits.tools |= BlockTool::ownWindows;
    return channel(nullptr, Intensity::forbidden) && channel(nullptr, Intensity::forbidden);
  }
  Window common;
  if (!windowInfo(common)) {
    return false;
  }
  enum : unsigned { none, perBand, all, reserved };
  const unsigned middleAndSide = bits_.take(2);
  if (middleAndSide == reserved) {
    return false;
  }
  block_.traits.tools |= middleAndSide == perBand ? BlockTool::sidePerBand
                         : middleAndSide == all   ? BlockTool::sideEverywhere
                                                  : std::uint8_t{0};
  if (middleAndSide == perBand) {
    bits_.skip(std::size_t{common.groups} * common.bands);
  }
  return channel(&common, Intensity::forbidden) && channel(&common, Intensity::allowed);
}

// §4.4.2.7, individual_channel_stream
bool Walk::channel(const Window* common, Intensity intensity) {
  const auto globalGain = static_cast<std::uint8_t>(bits_.take(8));
  block_.traits.lowestGain = std::min(block_.traits.lowestGain, globalGain);
  block_.traits.highestGain = std::max(block_.traits.highestGain, globalGain);
  Window window;
  if (common != nullptr) {
    window = *common;
  } else if (!windowInfo(window)) {
    return false;
  }
  if (!sections(window, intensity) || !scalefactors(globalGain) || !pulses(window) ||
      !noiseShaping(window)) {
    return false;
  }
  const bool hasGainControl = bits_.flag();  // another profile's
  if (hasGainControl || bits_.isOver()) {
    return false;
  }
  return spectrum() && !bits_.isOver();
}

// §4.4.2.6, ics_info
bool Walk::windowInfo(Window& window) {
  const std::uint32_t head = bits_.take(4);
  const bool reserved = (head & 8U) != 0;
  const auto sequence = static_cast<WindowSequence>((head >> 1U) & 3U);
  window.isShort = sequence == WindowSequence::eightShort;
  const bool isFirst = (block_.traits.longBands | block_.traits.shortBands) == 0;
  block_.windows = isFirst ? sequence : block_.windows;
  if (reserved) {
    return false;
  }
  if (!window.isShort) {
    window.bands = bits_.take(6);
    const bool predicts = bits_.flag();  // other profiles'
    block_.traits.longBands |= std::uint64_t{1} << window.bands;
    return !predicts && window.bands < bands_.longWindow.size();
  }
  block_.traits.tools |= BlockTool::shortWindows;
  window.bands = bits_.take(4);
  block_.traits.shortBands |= std::uint64_t{1} << window.bands;
  for (unsigned i = 0; i < 7; ++i) {
    if (bits_.flag()) {
      ++window.groupLengths[window.groups - 1];
    } else {
      window.groupLengths[window.groups++] = 1;
    }
  }
  return window.bands < bands_.shortWindow.size();
}

// §4.4.2.7, section_data: the sections of each group add up to its bands.
bool Walk::sections(const Window& window, Intensity intensity) {
  const auto& offsets = window.isShort ? bands_.shortWindow : bands_.longWindow;
  const unsigned lengthBits = window.isShort ? 3 : 5;
  const unsigned escape = (1U << lengthBits) - 1;
  sectionCount_ = 0;
  for (unsigned group = 0; group < window.groups; ++group) {
    for (unsigned band = 0; band < window.bands;) {
      const unsigned book = bits_.take(4);
      unsigned end = band;
      unsigned step = escape;
      while (step == escape && end <= window.bands) {
        step = bits_.take(lengthBits);
        end += step;
      }
      if (end == band || end > window.bands || book == reservedBook ||
          (book >= firstIntensityBook && intensity == Intensity::forbidden)) {
        return false;
      }
      block_.traits.books = static_cast<std::uint16_t>(block_.traits.books | (1U << book));
      const unsigned width = unsigned{offsets[end]} - offsets[band];
      sections_[sectionCount_++] = {static_cast<std::uint8_t>(book),
                                    static_cast<std::uint8_t>(end - band),
                                    static_cast<std::uint16_t>(width * window.groupLengths[group])};
      band = end;
    }
  }
  return true;
}

// §4.4.2.7, scale_factor_data: differences; the factors themselves are bytes. Noise starts with a
// value of its own. Most differences are none, which is a zero bit each.
bool Walk::scalefactors(int value) {
  bool isFirstNoise = true;
  for (std::size_t i = 0; i < sectionCount_; ++i) {
    const Section& section = sections_[i];
    unsigned bands = section.book == zeroBook ? 0 : section.bands;
    if (section.book == noiseBook && std::exchange(isFirstNoise, false)) {
      bits_.skip(9);
      --bands;
    }
    while (bands > 0) {
      bits_.fill();
      const unsigned same = std::min({zerosAtTop(bits_.held()), bands, mostZeros});
      bits_.drop(same);
      bands -= same;
      if (bands == 0 || same == mostZeros) {
        continue;
      }
      const Codebook::Codeword word = books_.scalefactors.at(bits_.held());
      bits_.drop(word.length);
      --bands;
      value += section.book < reservedBook ? word.value : 0;
      if (value < 0 || value > 255) {
        return false;
      }
    }
  }
  return true;
}

// §4.4.2.7, pulse_data
bool Walk::pulses(const Window& window) {
  if (!bits_.flag()) {
    return true;
  }
  block_.traits.tools |= BlockTool::pulses;
  const unsigned count = bits_.take(2) + 1;
  const unsigned startBand = bits_.take(6);
  bits_.skip(std::size_t{9} * count);
  return !window.isShort && startBand < bands_.longWindow.size();
}

// §4.4.2.7, tns_data
bool Walk::noiseShaping(const Window& window) {
  if (!bits_.flag()) {
    return true;
  }
  block_.traits.tools |= BlockTool::noiseShaping;
  const unsigned windows = window.isShort ? 8 : 1;
  const unsigned mostCoefficients = window.isShort ? 7 : 12;
  for (unsigned i = 0; i < windows; ++i) {
    const unsigned filters = bits_.take(window.isShort ? 1 : 2);
    const unsigned resolution = filters > 0 ? 3 + bits_.take(1) : 0;
    for (unsigned filter = 0; filter < filters; ++filter) {
      bits_.skip(window.isShort ? 4 : 6);
      const unsigned order = bits_.take(window.isShort ? 3 : 5);
      if (order > mostCoefficients) {
        return false;
      }
      if (order > 0) {
        bits_.skip(1);
        const unsigned compressed = bits_.take(1);
        bits_.skip(std::size_t{order} * (resolution - compressed));
      }
    }
  }
  return true;
}

// §4.4.2.7, spectral_data
bool Walk::spectrum() {
  for (std::size_t i = 0; i < sectionCount_; ++i) {
    const Section& section = sections_[i];
    if (section.book == zeroBook || section.book > escapeBook) {
      continue;
    }
    if (section.book == escapeBook) {
      if (!escapedTuples(section.coefficients / 2U)) {
        return false;
      }
      continue;
    }
    tuples(books_.spectrum[section.book],
           section.coefficients / (section.book <= lastBookOfFour ? 4U : 2U));
  }
  return true;
}

// Most of a walk's time is spent here, and most of that waiting for the length of a codeword: where
// the next one starts.
void Walk::tuples(const Codebook& book, unsigned count) {
  constexpr unsigned atOnce = BitWindow::filled / Codebook::longest;
  BitWindow bits = bits_;
  while (count > 0) {
    bits.fill();
    for (unsigned i = 0; i < atOnce && count > 0; ++i) {
      const Codebook::Run run = book.runAt(bits.held(), count);
      bits.drop(run.length);
      count -= run.count;
    }
  }
  bits_ = bits;
}

bool Walk::escapedTuples(unsigned count) {
  constexpr unsigned longestHere = 14;
  constexpr unsigned atOnce = BitWindow::filled / longestHere;
  const Codebook& book = books_.spectrum[escapeBook];
  BitWindow bits = bits_;
  while (count > 0) {
    bits.fill();
    for (unsigned i = 0; i < atOnce && count > 0; ++i) {
      const Codebook::Codeword word = book.at(bits.held());
      bits.drop(word.length);
      --count;
      if (word.value != 0) {
        if (!passEscapes(bits, word.value)) {
          bits_ = bits;
          return false;
        }
        break;
      }
    }
  }
  bits_ = bits;
  return true;
}

// §4.4.2.3, coupling_channel_element
bool Walk::coupling() {
  const bool isIndependent = bits_.flag();
  const unsigned targets = bits_.take(3) + 1;
  unsigned lists = 0;
  for (unsigned i = 0; i < targets; ++i) {
    const bool isPair = bits_.flag();
    bits_.skip(4);
    ++lists;
    if (isPair) {
      const unsigned sides = bits_.take(2);
      lists += sides == 3 ? 1 : 0;
    }
  }
  bits_.skip(4);
  return channel(nullptr, Intensity::forbidden) && couplingGains(lists, isIndependent);
}

bool Walk::couplingGains(unsigned lists, bool isIndependent) {
  const auto skipGain = [&] {
    bits_.fill();
    bits_.drop(books_.scalefactors.at(bits_.held()).length);
  };
  for (unsigned list = 1; list < lists; ++list) {
    if (isIndependent || bits_.flag()) {
      skipGain();
      continue;
    }
    for (std::size_t i = 0; i < sectionCount_; ++i) {
      for (unsigned band = 0; sections_[i].book != zeroBook && band < sections_[i].bands; ++band) {
        skipGain();
      }
    }
  }
  return !bits_.isOver();
}

// §4.4.2.9, data_stream_element
void Walk::data() {
  bits_.skip(4);
  const bool isAligned = bits_.flag();
  unsigned count = bits_.take(8);
  if (count == 255) {
    count += bits_.take(8);
  }
  if (isAligned) {
    align();
  }
  bits_.skip(std::size_t{8} * count);
}

// §4.4.1.1, program_config_element
void Walk::programConfig() {
  bits_.skip(4 + 2 + 4);
  const unsigned front = bits_.take(4);
  const unsigned side = bits_.take(4);
  const unsigned back = bits_.take(4);
  const unsigned lowFrequency = bits_.take(2);
  const unsigned associated = bits_.take(3);
  const unsigned coupled = bits_.take(4);
  bits_.skip(bits_.flag() ? 4 : 0);  // mono mixdown
  bits_.skip(bits_.flag() ? 4 : 0);  // stereo mixdown
  bits_.skip(bits_.flag() ? 3 : 0);  // matrix mixdown
  bits_.skip(std::size_t{5} * (front + side + back + coupled) +
             std::size_t{4} * (lowFrequency + associated));
  align();
  bits_.skip(std::size_t{8} * bits_.take(8));
}

// §4.4.2.8, fill_element
void Walk::fill() {
  unsigned count = bits_.take(4);
  if (count == 15) {
    count += bits_.take(8) - 1;
  }
  bits_.skip(std::size_t{8} * count);
}

}  // namespace

void BlockTraits::add(const BlockTraits& more) {
  longBands |= more.longBands;
  shortBands |= more.shortBands;
  books |= more.books;
  tools |= more.tools;
  lowestGain = std::min(lowestGain, more.lowestGain);
  highestGain = std::max(highestGain, more.highestGain);
}

BlockWalk::BlockWalk(const AACConfig& config, BlockRules rules)
    : config_(config), bands_(ScalefactorBands::of(config)), rules_(std::move(rules)) {}

BlockWalk::Look BlockWalk::look(std::span<const std::uint8_t> bytes) const {
  Walk walk(bytes.first(std::min<std::size_t>(bytes.size(), rules_.largestSize)), bands_, rules_);
  auto block = walk.run();
  return {block, walk.position()};
}

bool BlockWalk::mayStartWith(std::uint8_t byte) const {
  const auto kind = static_cast<BlockElement>(byte >> 5U);
  if (kind == BlockElement::end || ((rules_.firstElements >> (byte >> 5U)) & 1U) == 0) {
    return false;
  }
  if (kind == BlockElement::data || kind == BlockElement::programConfig ||
      kind == BlockElement::fill || rules_.patterns.empty()) {
    return true;
  }
  const ElementPattern first = withElement(0, kind, (byte >> 1U) & 15U);
  return std::any_of(rules_.patterns.begin(), rules_.patterns.end(),
                     [&](ElementPattern known) { return startsWith(known, first); });
}

}  // namespace tallowmark
