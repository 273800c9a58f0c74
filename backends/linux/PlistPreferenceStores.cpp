#include "backends/linux/PlistPreferenceStores.h"

#include "core/values/PropertyList.h"

namespace velmo::platform::linux {

PlistPreferenceStores::PlistPreferenceStores(const FileManager& files, const Paths& paths)
    : files_(files), paths_(paths) {}

std::optional<core::PlistDictionary> PlistPreferenceStores::read(
    const std::filesystem::path& file) const {
  const auto bytes = files_.readFile(file);
  if (!bytes.ok()) return std::nullopt;
  auto root = core::PropertyList::parse(bytes.value());
  auto* dictionary = root ? root->getIf<core::PlistDictionary>() : nullptr;
  if (!dictionary) return std::nullopt;
  return std::move(*dictionary);
}

std::optional<core::PlistDictionary> PlistPreferenceStores::managedValues(
    std::string_view domain) const {
  return read(paths_.managedPreferencesFile(domain));
}

core::PlistDictionary PlistPreferenceStores::copyAllValues(std::string_view domain) const {
  return read(paths_.rootPreferencesFile(domain)).value_or(core::PlistDictionary{});
}

std::optional<core::PlistDictionary> PlistPreferenceStores::machineValues(
    std::string_view domain) const {
  return read(paths_.machinePreferencesFile(domain));
}

bool PlistPreferenceStores::isForced(std::string_view key, std::string_view domain) const {
  const auto managed = managedValues(domain);
  return managed && managed->find(key) != managed->end();
}

}  // namespace velmo::platform::linux
