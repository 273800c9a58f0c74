#include "backends/linux/SdBusThread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <future>
#include <memory>

#include <asio/post.hpp>

namespace velmo::platform::linux {
namespace {

// Above every ordinary program: a flood of posts from other accounts must not
// outpace the reading of them.
constexpr int kNice = -10;

}  // namespace

SdBusThread::SdBusThread(Clock& clock)
    : work_(context_.get_executor()), connection_(context_.get_executor(), clock) {}

SdBusThread::~SdBusThread() { stop(); }

void SdBusThread::start() {
  if (thread_.joinable()) return;
  asio::post(context_, [this] { connection_.start(); });
  thread_ = std::thread([this] {
    // Only root may raise it; any other account keeps the default.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNice);
    context_.run();
  });
}

void SdBusThread::flush(std::chrono::milliseconds limit) {
  if (!thread_.joinable()) return;
  auto done = std::make_shared<std::promise<void>>();
  auto written = done->get_future();
  // After everything posted before it, in order.
  asio::post(context_, [this, done] {
    connection_.flush();
    done->set_value();
  });
  written.wait_for(limit);
}

void SdBusThread::stop() {
  if (!thread_.joinable()) return;
  work_.reset();
  context_.stop();
  thread_.join();
}

}  // namespace velmo::platform::linux
