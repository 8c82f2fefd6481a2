// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/SpectrumCodebooks.h"

#include <string_view>

namespace tallowmark {

namespace {

using Counts = std::array<std::uint8_t, 19>;

/// What the length of a block needs of a book of the spectrum: the number of codewords of each
/// length, and what follows each codeword, in order.
struct Book {
  Counts counts;
  /// A digit for the number of signs; a, b, c for one sign and one escape, two signs and one
  /// escape, two of both. Empty: the book's values have their signs in the codeword.
  std::string_view followers;
};

constexpr std::array<Book, 11> books{{
    {{1, 0, 0, 0, 8, 0, 24, 0, 24, 8, 16}, ""},
    {{0, 0, 1, 1, 7, 24, 15, 19, 14}, ""},
    {{1, 0, 0, 4, 2, 6, 3, 5, 15, 15, 8, 9, 3, 3, 5, 2},
     "01111222223234331122323233122122433432324433233322324334423333334444223343444323"
     "3"},
    {{0, 0, 0, 10, 6, 0, 9, 21, 8, 14, 11, 2},
     "43333120222212114444333333333333222222222222111144444433333333343334442222224333"
     "3"},
    {{1, 0, 0, 4, 4, 0, 4, 12, 12, 12, 18, 10, 4}, ""},
    {{0, 0, 0, 9, 0, 16, 13, 8, 23, 8, 4}, ""},
    {{1, 0, 2, 1, 0, 4, 5, 10, 14, 15, 8, 4},
     "0112221122211222222221122212122222222211222222222222112222222222"},
    {{0, 0, 1, 5, 7, 10, 14, 15, 8, 4},
     "2212120112222222221122222222221212222222121222222222221212222112"},
    {{1, 0, 2, 1, 0, 4, 3, 8, 11, 20, 31, 38, 32, 14, 4},
     "01122211222112222222211222222212122222222122222222122212222122221122222222222221"
     "22212222222222222222222212212222222122222222222222212212222122222222222222222222"
     "222222222"},
    {{0, 0, 0, 3, 8, 14, 17, 25, 31, 41, 22, 8},
     "22221122222112222022112222222222221212222222222221212222222222222222221222221222"
     "22222222222222121222222212222221222222222222222221212122222222222222212122212221"
     "222222122"},
    {{0, 0, 0, 2, 6, 7, 16, 59, 55, 95, 43, 6},
     "02c11222222121222222211222222222222222bbbbb2b121b2bbbb22222bb22bbb22b2bbb2b22bb2"
     "221bb222212bb22b2b2222222b221222222122222222222222122222222222a222222a2122222222"
     "22222222222222222222221222222222222222222122222222222222222222222222211222222222"
     "2222222222222222212212122212222211222212212112112"},
}};

constexpr Counts scalefactorCounts{1, 0, 1, 3, 2, 4, 3, 5, 4, 6, 6, 6, 5, 8, 4, 7, 3, 7, 46};
constexpr std::array<std::int8_t, 121> scalefactorSteps{
    0,   -1,  1,   -2,  2,   -3,  3,   -4,  4,   -5,  5,   6,   -6,  7,   -7,  8,   -8,  9,
    -9,  10,  -10, -11, 11,  12,  -12, 13,  -13, 14,  -14, 16,  15,  17,  18,  -15, -17, -16,
    19,  -18, -19, 20,  -20, 21,  -21, 22,  -22, 23,  -23, -25, 25,  -27, -24, -26, 24,  -28,
    27,  29,  -30, -29, 26,  -31, -34, -33, -32, -36, 28,  -35, -38, -37, 30,  -39, -41, -57,
    -59, -58, -60, 38,  39,  40,  41,  42,  57,  37,  31,  32,  33,  34,  35,  36,  44,  51,
    52,  53,  54,  55,  56,  50,  45,  46,  47,  48,  49,  58,  -54, -52, -51, -50, -55, 43,
    60,  59,  -56, -53, -45, -44, -42, -40, -43, -49, -48, -46, -47};

Codebook::Meaning meaningOf(char follower) {
  switch (follower) {
    case 'a':
      return {1, 1};
    case 'b':
      return {2, 1};
    case 'c':
      return {2, 2};
    default:
      return {static_cast<std::uint8_t>(follower - '0'), 0};
  }
}

Codebook spectrumBook(const Book& book) {
  constexpr std::size_t largestSignedBook = 81;
  std::vector<Codebook::Meaning> meanings(largestSignedBook);
  if (!book.followers.empty()) {
    meanings.clear();
    meanings.reserve(book.followers.size());
    for (const char follower : book.followers) {
      meanings.push_back(meaningOf(follower));
    }
  }
  return {book.counts, meanings};
}

Codebook scalefactorBook() {
  std::vector<Codebook::Meaning> meanings;
  meanings.reserve(scalefactorSteps.size());
  for (const std::int8_t step : scalefactorSteps) {
    meanings.push_back({0, step});
  }
  return {scalefactorCounts, meanings};
}

SpectrumCodebooks makeCodebooks() {
  const auto book = [](std::size_t number) { return spectrumBook(books.at(number - 1)); };
  return {{Codebook({}, {}), book(1), book(2), book(3), book(4), book(5), book(6), book(7), book(8),
           book(9), book(10), book(11)},
          scalefactorBook()};
}

}  // namespace

const SpectrumCodebooks& SpectrumCodebooks::standard() {
  static const SpectrumCodebooks codebooks = makeCodebooks();
  return codebooks;
}

}  // namespace tallowmark
