// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFuture>
#include <QPromise>
#include <QThreadPool>
#include <memory>
#include <type_traits>
#include <utility>

namespace tallowmark {

/// Runs `work` on another thread, unless the future is cancelled before its turn comes.
template <class Work>
QFuture<std::invoke_result_t<Work>> beside(Work work) {
  const auto promise = std::make_shared<QPromise<std::invoke_result_t<Work>>>();
  auto future = promise->future();
  promise->start();
  QThreadPool::globalInstance()->start([promise, work = std::move(work)] {
    if (!promise->isCanceled()) promise->addResult(work());
    promise->finish();
  });
  return future;
}

}  // namespace tallowmark
