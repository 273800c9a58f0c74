#include "backends/linux/SdBusNotificationCodec.h"

#include <systemd/sd-bus.h>

#include <cstring>

#include "core/time/VelmoFormatters.h"

namespace velmo::platform::linux {
namespace {

using core::PlistArray;
using core::PlistDictionary;
using core::PlistValue;

// Nesting deeper than this is refused rather than followed: a hostile sender
// must not exhaust the stack.
constexpr int kDeepestNesting = 32;
// About what one decoded value costs beyond its bytes: the value itself, its
// node in a dictionary or its slot in an array, and the allocator's share.
constexpr std::size_t kValueCost = 96;

struct Failure {
  std::string reason;
};

int check(int result, const char* what) {
  if (result < 0) throw Failure{std::string(what) + ": " + std::strerror(-result)};
  return result;
}

// --- writing ---

void writeValue(sd_bus_message* m, const PlistValue& value, int depth);

void writeDictionary(sd_bus_message* m, const PlistDictionary& dictionary, int depth) {
  check(sd_bus_message_open_container(m, 'a', "{sv}"), "open dictionary");
  for (const auto& [key, value] : dictionary) {
    check(sd_bus_message_open_container(m, 'e', "sv"), "open entry");
    check(sd_bus_message_append_basic(m, 's', key.c_str()), "key");
    writeValue(m, value, depth + 1);
    check(sd_bus_message_close_container(m), "close entry");
  }
  check(sd_bus_message_close_container(m), "close dictionary");
}

// Writes one value as a variant.
void writeValue(sd_bus_message* m, const PlistValue& value, int depth) {
  if (depth > kDeepestNesting) throw Failure{"value nested too deeply"};
  const auto& storage = value.storage();
  if (auto* b = std::get_if<bool>(&storage)) {
    check(sd_bus_message_append(m, "v", "b", static_cast<int>(*b)), "boolean");
  } else if (auto* i = std::get_if<std::int64_t>(&storage)) {
    check(sd_bus_message_append(m, "v", "x", *i), "integer");
  } else if (auto* d = std::get_if<double>(&storage)) {
    check(sd_bus_message_append(m, "v", "d", *d), "real");
  } else if (auto* s = std::get_if<std::string>(&storage)) {
    check(sd_bus_message_append(m, "v", "s", s->c_str()), "string");
  } else if (auto* date = std::get_if<core::PlistDate>(&storage)) {
    const std::string text = core::VelmoFormatters::iso8601(date->value);
    check(sd_bus_message_append(m, "v", "s", text.c_str()), "date");
  } else if (auto* data = std::get_if<core::PlistData>(&storage)) {
    check(sd_bus_message_open_container(m, 'v', "ay"), "open data");
    check(sd_bus_message_append_array(m, 'y', data->data(), data->size()), "data");
    check(sd_bus_message_close_container(m), "close data");
  } else if (auto* array = std::get_if<PlistArray>(&storage)) {
    const bool allStrings = std::all_of(array->begin(), array->end(),
                                        [](const PlistValue& v) { return v.is<std::string>(); });
    if (allStrings) {
      check(sd_bus_message_open_container(m, 'v', "as"), "open array");
      check(sd_bus_message_open_container(m, 'a', "s"), "open array");
      for (const auto& element : *array) {
        check(sd_bus_message_append_basic(m, 's', element.getIf<std::string>()->c_str()),
              "array string");
      }
    } else {
      check(sd_bus_message_open_container(m, 'v', "av"), "open array");
      check(sd_bus_message_open_container(m, 'a', "v"), "open array");
      for (const auto& element : *array) writeValue(m, element, depth + 1);
    }
    check(sd_bus_message_close_container(m), "close array");
    check(sd_bus_message_close_container(m), "close array");
  } else if (auto* dictionary = std::get_if<PlistDictionary>(&storage)) {
    check(sd_bus_message_open_container(m, 'v', "a{sv}"), "open dictionary");
    writeDictionary(m, *dictionary, depth);
    check(sd_bus_message_close_container(m), "close dictionary");
  }
}

// --- reading ---

// What a post may still take up as it is read: each value counts its bytes
// and what holding one value costs in memory, so that neither one huge string
// nor a million tiny values get through, and the count is close to the
// memory the decoded post takes. Counted before the copy is made.
class Allowance {
 public:
  explicit Allowance(std::size_t bytes) : left_(bytes), limit_(bytes) {}
  void spend(std::size_t bytes) {
    bytes += kValueCost;
    if (bytes > left_) {
      throw Failure{"larger than the " + std::to_string(limit_) + " bytes allowed for it"};
    }
    left_ -= bytes;
  }
  std::size_t spent() const { return limit_ - left_; }

 private:
  std::size_t left_;
  std::size_t limit_;
};

PlistValue readValue(sd_bus_message* m, char type, const char* contents, int depth,
                     Allowance& allowance);

// Reads the elements of an array whose element signature is `element`.
PlistValue readArray(sd_bus_message* m, const char* element, int depth, Allowance& allowance) {
  if (!std::strcmp(element, "y")) {
    const void* bytes = nullptr;
    size_t size = 0;
    check(sd_bus_message_read_array(m, 'y', &bytes, &size), "data");
    allowance.spend(size);
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    return core::PlistData(begin, begin + size);
  }
  check(sd_bus_message_enter_container(m, 'a', element), "enter array");
  if (element[0] == '{') {
    if (element[1] != 's') throw Failure{"dictionary keys must be strings"};
    PlistDictionary dictionary;
    const std::string entry(element + 1, std::strlen(element) - 2);
    for (;;) {
      const int more = check(sd_bus_message_enter_container(m, 'e', entry.c_str()), "entry");
      if (more == 0) break;
      const char* key = nullptr;
      check(sd_bus_message_read_basic(m, 's', &key), "key");
      allowance.spend(std::strlen(key));
      char type = 0;
      const char* contents = nullptr;
      check(sd_bus_message_peek_type(m, &type, &contents), "entry value");
      dictionary.insert_or_assign(key, readValue(m, type, contents, depth + 1, allowance));
      check(sd_bus_message_exit_container(m), "exit entry");
    }
    check(sd_bus_message_exit_container(m), "exit dictionary");
    return dictionary;
  }
  PlistArray array;
  for (;;) {
    char type = 0;
    const char* contents = nullptr;
    const int more = check(sd_bus_message_peek_type(m, &type, &contents), "array element");
    if (more == 0) break;
    array.push_back(readValue(m, type, contents, depth + 1, allowance));
  }
  check(sd_bus_message_exit_container(m), "exit array");
  return array;
}

template <typename T>
T readBasic(sd_bus_message* m, char type) {
  T value{};
  check(sd_bus_message_read_basic(m, type, &value), "value");
  return value;
}

PlistValue readValue(sd_bus_message* m, char type, const char* contents, int depth,
                     Allowance& allowance) {
  if (depth > kDeepestNesting) throw Failure{"value nested too deeply"};
  if (type != 's') allowance.spend(0);
  switch (type) {
    case 's': {
      const char* text = nullptr;
      check(sd_bus_message_read_basic(m, 's', &text), "string");
      const std::size_t length = std::strlen(text);
      allowance.spend(length);
      return std::string(text, length);
    }
    case 'b':
      return readBasic<int>(m, 'b') != 0;
    case 'y':
      return std::int64_t{readBasic<std::uint8_t>(m, 'y')};
    case 'n':
      return std::int64_t{readBasic<std::int16_t>(m, 'n')};
    case 'q':
      return std::int64_t{readBasic<std::uint16_t>(m, 'q')};
    case 'i':
      return std::int64_t{readBasic<std::int32_t>(m, 'i')};
    case 'u':
      return std::int64_t{readBasic<std::uint32_t>(m, 'u')};
    case 'x':
      return readBasic<std::int64_t>(m, 'x');
    case 't': {
      const auto value = readBasic<std::uint64_t>(m, 't');
      if (value > static_cast<std::uint64_t>(INT64_MAX)) throw Failure{"integer out of range"};
      return static_cast<std::int64_t>(value);
    }
    case 'd':
      return readBasic<double>(m, 'd');
    case 'v': {
      check(sd_bus_message_enter_container(m, 'v', contents), "enter variant");
      char inner = 0;
      const char* innerContents = nullptr;
      check(sd_bus_message_peek_type(m, &inner, &innerContents), "variant value");
      PlistValue value = readValue(m, inner, innerContents, depth + 1, allowance);
      check(sd_bus_message_exit_container(m), "exit variant");
      return value;
    }
    case 'a':
      return readArray(m, contents, depth, allowance);
    default:
      throw Failure{std::string("a value of type '") + type + "' has no property-list form"};
  }
}

}  // namespace

std::optional<std::string> SdBusNotificationCodec::write(
    sd_bus_message* message, const DistributedNotification& notification) {
  try {
    check(sd_bus_message_append_basic(message, 's', notification.name.c_str()), "name");
    check(sd_bus_message_open_container(message, 'a', "s"), "open object");
    if (notification.object) {
      check(sd_bus_message_append_basic(message, 's', notification.object->c_str()), "object");
    }
    check(sd_bus_message_close_container(message), "close object");
    writeDictionary(message, notification.userInfo.value_or(PlistDictionary{}), 0);
    return std::nullopt;
  } catch (const Failure& failure) {
    return failure.reason;
  }
}

std::variant<DistributedNotification, std::string> SdBusNotificationCodec::read(
    sd_bus_message* message, std::size_t limit, std::size_t* size) {
  const bool variants = sd_bus_message_has_signature(message, "sasa{sv}") > 0;
  if (!variants && sd_bus_message_has_signature(message, "sasa{ss}") <= 0) {
    const char* signature = sd_bus_message_get_signature(message, 1);
    return std::string("unexpected signature '") + (signature ? signature : "") + "'";
  }
  try {
    Allowance allowance(limit);
    DistributedNotification notification;
    const char* name = nullptr;
    check(sd_bus_message_read_basic(message, 's', &name), "name");
    notification.name = name;
    if (notification.name.empty()) return std::string("empty notification name");

    check(sd_bus_message_enter_container(message, 'a', "s"), "object");
    const char* object = nullptr;
    while (check(sd_bus_message_read_basic(message, 's', &object), "object") > 0) {
      if (notification.object) return std::string("more than one object");
      const std::size_t length = std::strlen(object);
      allowance.spend(length);
      notification.object.emplace(object, length);
    }
    check(sd_bus_message_exit_container(message), "object");

    PlistValue userInfo = readArray(message, variants ? "{sv}" : "{ss}", 0, allowance);
    auto& dictionary = *userInfo.getIf<PlistDictionary>();
    if (!dictionary.empty()) notification.userInfo = std::move(dictionary);
    if (size) *size = allowance.spent() + notification.name.size();
    return notification;
  } catch (const Failure& failure) {
    return failure.reason;
  }
}

}  // namespace velmo::platform::linux
