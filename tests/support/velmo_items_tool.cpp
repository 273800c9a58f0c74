// Update items from outside the agent, for the end-to-end tests.
//   velmo-items-tool burst COUNT BATCH   posts COUNT items, BATCH per
//                                        addItemsToUIControllerQueue post
//   velmo-items-tool check FILE          exits 0 when FILE is missing or holds
//                                        a whole array of items, 1 otherwise
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include <asio/io_context.hpp>

#include "backends/linux/SdBusConnection.h"
#include "backends/linux/SdBusNotificationCenter.h"
#include "backends/linux/SystemClock.h"
#include "core/items/UpdateItem.h"
#include "core/notifications/NotificationNames.h"

namespace {

using namespace velmo;

int burst(long count, long batch) {
  asio::io_context context;
  platform::linux::SystemClock clock;
  platform::linux::SdBusConnection connection(context.get_executor(), clock);
  connection.start();
  if (!connection.isConnected()) return 69;
  platform::linux::SdBusNotificationCenter center(connection);
  std::vector<core::UpdateItem> items;
  for (long i = 0; i < count; ++i) {
    const std::string id = "item-" + std::to_string(i);
    items.emplace_back(id, "Item " + std::to_string(i), "2.0." + std::to_string(i), "1.0",
                       "/Applications/" + id + ".app", i % 2 == 0, false);
    if (static_cast<long>(items.size()) == batch || i + 1 == count) {
      center.post(core::NotificationName::addItemsToUIControllerQueue,
                  core::UpdateItem::jsonText(items));
      items.clear();
    }
  }
  context.run_for(std::chrono::milliseconds(100));  // Lets the last posts leave.
  return 0;
}

int check(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return 0;
  std::stringstream text;
  text << file.rdbuf();
  const auto items = core::UpdateItem::arrayFromJSONText(text.str());
  if (!items) {
    std::cerr << "not a whole array of items: " << text.str().size() << " bytes\n";
    return 1;
  }
  std::cout << items->size() << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc > 1 ? argv[1] : "";
  if (verb == "burst" && argc == 4) return burst(std::atol(argv[2]), std::atol(argv[3]));
  if (verb == "check" && argc == 3) return check(argv[2]);
  std::cerr << "usage: velmo-items-tool burst COUNT BATCH | check FILE\n";
  return 64;
}
