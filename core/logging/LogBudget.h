#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <asio/any_io_executor.hpp>

#include "core/logging/CustomLogger.h"
#include "platform/Clock.h"

namespace velmo::core {

// Bounds the lines that other accounts can make the agent write: of each kind
// (a notification name, say) at most `linesPerMinute` lines a minute go out;
// the rest are counted, and at the end of that minute one line says how many
// were held back. Main executor only.
class LogBudget {
 public:
  // A log line per post is useful to an administrator; ten a minute already
  // show a flood, and more only fill the disk.
  static constexpr int kDefaultLinesPerMinute = 10;

  LogBudget(const CustomLogger& logger, platform::Clock& clock, asio::any_io_executor executor,
            int linesPerMinute = kDefaultLinesPerMinute);

  // Writes `line()` as a warning unless the kind has used its lines for this
  // minute. `what` names the held-back lines in the summary: "Suppressed N
  // <what> in the last minute."
  void warning(const std::string& kind, const std::string& what,
               const std::function<std::string()>& line);
  void error(const std::string& kind, const std::string& what,
             const std::function<std::string()>& line);
  // Whether a line of `kind` may go out now; one that may not is counted for
  // the summary. For callers that write the line with a logger of their own.
  bool admit(const std::string& kind, const std::string& what);

 private:
  struct Minute {
    ElapsedPoint start{};
    int lines = 0;
    long long heldBack = 0;
    std::unique_ptr<platform::Timer> summary;
  };

  void summarize(const std::string& kind, const std::string& what);

  const CustomLogger& logger_;
  platform::Clock& clock_;
  asio::any_io_executor executor_;
  int linesPerMinute_;
  // One entry per kind; callers use a fixed set of kinds.
  std::map<std::string, Minute> minutes_;
};

}  // namespace velmo::core
