#pragma once

#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/values/PlistValue.h"
#include "platform/UserDefaults.h"

namespace velmo::testing {

// One preference key holding a JSON-encoded value as a data blob, read
// afresh at every access. No blob, or one that doesn't decode as T, gives the
// default and leaves the blob alone; a value that doesn't encode writes nothing.
template <typename T>
class DefaultsData {
 public:
  DefaultsData(platform::UserDefaults& store, std::string key, T defaultValue)
      : store_(store), key_(std::move(key)), defaultValue_(std::move(defaultValue)) {}

  T wrappedValue() const {
    const auto object = store_.object(key_);
    const auto* data = object ? object->getIf<core::PlistData>() : nullptr;
    if (!data) return defaultValue_;
    try {
      return nlohmann::json::parse(data->begin(), data->end()).template get<T>();
    } catch (const std::exception&) {
      return defaultValue_;
    }
  }

  void setWrappedValue(const T& value) {
    std::string text;
    try {
      text = nlohmann::json(value).dump();
    } catch (const std::exception&) {
      return;
    }
    store_.setObject(key_, core::PlistData(text.begin(), text.end()));
  }

  const std::string& key() const { return key_; }

 private:
  platform::UserDefaults& store_;
  std::string key_;
  T defaultValue_;
};

}  // namespace velmo::testing
