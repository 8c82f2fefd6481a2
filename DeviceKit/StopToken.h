// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <exception>
#include <memory>

namespace tallowmark {

/// Thrown by a long operation that was asked to stop; what it had written is not for use.
class Stopped : public std::exception {
 public:
  const char* what() const noexcept override { return "Stopped."; }
};

/// Asks long operations to end soon. std::stop_token would be this type, but the standard library
/// of the home platform does not have it yet. Cheap to copy, safe across threads; a token of its
/// own never stops.
class StopToken {
 public:
  StopToken() = default;
  bool stopRequested() const noexcept {
    return flag_ != nullptr && flag_->load(std::memory_order_relaxed);
  }
  /// Throws Stopped when a stop was requested.
  void check() const {
    if (stopRequested()) {
      throw Stopped();
    }
  }

 private:
  friend class StopSource;
  explicit StopToken(std::shared_ptr<const std::atomic<bool>> flag) : flag_(std::move(flag)) {}
  std::shared_ptr<const std::atomic<bool>> flag_;
};

/// The other end of a StopToken. requestStop may be called from a signal handler.
class StopSource {
 public:
  StopToken token() const { return StopToken(flag_); }
  void requestStop() noexcept { flag_->store(true, std::memory_order_relaxed); }

 private:
  static_assert(std::atomic<bool>::is_always_lock_free);
  std::shared_ptr<std::atomic<bool>> flag_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace tallowmark
