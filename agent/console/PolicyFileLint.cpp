#include "agent/console/PolicyFileLint.h"

#include <algorithm>
#include <cerrno>
#include <map>

#include "agent/console/PolicyProfile.h"
#include "core/logging/Utf8.h"
#include "core/values/PlistGuard.h"

namespace velmo::agent::console {
namespace {

using Severity = PolicyLint::Severity;
using Diagnostic = PolicyLint::Diagnostic;
using Form = mdm::ConfigurationProfile::Reading::Form;
using Payload = mdm::ConfigurationProfile::Payload;

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// One domain's payloads as one store: the first payload to set a key gives
// its value, and a later one that sets it otherwise is a conflict.
void lintDomain(const std::string& file, mdm::ManagedDomain domain,
                const std::vector<const Payload*>& payloads, platform::TimePoint now,
                const std::string& timeZoneId, std::vector<Diagnostic>& found) {
  core::PlistDictionary merged;
  std::map<std::string, std::string, std::less<>> setBy;
  std::vector<std::string> names;
  for (const auto* payload : payloads) {
    if (std::find(names.begin(), names.end(), payload->name) == names.end()) {
      names.push_back(payload->name);
    }
    for (const auto& [key, value] : payload->values) {
      const auto [earlier, fresh] = merged.emplace(key, value);
      if (fresh) {
        setBy.emplace(key, payload->name);
      } else if (earlier->second != value) {
        found.emplace_back(file, core::escapedControls(key), Severity::warning,
                           "set to different values in payloads " + setBy[key] + " and " +
                               payload->name + ": which one the platform applies is not defined.",
                           payload->name);
      }
    }
  }
  for (auto& diagnostic :
       PolicyLint::lintValues(file, std::string(mdm::rawValue(domain)), merged, now, timeZoneId)) {
    const auto owner = setBy.find(diagnostic.key);
    diagnostic.payload = owner != setBy.end() ? owner->second : joined(names);
    found.push_back(std::move(diagnostic));
  }
}

}  // namespace

std::vector<Diagnostic> PolicyFileLint::lintFile(const platform::FileManager& files,
                                                 const std::filesystem::path& path,
                                                 platform::TimePoint now,
                                                 const std::string& timeZoneId) {
  const std::string file = path.string();
  const bool profileByName = path.extension() == ".mobileconfig";
  const auto bytes = files.readFile(path, core::PlistGuard::kLargestFile);
  if (!bytes.ok()) {
    return {
        {file, "", Severity::error,
         bytes.error()->code == EFBIG ? "larger than 10 MB: refused unread." : "can't be read."}};
  }
  const auto reading = mdm::ConfigurationProfile::read(bytes.value());
  if (reading.form == Form::refused) return {{file, "", Severity::error, reading.refusal}};
  if (reading.form == Form::profile) return lintProfile(file, reading, now, timeZoneId);
  if (reading.form == Form::preferenceList && profileByName) {
    return {{file, "", Severity::error,
             "not a configuration profile: it has no PayloadContent array."}};
  }
  if (reading.form == Form::notKeyed) {
    return {{file, "", Severity::error,
             "not a property list of keys: the agent reads it as empty (a binary one with a NUL "
             "byte in a key is refused too)."}};
  }
  return PolicyLint::lintValues(file, PolicyProfile::domainOfList(path), reading.root, now,
                                timeZoneId);
}

std::vector<Diagnostic> PolicyFileLint::lintProfile(
    const std::string& file, const mdm::ConfigurationProfile::Reading& profile,
    platform::TimePoint now, const std::string& timeZoneId) {
  std::vector<Diagnostic> found;
  if (profile.wasSigned) {
    found.emplace_back(file, "", Severity::note,
                       "signed: its content was read; the signature was not verified.");
  }
  for (const auto domain : mdm::kAllManagedDomains) {
    std::vector<const Payload*> payloads;
    for (const auto& payload : profile.payloads) {
      if (payload.domain == domain) payloads.push_back(&payload);
    }
    if (!payloads.empty()) lintDomain(file, domain, payloads, now, timeZoneId, found);
  }
  for (const auto& skipped : profile.skipped) {
    found.emplace_back(file, "", Severity::note,
                       "a payload of type " + core::escapedControls(skipped.type) +
                           ", which the agent never reads: skipped.",
                       skipped.name);
  }
  if (profile.payloads.empty() && profile.skipped.empty()) {
    found.emplace_back(file, "", Severity::warning, "a profile with no payload: it sets nothing.");
  }
  return found;
}

}  // namespace velmo::agent::console
