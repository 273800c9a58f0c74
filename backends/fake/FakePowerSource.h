#pragma once

#include <utility>

#include "platform/PowerSource.h"

namespace velmo::platform::fake {

class FakePowerSource final : public PowerSource {
 public:
  std::optional<PowerState> current() const override { return state_; }
  void onChange(std::function<void()> handler) override { handler_ = std::move(handler); }

  void set(std::optional<PowerState> state) {
    state_ = state;
    if (handler_) handler_();
  }

 private:
  std::optional<PowerState> state_;
  std::function<void()> handler_;
};

}  // namespace velmo::platform::fake
