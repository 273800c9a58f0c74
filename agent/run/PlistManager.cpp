#include "agent/run/PlistManager.h"

#include "core/plist/PropertyList.h"
#include "core/time/Iso8601DateFormatter.h"

namespace velmo::agent::run {

PlistManager::PlistManager(platform::FileManager& files, std::filesystem::path url)
    : files_(files), url_(std::move(url)) {}

std::optional<core::PlistDictionary> PlistManager::load() const {
  const auto bytes = files_.readFile(url_);
  if (!bytes) return std::nullopt;
  auto root = core::PropertyList::parse(*bytes);
  auto* dictionary = root ? root->getIf<core::PlistDictionary>() : nullptr;
  if (!dictionary) return std::nullopt;
  return std::move(*dictionary);
}

std::optional<core::PlistValue> PlistManager::value(PlistKey key) const {
  const auto dictionary = load();
  if (!dictionary) return std::nullopt;
  const auto found = dictionary->find(keyString(key));
  if (found == dictionary->end()) return std::nullopt;
  if (const auto* text = found->second.getIf<std::string>()) {
    if (auto date = core::Iso8601DateFormatter::date(*text)) return core::PlistDate{*date};
  }
  return found->second;
}

void PlistManager::setValue(const core::PlistValue& value, PlistKey key) {
  core::PlistDictionary dictionary = load().value_or(core::PlistDictionary{});
  if (const auto* date = value.getIf<core::PlistDate>()) {
    dictionary.insert_or_assign(std::string(keyString(key)),
                                core::Iso8601DateFormatter::string(date->value));
  } else {
    dictionary.insert_or_assign(std::string(keyString(key)), value);
  }
  std::string failure;
  const auto xml = core::PropertyList::xml(dictionary, &failure);
  if (!xml) {
    logger_.error("Failed to write to plist: " + failure);
    return;
  }
  if (auto error = files_.writeFileAtomically(url_, *xml)) {
    logger_.error("Failed to write to plist: " + *error);
  }
}

}  // namespace velmo::agent::run
