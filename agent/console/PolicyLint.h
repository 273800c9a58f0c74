#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/values/PlistValue.h"
#include "platform/Clock.h"

namespace velmo::agent::console {

// Finds what an administrator's profile gets wrong before machines stop
// updating: unknown and ill-typed keys, windows that never allow a run, IDs
// and values the agent ignores, each with what the agent then does.
class PolicyLint {
 public:
  // A note changes nothing the agent does: it says what lint left aside.
  enum class Severity { note, warning, error };
  struct Diagnostic {
    Diagnostic(std::string file, std::string key, Severity severity, std::string text,
               std::string payload = {})
        : file(std::move(file)),
          key(std::move(key)),
          severity(severity),
          text(std::move(text)),
          payload(std::move(payload)) {}
    std::string file;
    std::string key;  // Empty for the file as a whole.
    Severity severity;
    std::string text;
    std::string payload;  // The profile's payload it concerns; empty for plain files.
  };

  // 0 clean or notes only, 1 warnings, 2 errors.
  static int exitStatus(const std::vector<Diagnostic>& diagnostics);

  // The values of one domain, however they were read.
  static std::vector<Diagnostic> lintValues(const std::string& file, const std::string& domain,
                                            const core::PlistDictionary& values,
                                            platform::TimePoint now, const std::string& timeZoneId);

  // "file: key: warning: text", or "file [payload]: key: warning: text".
  static std::string line(const Diagnostic& diagnostic);
  static nlohmann::json json(const std::vector<Diagnostic>& diagnostics);
};

}  // namespace velmo::agent::console
