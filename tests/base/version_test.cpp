#include "base/version.h"

#include <gtest/gtest.h>

#include <string>

namespace mirlo {
namespace {

int sign(int v) { return (v > 0) - (v < 0); }

TEST(VersionOrder, RunsOfDigitsCompareAsNumbers) {
  EXPECT_LT(compareVersions("1.9", "1.10"), 0);
  EXPECT_GT(compareVersions("1.10", "1.9"), 0);
  EXPECT_GT(compareVersions("2.0", "1.9"), 0);
  EXPECT_LT(compareVersions("1.4.2", "1.4.10"), 0);
  EXPECT_GT(compareVersions("10", "9"), 0);
  // Digit runs far longer than any machine integer still compare by value.
  EXPECT_LT(compareVersions("1.99999999999999999999999", "1.100000000000000000000000"), 0);
}

TEST(VersionOrder, EqualTextsAndLeadingZerosAreTheSameVersion) {
  EXPECT_EQ(compareVersions("1.2", "1.2"), 0);
  EXPECT_EQ(compareVersions("1.02", "1.2"), 0);
  EXPECT_EQ(compareVersions("1.0", "1.00"), 0);
  EXPECT_EQ(compareVersions("", ""), 0);
}

TEST(VersionOrder, OtherCharactersCompareLiterallyWithoutLocale) {
  EXPECT_LT(compareVersions("1.2a", "1.2b"), 0);
  EXPECT_LT(compareVersions("1.2", "1.2.1"), 0);   // a prefix orders first
  EXPECT_LT(compareVersions("1.2-beta", "1.2.0"), 0);  // '-' before '.'
  EXPECT_LT(compareVersions("B", "a"), 0);          // capitals before small letters, by code
  EXPECT_LT(compareVersions("", "0"), 0);
  EXPECT_GT(compareVersions("1.0", ""), 0);
  // By UTF-16 unit: a character outside the basic plane (a surrogate pair) orders before U+FF01.
  EXPECT_LT(compareVersions("1\U0001F600", "1\uFF01"), 0);
}

TEST(VersionOrder, IsAntisymmetric) {
  const std::string samples[] = {"", "0", "00", "1", "1.2", "1.02", "1.10", "1.9", "1.2a", "2.0b3", "v1", "1..2"};
  for (const auto& a : samples)
    for (const auto& b : samples) EXPECT_EQ(sign(compareVersions(a, b)), -sign(compareVersions(b, a))) << a << " / " << b;
}

}  // namespace
}  // namespace mirlo
