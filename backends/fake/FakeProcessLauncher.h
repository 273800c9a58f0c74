#pragma once

#include <deque>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/ProcessLauncher.h"

namespace velmo::platform::fake {

// How a fake child behaves, in virtual time from its launch.
struct FakeProcessScript {
  std::optional<Duration> exitAfter{};  // Exits by itself after this long; never when absent.
  int exitStatus = 0;
  std::optional<Duration>
      exitAfterTerminate{};  // Leaves this long after SIGTERM; absent: ignores it.
  int statusOnTerminate = 15;
  bool ignoresKill = false;
  std::string standardError{};  // What a capturing caller reads back.
};

// Launches scripted children on a virtual clock and records what was asked.
class FakeProcessLauncher final : public ProcessLauncher {
 public:
  struct Launch {
    std::filesystem::path executable;
    std::vector<std::string> arguments;
    std::vector<int> signals;  // Signals sent to the child, in order.
    StandardError standardError = StandardError::discard;
    TimePoint at{};  // When it was launched, on the clock.
  };

  explicit FakeProcessLauncher(Clock& clock) : clock_(clock) {}

  // Scripts for the next launches, in order; once used up, children exit 0 at once.
  void enqueue(FakeProcessScript script) { scripts_.push_back(script); }
  void failNextLaunch(std::string description) { failures_.push_back(std::move(description)); }

  LaunchResult launch(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments,
                      StandardError standardError = StandardError::discard) override;

  const std::deque<Launch>& launches() const { return launches_; }

 private:
  Clock& clock_;
  std::deque<FakeProcessScript> scripts_;
  std::deque<std::string> failures_;
  std::deque<Launch> launches_;  // A deque keeps references stable for the children.
  int nextPid_ = 1000;
};

}  // namespace velmo::platform::fake
