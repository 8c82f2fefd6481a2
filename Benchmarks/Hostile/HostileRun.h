// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <vector>

#include "Tests/Support/Files.h"

namespace tallowmark::testing {

inline constexpr std::size_t megabyte = std::size_t{1} << 20U;
/// MB that a rebuild may take.
inline constexpr unsigned rebuildCeiling = 128;

/// A file made to cost as much time or memory as it can, and what somebody does with it.
struct HostileCase {
  const char* name = "";
  /// Of the smallest of three files, each twice the one before, in units that `make` knows.
  std::size_t size = 0;
  /// MB that a process may take to use one of them, all of it counted.
  unsigned ceiling = 0;
  std::function<void(const std::filesystem::path& file, std::size_t size)> make;
  /// What is wrong with the file may be told by MediaError.
  std::function<void(const std::filesystem::path& file)> use;
};

inline void PrintTo(const HostileCase& hostile, std::ostream* out) {
  *out << hostile.name;
}

/// What a child process took.
struct Cost {
  double seconds = 0;
  double megabytes = 0;
};

/// The cost of `work` in a process of its own; nothing, after a failure of the test, when it
/// crashes, throws, or takes longer than anybody would wait.
std::optional<Cost> costOf(const std::function<void()>& work);

/// For what is counted and made where it is used: the number stands in the file's size.
void writeCount(const std::filesystem::path& file, std::size_t count);

Bytes repeated(const Bytes& piece, std::size_t times);
/// As many whole pieces as fit.
Bytes filledWith(const Bytes& piece, std::size_t size);

std::vector<HostileCase> hostileClips();
std::vector<HostileCase> hostileIndexes();
std::vector<HostileCase> hostileLists();
std::vector<HostileCase> hostilePhotos();

/// Uses of a file, as the program makes them.
void rebuildClip(const std::filesystem::path& clip, const std::filesystem::path& reference);

}  // namespace tallowmark::testing
