// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Support/Files.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tallowmark::testing {

namespace fs = std::filesystem;

Bytes contentsOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(in), {}};
}

fs::path writeFile(const fs::path& path, std::span<const std::uint8_t> bytes) {
  std::ofstream out(path, std::ios::binary);
  std::copy(bytes.begin(), bytes.end(), std::ostreambuf_iterator<char>(out));
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
  return path;
}

Fingerprint fingerprint(const fs::path& path) {
  Fingerprint print{fs::file_size(path), fs::last_write_time(path).time_since_epoch().count(),
                    0xCBF29CE484222325U};  // FNV-1a
  for (const std::uint8_t byte : contentsOf(path)) {
    print.hash = (print.hash ^ byte) * 0x100000001B3U;
  }
  return print;
}

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (fs::temp_directory_path() / "tallowmark-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = fs::canonical(pattern);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::optional<fs::path> corpusFile(const fs::path& name) {
  const fs::path file = fs::path(TALLOWMARK_SOURCE_DIR) / ".." / "shared" / "corpus" / name;
  return fs::exists(file) ? std::optional(file.lexically_normal()) : std::nullopt;
}

std::vector<fs::path> corpusFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  if (const auto found = corpusFile(folder)) {
    std::copy(fs::directory_iterator(*found), {}, std::back_inserter(files));
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace tallowmark::testing
