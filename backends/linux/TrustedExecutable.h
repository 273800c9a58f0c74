#pragma once

#include <filesystem>
#include <string>
#include <variant>

namespace velmo::platform::linux {

// Opens a program that root may start: the file and every folder above it,
// from the root prefix down, owned by root and not writable by its group or
// others, and every link on the way root's own in such a folder. The checks
// are made on descriptors, and the program is started from the descriptor
// (`/proc/self/fd/N`), so nothing can be swapped in between the check and
// the start.
class TrustedExecutable {
 public:
  // An open descriptor (O_PATH) of the program, which the caller closes.
  struct Opened {
    int descriptor;
  };
  // Why not: a refusal names the part and the account ("… is owned by uid
  // 501"); for a plain failure (a missing file) `refused` is false and the
  // reason is the system's ("No such file or directory").
  struct Failure {
    std::string reason;
    bool refused;
  };

  static std::variant<Opened, Failure> open(const std::filesystem::path& program,
                                            const std::filesystem::path& root);
};

}  // namespace velmo::platform::linux
