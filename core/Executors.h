#pragma once

#include <memory>
#include <utility>

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/strand.hpp>
#include <asio/use_awaitable.hpp>

#include "core/logging/CustomLogger.h"

namespace velmo::core {

// The main executor is the io_context run on the main thread; each serial
// executor an object owns is a strand over it.
using Executor = asio::any_io_executor;
using SerialExecutor = asio::strand<Executor>;

inline SerialExecutor makeSerialExecutor(const Executor& executor) {
  return asio::make_strand(executor);
}

// Starts `task` on `executor` without waiting for it. An exception that
// escapes the task is logged with `logger`, never dropped.
void startTask(const Executor& executor, asio::awaitable<void> task, CustomLogger logger);

// Starts a task of a long-lived object without keeping the object alive
// until then: the task holds it only once it runs, for as long as it runs,
// and does nothing if it is gone by then. `task(T&)` gives the awaitable.
template <typename T, typename Task>
void startHolding(const Executor& executor, std::weak_ptr<T> weak, const CustomLogger& logger,
                  Task task) {
  // A coroutine lambda without captures: its arguments live in its frame.
  startTask(
      executor,
      [](std::weak_ptr<T> weak, Task task) -> asio::awaitable<void> {
        if (auto self = weak.lock()) co_await task(*self);
      }(std::move(weak), std::move(task)),
      logger);
}

// Runs `task` on `executor` and resumes the caller on its own executor with
// the result: the way to hop onto a strand or the main executor and back.
template <typename T>
asio::awaitable<T> runOn(const Executor& executor, asio::awaitable<T> task) {
  co_return co_await asio::co_spawn(executor, std::move(task), asio::use_awaitable);
}

}  // namespace velmo::core
