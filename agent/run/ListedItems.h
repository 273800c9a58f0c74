#pragma once

#include <vector>

#include "core/items/UpdateItem.h"
#include "core/time/TimeInterval.h"

namespace velmo::agent::run {

// What the run coordinator needs of the list of pending update items, which
// the UI controller keeps. Used on the main executor.
class ListedItems {
 public:
  virtual ~ListedItems() = default;
  virtual const std::vector<core::UpdateItem>& updateItems() const = 0;
  // Takes the item from the list after `delay`, by its id.
  virtual void scheduleRemoval(const core::UpdateItem& item, core::TimeInterval delay) = 0;
  // Tells the deferral store in this process that the item needs no deferrals any more.
  virtual void postRemoveDeferrals(const core::UpdateItem& item) = 0;
};

}  // namespace velmo::agent::run
