#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "core/values/Time.h"

namespace velmo::core {

class PlistValue;
using PlistArray = std::vector<PlistValue>;
using PlistDictionary = std::map<std::string, PlistValue, std::less<>>;
using PlistData = std::vector<std::uint8_t>;
struct PlistDate {
  TimePoint value;
  bool operator==(const PlistDate&) const = default;
};

// One property-list value: what user info, preference files and state files
// carry. Header-only, so that the platform interfaces can use it too.
class PlistValue {
 public:
  using Storage = std::variant<bool, std::int64_t, double, std::string, PlistDate, PlistData,
                               PlistArray, PlistDictionary>;

  PlistValue() : storage_(std::string()) {}
  PlistValue(bool value) : storage_(value) {}
  PlistValue(int value) : storage_(std::int64_t{value}) {}
  PlistValue(std::int64_t value) : storage_(value) {}
  PlistValue(double value) : storage_(value) {}
  PlistValue(const char* value) : storage_(std::string(value)) {}
  PlistValue(std::string value) : storage_(std::move(value)) {}
  PlistValue(PlistDate value) : storage_(value) {}
  PlistValue(PlistData value) : storage_(std::move(value)) {}
  PlistValue(PlistArray value) : storage_(std::move(value)) {}
  PlistValue(PlistDictionary value) : storage_(std::move(value)) {}

  template <typename T>
  bool is() const {
    return std::holds_alternative<T>(storage_);
  }
  // The value as T, or null when it holds another type.
  template <typename T>
  const T* getIf() const {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  T* getIf() {
    return std::get_if<T>(&storage_);
  }
  const Storage& storage() const { return storage_; }

  bool operator==(const PlistValue&) const = default;

 private:
  Storage storage_;
};

}  // namespace velmo::core
