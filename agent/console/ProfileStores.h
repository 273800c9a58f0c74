#pragma once

#include "agent/console/PolicyProfile.h"
#include "platform/PreferenceStores.h"

namespace velmo::agent::console {

// The machine's stores with a profile in the managed layer's place: what the
// machine would read once the profile is deployed and the managed files it
// has now are gone. Root's own and the machine-wide stores stay the machine's.
class ProfileStores final : public platform::PreferenceStores {
 public:
  // `machine` must outlive this.
  ProfileStores(const platform::PreferenceStores& machine, PolicyProfile::Domains managed);

  std::optional<core::PlistDictionary> managedValues(std::string_view domain) const override;
  core::PlistDictionary copyAllValues(std::string_view domain) const override;
  std::optional<core::PlistDictionary> machineValues(std::string_view domain) const override;
  bool isForced(std::string_view key, std::string_view domain) const override;

 private:
  const platform::PreferenceStores& machine_;
  PolicyProfile::Domains managed_;
};

}  // namespace velmo::agent::console
