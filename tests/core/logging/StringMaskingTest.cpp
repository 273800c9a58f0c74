#include "core/logging/StringMasking.h"

#include <gtest/gtest.h>

namespace velmo::core {
namespace {

TEST(StringMasking, HashIsTheWholeSha256InLowerCaseHex) {
  EXPECT_EQ(masked("", MaskType::hash),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(masked("abc", MaskType::hash),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  // Every byte counts, an embedded NUL too.
  EXPECT_NE(sha256(std::string("a\0b", 3)), sha256("ab"));
}

}  // namespace
}  // namespace velmo::core
