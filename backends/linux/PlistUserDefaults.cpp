#include "backends/linux/PlistUserDefaults.h"

#include "core/values/PropertyList.h"

namespace velmo::platform::linux {

PlistUserDefaults::PlistUserDefaults(FileManager& files, const Paths& paths, std::string domain)
    : files_(files), paths_(paths), stores_(files, paths), domain_(std::move(domain)) {}

std::optional<core::PlistValue> PlistUserDefaults::object(std::string_view key) const {
  return stores_.layeredValue(domain_, key);
}

FileResult<> PlistUserDefaults::setObject(std::string_view key, const core::PlistValue& value) {
  core::PlistDictionary values = stores_.copyAllValues(domain_);
  values.insert_or_assign(std::string(key), value);
  std::string failure;
  const auto xml = core::PropertyList::xml(values, &failure);
  if (!xml) return FileError{failure, "NSCocoaErrorDomain", 4866};
  const std::filesystem::path file = paths_.rootPreferencesFile(domain_);
  if (auto created = files_.createDirectories(file.parent_path()); !created.ok()) return created;
  return files_.writeFileAtomically(file, *xml);
}

}  // namespace velmo::platform::linux
