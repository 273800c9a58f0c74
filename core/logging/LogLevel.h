#pragma once

#include <optional>
#include <string_view>

namespace velmo::core {

// Ordered by severity; the order value is the enumerator's value.
enum class LogLevel { debug = 0, info = 1, warning = 2, error = 3 };

std::string_view rawValue(LogLevel level);
std::optional<LogLevel> logLevelFromRawValue(std::string_view raw);

}  // namespace velmo::core
