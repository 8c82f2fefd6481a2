// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/PendingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <functional>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include "DeviceKit/DeviceError.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view hiddenPrefix = ".tallowmark-";
constexpr std::string_view hiddenSuffix = ".part";

// Where every hidden file of this machine starts: a folder can be shared over a network, and a
// process number says nothing about the processes of other machines.
std::string machinePrefix() {
  std::array<char, 256> name{};
  (void)::gethostname(name.data(), name.size() - 1);
  return std::string(hiddenPrefix) + std::to_string(std::hash<std::string_view>{}(name.data())) +
         "-";
}

// The process number in the name tells a later run whose leftovers these are.
std::string hiddenName() {
  std::random_device random;
  return machinePrefix() + std::to_string(::getpid()) + "-" + std::to_string(random()) +
         std::string(hiddenSuffix);
}

std::optional<pid_t> ownerOf(std::string_view name) {
  const std::string prefix = machinePrefix();
  if (!name.starts_with(prefix) || !name.ends_with(hiddenSuffix)) {
    return std::nullopt;
  }
  name.remove_prefix(prefix.size());
  pid_t owner = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), owner);
  if (error != std::errc() || end == name.data() + name.size() || *end != '-' || owner <= 0) {
    return std::nullopt;
  }
  return owner;
}

// For file systems whose rename knows no "do not replace": a hard link fails when the name is
// taken; where there are none (FAT), the name is taken first with an empty file of our own.
int nameByOtherMeans(const fs::path& from, const fs::path& to) {
  if (::link(from.c_str(), to.c_str()) == 0) {
    ::unlink(from.c_str());
    return 0;
  }
  if (errno == EEXIST) {
    return EEXIST;
  }
  const int placeholder = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (placeholder < 0) {
    return errno;
  }
  ::close(placeholder);
  if (::rename(from.c_str(), to.c_str()) == 0) {
    return 0;
  }
  const int error = errno;
  ::unlink(to.c_str());
  return error;
}

}  // namespace

int giveName(const fs::path& from, const fs::path& to) {
  const int error = renameWithoutReplacing(from, to);
  return error == EINVAL || error == ENOSYS || error == ENOTSUP ? nameByOtherMeans(from, to)
                                                                : error;
}

void syncFolder(const fs::path& folder) {
  if (const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); fd >= 0) {
    (void)::fsync(fd);
    ::close(fd);
  }
}

PendingFile::PendingFile(fs::path folder) : folder_(std::move(folder)) {
  for (int attempt = 0; fd_ < 0; ++attempt) {
    temporary_ = folder_ / hiddenName();
    fd_ = ::open(temporary_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0 && errno != EINTR && (errno != EEXIST || attempt > 100)) {
      throw DeviceError::writeFailed(folder_.string(), errno);
    }
  }
  try {
    sink_ = std::make_unique<FileSink>(fd_, folder_.string());
  } catch (...) {
    ::close(fd_);
    ::unlink(temporary_.c_str());
    throw;
  }
}

PendingFile::~PendingFile() {
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

fs::path PendingFile::publish(const std::function<std::string(unsigned)>& nameAt,
                              std::optional<timespec> modified) {
  if (modified) {
    const std::array<timespec, 2> times{*modified, *modified};
    (void)::futimens(fd_, times.data());  // a date is no reason to lose a clip
  }
  sink_->sync();
  sink_->close();
  fd_ = -1;
  for (unsigned attempt = 1;; ++attempt) {
    fs::path target = folder_ / nameAt(attempt);
    const int error = giveName(temporary_, target);
    if (error == 0) {
      temporary_.clear();
      syncFolder(folder_);
      return target;
    }
    if (error != EEXIST) {
      throw DeviceError::writeFailed(target.string(), error);
    }
  }
}

void removeAbandonedFiles(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const auto owner = ownerOf(entry->path().filename().string());
    if (owner && ::kill(*owner, 0) != 0 && errno == ESRCH) {
      ::unlink(entry->path().c_str());
    }
  }
}

std::optional<std::uint64_t> availableSpace(const fs::path& folder) {
  std::error_code error;
  const fs::space_info space = fs::space(folder, error);
  // File systems that do not count (some mounts of phones and servers) say 0 of 0.
  if (error || space.available == static_cast<std::uintmax_t>(-1) || space.capacity == 0) {
    return std::nullopt;
  }
  return space.available;
}

}  // namespace tallowmark
