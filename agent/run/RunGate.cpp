#include "agent/run/RunGate.h"

#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

namespace velmo::agent::run {

RunGate::RunGate(const core::Executor& executor, platform::Clock& clock)
    : strand_(core::makeSerialExecutor(executor)), clock_(clock) {}

RunGate::~RunGate() = default;

asio::awaitable<void> RunGate::request(Operation operation, core::TimeInterval maxDuration) {
  co_await core::runOn(strand_, requestOnStrand(std::move(operation), maxDuration));
}

asio::awaitable<void> RunGate::requestOnStrand(Operation operation,
                                               core::TimeInterval maxDuration) {
  if (running_) {
    setPending(true);
    logger_.debug("Request received while running; marking pending and waiting for completion.");
    co_await asio::async_initiate<decltype(asio::use_awaitable), void()>(
        [this](auto handler) {
          auto shared = std::make_shared<decltype(handler)>(std::move(handler));
          // Resumed through the strand, in order, after unlock has finished.
          waiters_.push_back([this, shared] { asio::post(strand_, [shared] { (*shared)(); }); });
        },
        asio::use_awaitable);
    co_return;
  }

  running_ = true;
  logger_.debug("RunGate locked (starting operation).");
  const std::uint64_t holder = ++holder_;
  // The whole stay of the holder, all passes together.
  if (!stopped_) {
    watchdog_ =
        clock_.scheduleAfter(core::toDuration(maxDuration), strand_, [this, holder, maxDuration] {
          if (!running_ || holder != holder_) return;
          logger_.warning("RunGate watchdog fired after " +
                          std::to_string(static_cast<long long>(maxDuration.count())) +
                          "s; forcing unlock to avoid indefinite block.");
          unlock();
        });
  }

  for (;;) {
    setPending(false);
    co_await operation();
    if (holder != holder_ || !running_) co_return;  // Freed by the watchdog meanwhile.
    if (!pending_) break;
    logger_.debug("A request arrived during operation; looping once more to service pending.");
  }
  watchdog_.reset();
  unlock();
}

void RunGate::stop() {
  asio::post(strand_, [this, alive = lifetime_.token()] {
    if (!*alive) return;
    stopped_ = true;
    watchdog_.reset();
  });
}

void RunGate::setPending(bool pending) {
  if (pending_ == pending) return;
  pending_ = pending;
  if (pendingObserver_) pendingObserver_(pending);
}

void RunGate::unlock() {
  running_ = false;
  // A holder freed by the watchdog must not take part in what follows.
  ++holder_;
  logger_.debug("RunGate unlocked (operation complete).");
  auto waiters = std::move(waiters_);
  waiters_.clear();
  for (auto& resume : waiters) resume();
}

}  // namespace velmo::agent::run
