#include "core/values/PropertyList.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

const PlistDictionary kSample{
    {"count", std::int64_t{7}},
    {"negative", std::int64_t{-3}},
    {"ratio", 0.5},
    {"flag", false},
    {"name", "grüße & <tags>"},
    {"when", PlistDate{TimePoint(std::chrono::seconds(1773151509))}},
    {"blob", PlistData{0, 1, 254, 255}},
    {"list", PlistArray{"a", std::int64_t{1}, PlistDictionary{{"k", true}}}},
    {"empty", PlistDictionary{}}};

TEST(PropertyList, XmlRoundTripKeepsEveryType) {
  const auto xml = PropertyList::xml(kSample);
  ASSERT_TRUE(xml);
  EXPECT_NE(xml->find("<?xml"), std::string::npos);
  EXPECT_EQ(PropertyList::parse(*xml), PlistValue(kSample));
}

// A binary list with a UTF-16 key, keys shared between dictionaries and a
// dictionary of 15 keys, whose count takes an integer object of its own.
TEST(PropertyList, ReadsBinaryListsWithWideAndSharedKeys) {
  const std::string bytes(
      "bplist00\xd2\x01\x02\x03\x14\x51\x77\x61\x00\xdc\xdf\x10\x0f\x04\x05\x06\x07\x08\x09"
      "\x0a\x0b\x0c\x0d\x0e\x0f\x10\x11\x12\x13\x13\x13\x13\x13\x13\x13\x13\x13\x13\x13\x13"
      "\x13\x13\x13\x51\x61\x51\x62\x51\x63\x51\x64\x51\x65\x51\x66\x51\x67\x51\x68\x51\x69"
      "\x51\x6a\x51\x6b\x51\x6c\x51\x6d\x51\x6e\x51\x6f\x10\x01\xa2\x15\x16\xd1\x0e\x13\xd1"
      "\x0e\x17\x10\x02\x08\x0d\x0f\x12\x33\x35\x37\x39\x3b\x3d\x3f\x41\x43\x45\x47\x49\x4b"
      "\x4d\x4f\x51\x53\x56\x59\x5c\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00"
      "\x00\x18\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x5e",
      150);
  PlistDictionary wide;
  for (char key = 'a'; key <= 'o'; ++key) wide.emplace(std::string(1, key), std::int64_t{1});
  const PlistDictionary expected{{"\u00dc", PlistArray{PlistDictionary{{"k", std::int64_t{1}}},
                                                       PlistDictionary{{"k", std::int64_t{2}}}}},
                                 {"w", wide}};
  EXPECT_EQ(PropertyList::parse(bytes), PlistValue(expected));
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
        DamagedCase{"BinaryGarbage", std::string("bplist00\xff\xff\xff\xff\x00\x01\x02", 15)},
        // The parsing library would abort the process on this key ("\u00dc\0x").
        DamagedCase{"BinaryKeyHoldingNul",
                    std::string("bplist00\xd2\x01\x02\x03\x04\x5bRunInterval\x63\x00\xdc\x00\x00"
                                "\x00\x78\x10\x3c\x09\x08\x0d\x19\x20\x22\x00\x00\x00\x00\x00"
                                "\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x05\x00\x00\x00\x00"
                                "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x23",
                                72)}));

}  // namespace
}  // namespace velmo::core
