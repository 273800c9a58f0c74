#pragma once

#include <functional>
#include <memory>
#include <string>

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include "platform/Clock.h"

namespace velmo::platform {

// One spawned process, owned by the call that spawned it.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;

  virtual int processIdentifier() const = 0;
  // False once the process has exited; collects its status the first time.
  virtual bool isRunning() = 0;
  // The exit status, or the bare signal number for a process a signal ended.
  // Meaningful only once isRunning() is false.
  virtual int terminationStatus() const = 0;
  // To the process and everything it started in its group.
  virtual void sendSignal(int signal) = 0;
  // Runs `action` on `executor` once the process has exited (soon, when it
  // already has). Nothing polls. Destroying the handle cancels the action; it
  // must not outlive the process object.
  [[nodiscard]] virtual std::unique_ptr<Timer> onExit(asio::any_io_executor executor,
                                                      std::function<void()> action) = 0;
  // What the process wrote to standard error so far, when it was captured.
  virtual std::string standardError() const = 0;
};

}  // namespace velmo::platform
