#include "core/logging/StringMasking.h"

#include <openssl/evp.h>

#include <array>
#include <cstdio>

namespace velmo::core {

std::string sha256(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
  std::string hex;
  hex.reserve(length * 2);
  for (unsigned int i = 0; i < length; ++i) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", digest[i]);
    hex.append(pair, 2);
  }
  return hex;
}

std::string masked(std::string_view text, MaskType type) {
  return type == MaskType::redact ? std::string("REDACTED") : sha256(text);
}

}  // namespace velmo::core
