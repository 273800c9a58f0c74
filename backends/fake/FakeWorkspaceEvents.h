#pragma once

#include <map>

#include "platform/WorkspaceEvents.h"

namespace velmo::platform::fake {

// Workspace events a test sends by hand, delivered at once.
class FakeWorkspaceEvents final : public WorkspaceEvents {
 public:
  ObserverToken addObserver(Handler handler) override {
    handlers_.emplace(next_, std::move(handler));
    return {next_++};
  }
  void removeObserver(ObserverToken token) override { handlers_.erase(token.value); }

  void send(WorkspaceEvent event) {
    auto handlers = handlers_;
    for (auto& [token, handler] : handlers) handler(event);
  }
  std::size_t observerCount() const { return handlers_.size(); }

 private:
  std::uint64_t next_ = 1;
  std::map<std::uint64_t, Handler> handlers_;
};

}  // namespace velmo::platform::fake
