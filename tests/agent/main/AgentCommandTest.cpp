#include "agent/main/AgentCommand.h"

#include <gtest/gtest.h>

#include <sstream>

#include "backends/fake/FakeFileManager.h"
#include "backends/fake/FakeHost.h"

namespace velmo::agent {
namespace {

struct CommandCase {
  const char* name;
  std::vector<const char*> arguments;
  bool toolExists;
  uid_t euid;
  std::optional<int> status;  // Nothing: start-up goes on.
  const char* standardError;  // Exact text, or a fragment when `exactError` is false.
  bool exactError = true;
  const char* standardOutput = "";
};

void PrintTo(const CommandCase& c, std::ostream* os) { *os << c.name; }

class AgentCommandTest : public ::testing::TestWithParam<CommandCase> {};

TEST_P(AgentCommandTest, ParsesChecksAndExits) {
  const CommandCase& c = GetParam();
  const platform::Paths paths("/sandbox");
  platform::fake::FakeFileManager files;
  if (c.toolExists) files.addFile(paths.toolExecutable());
  const platform::fake::FakeHost host(c.euid);
  std::ostringstream out, err;

  std::vector<const char*> argv{"velmo-agent"};
  argv.insert(argv.end(), c.arguments.begin(), c.arguments.end());
  const auto status = AgentCommand::parseAndValidate(static_cast<int>(argv.size()), argv.data(),
                                                     "0.1.0.7", {paths, files, host, out, err});

  EXPECT_EQ(status, c.status);
  if (c.exactError) {
    EXPECT_EQ(err.str(), c.standardError);
  } else {
    EXPECT_NE(err.str().find(c.standardError), std::string::npos) << err.str();
  }
  EXPECT_NE(out.str().find(c.standardOutput), std::string::npos) << out.str();
}

constexpr const char* kToolMessage =
    "Error: Velmo command line tool does not exist at: "
    "/sandbox/Library/Application Support/Marvenith/Velmo/velmo.\n";
constexpr const char* kRootMessage = "Error: Velmo Agent must be run as root.\n";

INSTANTIATE_TEST_SUITE_P(
    Table, AgentCommandTest,
    // Missing tool as root, extra arguments, unknown options and --version are
    // checked end to end (tests/e2e/cli_test.sh), without root as well.
    // The tool check comes first, so a non-root user without the tool sees it.
    ::testing::Values(CommandCase{"ToolCheckBeforeRootCheck", {}, false, 501, 3, kToolMessage},
                      CommandCase{"NotRoot", {"start"}, true, 501, 2, kRootMessage},
                      CommandCase{
                          "Help", {"--help"}, false, 501, 0, "", true, "Start the Velmo Agent"},
                      // One value, printed one way.
                      CommandCase{"FieldOrAttribute",
                                  {"status", "--field", "NextRun", "--ea", "NextRun"},
                                  false,
                                  501,
                                  108,
                                  "excludes",
                                  false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent
