#pragma once

#include <functional>
#include <memory>

#include <asio/any_io_executor.hpp>

#include "platform/Clock.h"

namespace velmo::core {

// Runs an action once a burst of triggers has been quiet for `delay`: each
// trigger restarts the wait. The action runs on `executor`; trigger() must be
// called there too. Destroying the debouncer drops a pending action.
class Debouncer {
 public:
  Debouncer(asio::any_io_executor executor, platform::Clock& clock, Duration delay,
            std::function<void()> action);

  void trigger();
  bool isPending() const { return timer_ != nullptr; }

 private:
  asio::any_io_executor executor_;
  platform::Clock& clock_;
  Duration delay_;
  std::function<void()> action_;
  std::unique_ptr<platform::Timer> timer_;
};

}  // namespace velmo::core
