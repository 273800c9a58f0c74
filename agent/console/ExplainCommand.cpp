#include "agent/console/ExplainCommand.h"

#include "agent/console/WeekPicture.h"
#include "agent/deferrals/ActiveIntervalManager.h"
#include "agent/run/RunConditions.h"
#include "agent/runner/RunCommandBuilder.h"
#include "core/time/TimeInterval.h"

namespace velmo::agent::console {
namespace {

using Kind = core::VelmoWindowPolicy::Verdict::Kind;

bool tuesdayOnly(const AgentFacts& facts) {
  return facts.config.globalAllowWindows.empty() && facts.config.velmoTuesdayOnly;
}

std::string_view kindName(Kind kind) {
  switch (kind) {
    case Kind::allowed:
      return "allowed";
    case Kind::blackout:
      return "blackout";
    case Kind::otherWeek:
      return "otherWeek";
    case Kind::outside:
      return "outside";
  }
  return "";
}

struct Commands {
  std::vector<run::Command> scheduled;
  std::vector<run::Command> user;
  run::Command quit;
};

Commands commands(const AgentFacts& facts) {
  return {run::RunCommandBuilder::build(facts.runPolicy, false),
          run::RunCommandBuilder::build(facts.runPolicy, true),
          deferrals::ActiveIntervalManager::updateCommand("<app id>")};
}

// Why the running agent holds scheduled runs now; empty when it doesn't or none answers.
std::string heldBy(const AgentFacts& facts) {
  return facts.agent ? facts.agent->status.runsHeldBy : std::string();
}

bool userRunsAnyTime(const AgentFacts& facts) {
  return !facts.planner.policy() || facts.config.allowUserInitiatedOutsideWindows;
}

using Colour = ConsoleText::Colour;

// The sections of the text, each under its heading.
struct ExplainText {
  const AgentFacts& facts;
  const ExplainCommand::Explanation& explanation;
  const ConsoleText& text;
  std::ostream& out;

  std::string local(platform::TimePoint date) const {
    return ConsoleText::localDate(date, facts.timeZone);
  }

  void heading() const {
    out << text.paint("From ", Colour::bold) << local(explanation.from) << " to "
        << local(explanation.to) << " (" << facts.timeZone << "), runs every "
        << core::durationDescription(facts.planner.interval())
        << (facts.planner.splay().count() > 0
                ? ", " + core::durationDescription(facts.planner.splay()) +
                      " after each window's opening (RunSplay)"
                : std::string())
        << ", last run " << (facts.lastRun ? local(*facts.lastRun) : std::string("never"))
        << "\n\n";
  }

  void scheduledRuns() const {
    out << text.paint("Scheduled runs", Colour::bold) << "\n";
    if (explanation.scheduledRuns.empty()) out << "  none in these days\n";
    for (const auto& run : explanation.scheduledRuns) {
      out << "  " << local(run.at);
      if (!run.allowed)
        out << text.paint("  refused: no allowed moment within the search", Colour::red);
      out << "\n";
    }
    if (explanation.moreRuns) out << "  and more\n";
    for (const auto& condition : run::RunConditions::described(facts.config)) {
      out << "  each also waits for " << condition << "\n";
    }
    if (const auto held = heldBy(facts); !held.empty()) {
      out << "  " << text.paint("blocked now", Colour::red) << ": " << held
          << "; the overdue run starts once that clears and the windows allow it\n";
    }
  }

  void userRuns() const {
    out << "\n" << text.paint("A user's run", Colour::bold) << "\n";
    if (userRunsAnyTime(facts)) {
      out << "  at any time"
          << (facts.planner.policy() ? " (AllowUserInitiatedOutsideWindows)" : "") << "\n";
    } else {
      out << "  only while the windows allow:\n";
    }
  }

  void windows() const {
    out << "\n" << text.paint("Windows", Colour::bold) << "\n";
    if (!facts.planner.policy()) {
      out << "  none: every moment is allowed\n";
      return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& stretch : explanation.stretches) {
      const bool allowed = stretch.verdict.kind == Kind::allowed;
      rows.push_back({local(stretch.start) + " \u2013 " + local(stretch.end),
                      allowed ? text.paint("allowed", Colour::green)
                              : text.paint("blocked", Colour::red) + ": " +
                                    ConsoleText::reason(stretch.verdict, *facts.planner.policy(),
                                                        tuesdayOnly(facts))});
    }
    out << ConsoleText::aligned(rows, "  ");
  }
};

void printCommands(const AgentFacts& facts, const std::string& tool, const ConsoleText& text,
                   std::ostream& out) {
  const auto lines = commands(facts);
  out << "\n" << text.paint("Command lines now", Colour::bold) << "\n";
  out << "  scheduled run:\n";
  for (const auto& command : lines.scheduled)
    out << "    " << ConsoleText::shellCommand(tool, command) << "\n";
  out << "  a user's run:\n";
  for (const auto& command : lines.user)
    out << "    " << ConsoleText::shellCommand(tool, command) << "\n";
  out << "  an app's update when its user quits it:\n";
  out << "    " << ConsoleText::shellCommand(tool, lines.quit) << "\n";
}

}  // namespace

ExplainCommand::Explanation ExplainCommand::explain(const AgentFacts& facts,
                                                    platform::TimePoint from, int days,
                                                    std::size_t maxRuns) {
  Explanation result{from, from + std::chrono::days(days), {}, false, {}};
  const auto& planner = facts.planner;
  const auto& policy = planner.policy();
  const auto allowed = [&](platform::TimePoint at) {
    return !policy || policy->isWithinAllowedWindow(at);
  };
  platform::TimePoint next = planner.fromLastRun(facts.lastRun, from).start;
  while (next < result.to) {
    if (result.scheduledRuns.size() >= maxRuns) {
      result.moreRuns = true;
      break;
    }
    result.scheduledRuns.push_back({next, allowed(next)});
    next = planner.afterRun(next).start;
  }
  if (policy) {
    result.stretches = policy->stretches(from, result.to);
  } else {
    result.stretches.push_back({from, result.to, {}});
  }
  return result;
}

nlohmann::json ExplainCommand::json(const AgentFacts& facts, const Explanation& explanation,
                                    const std::string& tool) {
  nlohmann::json out;
  out["from"] = ConsoleText::isoDate(explanation.from);
  out["to"] = ConsoleText::isoDate(explanation.to);
  out["timeZone"] = facts.timeZone;
  out["intervalSeconds"] = facts.planner.interval().count();
  out["splayOffsetSeconds"] = facts.planner.splay().count();
  out["lastRun"] = facts.lastRun ? nlohmann::json(ConsoleText::isoDate(*facts.lastRun))
                                 : nlohmann::json(nullptr);
  out["scheduledRuns"] = nlohmann::json::array();
  for (const auto& run : explanation.scheduledRuns) {
    out["scheduledRuns"].push_back(
        {{"at", ConsoleText::isoDate(run.at)}, {"allowed", run.allowed}});
  }
  out["moreScheduledRuns"] = explanation.moreRuns;
  out["userRunsAnyTime"] = userRunsAnyTime(facts);
  out["conditions"] = run::RunConditions::described(facts.config);
  const auto held = heldBy(facts);
  out["blockedNow"] = held.empty() ? nlohmann::json(nullptr) : nlohmann::json(held);
  out["stretches"] = nlohmann::json::array();
  for (const auto& stretch : explanation.stretches) {
    nlohmann::json entry{{"start", ConsoleText::isoDate(stretch.start)},
                         {"end", ConsoleText::isoDate(stretch.end)},
                         {"allowed", stretch.verdict.kind == Kind::allowed},
                         {"kind", kindName(stretch.verdict.kind)}};
    if (stretch.verdict.window >= 0) entry["window"] = stretch.verdict.window;
    if (stretch.verdict.kind != Kind::allowed && facts.planner.policy()) {
      entry["reason"] =
          ConsoleText::reason(stretch.verdict, *facts.planner.policy(), tuesdayOnly(facts));
    }
    out["stretches"].push_back(std::move(entry));
  }
  out["week"] = WeekPicture(facts.planner.policy(), explanation.from, facts.timeZone).json();
  const auto lines = commands(facts);
  const auto withTool = [&](const run::Command& command) {
    nlohmann::json words = nlohmann::json::array({tool});
    for (const auto& word : command) words.push_back(word);
    return words;
  };
  out["commands"]["scheduledRun"] = nlohmann::json::array();
  for (const auto& command : lines.scheduled)
    out["commands"]["scheduledRun"].push_back(withTool(command));
  out["commands"]["userRun"] = nlohmann::json::array();
  for (const auto& command : lines.user) out["commands"]["userRun"].push_back(withTool(command));
  out["commands"]["appQuit"] = withTool(lines.quit);
  return out;
}

void ExplainCommand::printText(const AgentFacts& facts, const Explanation& explanation,
                               const std::string& tool, const ConsoleText& text,
                               std::ostream& out) {
  const ExplainText explain{facts, explanation, text, out};
  explain.heading();
  explain.scheduledRuns();
  explain.userRuns();
  explain.windows();
  out << "\n" << text.paint("Week", Colour::bold) << "\n";
  out << WeekPicture(facts.planner.policy(), explanation.from, facts.timeZone).render(text);
  printCommands(facts, tool, text, out);
}

}  // namespace velmo::agent::console
