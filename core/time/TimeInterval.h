#pragma once

#include <chrono>
#include <string>

#include "core/values/Time.h"

namespace velmo::core {

// Intervals and time limits: seconds in a 64-bit float.
using TimeInterval = std::chrono::duration<double>;

// A clock duration for waits and timers: NaN and negative intervals become
// zero, and anything beyond a century is capped, so conversion can't overflow.
Duration toDuration(TimeInterval interval);

// "1 week, 6 days, 23 hours, 59 minutes, 59 seconds": every unit that applies,
// fractions of a second dropped. Takes a finite, non-negative interval.
std::string durationDescription(TimeInterval interval);

}  // namespace velmo::core
