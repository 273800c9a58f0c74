#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/PlistValue.h"
#include "mdm/ManagedDomain.h"

namespace velmo::mdm {

// A configuration profile as an administrator hands it out: an XML or binary
// property list, or one wrapped in a CMS signature, which is unwrapped but not
// verified. It is read down to the preferences its payloads set for the
// domains the agent reads. Every byte is someone else's: the property lists
// pass PlistGuard before libplist sees them.
class ConfigurationProfile {
 public:
  ConfigurationProfile() = delete;

  // The settings one payload sets for one domain, without the payload's own
  // Payload* keys. A custom-settings payload gives one of these per domain and
  // forced entry.
  struct Payload {
    std::string name;  // Its PayloadIdentifier, else PayloadDisplayName, else "payload N".
    ManagedDomain domain;
    core::PlistDictionary values;
  };
  // A payload the agent never reads.
  struct Skipped {
    std::string name;
    std::string type;
  };
  struct Reading {
    enum class Form {
      refused,         // `refusal` says why.
      notKeyed,        // Not a property list whose root is a dictionary.
      preferenceList,  // A plain domain's list: `root`.
      profile,         // `payloads` and `skipped`.
    };
    Form form = Form::notKeyed;
    std::string refusal;
    bool wasSigned = false;
    core::PlistDictionary root;
    std::vector<Payload> payloads;
    std::vector<Skipped> skipped;
  };

  static Reading read(std::string_view bytes);
};

}  // namespace velmo::mdm
