#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "agent/console/PolicyLint.h"
#include "mdm/ConfigurationProfile.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::console {

// Lint's files: configuration profiles and plain preference lists, each
// someone else's bytes, read bounded and guarded, then checked as the domains
// they set.
class PolicyFileLint {
 public:
  PolicyFileLint() = delete;

  // One file: a configuration profile (known by its content, whatever its
  // name), or one domain's preferences, whose name without ".plist" names the
  // domain; any other name is taken for the agent's own domain. At most
  // PlistGuard::kLargestFile bytes are read. Windows are judged in
  // `timeZoneId` from `now`.
  static std::vector<PolicyLint::Diagnostic> lintFile(const platform::FileManager& files,
                                                      const std::filesystem::path& path,
                                                      platform::TimePoint now,
                                                      const std::string& timeZoneId);
  // The payloads of a profile, domain by domain: two payloads of one domain
  // are read together, as the platform merges them into one managed store.
  static std::vector<PolicyLint::Diagnostic> lintProfile(
      const std::string& file, const mdm::ConfigurationProfile::Reading& profile,
      platform::TimePoint now, const std::string& timeZoneId);
};

}  // namespace velmo::agent::console
