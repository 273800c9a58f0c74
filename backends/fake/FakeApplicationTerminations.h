#pragma once

#include <map>

#include "platform/ApplicationTerminations.h"

namespace velmo::platform::fake {

// Terminations a test sends by hand, delivered at once.
class FakeApplicationTerminations final : public ApplicationTerminations {
 public:
  ObserverToken addObserver(Handler handler) override {
    handlers_.emplace(next_, std::move(handler));
    return {next_++};
  }
  void removeObserver(ObserverToken token) override { handlers_.erase(token.value); }

  void terminate(const std::optional<std::filesystem::path>& bundle) {
    auto handlers = handlers_;
    for (auto& [token, handler] : handlers) handler(bundle);
  }
  std::size_t observerCount() const { return handlers_.size(); }

 private:
  std::uint64_t next_ = 1;
  std::map<std::uint64_t, Handler> handlers_;
};

}  // namespace velmo::platform::fake
