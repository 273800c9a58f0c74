#include "agent/main/AgentStop.h"

#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include "core/time/TimeInterval.h"

namespace velmo::agent {
namespace {

std::string described(platform::Duration duration) {
  return core::durationDescription(std::chrono::duration_cast<core::TimeInterval>(duration));
}

}  // namespace

AgentStop::AgentStop(Collaborators collaborators) : collaborators_(std::move(collaborators)) {}

void AgentStop::request(const std::string& signal) {
  core::AgentLifecycle& lifecycle = collaborators_.lifecycle;
  if (lifecycle.phase() == core::LifePhase::ending) return;
  if (lifecycle.phase() == core::LifePhase::draining) {
    endDrain("Received " + signal + " again: ending what still runs now.");
    return;
  }
  collaborators_.serviceManager.stopping();
  lifecycle.advance(core::LifePhase::draining);
  if (busy_.empty()) {
    logger_.info("Received " + signal + "; stopping.");
  } else {
    logger_.info("Received " + signal + "; stopping once what runs has ended (" + busy_ +
                 "), for at most " + described(collaborators_.drainBound) +
                 ". Nothing new starts meanwhile.");
  }
  // The service manager's own stop timeout is set above this; asked anyway,
  // so that a unit edited without it still waits for the drain.
  collaborators_.serviceManager.extendTimeout(collaborators_.drainBound + kEndBound);
  bound_ = collaborators_.clock.scheduleAfter(
      collaborators_.drainBound, collaborators_.mainExecutor, [this] {
        endDrain("Still running after " + described(collaborators_.drainBound) +
                 " of stopping: ending what runs now.");
      });
  sayStatus();
  finishIfDone();
}

void AgentStop::endDrain(const std::string& why) {
  if (!busy_.empty()) logger_.warning(why);
  collaborators_.serviceManager.extendTimeout(kEndBound);
  // Past this bound the stop is over, whatever is left.
  bound_ = collaborators_.clock.scheduleAfter(kEndBound, collaborators_.mainExecutor, [this] {
    if (!busy_.empty()) logger_.error("Stopped while still waiting for " + busy_ + ".");
    busy_.clear();
    finishIfDone();
  });
  collaborators_.lifecycle.advance(core::LifePhase::ending);
  sayStatus();
  finishIfDone();
}

void AgentStop::setBusy(std::string what) {
  if (what == busy_) return;
  busy_ = std::move(what);
  if (!collaborators_.lifecycle.stopping()) return;
  sayStatus();
  finishIfDone();
}

void AgentStop::sayStatus() {
  if (busy_.empty()) return collaborators_.serviceManager.status("Stopping.");
  const bool draining = collaborators_.lifecycle.phase() == core::LifePhase::draining;
  collaborators_.serviceManager.status(std::string("Stopping: ") +
                                       (draining ? "waiting for " : "ending ") + busy_ + ".");
}

void AgentStop::finishIfDone() {
  if (over_ || !collaborators_.lifecycle.stopping() || !busy_.empty()) return;
  over_ = true;
  bound_.reset();
  if (auto resume = std::exchange(whenOver_, nullptr)) resume();
}

asio::awaitable<void> AgentStop::finished() {
  if (over_) co_return;
  co_await asio::async_initiate<decltype(asio::use_awaitable), void()>(
      [this](auto handler) {
        auto shared = std::make_shared<decltype(handler)>(std::move(handler));
        // Resumed from the executor, never from inside the caller of finishIfDone.
        whenOver_ = [shared, main = collaborators_.mainExecutor] {
          asio::post(main, [shared] { (*shared)(); });
        };
      },
      asio::use_awaitable);
}

}  // namespace velmo::agent
