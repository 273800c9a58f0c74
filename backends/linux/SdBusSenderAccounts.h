#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "backends/linux/SdBusConnection.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"

namespace velmo::platform::linux {

// Learns the account of every connection on the bus from the bus daemon
// (GetConnectionUnixUser), on a thread and a connection of its own: the
// question goes out the moment a connection appears (NameOwnerChanged),
// however busy the main executor is, so that a program that posts and leaves
// at once is still known. A connection that left before the daemon took the
// question is answered with kUnknownSender.
class SdBusSenderAccounts {
 public:
  // On the asker's executor. `uid` is kUnknownSender when nothing vouches for the name.
  using Answer = std::function<void(const std::string& uniqueName, std::uint32_t uid)>;
  // On the asker's executor: the accounts connection was opened again, so the daemon
  // may have restarted and unique names may mean other connections now.
  using Reset = std::function<void()>;

  SdBusSenderAccounts(asio::any_io_executor mainExecutor, Clock& clock, Answer answer, Reset reset);
  ~SdBusSenderAccounts();
  SdBusSenderAccounts(const SdBusSenderAccounts&) = delete;
  SdBusSenderAccounts& operator=(const SdBusSenderAccounts&) = delete;

  // Any thread: asks for a name whose answer the caller lacks.
  void ask(std::string uniqueName);

 private:
  struct Question;

  // In the constructor, before the thread starts.
  void start();
  // The accounts thread only.
  void nameOwnerChanged(sd_bus_message* message);
  void query(const std::string& uniqueName);
  void answered(Question& question, sd_bus_message* reply);
  void connected();

  asio::any_io_executor mainExecutor_;
  Clock& clock_;
  Answer answer_;
  Reset reset_;
  core::Lifetime lifetime_;  // The asker's executor's view.
  core::CustomLogger logger_{"SdBusSenderAccounts"};
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  std::unique_ptr<SdBusConnection> connection_;
  bool connectedOnce_ = false;
  // Questions in flight, by name; bounded by the daemon's connection limits.
  std::map<std::string, std::unique_ptr<Question>> questions_;
  std::thread thread_;
};

}  // namespace velmo::platform::linux
