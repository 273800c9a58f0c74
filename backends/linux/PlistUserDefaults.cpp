#include "backends/linux/PlistUserDefaults.h"

#include "core/values/PropertyList.h"

namespace velmo::platform::linux {
namespace {

std::optional<core::PlistValue> lookUp(const std::optional<core::PlistDictionary>& store,
                                       std::string_view key) {
  if (!store) return std::nullopt;
  const auto found = store->find(key);
  if (found == store->end()) return std::nullopt;
  return found->second;
}

}  // namespace

PlistUserDefaults::PlistUserDefaults(FileManager& files, const Paths& paths, std::string domain)
    : files_(files), paths_(paths), stores_(files, paths), domain_(std::move(domain)) {}

std::optional<core::PlistValue> PlistUserDefaults::object(std::string_view key) const {
  if (auto value = lookUp(stores_.managedValues(domain_), key)) return value;
  if (auto value = lookUp(stores_.copyAllValues(domain_), key)) return value;
  return lookUp(stores_.machineValues(domain_), key);
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
