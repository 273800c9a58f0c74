#include "agent/run/RunSplay.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/fake/FakeFileManager.h"

namespace velmo::agent::run {
namespace {

constexpr const char* kIdA = "0123456789abcdef0123456789abcdef";
constexpr const char* kIdB = "5f2a9c0e7b3d4e1fa8c6d2b9e0f1a3c4";

struct SplayCase {
  std::optional<std::string> machineId;
  std::optional<double> splay;
  double offset;
};

class Offset : public ::testing::TestWithParam<SplayCase> {};

// The expected offsets are what an administrator gets by hand:
//   python3 -c 'import hashlib,sys; print(int.from_bytes(hashlib.sha256(
//     sys.argv[1].encode()).digest()[:8], "big") % 3600)' "$(cat /etc/machine-id)"
TEST_P(Offset, IsTheMachineIdsHashModuloTheSplay) {
  const auto& c = GetParam();
  EXPECT_EQ(RunSplay::offset(c.machineId, c.splay).count(), c.offset);
}

INSTANTIATE_TEST_SUITE_P(Table, Offset,
                         ::testing::Values(SplayCase{kIdA, 3600, 1222}, SplayCase{kIdA, 30, 22},
                                           SplayCase{kIdB, 3600, 2866},
                                           // Cut to a day.
                                           SplayCase{kIdB, 1e12, 64066}, SplayCase{kIdA, 0, 0},
                                           SplayCase{kIdA, -30, 0},
                                           SplayCase{kIdA, std::nan(""), 0},
                                           SplayCase{kIdA, std::nullopt, 0},
                                           SplayCase{std::nullopt, 3600, 0}));

}  // namespace
}  // namespace velmo::agent::run
