#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace velmo::testing {

// A helper program built beside the tests (velmo-test-tool, velmo-bus-post).
inline std::filesystem::path testProgram(const std::string& name) {
  const char* directory = std::getenv("VELMO_TEST_BIN_DIR");
  return std::filesystem::path(directory ? directory : ".") / name;
}

}  // namespace velmo::testing
