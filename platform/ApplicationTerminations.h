#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "platform/DistributedNotificationCenter.h"

namespace velmo::platform {

// Applications that end. A process whose executable lies directly in
// `<X>.app/Contents/MacOS/` is an application; its exit is the termination of
// the application whose bundle is `<X>.app`. Handlers run on the main
// executor and get the bundle path, or none when it can't be told.
class ApplicationTerminations {
 public:
  using Handler = std::function<void(const std::optional<std::filesystem::path>& bundlePath)>;

  virtual ~ApplicationTerminations() = default;
  virtual ObserverToken addObserver(Handler handler) = 0;
  virtual void removeObserver(ObserverToken token) = 0;

  // The bundle of an executable at `executable`, or none when it isn't an application's.
  static std::optional<std::filesystem::path> bundleOfExecutable(
      const std::filesystem::path& executable) {
    const auto macOS = executable.parent_path();
    const auto contents = macOS.parent_path();
    const auto bundle = contents.parent_path();
    if (macOS.filename() != "MacOS" || contents.filename() != "Contents") return std::nullopt;
    if (bundle.extension() != ".app" || bundle.filename() == ".app") return std::nullopt;
    return bundle;
  }
};

}  // namespace velmo::platform
