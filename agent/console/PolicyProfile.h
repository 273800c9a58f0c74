#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "core/values/PlistValue.h"
#include "platform/FileManager.h"

namespace velmo::agent::console {

// The policy a file would set, domain by domain, as the managed store would
// hold it once the file is deployed: a configuration profile's payloads for
// the domains the agent reads, or one domain's plain preference list. The
// file is someone else's: it is read bounded and guarded, as lint reads it.
class PolicyProfile {
 public:
  using Domains = std::map<std::string, core::PlistDictionary, std::less<>>;

  PolicyProfile() = delete;

  // The domains it sets, or, when there are none, `refusal` saying why in one
  // sentence, such as "can't be read.".
  struct Reading {
    Domains domains{};
    std::string refusal{};
  };

  static Reading read(const platform::FileManager& files, const std::filesystem::path& path);
  // The domain a plain preference list sets: its name without ".plist" when
  // that is one the agent reads, else the agent's own.
  static std::string domainOfList(const std::filesystem::path& path);
};

}  // namespace velmo::agent::console
