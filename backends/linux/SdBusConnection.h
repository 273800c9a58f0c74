#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <asio/any_io_executor.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>

#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;
struct sd_bus_vtable;

namespace velmo::platform::linux {

// One connection to the system bus (DBUS_SYSTEM_BUS_ADDRESS when set),
// serviced on the main executor: its descriptor is watched by the event loop,
// nothing polls and no thread is added. A connection that can't be opened or
// breaks is logged and opened again with back-off (1 s doubling to 30 s);
// match rules and served objects are installed again on every new connection.
// Every member runs on the main executor.
class SdBusConnection {
 public:
  // Gets each message that matches a rule. Runs on the main executor.
  using MessageHandler = std::function<void(sd_bus_message*)>;
  using MatchId = std::uint64_t;
  using ObjectId = std::uint64_t;

  SdBusConnection(asio::any_io_executor executor, Clock& clock);
  ~SdBusConnection();
  SdBusConnection(const SdBusConnection&) = delete;
  SdBusConnection& operator=(const SdBusConnection&) = delete;

  // Opens the connection; a failure schedules the next attempt.
  void start();
  bool isConnected() const { return bus_ != nullptr; }
  // The open bus, or null while disconnected.
  sd_bus* bus() const { return bus_; }
  const asio::any_io_executor& executor() const { return executor_; }
  Clock& clock() const { return clock_; }

  // Adds a match rule, effective until removed, across reconnections.
  MatchId addMatch(std::string rule, MessageHandler handler);
  void removeMatch(MatchId id);

  // Serves an interface of an object (an sd-bus vtable, which must outlive
  // it) on every connection, until removed. Not from within its own callbacks.
  ObjectId addObject(std::string path, std::string interface, const sd_bus_vtable* vtable,
                     void* userdata);
  void removeObject(ObjectId id);

  // Called after each successful (re)connection, once the rules and objects
  // are installed.
  void addConnectedHandler(std::function<void()> handler) {
    connected_.push_back(std::move(handler));
  }

  // Sends a message the caller built on bus(); false when it could not be queued.
  bool send(sd_bus_message* message);
  // After a call made directly on bus(): waits for the socket as that needs.
  void watchPendingIO() { armWaits(); }
  // Blocks until everything queued is written. For short-lived tools only.
  void flush();

 private:
  struct Match;
  struct Object;

  void connect();
  void installMatch(Match& match);
  void installObject(Object& object);
  void disconnect(const std::string& reason);
  void scheduleReconnect();
  void processPending();
  void scheduleProcessing();
  void armWaits();
  void releaseRetired();

  asio::any_io_executor executor_;
  Clock& clock_;
  core::CustomLogger logger_{"SdBusConnection"};
  sd_bus* bus_ = nullptr;
  std::unique_ptr<asio::posix::stream_descriptor> descriptor_;
  asio::steady_timer busTimer_;
  bool readArmed_ = false;
  bool writeArmed_ = false;
  bool processingScheduled_ = false;
  std::uint64_t generation_ = 0;  // Tells stale waits of an old connection apart.
  std::unique_ptr<Timer> reconnectTimer_;
  Duration backoff_ = std::chrono::seconds(1);
  MatchId nextMatch_ = 1;
  std::map<MatchId, std::unique_ptr<Match>> matches_;
  // Removed matches whose slots are let go of once the running callback is done.
  std::vector<std::unique_ptr<Match>> retired_;
  ObjectId nextObject_ = 1;
  std::map<ObjectId, std::unique_ptr<Object>> objects_;
  std::vector<std::function<void()>> connected_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::platform::linux
