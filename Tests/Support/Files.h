// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tallowmark::testing {

using Bytes = std::vector<std::uint8_t>;

Bytes contentsOf(const std::filesystem::path& path);
/// Creates or replaces `path`; returns it.
std::filesystem::path writeFile(const std::filesystem::path& path,
                                std::span<const std::uint8_t> bytes);

/// What an original must still be after a run: size, dates and every byte.
struct Fingerprint {
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::uint64_t hash = 0;
  friend bool operator==(const Fingerprint&, const Fingerprint&) = default;
};
Fingerprint fingerprint(const std::filesystem::path& path);

/// The names in a folder, sorted, hidden ones too.
std::vector<std::string> namesIn(const std::filesystem::path& folder);

/// A folder of the test's own; goes with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  TemporaryFolder(TemporaryFolder&&) = delete;
  TemporaryFolder& operator=(TemporaryFolder&&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// The file of that name in the folder of real camera files, which lies beside the source tree
/// where it exists at all; absent otherwise: then skip, saying why.
std::optional<std::filesystem::path> corpusFile(const std::filesystem::path& name);
/// Every file of one corpus folder ("video", "jpeg", "raw"), sorted; empty without a corpus.
std::vector<std::filesystem::path> corpusFiles(const std::filesystem::path& folder);

}  // namespace tallowmark::testing
