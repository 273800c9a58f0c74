#pragma once

#include "platform/UserDefaults.h"

namespace velmo::platform::fake {

class FakeUserDefaults final : public UserDefaults {
 public:
  std::optional<core::PlistValue> object(std::string_view key) const override {
    auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
  }
  FileResult<> setObject(std::string_view key, const core::PlistValue& value) override {
    values_.insert_or_assign(std::string(key), value);
    return {};
  }
  // What a test stores: the fake never fails.
  void set(std::string_view key, const core::PlistValue& value) { (void)setObject(key, value); }
  void remove(std::string_view key) {
    auto found = values_.find(key);
    if (found != values_.end()) values_.erase(found);
  }

 private:
  core::PlistDictionary values_;
};

}  // namespace velmo::platform::fake
