#include "backends/linux/SdBusConnection.h"

#include <poll.h>
#include <systemd/sd-bus.h>
#include <time.h>

#include <cstdlib>
#include <cstring>

#include <asio/post.hpp>

namespace velmo::platform::linux {
namespace {

constexpr Duration kFirstBackoff = std::chrono::seconds(1);
constexpr Duration kLongestBackoff = std::chrono::seconds(30);

std::string describe(int negativeErrno) { return std::strerror(-negativeErrno); }

// The system bus (DBUS_SYSTEM_BUS_ADDRESS when set), refusing file
// descriptors: any account could otherwise send enough of them to use up this
// process's table, and nothing here needs one.
int open(sd_bus** opened) {
  sd_bus* bus = nullptr;
  int result = sd_bus_new(&bus);
  if (result < 0) return result;
  const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  if ((result = sd_bus_set_address(
           bus, address && *address ? address : "unix:path=/run/dbus/system_bus_socket")) < 0 ||
      (result = sd_bus_set_bus_client(bus, 1)) < 0 || (result = sd_bus_negotiate_fds(bus, 0)) < 0 ||
      (result = sd_bus_start(bus)) < 0) {
    sd_bus_unref(bus);
    return result;
  }
  *opened = bus;
  return 0;
}

}  // namespace

struct SdBusConnection::Match {
  SdBusConnection* owner;
  std::string rule;
  MessageHandler handler;
  sd_bus_slot* slot = nullptr;
  bool removed = false;
};

struct SdBusConnection::Object {
  std::string path;
  std::string interface;
  const sd_bus_vtable* vtable;
  void* userdata;
  sd_bus_slot* slot = nullptr;
};

SdBusConnection::SdBusConnection(asio::any_io_executor executor, Clock& clock)
    : executor_(std::move(executor)), clock_(clock), busTimer_(executor_) {}

SdBusConnection::~SdBusConnection() {
  lifetime_.end();
  reconnectTimer_.reset();
  releaseRetired();
  for (auto& [id, match] : matches_) {
    if (match->slot) sd_bus_slot_unref(match->slot);
    match->slot = nullptr;
  }
  for (auto& [id, object] : objects_) {
    if (object->slot) sd_bus_slot_unref(object->slot);
  }
  if (descriptor_) descriptor_->release();  // The bus owns the descriptor.
  if (bus_) sd_bus_flush_close_unref(bus_);
}

void SdBusConnection::start() { connect(); }

void SdBusConnection::connect() {
  reconnectTimer_.reset();
  sd_bus* bus = nullptr;
  int result = open(&bus);
  if (result < 0) {
    logger_.error(
        "Cannot connect to the system bus: " + describe(result) + "; retrying in " +
        std::to_string(std::chrono::duration_cast<std::chrono::seconds>(backoff_).count()) + " s");
    scheduleReconnect();
    return;
  }
  bus_ = bus;
  ++generation_;
  const int fd = sd_bus_get_fd(bus_);
  descriptor_ = std::make_unique<asio::posix::stream_descriptor>(executor_, fd);
  readArmed_ = writeArmed_ = false;
  for (auto& [id, match] : matches_) installMatch(*match);
  if (!bus_) return;  // Installing a rule found the connection broken.
  // Before the handlers, which may claim names: whoever sees a name appear
  // finds its objects there.
  for (auto& [id, object] : objects_) installObject(*object);
  backoff_ = kFirstBackoff;
  logger_.debug("Connected to the system bus");
  for (const auto& handler : connected_) handler();
  scheduleProcessing();
}

void SdBusConnection::installMatch(Match& match) {
  if (!bus_ || match.removed) return;
  auto callback = [](sd_bus_message* message, void* userdata, sd_bus_error*) -> int {
    auto* entry = static_cast<Match*>(userdata);
    if (!entry->removed) entry->handler(message);
    return 0;
  };
  // Synchronous, so that once addMatch returns, posts by others are seen.
  const int result = sd_bus_add_match(bus_, &match.slot, match.rule.c_str(), callback, &match);
  if (result < 0) {
    match.slot = nullptr;
    disconnect("adding match rule " + match.rule + " failed: " + describe(result));
  }
}

SdBusConnection::MatchId SdBusConnection::addMatch(std::string rule, MessageHandler handler) {
  const MatchId id = nextMatch_++;
  auto match = std::make_unique<Match>(Match{this, std::move(rule), std::move(handler)});
  Match& entry = *match;
  matches_.emplace(id, std::move(match));
  installMatch(entry);
  scheduleProcessing();
  return id;
}

void SdBusConnection::removeMatch(MatchId id) {
  auto found = matches_.find(id);
  if (found == matches_.end()) return;
  found->second->removed = true;
  // The slot may belong to the callback that is running now: let go of it
  // once that has returned.
  retired_.push_back(std::move(found->second));
  matches_.erase(found);
  if (retired_.size() == 1) {
    asio::post(executor_, [this, alive = lifetime_.token()] {
      if (*alive) releaseRetired();
    });
  }
}

void SdBusConnection::releaseRetired() {
  for (auto& match : retired_) {
    if (match->slot) sd_bus_slot_unref(match->slot);
  }
  retired_.clear();
}

SdBusConnection::ObjectId SdBusConnection::addObject(std::string path, std::string interface,
                                                     const sd_bus_vtable* vtable, void* userdata) {
  const ObjectId id = nextObject_++;
  auto object =
      std::make_unique<Object>(Object{std::move(path), std::move(interface), vtable, userdata});
  installObject(*object);
  objects_.emplace(id, std::move(object));
  return id;
}

void SdBusConnection::installObject(Object& object) {
  if (!bus_) return;
  // Local to this process: a failure means a bad path or vtable, not a broken bus.
  const int result =
      sd_bus_add_object_vtable(bus_, &object.slot, object.path.c_str(), object.interface.c_str(),
                               object.vtable, object.userdata);
  if (result < 0) {
    object.slot = nullptr;
    logger_.error("Cannot serve " + object.interface + " at " + object.path + ": " +
                  describe(result));
  }
}

void SdBusConnection::removeObject(ObjectId id) {
  auto found = objects_.find(id);
  if (found == objects_.end()) return;
  if (found->second->slot) sd_bus_slot_unref(found->second->slot);
  objects_.erase(found);
}

bool SdBusConnection::send(sd_bus_message* message) {
  if (!bus_) return false;
  const int result = sd_bus_send(bus_, message, nullptr);
  if (result < 0) {
    logger_.error("Sending on the system bus failed: " + describe(result));
    return false;
  }
  armWaits();  // What didn't fit the socket waits for it to become writable.
  return true;
}

void SdBusConnection::flush() {
  if (bus_) sd_bus_flush(bus_);
}

void SdBusConnection::disconnect(const std::string& reason) {
  if (!bus_) return;
  logger_.error("System bus connection lost (" + reason + "); reconnecting in " +
                std::to_string(std::chrono::duration_cast<std::chrono::seconds>(backoff_).count()) +
                " s");
  ++generation_;
  for (auto& [id, match] : matches_) {
    if (match->slot) sd_bus_slot_unref(match->slot);
    match->slot = nullptr;
  }
  for (auto& [id, object] : objects_) {
    if (object->slot) sd_bus_slot_unref(object->slot);
    object->slot = nullptr;
  }
  busTimer_.cancel();
  if (descriptor_) {
    descriptor_->cancel();
    descriptor_->release();
    descriptor_.reset();
  }
  sd_bus_close_unref(bus_);
  bus_ = nullptr;
  scheduleReconnect();
}

void SdBusConnection::scheduleReconnect() {
  const Duration delay = backoff_;
  backoff_ = std::min(backoff_ * 2, kLongestBackoff);
  reconnectTimer_ = clock_.scheduleAfter(delay, executor_, [this] { connect(); });
}

void SdBusConnection::scheduleProcessing() {
  if (processingScheduled_ || !bus_) return;
  processingScheduled_ = true;
  asio::post(executor_, [this, alive = lifetime_.token()] {
    if (!*alive) return;
    processingScheduled_ = false;
    processPending();
  });
}

void SdBusConnection::processPending() {
  if (!bus_) return;
  // Each call handles at most one message; stop when nothing is left so other
  // work on the loop gets its turn between batches.
  for (int handled = 0; handled < 256; ++handled) {
    const int result = sd_bus_process(bus_, nullptr);
    if (result < 0) {
      disconnect(describe(result));
      return;
    }
    if (!bus_) return;  // A handler's action broke the connection.
    if (result == 0) break;
    if (handled == 255) {
      scheduleProcessing();
      return;
    }
  }
  if (sd_bus_is_open(bus_) <= 0) {
    disconnect("closed by the bus");
    return;
  }
  armWaits();
}

void SdBusConnection::armWaits() {
  if (!bus_ || !descriptor_) return;
  const int events = sd_bus_get_events(bus_);
  if (events < 0) {
    disconnect(describe(events));
    return;
  }
  const std::uint64_t generation = generation_;
  // One outstanding wait per direction; `armed` is cleared when it completes.
  auto wait = [&](asio::posix::descriptor_base::wait_type type, bool& armed) {
    if (armed) return;
    armed = true;
    descriptor_->async_wait(
        type, [this, generation, &armed, alive = lifetime_.token()](std::error_code error) {
          if (!*alive || generation != generation_) return;
          armed = false;
          if (!error) processPending();
        });
  };
  if (events & POLLIN) wait(asio::posix::descriptor_base::wait_read, readArmed_);
  if (events & POLLOUT) wait(asio::posix::descriptor_base::wait_write, writeArmed_);
  std::uint64_t deadline = 0;
  if (sd_bus_get_timeout(bus_, &deadline) >= 0 && deadline != UINT64_MAX) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const std::uint64_t nowUsec = static_cast<std::uint64_t>(now.tv_sec) * 1000000 +
                                  static_cast<std::uint64_t>(now.tv_nsec) / 1000;
    busTimer_.expires_after(std::chrono::microseconds(deadline > nowUsec ? deadline - nowUsec : 0));
    busTimer_.async_wait([this, generation, alive = lifetime_.token()](std::error_code error) {
      if (!error && *alive && generation == generation_) processPending();
    });
  }
}

}  // namespace velmo::platform::linux
