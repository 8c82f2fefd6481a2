// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/Workers.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace tallowmark {

namespace {

using Clock = std::chrono::steady_clock;

// At most thirty times a second.
constexpr std::chrono::milliseconds leastBetweenReports{34};

Progress throttled(std::function<void(double)> report) {
  auto last = std::make_shared<Clock::time_point>(Clock::now());
  return [report = std::move(report), last](double fraction) {
    if (const auto now = Clock::now(); now - *last >= leastBetweenReports) {
      *last = now;
      report(fraction);
    }
  };
}

}  // namespace

Workers::Workers(int threads) {
  pool_.setMaxThreadCount(std::max(threads, 1));
  connect(this, &Workers::messagesCame, this, &Workers::deliver, Qt::QueuedConnection);
  nextTurn_.setSingleShot(true);
  nextTurn_.setInterval(0);
  connect(&nextTurn_, &QTimer::timeout, this, &Workers::deliver);
}

Workers::~Workers() {
  cancelAll();
  pool_.waitForDone();
}

bool Workers::isCurrent(const QUuid& item, quint64 ticket) const {
  const auto job = jobs_.find(item);
  return job != jobs_.end() && job->second.turn.second == ticket;
}

void Workers::start(const QUuid& item, Urgency urgency, Work work,
                    const std::function<void(double)>& progress) {
  cancel(item);
  const quint64 ticket = ++lastTicket_;
  const Turn turn(-static_cast<int>(urgency), ticket);
  const StopToken stop = (jobs_[item] = {turn, {}}).stop.token();
  Progress report = throttled([this, item, ticket, progress](double fraction) {
    if (progress) {
      post({item, ticket, [progress, fraction] { progress(fraction); }, false});
    }
  });
  {
    const std::lock_guard guard(lock_);
    tasks_.emplace(turn, Task{item, std::move(work), std::move(report), stop});
  }
  pool_.start([this] { runNextTask(); });
}

// The pool gives threads, the order is ours: to a thread that waits it hands a task without its
// priority, and later ones overtake it.
void Workers::runNextTask() {
  std::unique_lock guard(lock_);
  if (tasks_.empty()) {
    return;  // what it was started for was cancelled
  }
  const auto next = tasks_.extract(tasks_.begin());
  guard.unlock();
  const Task& task = next.mapped();
  try {
    task.stop.check();
    post({task.item, next.key().second, task.work(task.progress, task.stop), true});
  } catch (const Stopped&) {
    // Nobody waits for it.
  }
}

void Workers::post(Message message) {
  const std::lock_guard guard(lock_);
  inbox_.push_back(std::move(message));
  if (!delivering_) {
    delivering_ = true;
    emit messagesCame();
  }
}

std::optional<Workers::Message> Workers::nextMessage() {
  const std::lock_guard guard(lock_);
  if (inbox_.empty()) {
    delivering_ = false;
    return std::nullopt;
  }
  Message message = std::move(inbox_.front());
  inbox_.pop_front();
  return message;
}

// Hundreds of files can end at once: the user's clicks get their turn between them.
void Workers::deliver() {
  constexpr auto longestTurn = std::chrono::milliseconds(8);
  const auto start = Clock::now();
  while (auto message = nextMessage()) {
    if (isCurrent(message->item, message->ticket)) {
      if (message->last) jobs_.erase(message->item);
      message->call();
    }
    if (Clock::now() - start > longestTurn) {
      nextTurn_.start();
      return;
    }
  }
}

void Workers::cancel(const QUuid& item) {
  const auto job = jobs_.find(item);
  if (job == jobs_.end()) {
    return;
  }
  job->second.stop.requestStop();
  std::unique_lock guard(lock_);
  const auto dropped = tasks_.extract(job->second.turn);
  guard.unlock();
  jobs_.erase(job);
}

void Workers::cancelAll() {
  while (!jobs_.empty()) cancel(QUuid(jobs_.begin()->first));
}

}  // namespace tallowmark
