#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velmo::core {

// The object table of a binary property list, read from its trailer, and the
// objects it points at; every read is bounded by the bytes there are, so a
// cut or lying file gives nothing rather than a read out of bounds. It looks
// at the bytes only: it doesn't own them.
class BinaryPlistObjects {
 public:
  // Object kinds: the high nibble of an object's marker.
  static constexpr std::uint64_t kData = 0x4;
  static constexpr std::uint64_t kAscii = 0x5;
  static constexpr std::uint64_t kUtf16 = 0x6;
  static constexpr std::uint64_t kArray = 0xA;
  static constexpr std::uint64_t kSet = 0xC;
  static constexpr std::uint64_t kDictionary = 0xD;

  // An object's kind and, for the kinds that have one (data, strings and
  // containers), its length in the marker's low nibble or in the integer
  // object after it; with where its contents start. A dictionary's length
  // counts its pairs.
  struct Object {
    std::uint64_t kind;
    std::uint64_t length;
    std::uint64_t contents;
  };

  // None when the bytes aren't a binary list, or its trailer is cut short or
  // points outside the bytes.
  static std::optional<BinaryPlistObjects> read(std::string_view bytes);

  std::uint64_t count() const { return count_; }
  std::uint64_t topObject() const { return top_; }
  // Where object `index` starts.
  std::optional<std::uint64_t> objectAt(std::uint64_t index) const;
  // The `k`th reference of the container whose contents start at `contents`.
  std::optional<std::uint64_t> reference(std::uint64_t contents, std::uint64_t k) const;
  std::optional<Object> header(std::uint64_t at) const;
  // The references a container holds (a dictionary's keys and values), 0 for
  // other kinds.
  static std::uint64_t referenceCount(const Object& object);
  // False for a string key with a NUL inside, or one that runs past the end.
  bool keyIsSafe(const Object& key) const;

 private:
  BinaryPlistObjects(std::string_view bytes, unsigned offsetSize, unsigned refSize,
                     std::uint64_t count, std::uint64_t top, std::uint64_t table)
      : bytes_(bytes),
        offsetSize_(offsetSize),
        refSize_(refSize),
        count_(count),
        top_(top),
        table_(table) {}

  std::string_view bytes_;
  unsigned offsetSize_;
  unsigned refSize_;
  std::uint64_t count_;
  std::uint64_t top_;
  std::uint64_t table_;
};

}  // namespace velmo::core
