#include "backends/linux/SdBusAgentStatusCodec.h"

#include <systemd/sd-bus.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>
#include <variant>

namespace velmo::platform::linux {
namespace {

using core::TimePoint;
using Value = std::variant<std::string, bool, std::int64_t, std::uint64_t>;

// Later dates don't fit a TimePoint (year 2262): a reader takes them as none.
constexpr std::uint64_t kLatestMicroseconds = static_cast<std::uint64_t>(
    std::chrono::duration_cast<std::chrono::microseconds>(TimePoint::duration::max()).count());

std::uint64_t microseconds(TimePoint date) {
  const auto count =
      std::chrono::duration_cast<std::chrono::microseconds>(date.time_since_epoch()).count();
  return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

std::optional<TimePoint> date(std::uint64_t microseconds) {
  if (microseconds == 0 || microseconds > kLatestMicroseconds) return std::nullopt;
  return TimePoint(std::chrono::duration_cast<TimePoint::duration>(
      std::chrono::microseconds(static_cast<std::int64_t>(microseconds))));
}

struct Field {
  const char* name;
  const char* signature;
  Value (*get)(const AgentStatus&);
  // Given a value of the field's own type.
  void (*set)(AgentStatus&, const Value&);
};

template <std::string AgentStatus::*member>
constexpr Field text(const char* name) {
  return {name, "s", [](const AgentStatus& s) -> Value { return s.*member; },
          [](AgentStatus& s, const Value& v) { s.*member = std::get<std::string>(v); }};
}

template <bool AgentStatus::*member>
constexpr Field flag(const char* name) {
  return {name, "b", [](const AgentStatus& s) -> Value { return s.*member; },
          [](AgentStatus& s, const Value& v) { s.*member = std::get<bool>(v); }};
}

template <std::int64_t AgentStatus::*member>
constexpr Field count(const char* name) {
  return {name, "x", [](const AgentStatus& s) -> Value { return s.*member; },
          [](AgentStatus& s, const Value& v) { s.*member = std::get<std::int64_t>(v); }};
}

template <TimePoint AgentStatus::*member>
constexpr Field instant(const char* name) {
  return {name, "t", [](const AgentStatus& s) -> Value { return microseconds(s.*member); },
          [](AgentStatus& s, const Value& v) {
            if (auto when = date(std::get<std::uint64_t>(v))) s.*member = *when;
          }};
}

template <std::optional<TimePoint> AgentStatus::*member>
constexpr Field optionalInstant(const char* name) {
  return {name, "t",
          [](const AgentStatus& s) -> Value {
            return (s.*member) ? microseconds(*(s.*member)) : std::uint64_t{0};
          },
          [](AgentStatus& s, const Value& v) { s.*member = date(std::get<std::uint64_t>(v)); }};
}

constexpr std::array kFields{
    text<&AgentStatus::version>("Version"),
    instant<&AgentStatus::startedAt>("StartedAt"),
    optionalInstant<&AgentStatus::nextRunDate>("NextRunDate"),
    flag<&AgentStatus::runInProgress>("RunInProgress"),
    optionalInstant<&AgentStatus::runStartedAt>("RunStartedAt"),
    flag<&AgentStatus::runPending>("RunPending"),
    optionalInstant<&AgentStatus::lastRunDate>("LastRunDate"),
    count<&AgentStatus::runCount>("RunCount"),
    text<&AgentStatus::runsHeldBy>("RunsHeldBy"),
    optionalInstant<&AgentStatus::nextMaintenanceDate>("NextMaintenanceDate"),
    flag<&AgentStatus::maintenanceRunning>("MaintenanceRunning"),
};

const Field* find(std::string_view name) {
  for (const Field& field : kFields) {
    if (name == field.name) return &field;
  }
  return nullptr;
}

std::optional<Value> readBasic(sd_bus_message* message, char type) {
  switch (type) {
    case 's': {
      const char* text = nullptr;
      if (sd_bus_message_read_basic(message, 's', &text) > 0 && text) return std::string(text);
      break;
    }
    case 'b': {
      int flag = 0;
      if (sd_bus_message_read_basic(message, 'b', &flag) > 0) return flag != 0;
      break;
    }
    case 'x': {
      std::int64_t count = 0;
      if (sd_bus_message_read_basic(message, 'x', &count) > 0) return count;
      break;
    }
    case 't': {
      std::uint64_t count = 0;
      if (sd_bus_message_read_basic(message, 't', &count) > 0) return count;
      break;
    }
  }
  return std::nullopt;
}

int appendBasic(sd_bus_message* message, const Value& value) {
  return std::visit(
      [&](const auto& v) -> int {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return sd_bus_message_append_basic(message, 's', v.c_str());
        } else if constexpr (std::is_same_v<T, bool>) {
          const int flag = v;
          return sd_bus_message_append_basic(message, 'b', &flag);
        } else if constexpr (std::is_same_v<T, std::int64_t>) {
          return sd_bus_message_append_basic(message, 'x', &v);
        } else {
          return sd_bus_message_append_basic(message, 't', &v);
        }
      },
      value);
}

}  // namespace

std::vector<SdBusAgentStatusCodec::Property> SdBusAgentStatusCodec::properties() {
  std::vector<Property> result;
  for (const Field& field : kFields) result.push_back({field.name, field.signature});
  return result;
}

int SdBusAgentStatusCodec::append(sd_bus_message* reply, std::string_view property,
                                  const AgentStatus& status) {
  const Field* field = find(property);
  return field ? appendBasic(reply, field->get(status)) : -ENOENT;
}

std::vector<std::string> SdBusAgentStatusCodec::changed(const AgentStatus& before,
                                                        const AgentStatus& after) {
  std::vector<std::string> names;
  for (const Field& field : kFields) {
    if (field.get(before) != field.get(after)) names.emplace_back(field.name);
  }
  return names;
}

AgentStatus SdBusAgentStatusCodec::read(sd_bus_message* reply) {
  AgentStatus status;
  if (sd_bus_message_enter_container(reply, 'a', "{sv}") <= 0) return status;
  // The first step that fails ends the walk; what was read by then stands.
  while (sd_bus_message_enter_container(reply, 'e', "sv") > 0) {
    const char* name = nullptr;
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_read_basic(reply, 's', &name) <= 0 || !name ||
        sd_bus_message_peek_type(reply, &type, &contents) <= 0) {
      break;
    }
    const Field* field = find(name);
    if (field && contents && std::strcmp(contents, field->signature) == 0) {
      if (sd_bus_message_enter_container(reply, 'v', contents) <= 0) break;
      const auto value = readBasic(reply, field->signature[0]);
      if (!value || sd_bus_message_exit_container(reply) < 0) break;
      field->set(status, *value);
    } else if (sd_bus_message_skip(reply, "v") < 0) {
      break;
    }
    if (sd_bus_message_exit_container(reply) < 0) break;
  }
  return status;
}

}  // namespace velmo::platform::linux
