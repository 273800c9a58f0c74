#include "platform/Paths.h"

#include <cstdlib>
#include <system_error>

namespace velmo::platform {
namespace {

std::string plistName(std::string_view domain) { return std::string(domain) + ".plist"; }

}  // namespace

Paths::Paths(std::filesystem::path root) : root_(root.empty() ? "/" : std::move(root)) {}

Paths Paths::fromEnvironment() {
  const char* root = std::getenv("VELMO_ROOT");
  if (!root || !*root) return Paths("/");
  // Links in the prefix itself are the administrator's choice and resolved
  // here, once; below it, file work follows only links that root alone
  // controls, and none inside the folders the jobs clean.
  std::error_code error;
  auto resolved = std::filesystem::weakly_canonical(root, error);
  return Paths(error ? std::filesystem::path(root) : resolved);
}

std::filesystem::path Paths::resolve(std::string_view absolute) const {
  while (!absolute.empty() && absolute.front() == '/') absolute.remove_prefix(1);
  return (root_ / absolute).lexically_normal();
}

std::filesystem::path Paths::toolDirectory() const {
  return resolve("/Library/Application Support/Marvenith/Velmo");
}
std::filesystem::path Paths::toolExecutable() const { return toolDirectory() / "velmo"; }
std::filesystem::path Paths::toolCacheDirectory() const { return toolDirectory() / "cache"; }
std::filesystem::path Paths::toolLink() const { return resolve("/usr/local/bin/velmo"); }
std::filesystem::path Paths::updateStateFile() const {
  return toolDirectory() / "UpdateState.json";
}
std::filesystem::path Paths::inventoryReportFile() const {
  return toolDirectory() / "InventoryReport.plist";
}
std::filesystem::path Paths::agentStateFile() const {
  return resolve("/Library/Preferences/com.marvenith.velmo-agent.plist");
}
std::filesystem::path Paths::deferralsFile() const {
  return resolve("/Library/Preferences/com.marvenith.velmo.deferrals.json");
}
std::filesystem::path Paths::logFile() const { return resolve("/var/log/marvenith-velmo.log"); }
std::filesystem::path Paths::inventoryTool() const { return resolve("/usr/local/bin/jamf"); }
std::filesystem::path Paths::applicationsDirectory() const { return resolve("/Applications"); }
std::filesystem::path Paths::utilitiesDirectory() const {
  return resolve("/Applications/Utilities");
}
std::filesystem::path Paths::managedPreferencesDirectory() const {
  return resolve("/Library/Managed Preferences");
}
std::filesystem::path Paths::managedPreferencesFile(std::string_view domain) const {
  return managedPreferencesDirectory() / plistName(domain);
}
std::filesystem::path Paths::rootPreferencesFile(std::string_view domain) const {
  return resolve("/var/root/Library/Preferences") / plistName(domain);
}
std::filesystem::path Paths::machinePreferencesFile(std::string_view domain) const {
  return resolve("/Library/Preferences") / plistName(domain);
}

std::filesystem::path Paths::machineIdFile() const { return resolve("/etc/machine-id"); }

}  // namespace velmo::platform
