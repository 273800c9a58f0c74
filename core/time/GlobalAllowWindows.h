#pragma once

#include "core/time/WindowList.h"

namespace velmo::core {

// The windows of the whole machine in which runs may start, as one value.
// Part of the shared interface; the agent itself reads plain window lists.
using GlobalAllowWindows = WindowList<struct GlobalAllowWindowsTag>;

}  // namespace velmo::core
