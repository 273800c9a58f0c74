#pragma once

#include <functional>
#include <memory>
#include <string>

#include <asio/awaitable.hpp>

#include "core/AgentLifecycle.h"
#include "core/Executors.h"
#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"
#include "platform/ServiceManager.h"

namespace velmo::agent {

// The agent's stop: a state it passes through, never a kill of an install.
// The first request (SIGTERM, SIGINT) starts the drain: nothing new starts,
// and what runs goes on to its end, for at most the drain bound; then, or at
// a second request, the runs still going are ended as at a time-out (SIGTERM,
// 5 s, SIGKILL). The stop is over once nothing is left to wait for, or at the
// latest `kEndBound` after the drain has ended. Main executor only.
class AgentStop {
 public:
  // An install of a large app on a slow link: long enough for nearly all,
  // short enough that a shutdown or an upgrade isn't held up for an hour.
  static constexpr platform::Duration kDrainBound = std::chrono::minutes(30);
  // The supervisor's graces (5 s and 1 s) and a margin for the last saves.
  static constexpr platform::Duration kEndBound = std::chrono::seconds(10);

  struct Collaborators {
    core::Executor mainExecutor;
    platform::Clock& clock;
    core::AgentLifecycle& lifecycle;
    platform::ServiceManager& serviceManager;
    platform::Duration drainBound = kDrainBound;
  };

  explicit AgentStop(Collaborators collaborators);
  AgentStop(const AgentStop&) = delete;
  AgentStop& operator=(const AgentStop&) = delete;

  // `signal` names what asked ("SIGTERM"). The first starts the drain; the
  // next ends it at once.
  void request(const std::string& signal);
  // What the agent still waits for ("a scheduled run, 1 tool run"); empty
  // when nothing runs. Told at every change, stopping or not.
  void setBusy(std::string what);
  // Completes once a stop was requested and is over.
  asio::awaitable<void> finished();

 private:
  void endDrain(const std::string& why);
  void sayStatus();
  void finishIfDone();

  Collaborators collaborators_;
  core::CustomLogger logger_{"AgentStop"};
  std::string busy_;
  std::unique_ptr<platform::Timer> bound_;
  bool over_ = false;
  std::function<void()> whenOver_;
};

}  // namespace velmo::agent
