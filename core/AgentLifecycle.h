#pragma once

#include <cstdint>

#include "core/Published.h"

namespace velmo::core {

// Where the agent is in its life. A stop is a state it passes through, not a
// kill: while draining, nothing new starts (no run, comparison, queued
// install, active-interval update, icon command or maintenance job) and the
// tool runs in progress go on to their end; once ending, runs still going are
// ended as at a time-out. Main executor only.
enum class LifePhase : std::uint8_t { running, draining, ending };

class AgentLifecycle {
 public:
  LifePhase phase() const { return phase_.value(); }
  bool stopping() const { return phase() != LifePhase::running; }
  // Hears the phase at once, then every change.
  [[nodiscard]] Subscription subscribe(Published<LifePhase>::Handler handler) {
    return phase_.subscribe(std::move(handler));
  }
  // Moves on only: a stop is never taken back.
  void advance(LifePhase phase) {
    if (phase > phase_.value()) phase_.set(phase);
  }

 private:
  Published<LifePhase> phase_{LifePhase::running};
};

}  // namespace velmo::core
