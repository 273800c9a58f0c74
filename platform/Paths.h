#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velmo::platform {

// Every fixed absolute path of the system, resolved under a root prefix
// (VELMO_ROOT, or "/"). No other code joins a fixed path.
class Paths {
 public:
  explicit Paths(std::filesystem::path root = "/");
  // Reads VELMO_ROOT; unset or empty means "/".
  static Paths fromEnvironment();

  const std::filesystem::path& root() const { return root_; }

  // `absolute` is a path as the Mac knows it, such as "/Library/Preferences".
  std::filesystem::path resolve(std::string_view absolute) const;

  std::filesystem::path toolDirectory() const;
  std::filesystem::path toolExecutable() const;
  std::filesystem::path toolCacheDirectory() const;
  std::filesystem::path toolLink() const;
  std::filesystem::path updateStateFile() const;
  // What the agent is and does, for inventory tools; readable by every user.
  std::filesystem::path inventoryReportFile() const;
  std::filesystem::path agentStateFile() const;
  std::filesystem::path deferralsFile() const;
  std::filesystem::path logFile() const;
  std::filesystem::path inventoryTool() const;
  std::filesystem::path applicationsDirectory() const;
  std::filesystem::path utilitiesDirectory() const;
  std::filesystem::path managedPreferencesDirectory() const;
  std::filesystem::path managedPreferencesFile(std::string_view domain) const;
  std::filesystem::path rootPreferencesFile(std::string_view domain) const;
  std::filesystem::path machinePreferencesFile(std::string_view domain) const;
  // The machine's id, one line of hex (/etc/machine-id).
  std::filesystem::path machineIdFile() const;

 private:
  std::filesystem::path root_;
};

}  // namespace velmo::platform
