#include "core/notifications/NotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velmo::core {
namespace {

constexpr std::string_view kName = "com.marvenith.velmo.removeDeferralsForItem";
constexpr std::string_view kOtherName = "NSUserDefaultsDidChangeNotification";
using Calls = std::vector<std::string>;

TEST(NotificationCenter, CallsTheObserversOfTheNameInOrderWithTheObject) {
  NotificationCenter center;
  Calls calls;
  const auto record = [&](std::string label) {
    return [&, label](const std::any& object) {
      const auto* text = std::any_cast<std::string>(&object);
      calls.push_back(label + (text ? " " + *text : ""));
    };
  };
  center.addObserver(kName, record("first"));
  center.addObserver(kOtherName, record("other"));
  center.addObserver(kName, record("second"));
  center.addObserver(kName, nullptr);

  center.post(kName, std::string("item"));
  center.post(kOtherName);
  EXPECT_EQ(calls, (Calls{"first item", "second item", "other"}));
}

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

TEST(NotificationCenter, AnObserverAddedDuringAPostWaitsForTheNextPost) {
  NotificationCenter center;
  Calls calls;
  center.addObserver(kName, [&](const std::any&) {
    calls.push_back("adder");
    if (calls.size() == 1) {
      center.addObserver(kName, [&](const std::any&) { calls.push_back("added"); });
    }
  });

  center.post(kName);
  center.post(kName);
  EXPECT_EQ(calls, (Calls{"adder", "adder", "added"}));
}

}  // namespace
}  // namespace velmo::core
