#include "core/deferrals/GetHelpActionButton.h"

#include <string_view>
#include <utility>

namespace velmo::core {
namespace {

constexpr std::string_view kLabelKey = "Label";
constexpr std::string_view kPayloadKey = "Payload";
constexpr std::string_view kActionTypeKey = "ActionType";
constexpr std::string_view kIsProminentKey = "IsProminent";
constexpr std::string_view kIconSymbolKey = "IconSymbol";

template <typename T>
std::optional<T> decodeIfPresent(const nlohmann::json& json, std::string_view key) {
  const auto found = json.find(key);
  if (found == json.end() || found->is_null()) return std::nullopt;
  return found->get<T>();
}

}  // namespace

void to_json(nlohmann::json& json, const GetHelpActionButton& button) {
  json = nlohmann::json::object();
  json[kLabelKey] = button.label;
  json[kPayloadKey] = button.payload;
  json[kActionTypeKey] = button.actionType;
  if (button.isProminent) json[kIsProminentKey] = *button.isProminent;
  if (button.iconSymbol) json[kIconSymbolKey] = *button.iconSymbol;
}

void from_json(const nlohmann::json& json, GetHelpActionButton& button) {
  // Decode into a fresh value first, so a failure leaves `button` untouched.
  GetHelpActionButton decoded;
  json.at(kLabelKey).get_to(decoded.label);
  json.at(kPayloadKey).get_to(decoded.payload);
  json.at(kActionTypeKey).get_to(decoded.actionType);
  decoded.isProminent = decodeIfPresent<bool>(json, kIsProminentKey);
  decoded.iconSymbol = decodeIfPresent<std::string>(json, kIconSymbolKey);
  button = std::move(decoded);
}

}  // namespace velmo::core

namespace {

void combine(std::size_t& seed, std::size_t value) {
  seed ^= value + static_cast<std::size_t>(0x9e3779b97f4a7c15ULL) + (seed << 6) + (seed >> 2);
}

}  // namespace

std::size_t std::hash<velmo::core::GetHelpActionButton>::operator()(
    const velmo::core::GetHelpActionButton& button) const noexcept {
  std::size_t seed = 0;
  combine(seed, std::hash<velmo::core::Uuid>{}(button.id));
  combine(seed, std::hash<std::string>{}(button.label));
  combine(seed, std::hash<std::string>{}(button.payload));
  combine(seed, std::hash<std::string_view>{}(rawValue(button.actionType)));
  combine(seed, button.isProminent.has_value());
  if (button.isProminent) combine(seed, std::hash<bool>{}(*button.isProminent));
  combine(seed, button.iconSymbol.has_value());
  if (button.iconSymbol) combine(seed, std::hash<std::string>{}(*button.iconSymbol));
  return seed;
}
