#include "backends/linux/SdNotifyServiceManager.h"

#include <systemd/sd-daemon.h>

#include <chrono>

namespace velmo::platform::linux {
namespace {

// A status line is one line: the protocol separates fields by newlines.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

}  // namespace

// NOTIFY_SOCKET stays in the environment, so every call can use it; the tool
// inherits it, but systemd takes notifications from the main process only
// (NotifyAccess=main, the default for Type=notify).
void SdNotifyServiceManager::ready() { (void)sd_notify(0, "READY=1"); }

void SdNotifyServiceManager::status(const std::string& line) {
  (void)sd_notify(0, ("STATUS=" + oneLine(line)).c_str());
}

void SdNotifyServiceManager::stopping() { (void)sd_notify(0, "STOPPING=1"); }

void SdNotifyServiceManager::extendTimeout(core::Duration more) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(more).count();
  (void)sd_notifyf(0, "EXTEND_TIMEOUT_USEC=%lld", static_cast<long long>(microseconds));
}

}  // namespace velmo::platform::linux
