#include "agent/console/PolicyLint.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "agent/console/PolicyKey.h"
#include "agent/policy/VelmoRunConfig.h"
#include "agent/run/PlistKey.h"
#include "agent/run/RunPlanner.h"
#include "agent/run/RunSplay.h"
#include "agent/runner/RunCommandBuilder.h"
#include "core/items/PackageIntegrityPolicy.h"
#include "core/items/ToolIdentifier.h"
#include "core/logging/Utf8.h"
#include "core/plist/DefaultsValue.h"
#include "core/time/TimeInterval.h"
#include "mdm/ManagedDomain.h"
#include "mdm/PreferenceConversions.h"

namespace velmo::agent::console {
namespace {

using Kind = PolicyKey::Kind;
using Road = PolicyKey::Road;

constexpr int kSearchDays = 60;
constexpr double kShortestSensibleInterval = 900.0;

// One domain's values, read as the agent's user defaults read them.
class DictionaryDefaults final : public platform::UserDefaults {
 public:
  explicit DictionaryDefaults(const core::PlistDictionary& values) : values_(values) {}
  std::optional<core::PlistValue> object(std::string_view key) const override {
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
  }
  platform::FileResult<> setObject(std::string_view, const core::PlistValue&) override {
    return {};
  }

 private:
  const core::PlistDictionary& values_;
};

std::string typeName(const core::PlistValue& value) {
  struct Visitor {
    std::string operator()(bool) const { return "a Boolean"; }
    std::string operator()(std::int64_t) const { return "an integer"; }
    std::string operator()(double) const { return "a real number"; }
    std::string operator()(const std::string&) const { return "a string"; }
    std::string operator()(const core::PlistDate&) const { return "a date"; }
    std::string operator()(const core::PlistData&) const { return "data"; }
    std::string operator()(const core::PlistArray&) const { return "an array"; }
    std::string operator()(const core::PlistDictionary&) const { return "a dictionary"; }
  };
  return std::visit(Visitor{}, value.storage());
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

// Edits from one key to another, letters compared without case.
std::size_t distance(std::string_view a, std::string_view b) {
  const std::string x = lower(a);
  const std::string y = lower(b);
  std::vector<std::size_t> row(y.size() + 1);
  for (std::size_t j = 0; j <= y.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= x.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= y.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] == y[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[y.size()];
}

std::string booleanText(bool value) { return value ? "true" : "false"; }

const char* severityName(PolicyLint::Severity severity) {
  switch (severity) {
    case PolicyLint::Severity::note:
      return "note";
    case PolicyLint::Severity::warning:
      return "warning";
    case PolicyLint::Severity::error:
      break;
  }
  return "error";
}

struct Linter {
  const std::string& file;
  const std::string& domain;
  const core::PlistDictionary& values;
  platform::TimePoint now;
  const std::string& timeZoneId;
  std::vector<PolicyLint::Diagnostic> found{};

  void warn(std::string key, std::string text) {
    found.push_back({file, std::move(key), PolicyLint::Severity::warning, std::move(text)});
  }
  void error(std::string key, std::string text) {
    found.push_back({file, std::move(key), PolicyLint::Severity::error, std::move(text)});
  }

  void unknownKeys() {
    std::vector<std::string> known;
    for (const auto& rule : PolicyKey::rules()) {
      if (mdm::rawValue(rule.domain) == domain) known.emplace_back(rule.key);
    }
    // The agent's state shares the machine-wide store of its domain.
    for (const auto key :
         {run::PlistKey::updateTaskRunCount, run::PlistKey::lastUpdateTaskRun,
          run::PlistKey::maintenanceTaskRunCount, run::PlistKey::lastMaintenanceTaskRun}) {
      known.emplace_back(run::keyString(key));
    }
    for (const auto& [key, value] : values) {
      if (std::find(known.begin(), known.end(), key) != known.end()) continue;
      const std::string shown = core::escapedControls(key);
      const std::string* nearest = nullptr;
      std::size_t best = 0;
      for (const auto& candidate : known) {
        const std::size_t edits = distance(key, candidate);
        if (!nearest || edits < best) {
          nearest = &candidate;
          best = edits;
        }
      }
      if (nearest && best <= std::max<std::size_t>(2, key.size() / 4)) {
        warn(shown,
             "unknown key; did you mean " + *nearest + "? The agent never reads " + shown + ".");
      } else {
        warn(shown, "unknown key; the agent never reads it.");
      }
    }
  }

  void typed(const PolicyKey::Rule& rule, const core::PlistValue& value) {
    switch (rule.kind) {
      case Kind::boolean:
        return boolean(rule, value);
      case Kind::interval:
        return interval(rule.key, value);
      case Kind::splay:
        return splay(rule.key, value);
      case Kind::percent:
        return percent(rule.key, value);
      case Kind::text:
      case Kind::channel:
        return textual(rule.key, value);
      case Kind::ids:
        return ids(rule.key, value);
      case Kind::windows:
        return windows(rule.key, value);
    }
  }

  void boolean(const PolicyKey::Rule& rule, const core::PlistValue& value) {
    if (value.is<bool>()) return;
    const auto loose = mdm::PreferenceConversions::boolean(value);
    if (rule.road == Road::defaults && core::DefaultsValue<bool>::from(value)) return;
    std::string text = typeName(value) + " where a Boolean belongs: ";
    if (rule.road == Road::defaults) {
      text += "runs read it as " + booleanText(rule.fallback) + ", the default";
      if (std::string_view(rule.key) == "UpdateMAS") {
        text += "; queued items read it as " + booleanText(loose.value_or(false));
      }
    } else {
      text += loose ? "read loosely as " + booleanText(*loose)
                    : "read as " + booleanText(rule.fallback) + ", the default";
    }
    warn(rule.key, text + ".");
  }

  void interval(const std::string& key, const core::PlistValue& value) {
    const auto strict = core::DefaultsValue<double>::from(value);
    const auto loose = mdm::PreferenceConversions::real(value);
    const auto fallback = core::durationDescription(run::RunPlanner::kDefaultInterval);
    if (!loose) {
      error(key, typeName(value) + " where a number of seconds belongs: runs every " + fallback +
                     ", the default.");
      return;
    }
    if (!strict) {
      warn(key, typeName(value) + " where a number belongs: read as " +
                    mdm::PreferenceConversions::string(*loose).value_or("?") +
                    " at start, but a policy change reads it as unset (every " + fallback + ").");
    }
    if (!run::RunPlanner::usableInterval(*loose)) {
      error(key, "must be a number of seconds above 0: the agent warns and runs every " + fallback +
                     ".");
    } else if (*loose < kShortestSensibleInterval) {
      warn(key, "under 15 minutes: runs follow each other almost back to back.");
    }
  }

  void splay(const std::string& key, const core::PlistValue& value) {
    const auto seconds = core::DefaultsValue<double>::from(value);
    if (!seconds) {
      warn(key, typeName(value) + " where a number of seconds belongs: runs are not spread.");
    } else if (*seconds > run::RunSplay::kMaxSeconds) {
      warn(key, "over a day: cut to 86400 seconds.");
    } else if (*seconds < 0 || !std::isfinite(*seconds)) {
      warn(key, "not a number of seconds from 0 up: runs are not spread.");
    }
  }

  void percent(const std::string& key, const core::PlistValue& value) {
    const auto number = core::DefaultsValue<std::int64_t>::from(value);
    if (!number) {
      warn(key, typeName(value) +
                    " where a whole number from 0 to 100 belongs: read as 0, any "
                    "charge.");
    } else if (*number < 0 || *number > 100) {
      warn(key, "not from 0 to 100: read as " + std::to_string(*number < 0 ? 0 : 100) + ".");
    }
  }

  void textual(const std::string& key, const core::PlistValue& value) {
    const auto text = core::DefaultsValue<std::string>::from(value);
    if (!text) {
      warn(key, typeName(value) + " where a string belongs: ignored.");
      return;
    }
    const std::string trimmed(core::trimmedWhiteSpace(*text));
    if (key == "UpdateChannel") {
      const auto label = run::RunCommandBuilder::updateChannelLabel(*text);
      const auto word = lower(trimmed);
      if (label == run::RunCommandBuilder::updateChannelLabel(std::nullopt) && !word.empty() &&
          word != "stable") {
        warn(key, "\"" + core::escapedControls(*text) +
                      "\" is not a channel (rc, preview, beta, dev): the stable one is used.");
      }
    } else if (key == "IntegrityPolicy" && !core::packageIntegrityPolicyFromRawValue(trimmed)) {
      warn(key, "\"" + core::escapedControls(*text) +
                    "\" is not all, cachedOnly, downloadOnly or disabled (exact case): no "
                    "--integrity-policy is passed.");
    }
  }

  void ids(const std::string& key, const core::PlistValue& value) {
    const auto list = core::DefaultsValue<std::vector<std::string>>::from(value);
    if (!list) {
      error(key, typeName(value) + " where an array of strings belongs: read as empty.");
      return;
    }
    for (const auto& id : *list) {
      if (!core::ToolIdentifier::isValid(id)) {
        error(key, "ID \"" + core::escapedControls(id) + "\" is refused: the tool never sees it.");
      }
    }
  }

  void windows(const std::string& key, const core::PlistValue& value) {
    const DictionaryDefaults defaults(values);
    const auto list = core::VelmoTimeWindow::fromStoredList(defaults.object(key));
    const auto* array = value.getIf<core::PlistArray>();
    if (list.empty() && !(array && array->empty())) {
      error(key, "not a list of windows the agent can read: the whole list is ignored" +
                     std::string(key == "GlobalAllowWindows" ? ", so runs are not restricted."
                                                             : ", so nothing is blacked out."));
      return;
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
      const auto& window = list[i];
      const std::string name =
          "window " + std::to_string(i + 1) + " (" + window.description() + ")";
      for (const auto& [bound, time] : {std::pair{"start", window.start}, {"end", window.end}}) {
        if (time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59) {
          warn(key, name + ": " + bound + " is outside the clock's 00:00 to 23:59; it is clipped.");
        }
      }
      if (window.days.empty()) warn(key, name + ": no days, so it never holds a moment.");
      if (window.weeksOfMonth) {
        const auto& weeks = *window.weeksOfMonth;
        const bool none = !weeks.empty() && std::none_of(weeks.begin(), weeks.end(),
                                                         [](auto w) { return w >= 1 && w <= 6; });
        for (const auto week : weeks) {
          if (week < 1 || week > 6) {
            warn(key, name + ": week " + std::to_string(week) +
                          " of the month never occurs (weeks are 1 to 6).");
          }
        }
        if (none) warn(key, name + ": none of its weeks occurs, so it never holds a moment.");
      }
    }
  }

  void wholePolicy() {
    const DictionaryDefaults defaults(values);
    const auto config = policy::VelmoRunConfig::read(defaults);
    if (config.velmoTuesdayOnly && !config.globalAllowWindows.empty()) {
      warn("EnableVelmoTuesdayWindow", "ignored while GlobalAllowWindows is set.");
    }
    if (config.updateAll && !config.updateOnly.empty()) {
      warn("UpdateOnly", "ignored: UpdateAll is true, so runs update everything.");
    }
    const auto policy = config.windowPolicy(timeZoneId);
    if (!policy) return;
    const auto allowsNothing = [&](const core::VelmoWindowPolicy& candidate) {
      return !candidate.isWithinAllowedWindow(now) &&
             candidate.nextAllowedRunDate(now, kSearchDays) == now;
    };
    for (std::size_t i = 0; i < config.globalAllowWindows.size(); ++i) {
      const auto& window = config.globalAllowWindows[i];
      const core::VelmoWindowPolicy alone({window}, {}, timeZoneId);
      if (allowsNothing(alone)) continue;  // Said above, where it is malformed.
      if (allowsNothing(
              core::VelmoWindowPolicy({window}, config.globalBlackoutWindows, timeZoneId))) {
        warn("GlobalAllowWindows",
             "window " + std::to_string(i + 1) + " (" + window.description() +
                 ") lies wholly inside blackout windows: it never allows a run.");
      }
    }
    if (allowsNothing(*policy)) {
      error(config.globalAllowWindows.empty() ? "GlobalBlackoutWindows" : "GlobalAllowWindows",
            "the windows allow no run in the next 60 days: scheduled runs never start.");
    }
  }
};

}  // namespace

int PolicyLint::exitStatus(const std::vector<Diagnostic>& diagnostics) {
  int status = 0;
  for (const auto& diagnostic : diagnostics) {
    status = std::max(status, static_cast<int>(diagnostic.severity));
  }
  return status;
}

std::vector<PolicyLint::Diagnostic> PolicyLint::lintValues(const std::string& file,
                                                           const std::string& domain,
                                                           const core::PlistDictionary& values,
                                                           platform::TimePoint now,
                                                           const std::string& timeZoneId) {
  Linter linter{file, domain, values, now, timeZoneId};
  const bool agentDomain = domain == mdm::rawValue(mdm::ManagedDomain::velmoAgent);
  // Other domains belong to the tool and the companion too: their other keys are theirs.
  if (agentDomain) linter.unknownKeys();
  for (const auto& rule : PolicyKey::rules()) {
    if (mdm::rawValue(rule.domain) != domain) continue;
    const auto found = values.find(rule.key);
    if (found != values.end()) linter.typed(rule, found->second);
  }
  if (agentDomain) linter.wholePolicy();
  return std::move(linter.found);
}

std::string PolicyLint::line(const Diagnostic& diagnostic) {
  std::string text = diagnostic.file;
  if (!diagnostic.payload.empty()) text += " [" + core::escapedControls(diagnostic.payload) + "]";
  text += ": ";
  if (!diagnostic.key.empty()) text += diagnostic.key + ": ";
  return text + severityName(diagnostic.severity) + ": " + diagnostic.text;
}

nlohmann::json PolicyLint::json(const std::vector<Diagnostic>& diagnostics) {
  nlohmann::json out{{"diagnostics", nlohmann::json::array()}};
  int counts[3] = {};
  for (const auto& diagnostic : diagnostics) {
    ++counts[static_cast<int>(diagnostic.severity)];
    out["diagnostics"].push_back(
        {{"file", diagnostic.file},
         {"payload",
          diagnostic.payload.empty() ? nlohmann::json() : nlohmann::json(diagnostic.payload)},
         {"key", diagnostic.key},
         {"severity", severityName(diagnostic.severity)},
         {"text", diagnostic.text}});
  }
  out["errors"] = counts[static_cast<int>(Severity::error)];
  out["warnings"] = counts[static_cast<int>(Severity::warning)];
  out["notes"] = counts[static_cast<int>(Severity::note)];
  out["exitStatus"] = exitStatus(diagnostics);
  return out;
}

}  // namespace velmo::agent::console
