#include "mdm/PreferenceConversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velmo::mdm {
namespace {

using core::PlistArray;
using core::PlistDictionary;
using core::PlistValue;

template <typename T>
struct ConversionCase {
  const char* name;
  PlistValue value;
  std::optional<T> expected;
};

template <typename T>
void PrintTo(const ConversionCase<T>& c, std::ostream* os) {
  *os << c.name;
}

std::string caseName(const char* name) {
  std::string result;
  for (const char* c = name; *c; ++c)
    result += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
  return result;
}

using BoolCase = ConversionCase<bool>;
class BoolConversion : public ::testing::TestWithParam<BoolCase> {};
TEST_P(BoolConversion, FollowsTheNumberAndStringRules) {
  EXPECT_EQ(PreferenceConversions::boolean(GetParam().value), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Table, BoolConversion,
    ::testing::Values(
        BoolCase{"YES", "YES", true}, BoolCase{"yes", "yes", true}, BoolCase{"true", "true", true},
        BoolCase{"spaced y", "  y", true}, BoolCase{"no", "no", false},
        BoolCase{"false", "false", false}, BoolCase{"F", "F", false}, BoolCase{"on", "on", false},
        BoolCase{"zero", "0", false}, BoolCase{"zeros", "000", false},
        BoolCase{"space one", " 1", true}, BoolCase{"ten", "10", true},
        BoolCase{"minus zero one", "-01", true}, BoolCase{"plus zeros nine", "+0009", true},
        BoolCase{"hex", "0x1", false}, BoolCase{"double sign", "--1", false},
        BoolCase{"empty", "", false}, BoolCase{"number 0", 0, false}, BoolCase{"number 2", 2, true},
        BoolCase{"real 0.5", 0.5, true}, BoolCase{"real 0", 0.0, false},
        BoolCase{"boolean", true, true}, BoolCase{"array", PlistArray{true}, std::nullopt},
        BoolCase{"dictionary", PlistDictionary{}, std::nullopt},
        BoolCase{"data", core::PlistData{1}, std::nullopt}),
    [](const auto& info) { return caseName(info.param.name); });

using IntCase = ConversionCase<std::int64_t>;
class IntConversion : public ::testing::TestWithParam<IntCase> {};
TEST_P(IntConversion, IsStrictForStringsAndTruncatesNumbers) {
  EXPECT_EQ(PreferenceConversions::integer(GetParam().value), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Table, IntConversion,
    ::testing::Values(
        IntCase{"plain", "42", 42}, IntCase{"plus", "+5", 5}, IntCase{"minus", "-7", -7},
        IntCase{"leading space", " 5", std::nullopt}, IntCase{"trailing space", "5 ", std::nullopt},
        IntCase{"lone minus", "-", std::nullopt}, IntCase{"lone plus", "+", std::nullopt},
        IntCase{"two signs", "+-5", std::nullopt}, IntCase{"empty", "", std::nullopt},
        IntCase{"trailing letters", "42abc", std::nullopt}, IntCase{"decimal", "4.9", std::nullopt},
        IntCase{"hex", "0x1A", std::nullopt}, IntCase{"largest", "9223372036854775807", INT64_MAX},
        IntCase{"overflow", "99999999999999999999", std::nullopt},
        IntCase{"number", std::int64_t{-12}, -12}, IntCase{"real", 2.7, 2},
        IntCase{"negative real", -2.7, -2}, IntCase{"huge real", 1e30, INT64_MAX},
        IntCase{"boolean", true, 1}, IntCase{"array", PlistArray{1}, std::nullopt}),
    [](const auto& info) { return caseName(info.param.name); });

using DoubleCase = ConversionCase<double>;
class DoubleConversion : public ::testing::TestWithParam<DoubleCase> {};
TEST_P(DoubleConversion, ParsesWholeStringsWithoutLeadingSpace) {
  EXPECT_EQ(PreferenceConversions::real(GetParam().value), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Table, DoubleConversion,
    ::testing::Values(DoubleCase{"decimal", "2.5", 2.5}, DoubleCase{"exponent", "1e3", 1000.0},
                      DoubleCase{"leading space", " 2.5", std::nullopt},
                      DoubleCase{"trailing junk", "2.5x", std::nullopt},
                      DoubleCase{"empty", "", std::nullopt},
                      DoubleCase{"comma decimal", "2,5", std::nullopt},
                      DoubleCase{"integer", std::int64_t{3}, 3.0}, DoubleCase{"real", 0.25, 0.25},
                      DoubleCase{"dictionary", PlistDictionary{}, std::nullopt}),
    [](const auto& info) { return caseName(info.param.name); });

using StringCase = ConversionCase<std::string>;
class StringConversion : public ::testing::TestWithParam<StringCase> {};
TEST_P(StringConversion, TakesStringsAndTheTextOfNumbers) {
  EXPECT_EQ(PreferenceConversions::string(GetParam().value), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(
    Table, StringConversion,
    ::testing::Values(StringCase{"string", " as is ", " as is "},
                      StringCase{"number 5", std::int64_t{5}, "5"}, StringCase{"true", true, "1"},
                      StringCase{"false", false, "0"}, StringCase{"real 5", 5.0, "5"},
                      StringCase{"real 0.1", 0.1, "0.1"}, StringCase{"real sum", 0.1 + 0.2, "0.3"},
                      StringCase{"third", 1.0 / 3, "0.3333333333333333"},
                      StringCase{"big real", 1e21, "1e+21"},
                      StringCase{"array", PlistArray{"a"}, std::nullopt},
                      StringCase{"date", core::PlistDate{}, std::nullopt}),
    [](const auto& info) { return caseName(info.param.name); });

TEST(PreferenceConversions, StringArrayKeepsStringsAndNumberTextsInOrder) {
  EXPECT_EQ(PreferenceConversions::stringArray(PlistArray{"a", 7, PlistDictionary{{"k", 1}}, true}),
            (std::vector<std::string>{"a", "7", "1"}));
  EXPECT_EQ(PreferenceConversions::stringArray(PlistArray{}), std::vector<std::string>{});
  EXPECT_EQ(PreferenceConversions::stringArray("a"), std::nullopt);
}

TEST(PreferenceConversions, StringIntDictionaryDropsOnlyTheUnusableEntries) {
  const PlistDictionary value{{"n", 3},      {"r", 2.9},  {"s", "+4"},        {"space", " 4"},
                              {"empty", ""}, {"b", true}, {"a", PlistArray{}}};
  EXPECT_EQ(PreferenceConversions::stringIntDictionary(value),
            (std::map<std::string, std::int64_t>{{"n", 3}, {"r", 2}, {"s", 4}, {"b", 1}}));
  EXPECT_EQ(PreferenceConversions::stringIntDictionary(PlistDictionary{{"x", "no"}}),
            (std::map<std::string, std::int64_t>{}));
  EXPECT_EQ(PreferenceConversions::stringIntDictionary(PlistArray{}), std::nullopt);
}

}  // namespace
}  // namespace velmo::mdm
