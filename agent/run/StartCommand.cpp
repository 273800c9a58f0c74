#include "agent/run/StartCommand.h"

#include "core/Bundle.h"

namespace velmo::agent::run {

StartCommand::StartCommand(Collaborators collaborators) : collaborators_(collaborators) {}

asio::awaitable<void> StartCommand::run() {
  logger_.info("Velmo Agent " + core::Bundle::main().versionString() + " starting; tool at " +
               collaborators_.paths.toolExecutable().string());

  // Nothing ends this loop: the process lives until it is stopped by a signal.
  for (;;) {
    co_await collaborators_.clock.sleep(std::chrono::seconds(1));
  }
}

}  // namespace velmo::agent::run
