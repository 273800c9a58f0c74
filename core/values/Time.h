#pragma once

#include <chrono>

namespace velmo::core {

// Wall-clock instants: dates in files and log stamps are wall time.
using TimePoint = std::chrono::system_clock::time_point;
using Duration = std::chrono::nanoseconds;

}  // namespace velmo::core
