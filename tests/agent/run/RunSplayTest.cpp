#include "agent/run/RunSplay.h"

#include <gtest/gtest.h>

namespace velmo::agent::run {
namespace {

// The offsets of machines with an id are held to the administrator's formula by
// the coordinator's splay cases; a machine without one must not wait at all.
TEST(RunSplay, WithoutAMachineIdThereIsNoOffset) {
  EXPECT_EQ(RunSplay::offset(std::nullopt, 3600).count(), 0);
}

}  // namespace
}  // namespace velmo::agent::run
