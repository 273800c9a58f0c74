#pragma once

#include <ostream>
#include <string>

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
  // 0 clean, 1 warnings only, 2 errors; 1 with a message when there is nothing to check.
  static int lint(const Invocation& invocation, const ConsoleInputs& inputs, bool coloured,
                  std::ostream& out, std::ostream& err);
  // One value of the inventory report; empty when the report doesn't hold it.
  static int reportField(const Invocation& invocation, const ConsoleInputs& inputs,
                         std::ostream& out, std::ostream& err);
};

}  // namespace velmo::agent::console
