// SPDX-License-Identifier: GPL-3.0-or-later
#include "HostileRun.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <iostream>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark::testing {

namespace {

constexpr rlim_t mostSeconds = 60;

using Clock = std::chrono::steady_clock;

double processorSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Of the processor, where that is counted finely enough: other work on the machine does not count.
double secondsSince(Clock::time_point start, double processorStart) {
  constexpr double fineEnough = 0.012;
  const double processor = processorSeconds() - processorStart;
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  return processor >= fineEnough ? std::min(processor, wall) : wall;
}

// The child's side: never returns into the test.
[[noreturn]] void workAndTell(const std::function<void()>& work, int pipe) {
  const rlimit patience{mostSeconds, mostSeconds};
  ::setrlimit(RLIMIT_CPU, &patience);
  const double processorStart = processorSeconds();
  const auto start = Clock::now();
  try {
    work();
  } catch (const MediaError&) {
  } catch (const std::exception& error) {
    std::cerr << "threw " << error.what() << '\n';
    ::_exit(1);
  }
  const double seconds = secondsSince(start, processorStart);
  ::_exit(::write(pipe, &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
}

}  // namespace

std::optional<Cost> costOf(const std::function<void()>& work) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    ADD_FAILURE() << "no pipe";
    return std::nullopt;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    workAndTell(work, ends[1]);
  }
  int status = -1;
  rusage usage{};
  Cost cost;
  ::close(ends[1]);
  const bool told = ::read(ends[0], &cost.seconds, sizeof cost.seconds) == sizeof cost.seconds;
  ::close(ends[0]);
  ::wait4(child, &status, 0, &usage);
  cost.megabytes = static_cast<double>(usage.ru_maxrss) / 1024;
  if (!told || status != 0) {
    ADD_FAILURE() << "ended with status " << status << " at " << cost.megabytes << " MB";
    return std::nullopt;
  }
  return cost;
}

void writeCount(const std::filesystem::path& file, std::size_t count) {
  writeFile(file, Bytes(count));
}

Bytes repeated(const Bytes& piece, std::size_t times) {
  Bytes all;
  all.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

Bytes filledWith(const Bytes& piece, std::size_t size) {
  return repeated(piece, size / piece.size());
}

void rebuildClip(const std::filesystem::path& clip, const std::filesystem::path& reference) {
  const FileSource source(clip.string());
  const FileSource teacher(reference.string());
  const VideoRepair::Plan plan = VideoRepair::planRebuild(source, teacher);
  (void)MovieWriter::moov(plan.movie);
}

}  // namespace tallowmark::testing
