// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/OrderedWork.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

namespace tallowmark {

namespace {

/// The chains that threads take one by one, and what has become of their items.
class Chains {
 public:
  explicit Chains(const std::vector<std::vector<std::size_t>>& chains)
      : chains_(chains), worked_(sizeOf(chains), 0) {}

  std::size_t items() const { return worked_.size(); }

  /// Works chain after chain until there are no more, or until an item fails.
  void work(const std::function<void(std::size_t)>& work) noexcept {
    try {
      while (const auto* chain = take()) {
        for (const std::size_t i : *chain) {
          work(i);
          const std::lock_guard lock(mutex_);
          worked_[i] = 1;
          changed_.notify_one();
        }
      }
    } catch (...) {
      const std::lock_guard lock(mutex_);
      failure_ = std::current_exception();
      changed_.notify_one();
    }
  }

  /// Blocks until an item was worked. Throws what an item threw.
  void await(std::size_t item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return worked_[item] != 0 || failure_; });
    if (failure_) {
      std::rethrow_exception(failure_);
    }
  }

  /// No chain is begun any more.
  void abandon() {
    const std::lock_guard lock(mutex_);
    next_ = chains_.size();
  }

 private:
  static std::size_t sizeOf(const std::vector<std::vector<std::size_t>>& chains) {
    std::size_t total = 0;
    for (const auto& chain : chains) total += chain.size();
    return total;
  }

  const std::vector<std::size_t>* take() {
    const std::lock_guard lock(mutex_);
    return next_ < chains_.size() && !failure_ ? &chains_[next_++] : nullptr;
  }

  const std::vector<std::vector<std::size_t>>& chains_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<char> worked_;
  std::size_t next_ = 0;
  std::exception_ptr failure_;
};

/// Threads that end before this object does.
class Threads {
 public:
  explicit Threads(Chains& chains) : chains_(chains) {}
  ~Threads() {
    chains_.abandon();
    for (std::thread& thread : threads_) thread.join();
  }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;
  Threads(Threads&&) = delete;
  Threads& operator=(Threads&&) = delete;

  void start(std::size_t count, const std::function<void(std::size_t)>& work) {
    threads_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      threads_.emplace_back([this, &work] { chains_.work(work); });
    }
  }

 private:
  Chains& chains_;
  std::vector<std::thread> threads_;
};

}  // namespace

void workInOrder(const std::vector<std::vector<std::size_t>>& chains,
                 const std::function<void(std::size_t)>& work,
                 const std::function<void(std::size_t)>& done) {
  Chains pending(chains);
  Threads threads(pending);
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  threads.start(std::min(cores, chains.size()), work);
  for (std::size_t i = 0; i < pending.items(); ++i) {
    pending.await(i);
    done(i);
  }
}

std::vector<std::vector<std::size_t>> independent(std::size_t count) {
  std::vector<std::vector<std::size_t>> chains;
  for (std::size_t i = 0; i < count; ++i) chains.push_back({i});
  return chains;
}

std::vector<std::vector<std::size_t>> chainsByName(std::span<const std::string> names) {
  std::map<std::string, std::size_t> chainOf;
  std::vector<std::vector<std::size_t>> chains;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto [chain, isNew] = chainOf.try_emplace(names[i], chains.size());
    if (isNew) {
      chains.emplace_back();
    }
    chains[chain->second].push_back(i);
  }
  return chains;
}

}  // namespace tallowmark
