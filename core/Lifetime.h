#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include <asio/awaitable.hpp>
#include <asio/post.hpp>

#include "core/Executors.h"

namespace velmo::core {

// How work refers to the object that handed it out, in one place. An object
// owned by a shared pointer is held weakly and locked only on its own
// executor (whileAlive, postLocked, holding, startHolding, startHoldingAfter),
// so that its last owner is never work on another thread. Any other object
// holds a Lifetime, and its work looks at the token.

// Stands for the life of the object that holds it, for the work that object
// hands to an executor: the work looks at the token and does nothing once the
// holder is gone. The token may be read on any thread.
class Lifetime {
 public:
  using Token = std::shared_ptr<const std::atomic<bool>>;

  Lifetime() = default;
  ~Lifetime() { end(); }
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  // A destructor calls this first, before it takes its members apart, so
  // that no work starts on a half-destroyed holder.
  void end() { alive_->store(false); }

  // True while the holder lives: a task looks at it after each suspension.
  Token token() const { return alive_; }

  // A handler that hands each call to `executor` as a task of its own, run
  // only while the holder lives: observers of a notification centre never do
  // their work inside the centre's delivery, nor after they are gone.
  template <typename Argument>
  std::function<void(const Argument&)> deferring(
      Executor executor, std::function<void(const Argument&)> handler) const {
    return [executor = std::move(executor), alive = token(),
            handler = std::move(handler)](const Argument& argument) {
      asio::post(executor, [alive, handler, argument] {
        if (*alive) handler(argument);
      });
    };
  }

 private:
  std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
};

// A callable for an object held by a shared pointer, to be called on the
// object's own executor: it calls `work` with the object and the arguments
// while the object lives, and does nothing after.
template <typename T, typename Work>
auto whileAlive(std::weak_ptr<T> weak, Work work) {
  return [weak = std::move(weak), work = std::move(work)](auto&&... arguments) mutable {
    if (auto self = weak.lock()) work(*self, std::forward<decltype(arguments)>(arguments)...);
  };
}

// Hands `work` to `executor` for an object held by a shared pointer: it runs
// there with the object, if the object still lives, and the object is locked
// only there, so that its last owner is never work on another thread.
template <typename T, typename Work>
void postLocked(Executor executor, std::weak_ptr<T> weak, Work work) {
  asio::post(executor, whileAlive(std::move(weak), std::move(work)));
}

// Runs `task(T&)` holding the object, if it still lives when this starts;
// `task` gives the awaitable and lives in this frame while it runs.
template <typename T, typename Task>
asio::awaitable<void> holding(std::weak_ptr<T> weak, Task task) {
  if (auto self = weak.lock()) co_await task(*self);
}

// Starts a task of a long-lived object without keeping the object alive
// until then: the task holds it only once it runs, for as long as it runs,
// and does nothing if it is gone by then. Exceptions are logged.
template <typename T, typename Task>
void startHolding(const Executor& executor, std::weak_ptr<T> weak, const CustomLogger& logger,
                  Task task) {
  startTask(executor, holding(std::move(weak), std::move(task)), logger);
}

// As startHolding, once `wait` is over: the object is not held while it waits.
template <typename T, typename Task>
void startHoldingAfter(const Executor& executor, asio::awaitable<void> wait, std::weak_ptr<T> weak,
                       const CustomLogger& logger, Task task) {
  startTask(
      executor,
      [](asio::awaitable<void> wait, std::weak_ptr<T> weak, Task task) -> asio::awaitable<void> {
        co_await std::move(wait);
        co_await holding(std::move(weak), std::move(task));
      }(std::move(wait), std::move(weak), std::move(task)),
      logger);
}

}  // namespace velmo::core
