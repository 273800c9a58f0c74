#pragma once

#include <chrono>
#include <functional>

#include <asio/io_context.hpp>

namespace velmo::testing {

// Runs the loop in short slices until `done` holds or `limit` passes.
inline bool runUntil(asio::io_context& context, const std::function<bool()>& done,
                     std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    context.restart();
    context.run_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace velmo::testing
