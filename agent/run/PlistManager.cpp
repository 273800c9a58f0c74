#include "agent/run/PlistManager.h"

#include "core/time/Iso8601DateFormatter.h"
#include "core/values/PropertyList.h"

namespace velmo::agent::run {

PlistManager::PlistManager(platform::FileManager& files, std::filesystem::path url,
                           std::optional<Retries> retries)
    : files_(files), url_(std::move(url)) {
  if (!retries) return;
  retry_ = std::make_unique<core::WriteRetry>(logger_, retries->clock, retries->executor,
                                              "the agent state file " + url_.string(),
                                              [this] { write(); });
  damaged_ = std::make_unique<core::DamagedFileKeeper>(files_, logger_);
}

std::optional<core::PlistDictionary> PlistManager::load() const {
  const auto bytes = files_.readFile(url_);
  if (!bytes.ok()) return std::nullopt;
  auto root = core::PropertyList::parse(bytes.value());
  auto* dictionary = root ? root->getIf<core::PlistDictionary>() : nullptr;
  if (!dictionary) {
    if (damaged_) damaged_->keep(url_, bytes.value(), "agent state file");
    return std::nullopt;
  }
  return std::move(*dictionary);
}

std::optional<core::PlistValue> PlistManager::value(PlistKey key) const {
  const std::string name(keyString(key));
  auto found = unwritten_.find(name);
  std::optional<core::PlistDictionary> dictionary;
  if (found == unwritten_.end()) {
    dictionary = load();
    if (!dictionary) return std::nullopt;
    found = dictionary->find(name);
    if (found == dictionary->end()) return std::nullopt;
  }
  if (const auto* text = found->second.getIf<std::string>()) {
    if (auto date = core::Iso8601DateFormatter::date(*text)) return core::PlistDate{*date};
  }
  return found->second;
}

void PlistManager::setValue(const core::PlistValue& value, PlistKey key) {
  if (const auto* date = value.getIf<core::PlistDate>()) {
    unwritten_.insert_or_assign(std::string(keyString(key)),
                                core::Iso8601DateFormatter::string(date->value));
  } else {
    unwritten_.insert_or_assign(std::string(keyString(key)), value);
  }
  write();
}

void PlistManager::write() {
  if (unwritten_.empty()) return;
  core::PlistDictionary dictionary = load().value_or(core::PlistDictionary{});
  for (const auto& [key, value] : unwritten_) dictionary.insert_or_assign(key, value);
  std::string failure;
  const auto xml = core::PropertyList::xml(dictionary, &failure);
  if (!xml) {
    // Nothing a retry could mend: the value can't be written at all.
    unwritten_.clear();
    logger_.error("Failed to write to plist: " + failure);
    return;
  }
  const auto written = files_.writeFileAtomically(url_, *xml);
  if (const auto* error = written.error()) {
    const std::string line = "Failed to write to plist: " + error->description;
    if (retry_) return retry_->failed(line);
    unwritten_.clear();
    return logger_.error(line);
  }
  unwritten_.clear();
  if (retry_) retry_->succeeded();
}

}  // namespace velmo::agent::run
