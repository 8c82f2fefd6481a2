// SPDX-License-Identifier: GPL-3.0-or-later
// Damages healthy photos on purpose, repairs them, and prints how much of each came back.
//
//   PhotoAccuracy FOLDER
//
// Photos whose names agree up to the first underscore are siblings: each is repaired with each of
// its siblings as the reference.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ImageKit/LibraryImageService.h"
#include "JPEGCoefficients.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/PhotoRepair.h"

namespace {

namespace fs = std::filesystem;
using namespace tallowmark;
using Bytes = std::vector<std::uint8_t>;

struct Photo {
  std::string name;
  Bytes bytes;
  std::size_t scan = 0;
  Coefficients coefficients;
};

using Families = std::map<std::string, std::vector<Photo>>;

Bytes readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Families healthyPhotos(const fs::path& folder) {
  Families families;
  std::vector<fs::path> paths(fs::directory_iterator(folder), {});
  std::sort(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    const std::string name = path.filename().string();
    if (name.starts_with("bad_") || path.extension() != ".jpg") {
      continue;
    }
    Photo photo{name, readFile(path), 0, {}};
    photo.scan = JPEGRepair::parseHeader(photo.bytes).value().sos.offset;
    photo.coefficients = readCoefficients(photo.bytes);
    families[name.substr(0, name.find('_'))].push_back(std::move(photo));
  }
  return families;
}

enum class Wipe { zeros, noise };

Bytes wiped(const Photo& photo, std::size_t count, Wipe wipe, unsigned seed) {
  Bytes bytes = photo.bytes;
  std::mt19937 random(seed);
  for (std::size_t i = 0; i < std::min(count, photo.scan); ++i) {
    bytes[i] = wipe == Wipe::zeros ? std::uint8_t{0} : static_cast<std::uint8_t>(random());
  }
  return bytes;
}

struct Score {
  int exact = 0;
  int refused = 0;
  int different = 0;
  int tried = 0;

  std::string text() const {
    std::string result = std::to_string(exact) + "/" + std::to_string(tried);
    if (refused > 0) {
      result += ", " + std::to_string(refused) + " refused";
    }
    if (different > 0) {
      result += ", " + std::to_string(different) + " differ";
    }
    return result;
  }
};

void tryRepair(const Bytes& damaged, const Photo& original, const Photo& reference, Score& score) {
  static const LibraryImageService images;
  ++score.tried;
  try {
    const auto repaired = repairPhoto(damaged, reference.bytes, images);
    const bool same = readCoefficients(repaired.bytes) == original.coefficients;
    ++(same ? score.exact : score.different);
  } catch (const MediaError&) {
    ++score.refused;
  }
}

void printWipes(const Families& families) {
  constexpr auto all = static_cast<std::size_t>(-1);
  std::cout << "| photo | reference | 512 B | 2 KB | 8 KB | up to the scan |\n"
            << "| --- | --- | --- | --- | --- | --- |\n";
  for (const auto& [family, photos] : families) {
    for (const Photo& photo : photos) {
      for (const Photo& reference : photos) {
        if (photos.size() > 1 && &photo == &reference) {
          continue;
        }
        std::cout << "| " << photo.name << " | "
                  << (&photo == &reference ? "itself" : reference.name);
        for (const std::size_t count :
             {std::size_t{512}, std::size_t{2048}, std::size_t{8192}, all}) {
          Score score;
          tryRepair(wiped(photo, count, Wipe::zeros, 0), photo, reference, score);
          for (unsigned seed = 1; seed <= 5; ++seed) {
            tryRepair(wiped(photo, count, Wipe::noise, seed), photo, reference, score);
          }
          std::cout << " | " << score.text();
        }
        std::cout << " |\n";
      }
    }
  }
}

// Strangers are photos of other cameras, sizes or qualities. `kept` is the share of the photo's
// data that is left.
void printStrangers(const Families& families, double kept) {
  std::cout << "\n| photo, wiped up to the scan, " << 100 * kept
            << " % of it left | strangers | refused | the same picture | another picture |\n"
            << "| --- | --- | --- | --- | --- |\n";
  for (const auto& [family, photos] : families) {
    const Photo& photo = photos.front();
    Score score;
    for (const auto& [other, strangers] : families) {
      for (const Photo& stranger : strangers) {
        if (other == family) {
          continue;
        }
        const Score before = score;
        Bytes damaged = wiped(photo, photo.bytes.size(), Wipe::noise, 7);
        damaged.resize(static_cast<std::size_t>(kept * static_cast<double>(damaged.size())));
        tryRepair(damaged, photo, stranger, score);
        if (score.different > before.different) {
          std::cerr << photo.name << " with " << stranger.name << "\n";
        }
      }
    }
    std::cout << "| " << photo.name << " | " << score.tried << " | " << score.refused << " | "
              << score.exact << " | " << score.different << " |\n";
  }
}

// The share of the rows whose data lies before the cut.
double shareBeforeCut(const Bytes& repaired) {
  const auto check = JPEGRepair::checkPicture(repaired);
  const auto header = JPEGRepair::parseHeader(repaired).value();
  const auto frame = JPEGRepair::frameLayout(header.frame().value()).value();
  const std::size_t rows = check.unitsDecoded / frame.unitsAcross();
  return static_cast<double>(rows) / static_cast<double>(frame.unitsDown());
}

bool isProgressive(const Bytes& photo) {
  return JPEGRepair::parseHeader(photo).value().frame().value().marker == 0xC2;
}

void printCuts(const Families& families) {
  constexpr std::size_t cuts = 50;
  const LibraryImageService images;
  std::cout << "\n| photo | cuts that open | cuts whose rows before the cut are all exact |\n"
            << "| --- | --- | --- |\n";
  for (const auto& [family, photos] : families) {
    for (const Photo& photo : photos) {
      std::size_t opened = 0;
      std::size_t exact = 0;
      for (std::size_t cut = 1; cut <= cuts; ++cut) {
        const std::size_t data = photo.bytes.size() - photo.scan - 40;
        const std::size_t end = photo.scan + 20 + data * cut / (cuts + 1);
        try {
          const auto repaired = repairPhoto(ByteView(photo.bytes).first(end), std::nullopt, images);
          const Coefficients found = readCoefficients(repaired.bytes);
          ++opened;
          if (equalTopShare(found, photo.coefficients) >= shareBeforeCut(repaired.bytes)) {
            ++exact;
          }
        } catch (const MediaError&) {
          std::cerr << photo.name << " cut at " << end << " does not open\n";
        }
      }
      std::cout << "| " << photo.name << " | " << opened << "/" << cuts << " | ";
      if (isProgressive(photo.bytes)) {
        std::cout << "every row is there, coarser |\n";
      } else {
        std::cout << exact << "/" << cuts << " |\n";
      }
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: PhotoAccuracy FOLDER\n";
    return 2;
  }
  const Families families = healthyPhotos(arguments[1]);
  printWipes(families);
  printStrangers(families, 1);
  printStrangers(families, 0.3);
  printCuts(families);
  return 0;
}
