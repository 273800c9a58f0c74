#include "platform/Clock.h"

#include <asio/async_result.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

namespace velmo::platform {

asio::awaitable<void> Clock::sleep(Duration delay) {
  auto executor = co_await asio::this_coro::executor;
  std::unique_ptr<Timer> timer;
  co_await asio::async_initiate<decltype(asio::use_awaitable), void()>(
      [&](auto handler) {
        // The completion handler is move-only; the action must be copyable.
        auto shared = std::make_shared<decltype(handler)>(std::move(handler));
        timer = scheduleAfter(delay, executor, [shared] { (*shared)(); });
      },
      asio::use_awaitable);
}

}  // namespace velmo::platform
