#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <asio/post.hpp>

#include "core/Executors.h"

namespace velmo::core {

// Stands for the life of the object that holds it, for the work that object
// hands to its executor: the work looks at the token and does nothing once
// the holder is gone. Holder and work share one executor, so the token needs
// no lock. For an object owned by a shared pointer, startHolding serves.
class Lifetime {
 public:
  Lifetime() = default;
  ~Lifetime() { *alive_ = false; }
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  // True while the holder lives: a task looks at it after each suspension.
  std::shared_ptr<const bool> token() const { return alive_; }

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
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
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

}  // namespace velmo::core
