#pragma once

#include <linux/netlink.h>
#include <sys/types.h>

#include <map>
#include <memory>

#include <asio/posix/stream_descriptor.hpp>

#include "core/Executors.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "platform/ApplicationTerminations.h"
#include "platform/Clock.h"

namespace velmo::platform::linux {

// Application terminations from the kernel's process connector: each exec
// remembers the executable of the new program, so that its exit can be told
// as the end of `<X>.app` even though the process is gone by then. Nothing
// polls while nothing happens. Needs root; where the connector can't be
// opened, one warning and a scan of /proc every 2 s take its place.
// A filter in the kernel (classic BPF on the socket) lets through only execs
// and the exits of the applications being watched, so the exits of every
// other process on the machine never wake the agent. Lives on the main
// executor.
class ProcessConnectorTerminations final : public ApplicationTerminations {
 public:
  static constexpr Duration kScanPeriod = std::chrono::seconds(2);
  static constexpr Duration kProbeWait = std::chrono::seconds(1);
  // Applications watched by their process ids in the kernel's filter: two
  // instructions each, within the filter's 4,096. Beyond that every exit of
  // a process passes, and the map below tells.
  static constexpr std::size_t kMaxFilteredApplications = 1000;

  ProcessConnectorTerminations(core::Executor mainExecutor, Clock& clock);
  ~ProcessConnectorTerminations() override;

  // Opens the connector (or starts the scan) and notes the applications
  // running now.
  void start();
  bool usesConnector() const { return descriptor_ != nullptr && heard_; }

  ObserverToken addObserver(Handler handler) override;
  void removeObserver(ObserverToken token) override;

 private:
  bool openConnector();
  void waitForEvents();
  void readEvents();
  void handleMessage(const nlmsghdr* header);
  void scan();
  void scheduleScan();
  void noteExec(pid_t pid);
  void noteExit(pid_t pid);
  // Lets through the exits of the applications watched now. A new one that
  // ended before the filter knew it is told at once.
  void updateFilter();
  void emit(const std::filesystem::path& bundle);

  core::Executor mainExecutor_;
  Clock& clock_;
  core::CustomLogger logger_{"ProcessConnectorTerminations"};
  std::unique_ptr<asio::posix::stream_descriptor> descriptor_;
  std::unique_ptr<Timer> scanTimer_;
  bool heard_ = false;         // An event arrived through the connector.
  bool filterWanted_ = false;  // The watched applications changed since the filter was set.
  // Application processes alive now, by process id.
  std::map<pid_t, std::filesystem::path> applications_;
  std::uint64_t nextToken_ = 1;
  std::map<std::uint64_t, Handler> handlers_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::platform::linux
