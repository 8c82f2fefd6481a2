// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/RecordingFacts.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/BoxWriter.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;

// User data of one recording: date, place, title (QuickTime File Format, User Data Atoms; 3GPP TS
// 26.244 §8), identities and marks as GoPro writes them.
constexpr std::array<FourCC, 14> recordingKeys{FourCC(0xA9646179U),
                                               FourCC(0xA978797AU),
                                               FourCC(0xA96E616DU),
                                               FourCC(0xA9636D74U),
                                               "loci",
                                               "yrrc",
                                               "titl",
                                               "dscp",
                                               "GUMI",
                                               "MUID",
                                               "HMMT",
                                               "UMID",
                                               "date",
                                               "GPMF"};

bool belongsToRecording(FourCC key) {
  return std::find(recordingKeys.begin(), recordingKeys.end(), key) != recordingKeys.end();
}

// The names under which phones keep date, place and identity (QuickTime metadata keys).
bool belongsToRecording(std::string_view name) {
  static constexpr std::array<std::string_view, 7> parts{
      "creationdate", "location", "date", "content.identifier", "title", "comment", "live-photo"};
  return std::any_of(parts.begin(), parts.end(),
                     [&](std::string_view part) { return name.find(part) != name.npos; });
}

// QuickTime's meta is a plain box, ISO's has version and flags ahead of its children.
std::uint64_t bytesBeforeChildren(const Bytes& meta) {
  return meta.size() >= 16 && FourCC(bigEndian<std::uint32_t>(meta, 12)).isPlausible() &&
                 bigEndian<std::uint32_t>(meta, 8) != 0
             ? 0
             : 4;
}

// Numbers (from 1) of the keys that belong to the recording, in rising order (keys box: count, then
// size, namespace and name of each).
std::vector<std::uint32_t> recordingKeyNumbers(const Bytes& keys) {
  std::vector<std::uint32_t> numbers;
  const auto count = bigEndianOrZero<std::uint32_t>(keys, 12);
  std::size_t at = 16;
  for (std::uint32_t number = 1; number <= count && at + 8 <= keys.size(); ++number) {
    const auto size = bigEndian<std::uint32_t>(keys, at);
    if (size < 8 || size > keys.size() - at) {
      break;
    }
    const std::string name(keys.begin() + static_cast<std::ptrdiff_t>(at) + 8,
                           keys.begin() + static_cast<std::ptrdiff_t>(at + size));
    if (belongsToRecording(std::string_view(name))) {
      numbers.push_back(number);
    }
    at += size;
  }
  return numbers;
}

Bytes metadataWithoutRecording(const Bytes& meta) {
  const MemorySource source(meta);
  const BoxReader reader(source);
  const auto box = reader.box(0);
  const std::uint64_t skip = bytesBeforeChildren(meta);
  std::vector<std::uint32_t> numbers;
  if (box) {
    for (const Box& child : reader.children(*box, skip)) {
      if (child.type == "keys") numbers = recordingKeyNumbers(reader.whole(child));
    }
  }
  const auto isRecordings = [&](const Box& item, const BoxReader&) {
    return belongsToRecording(item.type) ||
           std::binary_search(numbers.begin(), numbers.end(), item.type.value);
  };
  // The items' types are key numbers, which no box scan takes for box types: they are walked here.
  BoxWriter writer;
  if (!box) {
    return meta;
  }
  writer.box(box->type, [&](BoxWriter& copy) {
    copy.bytes(reader.data(box->payloadOffset(), static_cast<std::size_t>(skip)));
    for (const Box& child : reader.children(*box, skip)) {
      if (child.type != "ilst") {
        copy.bytes(reader.whole(child));
        continue;
      }
      copy.box(child.type, [&](BoxWriter& list) {
        for (std::uint64_t at = child.payloadOffset(); at + 8 <= child.end();) {
          const Bytes head = reader.data(at, 8);
          const auto size = bigEndianOrZero<std::uint32_t>(head, 0);
          if (size < 8 || size > child.end() - at) {
            break;
          }
          const Box item{
              .type = FourCC(bigEndian<std::uint32_t>(head, 4)), .offset = at, .size = size};
          if (!isRecordings(item, reader)) {
            list.bytes(reader.whole(item));
          }
          at += size;
        }
      });
    }
  });
  return writer.take();
}

Bytes userDataWithoutRecording(const Bytes& userData) {
  const MemorySource source(userData);
  const BoxReader reader(source);
  const auto box = reader.box(0);
  if (!box) {
    return userData;
  }
  BoxWriter writer;
  writer.box(box->type, [&](BoxWriter& copy) {
    std::uint64_t end = box->payloadOffset();
    for (const Box& child : reader.children(*box, 0)) {
      if (child.type == "meta") {
        copy.bytes(metadataWithoutRecording(reader.whole(child)));
      } else if (!belongsToRecording(child.type)) {
        copy.bytes(reader.whole(child));
      }
      end = child.end();
    }
    copy.bytes(reader.data(end, static_cast<std::size_t>(box->end() - end)));
  });
  return writer.take();
}

}  // namespace

void forgetTheRecording(Movie& movie) {
  movie.creationTime = 0;
  // Timecode and chapters, to which a track refers, are that recording's own tracks.
  for (Track& track : movie.tracks) {
    std::erase_if(track.extraBoxes, [](const Bytes& box) {
      return FourCC(bigEndianOrZero<std::uint32_t>(box, 4)) == "tref";
    });
  }
  if (movie.userData) {
    movie.userData = userDataWithoutRecording(*movie.userData);
  }
  if (movie.metadata) {
    movie.metadata = metadataWithoutRecording(*movie.metadata);
  }
}

}  // namespace tallowmark
