#include "core/URLClassifier.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

using Case = VelmoURLKind::Case;

struct ClassifyCase {
  std::string input;
  Case kind;
  std::string url;  // absoluteString; empty for unknown
};

void PrintTo(const ClassifyCase& c, std::ostream* os) { *os << '"' << c.input << '"'; }

class URLClassifierTable : public ::testing::TestWithParam<ClassifyCase> {};

TEST_P(URLClassifierTable, Classifies) {
  const auto result = URLClassifier::classify(GetParam().input);
  EXPECT_EQ(result.kind(), GetParam().kind);
  EXPECT_EQ(result.url() ? result.url()->absoluteString() : "", GetParam().url);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URLClassifierTable,
    ::testing::Values(
        ClassifyCase{"HTTP://Example.com/a/../b", Case::web, "HTTP://Example.com/b"},
        ClassifyCase{"Https://example.com/help me", Case::web, "Https://example.com/help%20me"},
        ClassifyCase{"FILE:///tmp/../x", Case::file, "FILE:///x"},
        ClassifyCase{"file:/x", Case::file, "file:///x"},
        ClassifyCase{"/Applications/Example.app", Case::file, "file:///Applications/Example.app"},
        // An absolute path is taken as written: encoded, never standardised.
        ClassifyCase{"/My App.app/../a?b#c", Case::file, "file:///My%20App.app/../a%3Fb%23c"},
        ClassifyCase{"//server/share", Case::file, "file:////server/share"},
        ClassifyCase{std::string("/a\xff\0b", 5), Case::file, "file:///a%FF%00b"},
        ClassifyCase{"ftp://x/y", Case::unknown, ""},
        ClassifyCase{"mailto:someone@example.com", Case::unknown, ""},
        ClassifyCase{"httpx://example.com", Case::unknown, ""},
        ClassifyCase{"~/Documents/Example.pdf", Case::unknown, ""},
        ClassifyCase{"echo \"Hello, World!\"", Case::unknown, ""},
        ClassifyCase{"example.com/a", Case::unknown, ""},
        ClassifyCase{" https://example.com", Case::unknown, ""},
        ClassifyCase{"http://exa mple.com/", Case::unknown, ""},
        ClassifyCase{"", Case::unknown, ""}));

}  // namespace
}  // namespace velmo::core
