// Feeds the notification decoder every shape of signal body a local program
// could put on the bus. The input drives a generator: it picks a signature
// (any D-Bus type, nesting included) and the values to fill it, and the sealed
// message goes to the decoder, which must answer with a notification or a
// reason, never crash.
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "backends/linux/SdBusNotificationCodec.h"

namespace {

class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t byte() { return position_ < size_ ? data_[position_++] : 0; }
  std::uint64_t number() {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | byte();
    return value;
  }
  std::string text() {
    std::string value;
    const std::size_t length = byte() % 12;
    for (std::size_t i = 0; i < length; ++i) {
      // Printable ASCII keeps strings valid UTF-8, which the library insists on.
      value += static_cast<char>(' ' + byte() % 95);
    }
    return value;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t position_ = 0;
};

std::string signature(Reader& in, int depth) {
  static const char kBasic[] = "sbxdiutynqog";
  const std::uint8_t pick = in.byte();
  if (depth > 4 || pick % 16 < 12) return std::string(1, kBasic[pick % 12]);
  switch (pick % 4) {
    case 0:
      return "v";
    case 1:
      return "a" + signature(in, depth + 1);
    case 2:
      return "a{" + std::string(1, kBasic[in.byte() % 12]) + signature(in, depth + 1) + "}";
    default:
      return "(" + signature(in, depth + 1) + signature(in, depth + 1) + ")";
  }
}

// Length of the first complete type in `sig` starting at `at`.
std::size_t typeLength(const std::string& sig, std::size_t at) {
  const char c = sig[at];
  if (c == 'a') return 1 + typeLength(sig, at + 1);
  if (c == '(' || c == '{') {
    std::size_t end = at + 1;
    while (sig[end] != (c == '(' ? ')' : '}')) end += typeLength(sig, end);
    return end - at + 1;
  }
  return 1;
}

void append(sd_bus_message* m, const std::string& sig, Reader& in, int depth) {
  const char c = sig[0];
  switch (c) {
    case 's':
    case 'g':
    case 'o': {
      std::string value = in.text();
      if (c == 'o') value = "/p" + std::to_string(value.size());
      if (c == 'g') value = "s";
      sd_bus_message_append_basic(m, c, value.c_str());
      return;
    }
    case 'b': {
      int value = in.byte() & 1;
      sd_bus_message_append_basic(m, c, &value);
      return;
    }
    case 'd': {
      double value = static_cast<double>(static_cast<std::int64_t>(in.number())) / 7.0;
      sd_bus_message_append_basic(m, c, &value);
      return;
    }
    case 'x':
    case 'i':
    case 'u':
    case 't':
    case 'y':
    case 'n':
    case 'q': {
      std::uint64_t value = in.number();
      sd_bus_message_append_basic(m, c, &value);  // Little-endian: the low bytes count.
      return;
    }
    case 'v': {
      const std::string inner = signature(in, depth + 1);
      sd_bus_message_open_container(m, 'v', inner.c_str());
      append(m, inner, in, depth + 1);
      sd_bus_message_close_container(m);
      return;
    }
    case 'a': {
      const std::string element = sig.substr(1, typeLength(sig, 1));
      sd_bus_message_open_container(m, 'a', element.c_str());
      const int count = in.byte() % 4;
      for (int i = 0; i < count; ++i) append(m, element, in, depth + 1);
      sd_bus_message_close_container(m);
      return;
    }
    case '(':
    case '{': {
      const std::string contents = sig.substr(1, typeLength(sig, 0) - 2);
      sd_bus_message_open_container(m, c == '(' ? 'r' : 'e', contents.c_str());
      for (std::size_t at = 0; at < contents.size(); at += typeLength(contents, at)) {
        append(m, contents.substr(at, typeLength(contents, at)), in, depth + 1);
      }
      sd_bus_message_close_container(m);
      return;
    }
    default:
      return;
  }
}

sd_bus* unconnectedBus() {
  static sd_bus* bus = [] {
    int fds[2];
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
    sd_bus* b = nullptr;
    sd_bus_new(&b);
    sd_bus_set_fd(b, fds[0], fds[0]);
    sd_bus_start(b);
    return b;
  }();
  return bus;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Reader in(data, size);
  sd_bus_message* m = nullptr;
  if (sd_bus_message_new_signal(unconnectedBus(), &m, "/com/marvenith/velmo",
                                "com.marvenith.velmo.Notifications", "Post") < 0) {
    return 0;
  }
  // Mostly the expected frame, with free-form values inside it; sometimes
  // anything at all.
  const std::uint8_t shape = in.byte();
  if (shape % 4 != 0) {
    sd_bus_message_append_basic(m, 's', in.text().c_str());
    append(m, shape % 4 == 1 ? "as" : "a" + signature(in, 1), in, 1);
    append(m, shape % 4 == 3 ? "a{ss}" : "a{sv}", in, 1);
  } else {
    const int parts = 1 + in.byte() % 4;
    for (int i = 0; i < parts; ++i) append(m, signature(in, 0), in, 0);
  }
  if (sd_bus_message_seal(m, 1, 0) >= 0 && sd_bus_message_rewind(m, 1) >= 0) {
    // Sometimes under a small limit, so that the refusal midway is tried too.
    const std::size_t limit = shape & 0x10 ? shape : SIZE_MAX;
    std::size_t bytes = 0;
    (void)velmo::platform::linux::SdBusNotificationCodec::read(m, limit, &bytes);
  }
  sd_bus_message_unref(m);
  return 0;
}
