#include "core/items/InstallState.h"

#include <array>
#include <utility>

namespace velmo::core {
namespace {

constexpr std::array<std::pair<InstallState, std::string_view>, 10> kRawValues{{
    {InstallState::available, "available"},
    {InstallState::pendingQueue, "pendingQueue"},
    {InstallState::queued, "queued"},
    {InstallState::downloading, "downloading"},
    {InstallState::preparing, "preparing"},
    {InstallState::validating, "validating"},
    {InstallState::terminating, "terminating"},
    {InstallState::installing, "installing"},
    {InstallState::installed, "installed"},
    {InstallState::failed, "failed"},
}};

}  // namespace

std::string_view rawValue(InstallState state) {
  for (const auto& [candidate, raw] : kRawValues) {
    if (candidate == state) return raw;
  }
  return "";
}

std::optional<InstallState> installStateFromRawValue(std::string_view raw) {
  for (const auto& [state, candidate] : kRawValues) {
    if (candidate == raw) return state;
  }
  return std::nullopt;
}

}  // namespace velmo::core
