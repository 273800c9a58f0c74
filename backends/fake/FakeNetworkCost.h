#pragma once

#include <utility>

#include "platform/NetworkCost.h"

namespace velmo::platform::fake {

class FakeNetworkCost final : public NetworkCost {
 public:
  std::optional<bool> metered() const override { return metered_; }
  void onChange(std::function<void()> handler) override { handler_ = std::move(handler); }

  void set(std::optional<bool> metered) {
    metered_ = metered;
    if (handler_) handler_();
  }

 private:
  std::optional<bool> metered_;
  std::function<void()> handler_;
};

}  // namespace velmo::platform::fake
