#include "mdm/ManagedDomain.h"

namespace velmo::mdm {

std::string_view rawValue(ManagedDomain domain) {
  switch (domain) {
    case ManagedDomain::velmo:
      return "com.marvenith.velmo";
    case ManagedDomain::velmoAgent:
      return "com.marvenith.velmo-agent";
    case ManagedDomain::velmoNotifier:
      return "com.marvenith.velmo-notifier";
    case ManagedDomain::controlCenter:
      return "com.apple.controlcenter";
  }
  return "";
}

std::optional<ManagedDomain> managedDomainFromRawValue(std::string_view raw) {
  for (ManagedDomain domain : kAllManagedDomains) {
    if (rawValue(domain) == raw) return domain;
  }
  return std::nullopt;
}

}  // namespace velmo::mdm
