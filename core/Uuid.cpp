#include "core/Uuid.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <string_view>

namespace velmo::core {

Uuid Uuid::random() {
  uuid_t generated;
  uuid_generate_random(generated);
  Bytes bytes;
  std::copy(std::begin(generated), std::end(generated), bytes.begin());
  return Uuid(bytes);
}

std::string Uuid::uuidString() const {
  uuid_t raw;
  std::copy(bytes_.begin(), bytes_.end(), std::begin(raw));
  char text[37];
  uuid_unparse_upper(raw, text);
  return std::string(text, 36);
}

}  // namespace velmo::core

std::size_t std::hash<velmo::core::Uuid>::operator()(const velmo::core::Uuid& uuid) const noexcept {
  const auto& bytes = uuid.bytes();
  return std::hash<std::string_view>{}(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}
