#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/values/PlistValue.h"
#include "platform/Clock.h"
#include "platform/FileManager.h"

namespace velmo::agent::console {

// Finds what an administrator's profile gets wrong before machines stop
// updating: unknown and ill-typed keys, windows that never allow a run, IDs
// and values the agent ignores, each with what the agent then does.
class PolicyLint {
 public:
  enum class Severity { warning, error };
  struct Diagnostic {
    std::string file;
    std::string key;  // Empty for the file as a whole.
    Severity severity;
    std::string text;
  };

  // 0 clean, 1 warnings only, 2 errors.
  static int exitStatus(const std::vector<Diagnostic>& diagnostics);

  // One file of one domain: its name without ".plist" names the domain; any
  // other name is taken for the agent's own domain. Windows are judged in
  // `timeZoneId` from `now`.
  static std::vector<Diagnostic> lintFile(const platform::FileManager& files,
                                          const std::filesystem::path& path,
                                          platform::TimePoint now, const std::string& timeZoneId);
  // The values of one domain, however they were read.
  static std::vector<Diagnostic> lintValues(const std::string& file, const std::string& domain,
                                            const core::PlistDictionary& values,
                                            platform::TimePoint now, const std::string& timeZoneId);

  // "file: key: warning: text".
  static std::string line(const Diagnostic& diagnostic);
  static nlohmann::json json(const std::vector<Diagnostic>& diagnostics);
};

}  // namespace velmo::agent::console
