#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/plist/DefaultsValue.h"
#include "platform/UserDefaults.h"

namespace velmo::core {

// One preference key bound to a typed field, read afresh at every access.
// A missing key, or a value of another type, gives the default, silently.
template <typename T>
class Defaults {
 public:
  Defaults(platform::UserDefaults& store, std::string key, T defaultValue)
      : store_(store), key_(std::move(key)), defaultValue_(std::move(defaultValue)) {}

  T wrappedValue() const { return read(store_, key_, defaultValue_); }

  // One read of `key`, with no field bound to it.
  static T read(const platform::UserDefaults& store, std::string_view key, T defaultValue) {
    if (auto object = store.object(key)) {
      if (auto value = DefaultsValue<T>::from(*object)) return std::move(*value);
    }
    return defaultValue;
  }

  // Writing an absent optional leaves the store as it is. Gives why the
  // store could not be written.
  platform::FileResult<> setWrappedValue(const T& value) {
    std::optional<PlistValue> object = DefaultsValue<T>::to(value);
    if (!object) return {};
    return store_.setObject(key_, *object);
  }

  const std::string& key() const { return key_; }
  const T& defaultValue() const { return defaultValue_; }

 private:
  platform::UserDefaults& store_;
  std::string key_;
  T defaultValue_;
};

}  // namespace velmo::core
