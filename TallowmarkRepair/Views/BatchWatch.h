// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QElapsedTimer>
#include <chrono>

namespace tallowmark {

/// Tells the end of long work: that is worth a notification to a user who went elsewhere.
class BatchWatch {
 public:
  /// What takes less is not worth one.
  explicit BatchWatch(std::chrono::milliseconds longEnough = std::chrono::seconds(10))
      : longEnough_(longEnough) {}

  /// To be told again and again; true once for each batch, when it ends and took long enough.
  bool endsWith(bool working) {
    if (working && !running_.isValid()) {
      running_.start();
    }
    if (working || !running_.isValid()) {
      return false;
    }
    const bool wasLong = running_.elapsed() >= longEnough_.count();
    running_.invalidate();
    return wasLong;
  }

 private:
  std::chrono::milliseconds longEnough_;
  QElapsedTimer running_;
};

}  // namespace tallowmark
