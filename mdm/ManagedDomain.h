#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace velmo::mdm {

// The preference domains an administrator manages for this system.
enum class ManagedDomain { velmo = 0, velmoAgent = 1, velmoNotifier = 2, controlCenter = 3 };

inline constexpr std::array<ManagedDomain, 4> kAllManagedDomains{
    ManagedDomain::velmo, ManagedDomain::velmoAgent, ManagedDomain::velmoNotifier,
    ManagedDomain::controlCenter};

// The application identifier of the domain, such as "com.marvenith.velmo-agent".
std::string_view rawValue(ManagedDomain domain);
std::optional<ManagedDomain> managedDomainFromRawValue(std::string_view raw);

}  // namespace velmo::mdm
