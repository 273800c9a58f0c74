#pragma once

#include <cstdint>
#include <memory>

#include <asio/awaitable.hpp>

#include "core/Executors.h"

namespace velmo::agent::run {

// Counts the installs the tool reports during one run. The count lives on
// the counter's own strand; add() may be called from any executor.
class InstallCounter {
 public:
  explicit InstallCounter(const core::Executor& executor);

  void add();
  // The count so far, and a fresh start from zero.
  asio::awaitable<std::int64_t> takeAndReset();

 private:
  asio::awaitable<std::int64_t> takeOnStrand();

  core::SerialExecutor strand_;
  // Shared with adds still in flight, which may land after the counter is gone.
  std::shared_ptr<std::int64_t> count_ = std::make_shared<std::int64_t>(0);
};

}  // namespace velmo::agent::run
