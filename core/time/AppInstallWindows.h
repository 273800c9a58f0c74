#pragma once

#include "core/time/WindowList.h"

namespace velmo::core {

// A window list for app installs, as one value.
// Part of the shared interface; the agent itself reads plain window lists.
using AppInstallWindows = WindowList<struct AppInstallWindowsTag>;

}  // namespace velmo::core
