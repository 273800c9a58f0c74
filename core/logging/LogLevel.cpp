#include "core/logging/LogLevel.h"

#include <array>
#include <utility>

namespace velmo::core {
namespace {

constexpr std::array<std::pair<LogLevel, std::string_view>, 4> kRawValues{{
    {LogLevel::debug, "debug"},
    {LogLevel::info, "info"},
    {LogLevel::warning, "warning"},
    {LogLevel::error, "error"},
}};

}  // namespace

std::string_view rawValue(LogLevel level) { return kRawValues[static_cast<int>(level)].second; }

}  // namespace velmo::core
