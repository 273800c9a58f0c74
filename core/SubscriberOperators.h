#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <asio/any_io_executor.hpp>

#include "core/Debouncer.h"

namespace velmo::core {

// Handler adaptors for subscriptions, composed outside in:
// removeDuplicates(dropFirst(debounce(..., handler))).

// Passes a value on only when it differs from the one before.
template <typename T>
std::function<void(const T&)> removeDuplicates(std::function<void(const T&)> next) {
  auto last = std::make_shared<std::optional<T>>();
  return [last, next = std::move(next)](const T& value) {
    if (*last && **last == value) return;
    *last = value;
    next(value);
  };
}

// Swallows the first `count` values (the one delivered at subscription).
template <typename T>
std::function<void(const T&)> dropFirst(std::function<void(const T&)> next, int count = 1) {
  auto left = std::make_shared<int>(count);
  return [left, next = std::move(next)](const T& value) {
    if (*left > 0) {
      --*left;
      return;
    }
    next(value);
  };
}

// Passes on the newest value once no other came for `delay`. The pending
// value goes with the last copy of the returned handler.
template <typename T>
std::function<void(const T&)> debounce(asio::any_io_executor executor, platform::Clock& clock,
                                       Duration delay, std::function<void(const T&)> next) {
  struct State {
    std::optional<T> latest;
    std::unique_ptr<Debouncer> debouncer;
  };
  auto state = std::make_shared<State>();
  state->debouncer =
      std::make_unique<Debouncer>(std::move(executor), clock, delay,
                                  [weak = std::weak_ptr<State>(state), next = std::move(next)] {
                                    auto alive = weak.lock();
                                    if (alive && alive->latest) next(*alive->latest);
                                  });
  return [state](const T& value) {
    state->latest = value;
    state->debouncer->trigger();
  };
}

}  // namespace velmo::core
