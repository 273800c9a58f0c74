#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "agent/console/AgentFacts.h"
#include "agent/console/ConsoleInputs.h"
#include "agent/console/Invocation.h"

namespace velmo::agent::console {

// Runs `status`, `explain` or `lint`: reads, never writes, and needs no root.
class ConsoleCommand {
 public:
  static constexpr int kNothingReadStatus = 1;

  // Exit status 0, or 1 with a message when nothing could be read or the
  // arguments can't be used.
  static int run(const Invocation& invocation, const ConsoleInputs& inputs, bool coloured,
                 std::ostream& out, std::ostream& err);

 private:
  // The moments the command line gives in place of now and of the recorded last run.
  struct Moments {
    std::optional<platform::TimePoint> from;
    std::optional<platform::TimePoint> lastRun;
  };

  // The plan from `facts`, in text or JSON.
  static void printExplanation(const Invocation& invocation, AgentFacts facts,
                               const Moments& moments, const std::string& tool, bool coloured,
                               std::ostream& out);
  // `explain --profile`: the machine with the file in its managed stores' place.
  static int explainProfile(const Invocation& invocation, const ConsoleInputs& inputs,
                            const Moments& moments, bool coloured, std::ostream& out,
                            std::ostream& err);
  // 0 clean, 1 warnings only, 2 errors; 1 with a message when there is nothing to check.
  static int lint(const Invocation& invocation, const ConsoleInputs& inputs, bool coloured,
                  std::ostream& out, std::ostream& err);
  // One value of the inventory report; empty when the report doesn't hold it.
  static int reportField(const Invocation& invocation, const ConsoleInputs& inputs,
                         std::ostream& out, std::ostream& err);
};

}  // namespace velmo::agent::console
