// Any bytes as an administrator's window list: a data blob holding a property
// list, the same bytes read as a native plist value, and as the JSON form the
// siblings share. Decoded or refused, never a crash; what decodes codes again
// to the same windows. Decoded windows, however odd their hours and weeks,
// then drive a window policy: the fast search must agree with the minute scan.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "backends/fake/FakeUserDefaults.h"
#include "core/time/VelmoTimeWindow.h"
#include "core/time/VelmoWindowPolicy.h"
#include "core/values/PropertyList.h"

namespace {

using velmo::core::PlistData;
using velmo::core::PlistValue;
using velmo::core::VelmoTimeWindow;
using velmo::core::VelmoWindowPolicy;

// Zones whose clock changes are where a boundary search goes wrong first.
constexpr std::array kZones{"UTC", "Europe/Berlin", "Australia/Lord_Howe", "America/Havana",
                            "Pacific/Apia"};
// Two windows a list and one day of search keep the scan to 1,440 candidates,
// so the fuzzer still makes hundreds of runs a second.
constexpr std::size_t kMostWindows = 2;
constexpr int kSearchDays = 1;

void checkRoundTrip(const std::vector<VelmoTimeWindow>& windows) {
  const auto again = VelmoTimeWindow::fromPlistArray(VelmoTimeWindow::toPlistArray(windows));
  if (!again || *again != windows) std::abort();
  const auto json = nlohmann::json(windows);
  if (json.get<std::vector<VelmoTimeWindow>>() != windows) std::abort();
}

std::vector<VelmoTimeWindow> fromJSON(std::string_view text) {
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded() || !json.is_array()) return {};
  try {
    return json.get<std::vector<VelmoTimeWindow>>();
  } catch (const nlohmann::json::exception&) {
    return {};
  }
}

void checkSearch(std::vector<VelmoTimeWindow> allow, std::vector<VelmoTimeWindow> deny,
                 std::string_view text) {
  if (allow.empty() && deny.empty()) return;
  allow.resize(std::min(allow.size(), kMostWindows));
  deny.resize(std::min(deny.size(), kMostWindows));
  const auto hash = std::hash<std::string_view>{}(text);
  // Any moment from 1970 to about 2106, to the second.
  const velmo::core::TimePoint after{std::chrono::seconds(hash % (std::uint64_t{1} << 32))};
  const VelmoWindowPolicy policy(std::move(allow), std::move(deny),
                                 kZones[(hash >> 32) % kZones.size()]);
  const auto fast = policy.nextAllowedRunDate(after, kSearchDays);
  if (fast != policy.nextAllowedRunDateByScan(after, kSearchDays)) std::abort();
  if (fast != after && !policy.isWithinAllowedWindow(fast)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  velmo::platform::fake::FakeUserDefaults defaults;
  defaults.set("GlobalAllowWindows", PlistValue(PlistData(data, data + size)));
  if (const auto native = velmo::core::PropertyList::parse(text)) {
    defaults.set("GlobalBlackoutWindows", *native);
  }
  const auto allow = VelmoTimeWindow::fromStoredList(defaults.object("GlobalAllowWindows"));
  const auto deny = VelmoTimeWindow::fromStoredList(defaults.object("GlobalBlackoutWindows"));
  const auto shared = fromJSON(text);
  for (const auto* windows : {&allow, &deny, &shared}) checkRoundTrip(*windows);
  // A plist that decodes is both lists alike; the JSON form stands in as the
  // deny list then, so allow and deny windows meet in one policy.
  checkSearch(allow, shared.empty() ? deny : shared, text);
  return 0;
}
