#include "agent/run/InstallCounter.h"

#include <asio/post.hpp>

namespace velmo::agent::run {

InstallCounter::InstallCounter(const core::Executor& executor)
    : strand_(core::makeSerialExecutor(executor)) {}

void InstallCounter::add() {
  asio::post(strand_, [count = count_] { ++*count; });
}

asio::awaitable<std::int64_t> InstallCounter::takeOnStrand() {
  const std::int64_t count = *count_;
  *count_ = 0;
  co_return count;
}

asio::awaitable<std::int64_t> InstallCounter::takeAndReset() {
  co_return co_await core::runOn(strand_, takeOnStrand());
}

}  // namespace velmo::agent::run
