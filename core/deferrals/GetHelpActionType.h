#pragma once

#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace velmo::core {

// What a help button in the notifier does.
enum class GetHelpActionType { openURL, openApp, openFile, runCommand };

// Every case, in the order the notifier lists them.
inline constexpr std::array<GetHelpActionType, 4> kAllGetHelpActionTypes{
    GetHelpActionType::openURL, GetHelpActionType::openApp, GetHelpActionType::openFile,
    GetHelpActionType::runCommand};

std::string_view rawValue(GetHelpActionType type);
// Exact match, case included; none for anything else.
std::optional<GetHelpActionType> getHelpActionTypeFromRawValue(std::string_view raw);

// The name shown to an administrator, "Open URL" and so on.
std::string_view displayString(GetHelpActionType type);
// A payload of the right shape for the type, shown as a hint.
std::string_view examplePayload(GetHelpActionType type);

// JSON form: the raw value as a string. Decoding throws on anything else.
void to_json(nlohmann::json& json, GetHelpActionType type);
void from_json(const nlohmann::json& json, GetHelpActionType& type);

}  // namespace velmo::core
