#include "core/items/ToolIdentifier.h"

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"

namespace velmo::core {
namespace {

struct IdentifierCase {
  std::string text;
  bool valid;
};

void PrintTo(const IdentifierCase& c, std::ostream* os) { *os << '"' << c.text << '"'; }

class ToolIdentifierTable : public ::testing::TestWithParam<IdentifierCase> {};

TEST_P(ToolIdentifierTable, AcceptsCatalogueLabelsOnly) {
  EXPECT_EQ(ToolIdentifier::isValid(GetParam().text), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
    Labels, ToolIdentifierTable,
    ::testing::Values(
        // Labels as catalogues write them.
        IdentifierCase{"googlechrome", true}, IdentifierCase{"microsoft_teams", true},
        IdentifierCase{"notepad++", true}, IdentifierCase{"zoom.us", true},
        IdentifierCase{"marvenith-velmo-rc", true}, IdentifierCase{"7zip", true},
        IdentifierCase{"_private", true}, IdentifierCase{std::string(128, 'a'), true},
        IdentifierCase{"AZ09", true},  // The ends of the ranges.
        // What the tool could take for a flag or a path, or what cuts argv.
        IdentifierCase{"", false}, IdentifierCase{std::string(129, 'a'), false},
        IdentifierCase{"-x", false}, IdentifierCase{"--config=/tmp/evil.conf", false},
        IdentifierCase{".hidden", false}, IdentifierCase{"../etc", false},
        IdentifierCase{"a/b", false}, IdentifierCase{"a b", false},
        IdentifierCase{std::string("a\0b", 3), false}, IdentifierCase{"a\nb", false},
        IdentifierCase{"caf\xc3\xa9", false}, IdentifierCase{"a=b", false},
        IdentifierCase{"$(id)", false}));

TEST(ToolIdentifier, AdmittedKeepsTheValidInOrderAndNamesEachOther) {
  testing::LogCapture capture;
  const CustomLogger logger("Test");
  EXPECT_EQ(ToolIdentifier::admitted({"a", "-x", "b"}, "UpdateOnly", logger),
            (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(capture.errors(),
            std::vector<std::string>{"Ignoring \"-x\" in UpdateOnly: not a valid catalogue ID."});
}

}  // namespace
}  // namespace velmo::core
