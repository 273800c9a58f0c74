#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/values/DecodedInteger.h"
#include "core/values/PlistValue.h"

namespace velmo::core {

// How a stored preference converts to a typed field and back. A value is
// taken only when it is of the type asked for, as the platform's checked cast
// does: a number for a Boolean only when it is 0 or 1, an array of strings
// only when every element is a string. Anything else reads as absent.
template <typename T>
struct DefaultsValue;

template <>
struct DefaultsValue<bool> {
  static std::optional<bool> from(const PlistValue& value) {
    if (const auto* b = value.getIf<bool>()) return *b;
    if (const auto* i = value.getIf<std::int64_t>(); i && (*i == 0 || *i == 1)) return *i == 1;
    if (const auto* d = value.getIf<double>(); d && (*d == 0.0 || *d == 1.0)) return *d == 1.0;
    return std::nullopt;
  }
  static PlistValue to(bool value) { return value; }
};

template <>
struct DefaultsValue<std::int64_t> {
  static std::optional<std::int64_t> from(const PlistValue& value) {
    if (const auto* i = value.getIf<std::int64_t>()) return *i;
    if (const auto* b = value.getIf<bool>()) return *b ? 1 : 0;
    if (const auto* d = value.getIf<double>(); d && std::trunc(*d) == *d && std::abs(*d) < 9.2e18) {
      return static_cast<std::int64_t>(*d);
    }
    return std::nullopt;
  }
  static PlistValue to(std::int64_t value) { return value; }
};

template <>
struct DefaultsValue<double> {
  static std::optional<double> from(const PlistValue& value) {
    if (const auto* d = value.getIf<double>()) return *d;
    if (const auto* i = value.getIf<std::int64_t>()) return static_cast<double>(*i);
    return std::nullopt;
  }
  static PlistValue to(double value) { return value; }
};

template <>
struct DefaultsValue<std::string> {
  static std::optional<std::string> from(const PlistValue& value) {
    if (const auto* s = value.getIf<std::string>()) return *s;
    return std::nullopt;
  }
  static PlistValue to(const std::string& value) { return value; }
};

template <>
struct DefaultsValue<std::vector<std::string>> {
  static std::optional<std::vector<std::string>> from(const PlistValue& value) {
    const auto* array = value.getIf<PlistArray>();
    if (!array) return std::nullopt;
    std::vector<std::string> result;
    for (const auto& element : *array) {
      const auto* text = element.getIf<std::string>();
      if (!text) return std::nullopt;  // All or nothing.
      result.push_back(*text);
    }
    return result;
  }
  static PlistValue to(const std::vector<std::string>& value) {
    return PlistArray(value.begin(), value.end());
  }
};

// An optional field reads like its value type; absent stays absent.
template <typename T>
struct DefaultsValue<std::optional<T>> {
  static std::optional<std::optional<T>> from(const PlistValue& value) {
    auto converted = DefaultsValue<T>::from(value);
    if (!converted) return std::nullopt;
    return std::optional<T>(std::move(*converted));
  }
  static std::optional<PlistValue> to(const std::optional<T>& value) {
    if (!value) return std::nullopt;
    return DefaultsValue<T>::to(*value);
  }
};

}  // namespace velmo::core
