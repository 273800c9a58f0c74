// Writes the agent state file through PlistManager in an endless loop, for
// the test that kills it at random moments.
//   velmo-plist-writer FILE
#include <chrono>

#include "agent/run/PlistManager.h"
#include "backends/linux/PosixFileManager.h"

int main(int argc, char** argv) {
  using namespace velmo;
  if (argc != 2) return 64;
  platform::linux::PosixFileManager files;
  agent::run::PlistManager manager(files, argv[1]);
  for (std::int64_t count = 1;; ++count) {
    manager.setValue(count, agent::run::PlistKey::updateTaskRunCount);
    manager.setValue(core::PlistDate{std::chrono::system_clock::now()},
                     agent::run::PlistKey::lastUpdateTaskRun);
  }
}
