#include "core/notifications/NotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmo::core {
namespace {

constexpr std::string_view kName = "com.marvenith.velmo.removeDeferralsForItem";
using Calls = std::vector<std::string>;

TEST(NotificationCenter, ObserversRemovedDuringAPostAreNotCalledAfterwards) {
  NotificationCenter center;
  Calls calls;
  platform::ObserverToken self;
  platform::ObserverToken later;
  // The label lives in the handler: removing itself must not free it mid-call.
  self = center.addObserver(kName, [&, label = std::string("self")](const std::any&) {
    center.removeObserver(self);
    center.removeObserver(later);
    calls.push_back(label);
  });
  later = center.addObserver(kName, [&](const std::any&) { calls.push_back("later"); });

  center.post(kName);
  center.post(kName);
  center.removeObserver(self);
  EXPECT_EQ(calls, Calls{"self"});
}

}  // namespace
}  // namespace velmo::core
