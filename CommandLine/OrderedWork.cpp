// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/OrderedWork.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace tallowmark {

void workInOrder(const std::vector<std::vector<std::size_t>>& chains,
                 const std::function<void(std::size_t)>& work,
                 const std::function<void(std::size_t)>& done) {
  std::size_t total = 0;
  for (const auto& chain : chains) total += chain.size();

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<char> worked(total, 0);
  std::size_t nextChain = 0;
  const auto takeChain = [&]() -> const std::vector<std::size_t>* {
    const std::lock_guard lock(mutex);
    return nextChain < chains.size() ? &chains[nextChain++] : nullptr;
  };
  const auto workChains = [&] {
    while (const auto* chain = takeChain()) {
      for (const std::size_t i : *chain) {
        work(i);
        const std::lock_guard lock(mutex);
        worked[i] = 1;
        changed.notify_one();
      }
    }
  };
  std::vector<std::thread> threads;
  const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
  for (std::size_t i = 0; i < std::min(cores, chains.size()); ++i) {
    threads.emplace_back(workChains);
  }
  for (std::size_t i = 0; i < total; ++i) {
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return worked[i] != 0; });
    }
    done(i);
  }
  for (std::thread& thread : threads) thread.join();
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
