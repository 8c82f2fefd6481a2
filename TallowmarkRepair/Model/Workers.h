// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <QUuid>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Runs work beside the main thread, one job an item at a time, on as many threads as it is given.
/// Belongs to the main thread, as all that is called back.
class Workers final : public QObject {
  Q_OBJECT

 public:
  /// What waits longest: looking for what is wrong comes before previews, what the user asked to be
  /// saved before both.
  enum class Urgency { preview, check, save };

  /// What to do with a result, on the main thread; not called for work that was cancelled.
  using Delivery = std::function<void()>;
  /// Runs on some thread and touches nothing of the main one. May throw Stopped when it is
  /// cancelled, nothing else.
  using Work = std::function<Delivery(const Progress&, const StopToken&)>;

  explicit Workers(int threads);
  /// Cancels everything and waits for it.
  ~Workers() override;

  /// Starts a job for an item, in place of one that it has. `progress` is told what the work tells
  /// its own, as often as an eye can follow.
  void start(const QUuid& item, Urgency urgency, Work work,
             const std::function<void(double)>& progress = {});

  /// Work that was cancelled delivers nothing; it ends soon after.
  void cancel(const QUuid& item);
  void cancelAll();

  /// Whether no job is under way, cancelled ones included. Waits that long for it.
  bool waitUntilIdle(int milliseconds) { return pool_.waitForDone(milliseconds); }

 signals:
  /// From any thread: there are messages that nobody delivers yet.
  void messagesCame();

 private:
  /// The most urgent first, and of these the oldest: minus the urgency, the ticket.
  using Turn = std::pair<int, quint64>;

  struct Job {
    Turn turn;
    StopSource stop;
  };

  /// What a thread takes up when it is free.
  struct Task {
    QUuid item;
    Work work;
    Progress progress;
    StopToken stop;
  };

  /// What a job has to tell the main thread.
  struct Message {
    QUuid item;
    quint64 ticket = 0;
    std::function<void()> call;
    /// It is the job's end.
    bool last = false;
  };

  bool isCurrent(const QUuid& item, quint64 ticket) const;
  void runNextTask();
  void post(Message message);
  std::optional<Message> nextMessage();
  void deliver();

  // Guards what goes to other threads and what comes from them, the next three.
  std::mutex lock_;
  std::map<Turn, Task> tasks_;
  std::deque<Message> inbox_;
  bool delivering_ = false;
  QTimer nextTurn_;
  QThreadPool pool_;
  std::map<QUuid, Job> jobs_;
  quint64 lastTicket_ = 0;
};

}  // namespace tallowmark
