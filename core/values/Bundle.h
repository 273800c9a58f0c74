#pragma once

#include <optional>
#include <string>

namespace velmo::core {

// The identity of the running program, as its bundle's information
// dictionary would give it. The composition root sets it once at start.
struct Bundle {
  std::optional<std::string> identifier;
  std::optional<std::string> shortVersionString;
  std::optional<std::string> version;

  static const Bundle& main();
  static void setMain(Bundle bundle);

  // "<short version>.<build>", each "Unknown" where absent or empty.
  std::string versionString() const;
};

}  // namespace velmo::core
