#pragma once

#include <chrono>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "backends/linux/SdBusConnection.h"
#include "platform/Clock.h"

namespace velmo::platform::linux {

// A bus connection serviced on a thread of its own, so that what arrives for
// the agent is read off the socket however busy the main executor is: the bus
// daemon's queue for this connection never fills while handlers work.
// Objects built on connection() before start() may set it up from the
// constructing thread; once started, only the thread touches the connection.
class SdBusThread {
 public:
  explicit SdBusThread(Clock& clock);
  // Stops the thread; what it still had queued is dropped.
  ~SdBusThread();
  SdBusThread(const SdBusThread&) = delete;
  SdBusThread& operator=(const SdBusThread&) = delete;

  SdBusConnection& connection() { return connection_; }
  // Opens the connection on the thread and serves it from then on.
  void start();
  // Waits (at most `limit`) until what was sent before is written out: the
  // last posts of a process about to exit.
  void flush(std::chrono::milliseconds limit);
  // Joins the thread. Objects on the connection may be destroyed after this.
  void stop();

 private:
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  SdBusConnection connection_;
  std::thread thread_;
};

}  // namespace velmo::platform::linux
