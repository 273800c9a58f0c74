#pragma once

#include <chrono>

namespace velmo::core {

// Wall-clock instants: dates in files and log stamps are wall time.
using TimePoint = std::chrono::system_clock::time_point;
// Instants of elapsed time, the time the machine was awake: time limits,
// graces, throttles, debounces and back-off count it. A distinct type, so that
// the two never mix: a step of the wall clock or a night's sleep changes no
// time limit.
using ElapsedPoint = std::chrono::steady_clock::time_point;
using Duration = std::chrono::nanoseconds;

}  // namespace velmo::core
