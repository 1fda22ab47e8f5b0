#include "base/text.h"

#include <gtest/gtest.h>

namespace mirlo::text {
namespace {

TEST(TextTrim, RemovesUnicodeSpacesAndLineEndsFromBothEndsOnly) {
  EXPECT_EQ(trimWhitespace("  \t\nBonjour  le monde\r\n "), "Bonjour  le monde");
  EXPECT_EQ(trimWhitespace("\u00A0\u2003mot\u3000"), "mot");  // no-break, em and ideographic spaces
  EXPECT_EQ(trimWhitespace(" \n\t "), "");
  EXPECT_EQ(trimSpacesAndTabs(" \tlea@example.fr\n"), "lea@example.fr\n");
}

TEST(TextTrim, KeepsInvalidBytesRatherThanDroppingThem) {
  EXPECT_EQ(trimWhitespace(" \xff\xfe "), "\xff\xfe");
}

TEST(TextMeasure, CountsUserPerceivedCharacters) {
  EXPECT_EQ(graphemeCount("ok"), 2u);
  EXPECT_EQ(graphemeCount("e\u0301"), 1u);                 // e + combining acute
  EXPECT_EQ(graphemeCount("\U0001F1EB\U0001F1F7"), 1u);    // the French flag
  EXPECT_EQ(graphemeCount("\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1u);  // a family
  EXPECT_EQ(graphemeCount("a\xff"), 2u);
}

TEST(TextMeasure, CountsUtf16UnitsAsOtherApplicationsDo) {
  EXPECT_EQ(utf16Length("abc"), 3);
  EXPECT_EQ(utf16Length("été"), 3);
  EXPECT_EQ(utf16Length("ok 👍"), 5);
  EXPECT_EQ(utf8OffsetOfUtf16("a👍b", 3), 5u);
  EXPECT_FALSE(utf8OffsetOfUtf16("a👍b", 2).has_value());  // inside the pair
  EXPECT_FALSE(utf8OffsetOfUtf16("ab", 3).has_value());
  EXPECT_EQ(toUtf8(toUtf16("Ça va 👍 ?")), "Ça va 👍 ?");
}

TEST(TextCase, LowerCasesAccentedCapitals) {
  EXPECT_EQ(unicodeLower("LÉA@Exemple.FR"), "léa@exemple.fr");
  EXPECT_EQ(asciiLower("LÉA"), "lÉa");
}

}  // namespace
}  // namespace mirlo::text
