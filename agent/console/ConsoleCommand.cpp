#include "agent/console/ConsoleCommand.h"

#include "agent/console/AgentFacts.h"
#include "agent/console/ExplainCommand.h"
#include "agent/console/StatusCommand.h"
#include "core/time/Iso8601DateFormatter.h"

namespace velmo::agent::console {

int ConsoleCommand::run(const run::AgentCommand::Invocation& invocation,
                        const ConsoleInputs& inputs, bool coloured, std::ostream& out,
                        std::ostream& err) {
  using Kind = run::AgentCommand::Invocation::Kind;
  std::optional<platform::TimePoint> from;
  if (invocation.from) {
    from = core::Iso8601DateFormatter::date(*invocation.from);
    if (!from) {
      err << "Error: --from takes an ISO 8601 moment with its zone, such as "
             "2026-11-24T06:00:00Z or 2026-11-24T07:00:00+01:00; not \""
          << *invocation.from << "\".\n";
      return kNothingReadStatus;
    }
  }
  const AgentFacts facts = AgentFacts::gather(inputs);
  if (!facts.readAnything) {
    err << "Error: nothing could be read: no agent answers on the system bus, and none of its "
           "files is under "
        << inputs.paths.root().string() << ".\n";
    for (const auto& problem : facts.problems) err << problem << "\n";
    return kNothingReadStatus;
  }
  const ConsoleText text(coloured && !invocation.json);
  const std::string tool = inputs.paths.toolExecutable().string();
  if (invocation.kind == Kind::explain) {
    const auto explanation =
        ExplainCommand::explain(facts, from.value_or(facts.now), invocation.days);
    if (invocation.json) {
      out << ExplainCommand::json(facts, explanation, tool).dump(2) << "\n";
    } else {
      ExplainCommand::printText(facts, explanation, tool, text, out);
    }
    return 0;
  }
  if (invocation.json) {
    out << StatusCommand::json(facts).dump(2) << "\n";
  } else {
    StatusCommand::printText(facts, text, out);
  }
  return 0;
}

}  // namespace velmo::agent::console
