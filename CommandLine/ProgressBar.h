// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tallowmark {

/// One line on a terminal's standard error: a bar, the rate and the time left, over all items.
/// Silent where standard error is no terminal. Safe to use from several threads.
class ProgressBar {
 public:
  /// `sizes` are the bytes of the items: what weighs most moves the bar most.
  explicit ProgressBar(std::vector<std::uint64_t> sizes);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ProgressBar(ProgressBar&&) = delete;
  ProgressBar& operator=(ProgressBar&&) = delete;

  /// Item `index` is done to that fraction, from 0 to 1.
  void update(std::size_t index, double fraction);

  /// Prints a line of results on standard output, out of the bar's way.
  void print(const std::string& line);

 private:
  using Clock = std::chrono::steady_clock;
  void draw();
  void clear();

  std::mutex mutex_;
  std::vector<std::uint64_t> sizes_;
  std::vector<double> fractions_;
  double totalBytes_ = 0;
  double doneBytes_ = 0;
  Clock::time_point start_ = Clock::now();
  Clock::time_point lastDrawn_;
  bool onTerminal_;
  bool visible_ = false;
};

/// The bar's text, fitted into `width` columns: "[####····]  45 %  120 MB/s  0:12 left".
std::string progressText(double fraction, double bytesPerSecond, double secondsLeft,
                         std::size_t width);

}  // namespace tallowmark
