#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/console/StatusView.h"
#include "agent/run/LastRun.h"
#include "core/logging/RecentLines.h"
#include "core/values/PlistValue.h"

namespace velmo::agent::console {

// The inventory report: what the agent is and does, as one property list
// that inventory tools read without asking the agent (extension attributes,
// a query over plist files). Built from the same view as `status`; keys are
// UpperCamelCase, dates are property-list dates.
class InventoryReport {
 public:
  // What the running agent knows beyond the files.
  struct Live {
    std::optional<run::LastRun> lastRun{};
    std::vector<core::RecentLines::Line> recentErrors{};
    // When each listed item was first seen listed, as the previous report says.
    std::map<std::string, platform::TimePoint, std::less<>> listedSince{};
  };

  static core::PlistDictionary build(const StatusView& view, const Live& live);

  // When each pending item was first listed, as a report says.
  static std::map<std::string, platform::TimePoint, std::less<>> listedSince(
      const core::PlistDictionary& report);

  // One value by name: a top-level key such as "NextRun", or a path into a
  // dictionary such as "LastRun.Result". None when it isn't there.
  static std::optional<core::PlistValue> field(const core::PlistDictionary& report,
                                               std::string_view name);
  // A value as one line: dates in ISO 8601, Booleans as true or false,
  // arrays and dictionaries as JSON.
  static std::string text(const core::PlistValue& value);
};

}  // namespace velmo::agent::console
