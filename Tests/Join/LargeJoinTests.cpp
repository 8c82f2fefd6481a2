// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Chapters.h"
#include "DeviceKit/FileSource.h"
#include "MediaKit/Join/ClipJoin.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark::ClipJoin {
namespace {

using namespace tallowmark::testing;
namespace fs = std::filesystem;

constexpr std::uint64_t chapterSize = 4'000'000'000;
constexpr std::uint64_t mediaStart = 48;

/// Creates the file and writes bytes where they are told to stand; between them it has no storage.
class SparseFile {
 public:
  explicit SparseFile(const fs::path& path)
      : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {}
  ~SparseFile() { ::close(fd_); }
  SparseFile(const SparseFile&) = delete;
  SparseFile& operator=(const SparseFile&) = delete;
  SparseFile(SparseFile&&) = delete;
  SparseFile& operator=(SparseFile&&) = delete;

  void put(std::uint64_t offset, const Bytes& bytes) const {
    if (::pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset)) !=
        static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("could not write the test file");
    }
  }

 private:
  int fd_;
};

std::uint64_t storageOf(const fs::path& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_blocks) * 512
                                            : 0;
}

// Three frames in 4 GB, which tell their chapter: at the start, in the middle, at the very end.
fs::path writeChapter(const fs::path& folder, std::uint32_t number) {
  fs::path path = folder / ("GX" + std::to_string(number) + ".MP4");
  const SparseFile file(path);
  file.put(0, joined({MovieWriter::defaultFileType(), u32(1), text("mdat"),
                      u64(chapterSize - mediaStart + 16)}));
  Movie movie;
  Track track;
  track.kind = Track::Kind::video;
  track.timescale = 25;
  track.sampleEntry = makeBox("avc1", {zeros(78)});
  std::uint32_t frame = 0;
  for (const std::uint64_t offset : {mediaStart, chapterSize / 2, chapterSize - 8}) {
    track.samples.append({offset, 8, 1, 0, true});
    file.put(offset, joined({u32(number), u32(frame++)}));
  }
  movie.tracks = {track};
  file.put(chapterSize, MovieWriter::moov(movie));
  return path;
}

TEST(LargeJoin, isRightBeyondAHundredGigabytes) {
  constexpr std::uint32_t count = 30;
  const TemporaryFolder folder;
  std::vector<fs::path> files;
  for (std::uint32_t i = 0; i < count; ++i) files.push_back(writeChapter(folder.path(), i + 10));
  const fs::path output = folder / "joined.mp4";
  {
    FileSink probe((folder / "probe").string());
    probe.copy(FileSource(files.front().string()), 0, 1U << 26U, {}, {});
    if (storageOf(folder / "probe") > 1U << 20U) GTEST_SKIP() << "no sparse files here";
  }
  {
    FileSink sink(output.string());
    EXPECT_EQ(join(readParts(files), sink).bytes, count * (chapterSize - mediaStart));
  }
  EXPECT_GT(fs::file_size(output), 119'000'000'000U);
  EXPECT_LT(storageOf(output), 4U << 20U);
  const Movie movie = parsed(output);
  ASSERT_EQ(movie.tracks[0].samples.size(), std::uint64_t{3} * count);
  Bytes expected;
  for (std::uint32_t i = 0; i < 3 * count; ++i) {
    const Bytes frame = joined({u32(i / 3 + 10), u32(i % 3)});
    expected.insert(expected.end(), frame.begin(), frame.end());
  }
  EXPECT_EQ(payloadOf(output, movie.tracks[0]), expected);
}

}  // namespace
}  // namespace tallowmark::ClipJoin
