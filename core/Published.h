#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace velmo::core {

// Ends a subscription when cancelled or destroyed. Subscriptions are kept in
// a set named `cancellables` by their owners.
class Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  ~Subscription() { cancel(); }
  Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      cancel();
      cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  void cancel() {
    if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
  }

 private:
  std::function<void()> cancel_;
};

// A current value that subscribers hear: the value at once when they
// subscribe, then every value set afterwards, in order. Used on one executor.
template <typename T>
class Published {
 public:
  using Handler = std::function<void(const T&)>;

  explicit Published(T initial) : value_(std::move(initial)) {}

  const T& value() const { return value_; }

  void set(T value) {
    value_ = std::move(value);
    // A handler may subscribe or cancel: walk a snapshot and skip the gone.
    std::vector<std::uint64_t> ids;
    for (const auto& [id, handler] : state_->handlers) ids.push_back(id);
    for (std::uint64_t id : ids) {
      auto found = state_->handlers.find(id);
      if (found == state_->handlers.end()) continue;
      Handler handler = found->second;
      handler(value_);
    }
  }

  [[nodiscard]] Subscription subscribe(Handler handler) {
    const std::uint64_t id = state_->next++;
    state_->handlers.emplace(id, handler);
    handler(value_);
    return Subscription([weak = std::weak_ptr<State>(state_), id] {
      if (auto state = weak.lock()) state->handlers.erase(id);
    });
  }

 private:
  struct State {
    std::uint64_t next = 1;
    std::map<std::uint64_t, Handler> handlers;
  };

  T value_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace velmo::core
