#include "backends/linux/SdBusSenderAccounts.h"

#include <sys/resource.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstring>

#include <asio/post.hpp>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform::linux {
namespace {

// Above every ordinary program, below the kernel's own threads.
constexpr int kNice = -10;

}  // namespace

struct SdBusSenderAccounts::Question {
  SdBusSenderAccounts& owner;
  std::string name;
  sd_bus_slot* slot = nullptr;
  ~Question() {
    if (slot) sd_bus_slot_unref(slot);
  }
};

SdBusSenderAccounts::SdBusSenderAccounts(asio::any_io_executor mainExecutor, Clock& clock,
                                         Answer answer, Reset reset)
    : mainExecutor_(std::move(mainExecutor)),
      clock_(clock),
      answer_(std::move(answer)),
      reset_(std::move(reset)),
      work_(context_.get_executor()) {
  // Connected and listening before the constructor returns, so that every
  // connection that appears after it is asked about at once; the thread
  // takes over the connection only then.
  start();
  thread_ = std::thread([this] {
    // The question races a sender that posts and leaves: on a busy machine
    // this thread must get the processor first. Only root may raise it; any
    // other account keeps the default.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNice);
    context_.run();
  });
}

SdBusSenderAccounts::~SdBusSenderAccounts() {
  lifetime_.end();
  asio::post(context_, [this] {
    questions_.clear();
    connection_.reset();
    work_.reset();
  });
  thread_.join();
}

void SdBusSenderAccounts::ask(std::string uniqueName) {
  asio::post(context_, [this, name = std::move(uniqueName)] {
    if (!questions_.count(name)) query(name);
  });
}

void SdBusSenderAccounts::start() {
  connection_ = std::make_unique<SdBusConnection>(context_.get_executor(), clock_);
  connection_->addMatch(
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
      "interface='org.freedesktop.DBus',member='NameOwnerChanged'",
      [this](sd_bus_message* m) { nameOwnerChanged(m); });
  connection_->addConnectedHandler([this] { connected(); });
  connection_->start();
}

// Questions sent on a connection that broke never come back; after the first
// connection the main executor learns that its answers may be stale.
void SdBusSenderAccounts::connected() {
  std::vector<std::string> lost;
  for (const auto& [name, question] : questions_) lost.push_back(name);
  questions_.clear();
  for (const auto& name : lost) query(name);
  if (std::exchange(connectedOnce_, true)) {
    asio::post(mainExecutor_, [alive = lifetime_.token(), reset = reset_] {
      if (*alive) reset();
    });
  }
}

void SdBusSenderAccounts::nameOwnerChanged(sd_bus_message* message) {
  const char* name = nullptr;
  const char* oldOwner = nullptr;
  const char* newOwner = nullptr;
  if (sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0 || !name ||
      name[0] != ':' || !newOwner || newOwner[0] == '\0') {
    return;
  }
  // Asked now, while the connection surely exists: it may post and leave at once.
  if (!questions_.count(name)) query(name);
}

void SdBusSenderAccounts::query(const std::string& uniqueName) {
  auto question = std::make_unique<Question>(Question{*this, uniqueName});
  auto callback = [](sd_bus_message* reply, void* userdata, sd_bus_error*) -> int {
    auto* asked = static_cast<Question*>(userdata);
    asked->owner.answered(*asked, reply);
    return 0;
  };
  sd_bus* bus = connection_ ? connection_->bus() : nullptr;
  const int result = bus ? sd_bus_call_method_async(bus, &question->slot, "org.freedesktop.DBus",
                                                    "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                                    "GetConnectionUnixUser", callback,
                                                    question.get(), "s", uniqueName.c_str())
                         : -ENOTCONN;
  if (result < 0) {
    logger_.debug("Cannot ask the bus for the account of " + uniqueName + ": " +
                  std::strerror(-result));
    asio::post(mainExecutor_, [alive = lifetime_.token(), answer = answer_, name = uniqueName] {
      if (*alive) answer(name, DistributedNotification::kUnknownSender);
    });
    return;
  }
  connection_->watchPendingIO();
  questions_.emplace(uniqueName, std::move(question));
}

void SdBusSenderAccounts::answered(Question& question, sd_bus_message* reply) {
  std::uint32_t uid = DistributedNotification::kUnknownSender;
  if (sd_bus_message_is_method_error(reply, nullptr) || sd_bus_message_read(reply, "u", &uid) < 0) {
    // Gone before the daemon took the question: nothing vouches for it.
    uid = DistributedNotification::kUnknownSender;
  }
  const std::string name = question.name;
  asio::post(mainExecutor_, [alive = lifetime_.token(), answer = answer_, name, uid] {
    if (*alive) answer(name, uid);
  });
  // Its own callback is running; sd-bus keeps the slot until it returns.
  questions_.erase(name);
}

}  // namespace velmo::platform::linux
