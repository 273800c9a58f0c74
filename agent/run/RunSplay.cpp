#include "agent/run/RunSplay.h"

#include <openssl/evp.h>

#include <array>
#include <cmath>
#include <cstdint>

#include "core/logging/Utf8.h"

namespace velmo::agent::run {

core::TimeInterval RunSplay::offset(const std::optional<std::string>& machineId,
                                    std::optional<double> splaySeconds) {
  if (!machineId || !splaySeconds || !std::isfinite(*splaySeconds) || *splaySeconds < 1.0) {
    return core::TimeInterval(0);
  }
  const auto range = static_cast<std::uint64_t>(std::min(*splaySeconds, kMaxSeconds));
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(machineId->data(), machineId->size(), digest.data(), &length, EVP_sha256(),
                 nullptr) != 1 ||
      length < 8) {
    return core::TimeInterval(0);
  }
  std::uint64_t number = 0;
  for (int i = 0; i < 8; ++i) number = number << 8 | digest[static_cast<std::size_t>(i)];
  return core::TimeInterval(static_cast<double>(number % range));
}

std::optional<std::string> RunSplay::readMachineId(const platform::FileManager& files,
                                                   const platform::Paths& paths) {
  const auto text = files.readFile(paths.machineIdFile());
  if (!text.ok()) return std::nullopt;
  const std::string id(core::trimmedWhiteSpace(text.value()));
  if (id.empty()) return std::nullopt;
  return id;
}

}  // namespace velmo::agent::run
