#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace velmo::core {

// A 128-bit universally unique identifier. Default-constructed it is the nil
// UUID (all zero); `random()` makes a fresh version 4 one.
class Uuid {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Uuid() = default;
  constexpr explicit Uuid(const Bytes& bytes) : bytes_(bytes) {}

  static Uuid random();

  const Bytes& bytes() const { return bytes_; }

  // Upper-case hex in 8-4-4-4-12 groups, the form the Mac prints.
  std::string uuidString() const;

  friend bool operator==(const Uuid&, const Uuid&) = default;
  friend auto operator<=>(const Uuid&, const Uuid&) = default;

 private:
  Bytes bytes_{};
};

}  // namespace velmo::core

template <>
struct std::hash<velmo::core::Uuid> {
  std::size_t operator()(const velmo::core::Uuid& uuid) const noexcept;
};
