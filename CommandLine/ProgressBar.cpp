// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/ProgressBar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "CommandLine/Sentences.h"

namespace tallowmark {

namespace {

constexpr auto drawInterval = std::chrono::milliseconds(100);
// Before that, a rate is a guess.
constexpr double settledAfterSeconds = 1;

std::size_t terminalWidth() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string formatted(const char* format, double value) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

}  // namespace

std::string progressText(double fraction, double bytesPerSecond, double secondsLeft,
                         std::size_t width) {
  std::string facts = formatted(" %3.0f %%", std::floor(fraction * 100));
  if (bytesPerSecond > 0) {
    facts += formatted("  %.0f MB/s", bytesPerSecond / 1e6);
    facts += "  " + durationText(std::ceil(secondsLeft)) + " left";
  }
  constexpr std::size_t brackets = 2;
  constexpr std::size_t widestBar = 40;
  if (width < facts.size() + brackets + 5) {
    return facts.substr(0, width);
  }
  const std::size_t cells = std::min(widestBar, width - facts.size() - brackets);
  const auto filled =
      std::min(cells, static_cast<std::size_t>(fraction * static_cast<double>(cells)));
  return "[" + std::string(filled, '#') + std::string(cells - filled, '.') + "]" + facts;
}

ProgressBar::ProgressBar(std::vector<std::uint64_t> sizes)
    : sizes_(std::move(sizes)),
      fractions_(sizes_.size(), 0),
      onTerminal_(::isatty(STDERR_FILENO) == 1) {
  for (const std::uint64_t size : sizes_) totalBytes_ += static_cast<double>(size);
}

ProgressBar::~ProgressBar() {
  clear();
}

void ProgressBar::update(std::size_t index, double fraction) {
  const std::lock_guard lock(mutex_);
  doneBytes_ += (fraction - fractions_[index]) * static_cast<double>(sizes_[index]);
  fractions_[index] = fraction;
  if (onTerminal_ && Clock::now() - lastDrawn_ >= drawInterval) {
    draw();
  }
}

void ProgressBar::print(const std::string& line) {
  const std::lock_guard lock(mutex_);
  clear();
  std::cout << line << std::endl;
}

void ProgressBar::draw() {
  lastDrawn_ = Clock::now();
  const double seconds = std::chrono::duration<double>(lastDrawn_ - start_).count();
  const double rate = seconds < settledAfterSeconds ? 0 : doneBytes_ / seconds;
  const double left = rate > 0 ? (totalBytes_ - doneBytes_) / rate : 0;
  const double fraction = totalBytes_ > 0 ? std::clamp(doneBytes_ / totalBytes_, 0.0, 1.0) : 0;
  // "\x1b[K" clears what a longer line left behind.
  std::cerr << '\r' << progressText(fraction, rate, left, terminalWidth() - 1) << "\x1b[K"
            << std::flush;
  visible_ = true;
}

void ProgressBar::clear() {
  if (visible_) {
    std::cerr << "\r\x1b[K" << std::flush;
    visible_ = false;
  }
}

}  // namespace tallowmark
