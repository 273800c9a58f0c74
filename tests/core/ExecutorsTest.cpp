#include "core/Executors.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include <asio/io_context.hpp>

#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

TEST(Executors, RunOnHopsToTheStrandAndBackWithTheResult) {
  asio::io_context context;
  SerialExecutor strand = makeSerialExecutor(context.get_executor());
  bool ranOnStrand = false;
  int result = 0;
  // A coroutine lambda must outlive its coroutine: keep it in a variable.
  auto task = [&]() -> asio::awaitable<void> {
    result = co_await runOn(strand, [&]() -> asio::awaitable<int> {
      ranOnStrand = strand.running_in_this_thread();
      co_return 42;
    }());
  };
  startTask(context.get_executor(), task(), CustomLogger("Tests"));
  context.run();
  EXPECT_TRUE(ranOnStrand);
  EXPECT_EQ(result, 42);
}

TEST(Executors, AnExceptionThatEscapesATaskIsLogged) {
  testing::LogCapture capture;
  asio::io_context context;
  startTask(
      context.get_executor(),
      []() -> asio::awaitable<void> {
        throw std::runtime_error("boom");
        co_return;
      }(),
      CustomLogger("Tests"));
  context.run();
  EXPECT_EQ(capture.errors(), std::vector<std::string>{"Task ended with an exception: boom"});
}

}  // namespace
}  // namespace velmo::core
