#include "core/URL.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

struct TextCase {
  const char* input;
  std::optional<std::string> expected;
};

void PrintTo(const TextCase& c, std::ostream* os) { *os << '"' << c.input << '"'; }

class URLFromString : public ::testing::TestWithParam<TextCase> {};

TEST_P(URLFromString, KeepsWhatIsWrittenAndEncodesOnlyWhatIsNotAllowed) {
  const auto url = URL::fromString(GetParam().input);
  ASSERT_EQ(url.has_value(), GetParam().expected.has_value());
  if (!url) return;
  EXPECT_EQ(url->absoluteString(), *GetParam().expected);
  EXPECT_EQ(URL::fromString(url->absoluteString()), url);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URLFromString,
    ::testing::Values(TextCase{"HTTPS://Example.com/a/../b", "HTTPS://Example.com/a/../b"},
                      TextCase{"http://user@[::1]:8080/a?q#f", "http://user@[::1]:8080/a?q#f"},
                      TextCase{"https://example.com/caf\xc3\xa9 1?q=%#x#y",
                               "https://example.com/caf%C3%A9%201?q=%25#x%23y"},
                      TextCase{"https://example.com/%41%4[", "https://example.com/%41%254%5B"},
                      // Scheme, host and port are never repaired.
                      TextCase{"http://exa mple.com/", std::nullopt},
                      TextCase{"http://example.com:http/", std::nullopt},
                      TextCase{"1http://x/", std::nullopt}, TextCase{"", std::nullopt}));

class URLStandardized : public ::testing::TestWithParam<TextCase> {};

TEST_P(URLStandardized, RemovesDotSegmentsOnly) {
  const auto standardized = URL::fromString(GetParam().input)->standardized();
  EXPECT_EQ(standardized.absoluteString(), *GetParam().expected);
  EXPECT_EQ(URL::fromString(standardized.absoluteString()), standardized);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URLStandardized,
    ::testing::Values(TextCase{"HTTPS://Example.com/a/../b", "HTTPS://Example.com/b"},
                      TextCase{"file:///tmp/../x", "file:///x"},
                      TextCase{"https://example.com/../../a", "https://example.com/../../a"},
                      TextCase{"https://example.com/a/../../b", "https://example.com/../b"},
                      TextCase{"https://example.com/a//b/./c/.", "https://example.com/a//b/c/"},
                      TextCase{"https://example.com/a//../b/..", "https://example.com/a/"},
                      TextCase{"https://example.com/%2E%2E/b?x=/../#/./",
                               "https://example.com/%2E%2E/b?x=/../#/./"},
                      TextCase{"http://[::1]", "http://[::1]"}, TextCase{"file:/x", "file:///x"},
                      TextCase{"~/a/../b", "~/b"},
                      // Relative references must still read back as paths.
                      TextCase{"/.//x", "/.//x"}, TextCase{"a/../b:c", "./b:c"}));

class URLFileURLWithPath : public ::testing::TestWithParam<std::array<const char*, 3>> {};

TEST_P(URLFileURLWithPath, EncodesThePathAsItIs) {
  const auto& [path, absoluteString, decodedPath] = GetParam();
  const auto url = URL::fileURLWithPath(path);
  ASSERT_TRUE(url && url->isFileURL());
  EXPECT_EQ(url->absoluteString(), absoluteString);
  EXPECT_EQ(url->path(), decodedPath);
  EXPECT_EQ(URL::fromString(url->absoluteString()), url);
}

INSTANTIATE_TEST_SUITE_P(
    Table, URLFileURLWithPath,
    ::testing::Values(std::array{"/Applications/Foo.app/", "file:///Applications/Foo.app/",
                                 "/Applications/Foo.app"},
                      std::array{"/Applications//./Foo.app", "file:///Applications//./Foo.app",
                                 "/Applications//./Foo.app"},
                      std::array{"/My Files/100%/a?b#c;(e)@",
                                 "file:///My%20Files/100%25/a%3Fb%23c;(e)@",
                                 "/My Files/100%/a?b#c;(e)@"},
                      std::array{"/caf\xc3\xa9", "file:///caf%C3%A9", "/caf\xc3\xa9"},
                      std::array{"/", "file:///", "/"}));

}  // namespace
}  // namespace velmo::core
