#include "agent/console/PolicyProfile.h"

#include <cerrno>
#include <cstring>

#include "core/values/PlistGuard.h"
#include "mdm/ConfigurationProfile.h"
#include "mdm/ManagedDomain.h"

namespace velmo::agent::console {

using Form = mdm::ConfigurationProfile::Reading::Form;

PolicyProfile::Reading PolicyProfile::read(const platform::FileManager& files,
                                           const std::filesystem::path& path) {
  const auto bytes = files.readFile(path, core::PlistGuard::kLargestFile);
  if (!bytes.ok()) {
    const int code = bytes.error()->code;
    return {.refusal = code == EFBIG ? std::string("larger than 10 MB: refused unread.")
                                     : "can't be read: " + std::string(std::strerror(code)) + "."};
  }
  auto reading = mdm::ConfigurationProfile::read(bytes.value());
  switch (reading.form) {
    case Form::refused:
      return {.refusal = reading.refusal};
    case Form::notKeyed:
      return {.refusal = "not a property list of keys."};
    case Form::preferenceList:
      if (path.extension() == ".mobileconfig") {
        return {.refusal = "not a configuration profile: it has no PayloadContent array."};
      }
      return {.domains = {{domainOfList(path), std::move(reading.root)}}};
    case Form::profile:
      break;
  }
  // Two payloads of one domain make one managed store; where they disagree,
  // the first gives the value, as lint assumes when it warns of the conflict.
  Domains domains;
  for (auto& payload : reading.payloads) {
    auto& merged = domains[std::string(mdm::rawValue(payload.domain))];
    for (auto& [key, value] : payload.values) merged.emplace(key, std::move(value));
  }
  if (domains.empty()) return {.refusal = "no payload for the domains the agent reads."};
  return {.domains = std::move(domains)};
}

std::string PolicyProfile::domainOfList(const std::filesystem::path& path) {
  std::string domain = path.stem().string();
  if (!mdm::managedDomainFromRawValue(domain)) {
    domain = std::string(mdm::rawValue(mdm::ManagedDomain::velmoAgent));
  }
  return domain;
}

}  // namespace velmo::agent::console
