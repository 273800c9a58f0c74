#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "core/Uuid.h"
#include "core/deferrals/GetHelpActionType.h"

namespace velmo::core {

// One help button configured for the notifier.
struct GetHelpActionButton {
  // Identifies the button on screen only: never encoded, and a fresh one at
  // each construction and each decoding, so two decodings of one JSON object
  // are different buttons.
  Uuid id = Uuid::random();
  std::string label;
  std::string payload;
  GetHelpActionType actionType = GetHelpActionType::openURL;
  std::optional<bool> isProminent;
  std::optional<std::string> iconSymbol;

  friend bool operator==(const GetHelpActionButton&, const GetHelpActionButton&) = default;
};

// Keys "Label", "Payload", "ActionType", and "IsProminent" and "IconSymbol"
// only when present. Decoding throws (nlohmann's exceptions) when a required
// key is missing, a value has the wrong type or the action type is outside
// its table; a JSON null for an optional counts as absent.
void to_json(nlohmann::json& json, const GetHelpActionButton& button);
void from_json(const nlohmann::json& json, GetHelpActionButton& button);

}  // namespace velmo::core

// Over all six fields in order; each optional adds a presence flag before its
// value, so an absent value and a present default one hash apart.
template <>
struct std::hash<velmo::core::GetHelpActionButton> {
  std::size_t operator()(const velmo::core::GetHelpActionButton& button) const noexcept;
};
