#pragma once

#include <map>
#include <string>

#include "backends/linux/SdBusConnection.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "platform/WorkspaceEvents.h"

namespace velmo::platform::linux {

// Sleep, wake and power-off from logind's PrepareForSleep and
// PrepareForShutdown signals. Only the current owner of the name
// org.freedesktop.login1 is believed: the owner is asked for at each
// connection and followed through NameOwnerChanged.
class LogindWorkspaceEvents final : public WorkspaceEvents {
 public:
  static constexpr const char* kLogindName = "org.freedesktop.login1";

  explicit LogindWorkspaceEvents(SdBusConnection& connection);
  ~LogindWorkspaceEvents() override;

  ObserverToken addObserver(Handler handler) override;
  void removeObserver(ObserverToken token) override;

 private:
  void askForOwner();
  void handleOwnerChanged(sd_bus_message* message);
  void handlePrepare(sd_bus_message* message, bool shutdown);

  SdBusConnection& connection_;
  core::CustomLogger logger_{"LogindWorkspaceEvents"};
  std::string owner_;
  std::vector<SdBusConnection::MatchId> matches_;
  std::uint64_t nextToken_ = 1;
  std::map<std::uint64_t, Handler> handlers_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::platform::linux
