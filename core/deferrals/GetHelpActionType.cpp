#include "core/deferrals/GetHelpActionType.h"

#include <nlohmann/json.hpp>

#include "core/values/RawValueCoding.h"

namespace velmo::core {
namespace {

struct Row {
  GetHelpActionType type;
  std::string_view raw;
  std::string_view display;
  std::string_view example;
};

// Indexed by the enumerator's value.
constexpr std::array<Row, 4> kRows{{
    {GetHelpActionType::openURL, "openURL", "Open URL", "https://example.com"},
    {GetHelpActionType::openApp, "openApp", "Open Application", "/Applications/Example.app"},
    {GetHelpActionType::openFile, "openFile", "Open File", "~/Documents/Example.pdf"},
    {GetHelpActionType::runCommand, "runCommand", "Run Command", "echo \"Hello, World!\""},
}};

const Row& row(GetHelpActionType type) { return kRows[static_cast<std::size_t>(type)]; }

}  // namespace

std::string_view rawValue(GetHelpActionType type) { return row(type).raw; }

std::optional<GetHelpActionType> getHelpActionTypeFromRawValue(std::string_view raw) {
  for (const auto& entry : kRows) {
    if (entry.raw == raw) return entry.type;
  }
  return std::nullopt;
}

std::string_view displayString(GetHelpActionType type) { return row(type).display; }

std::string_view examplePayload(GetHelpActionType type) { return row(type).example; }

void to_json(nlohmann::json& json, GetHelpActionType type) { json = rawValue(type); }

void from_json(const nlohmann::json& json, GetHelpActionType& type) {
  type = decodeRawValue(json, getHelpActionTypeFromRawValue, "GetHelpActionType");
}

}  // namespace velmo::core
