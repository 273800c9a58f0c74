#pragma once

#include <string>

#include "platform/PreferenceStores.h"
#include "platform/UserDefaults.h"

namespace velmo::agent::console {

// One domain's user defaults read through any stores, layer by layer as the
// agent's own are: managed, then root's own, then machine-wide, the first
// store that has the key winning. The console only reads: writes fail.
class LayeredUserDefaults final : public platform::UserDefaults {
 public:
  // `stores` must outlive this.
  LayeredUserDefaults(const platform::PreferenceStores& stores, std::string domain);

  std::optional<core::PlistValue> object(std::string_view key) const override;
  platform::FileResult<> setObject(std::string_view key, const core::PlistValue& value) override;

 private:
  const platform::PreferenceStores& stores_;
  std::string domain_;
};

}  // namespace velmo::agent::console
