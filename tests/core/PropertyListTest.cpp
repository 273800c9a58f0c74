#include "core/PropertyList.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

const PlistDictionary kSample{
    {"count", std::int64_t{7}},
    {"negative", std::int64_t{-3}},
    {"ratio", 0.5},
    {"flag", false},
    {"name", "grüße & <tags>"},
    {"when", PlistDate{platform::TimePoint(std::chrono::seconds(1773151509))}},
    {"blob", PlistData{0, 1, 254, 255}},
    {"list", PlistArray{"a", std::int64_t{1}, PlistDictionary{{"k", true}}}},
    {"empty", PlistDictionary{}}};

TEST(PropertyList, XmlRoundTripKeepsEveryType) {
  const auto xml = PropertyList::xml(kSample);
  ASSERT_TRUE(xml);
  EXPECT_NE(xml->find("<?xml"), std::string::npos);
  EXPECT_EQ(PropertyList::parse(*xml), PlistValue(kSample));
}

struct DamagedCase {
  const char* name;
  std::string bytes;
};

void PrintTo(const DamagedCase& c, std::ostream* os) { *os << c.name; }

class DamagedPropertyLists : public ::testing::TestWithParam<DamagedCase> {};

TEST_P(DamagedPropertyLists, GiveNothing) {
  EXPECT_EQ(PropertyList::parse(GetParam().bytes), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedPropertyLists,
    ::testing::Values(
        DamagedCase{"Empty", ""}, DamagedCase{"Text", "hello, world"},
        DamagedCase{"TruncatedXml",
                    "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key><integer>"},
        DamagedCase{"BinaryHeaderOnly", "bplist00"},
        DamagedCase{"BinaryGarbage", std::string("bplist00\xff\xff\xff\xff\x00\x01\x02", 15)}));

}  // namespace
}  // namespace velmo::core
