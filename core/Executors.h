#pragma once

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

// Runs `task` on `executor` and resumes the caller on its own executor with
// the result: the way to hop onto a strand or the main executor and back.
template <typename T>
asio::awaitable<T> runOn(const Executor& executor, asio::awaitable<T> task) {
  co_return co_await asio::co_spawn(executor, std::move(task), asio::use_awaitable);
}

}  // namespace velmo::core
