#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "backends/linux/SdBusConnection.h"
#include "core/Lifetime.h"
#include "core/logging/CustomLogger.h"
#include "core/values/PlistValue.h"

namespace velmo::platform::linux {

// The properties of one object of a system service, as its current owner
// says them: read whole when the service appears, kept by its
// PropertiesChanged, dropped when it goes. A signal counts only from the
// connection that owns the service's name now, so that another account's
// forged PropertiesChanged changes nothing. Booleans, integers and doubles
// are kept. Lives on the main executor.
class SdBusServiceProperties {
 public:
  using Values = std::map<std::string, core::PlistValue, std::less<>>;

  SdBusServiceProperties(SdBusConnection& connection, std::string service, std::string path,
                         std::string interface);
  ~SdBusServiceProperties();
  SdBusServiceProperties(const SdBusServiceProperties&) = delete;
  SdBusServiceProperties& operator=(const SdBusServiceProperties&) = delete;

  // False while nobody owns the service's name, or its properties aren't read yet.
  bool available() const { return available_; }
  const Values& values() const { return values_; }
  // Called after available() or values() changed.
  void onChange(std::function<void()> handler) { handler_ = std::move(handler); }

 private:
  void askForOwner();
  void ownerIs(std::string owner);
  void readAll();
  void handlePropertiesChanged(sd_bus_message* message);
  // Reads an a{sv} into `values_`; false when it isn't one.
  bool readDictionary(sd_bus_message* message);
  void changed();

  SdBusConnection& connection_;
  const std::string service_;
  const std::string path_;
  const std::string interface_;
  core::CustomLogger logger_{"ServiceProperties"};
  std::string owner_;
  bool available_ = false;
  Values values_;
  std::function<void()> handler_;
  std::vector<SdBusConnection::MatchId> matches_;
  core::Lifetime lifetime_;
};

}  // namespace velmo::platform::linux
