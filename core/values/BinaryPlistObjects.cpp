#include "core/values/BinaryPlistObjects.h"

namespace velmo::core {
namespace {

// Reads a big-endian unsigned number of `width` bytes (1 to 8) at `at`.
std::optional<std::uint64_t> bigEndian(std::string_view bytes, std::uint64_t at, unsigned width) {
  if (width < 1 || width > 8 || at > bytes.size() || bytes.size() - at < width) return std::nullopt;
  std::uint64_t value = 0;
  for (unsigned i = 0; i < width; ++i) {
    value = value << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(at) + i]);
  }
  return value;
}

bool hasLength(std::uint64_t kind) {
  using O = BinaryPlistObjects;
  return kind == O::kData || kind == O::kAscii || kind == O::kUtf16 || kind == O::kArray ||
         kind == O::kSet || kind == O::kDictionary;
}

}  // namespace

std::optional<BinaryPlistObjects> BinaryPlistObjects::read(std::string_view bytes) {
  constexpr std::size_t kTrailer = 32;
  if (bytes.substr(0, 8) != "bplist00" || bytes.size() < 8 + kTrailer) return std::nullopt;
  const std::size_t trailer = bytes.size() - kTrailer;
  const unsigned offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
  const unsigned refSize = static_cast<unsigned char>(bytes[trailer + 7]);
  const auto count = bigEndian(bytes, trailer + 8, 8);
  const auto top = bigEndian(bytes, trailer + 16, 8);
  const auto table = bigEndian(bytes, trailer + 24, 8);
  if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || !count || !top || !table ||
      *table > trailer || *count > (trailer - *table) / offsetSize) {
    return std::nullopt;
  }
  return BinaryPlistObjects(bytes, offsetSize, refSize, *count, *top, *table);
}

std::optional<std::uint64_t> BinaryPlistObjects::objectAt(std::uint64_t index) const {
  if (index >= count_) return std::nullopt;
  return bigEndian(bytes_, table_ + index * offsetSize_, offsetSize_);
}

std::optional<std::uint64_t> BinaryPlistObjects::reference(std::uint64_t contents,
                                                           std::uint64_t k) const {
  if (k > bytes_.size() / refSize_) return std::nullopt;  // Also keeps k * refSize_ from wrapping.
  return bigEndian(bytes_, contents + k * refSize_, refSize_);
}

std::optional<BinaryPlistObjects::Object> BinaryPlistObjects::header(std::uint64_t at) const {
  const auto marker = bigEndian(bytes_, at, 1);
  if (!marker) return std::nullopt;
  const std::uint64_t kind = *marker >> 4;
  if (!hasLength(kind)) return Object{kind, 0, at + 1};
  if ((*marker & 0x0F) != 0x0F) return Object{kind, *marker & 0x0F, at + 1};
  const auto sizeMarker = bigEndian(bytes_, at + 1, 1);
  if (!sizeMarker || (*sizeMarker & 0xF0) != 0x10 || (*sizeMarker & 0x0F) > 3) {
    return std::nullopt;
  }
  const unsigned width = 1u << (*sizeMarker & 0x0F);
  const auto length = bigEndian(bytes_, at + 2, width);
  if (!length) return std::nullopt;
  return Object{kind, *length, at + 2 + width};
}

std::uint64_t BinaryPlistObjects::referenceCount(const Object& object) {
  if (object.kind == kArray || object.kind == kSet) return object.length;
  // A count past the file's bytes fails at its first missing reference.
  if (object.kind == kDictionary)
    return object.length > UINT32_MAX ? UINT64_MAX : object.length * 2;
  return 0;
}

bool BinaryPlistObjects::keyIsSafe(const Object& key) const {
  // Other kinds of key are refused by libplist itself, without aborting.
  if (key.kind != kAscii && key.kind != kUtf16) return true;
  const std::uint64_t unitSize = key.kind == kUtf16 ? 2 : 1;
  if (key.contents > bytes_.size() || key.length > (bytes_.size() - key.contents) / unitSize) {
    return false;
  }
  const auto text = bytes_.substr(static_cast<std::size_t>(key.contents),
                                  static_cast<std::size_t>(key.length * unitSize));
  if (unitSize == 1) return text.find('\0') == std::string_view::npos;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    if (text[i] == '\0' && text[i + 1] == '\0') return false;
  }
  return true;
}

}  // namespace velmo::core
