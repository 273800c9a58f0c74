#pragma once

#include <map>
#include <string>

#include "platform/PreferenceStores.h"

namespace velmo::platform::fake {

// Stores held in memory; counts how often each is read, so a test can tell
// whether a question touched them.
class FakePreferenceStores final : public PreferenceStores {
 public:
  void setManaged(const std::string& domain, core::PlistDictionary values) {
    managed_[domain] = std::move(values);
  }
  void removeManaged(const std::string& domain) { managed_.erase(domain); }
  void setRoot(const std::string& domain, core::PlistDictionary values) {
    root_[domain] = std::move(values);
  }
  void setMachine(const std::string& domain, core::PlistDictionary values) {
    machine_[domain] = std::move(values);
  }

  std::optional<core::PlistDictionary> managedValues(std::string_view domain) const override {
    ++reads_;
    auto found = managed_.find(std::string(domain));
    if (found == managed_.end()) return std::nullopt;
    return found->second;
  }
  core::PlistDictionary copyAllValues(std::string_view domain) const override {
    ++reads_;
    auto found = root_.find(std::string(domain));
    return found == root_.end() ? core::PlistDictionary{} : found->second;
  }
  std::optional<core::PlistDictionary> machineValues(std::string_view domain) const override {
    auto found = machine_.find(std::string(domain));
    if (found == machine_.end()) return std::nullopt;
    return found->second;
  }
  bool isForced(std::string_view key, std::string_view domain) const override {
    auto managed = managedValues(domain);
    return managed && managed->find(key) != managed->end();
  }

  int reads() const { return reads_; }

 private:
  std::map<std::string, core::PlistDictionary> managed_;
  std::map<std::string, core::PlistDictionary> root_;
  std::map<std::string, core::PlistDictionary> machine_;
  mutable int reads_ = 0;
};

}  // namespace velmo::platform::fake
