#include "prefs/text.h"

#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "prefs/plain_preferences.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

TEST(TrimBlanks, RemovesBlanksAtBothEndsOnly) {
  constexpr std::pair<std::string_view, std::string_view> trimmed[] = {
      {"", ""},
      {"t", "t"},
      {" \t\rtext", "text"},
      {"text \t\r", "text"},
      {" a b\t\rc ", "a b\t\rc"},
      {"\n text \n", "\n text \n"},
  };
  for (const auto& [text, expected] : trimmed)
    EXPECT_EQ(trim_blanks(text), expected) << testing::PrintToString(text);
}

TEST(TrimBlanks, RemovesSpaceTabAndCarriageReturn) {
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    const bool blank = byte == " " || byte == "\t" || byte == "\r";
    EXPECT_EQ(trim_blanks(byte + "text" + byte), blank ? "text" : byte + "text" + byte) << value;
    EXPECT_EQ(trim_blanks(byte), blank ? "" : byte) << value;
  }
}

TEST(ToLowerAscii, LowersCapitalsAndKeepsEveryOtherByte) {
  std::string text;
  std::string lowered;
  for (int value = 0; value < 256; ++value) {
    text += static_cast<char>(value);
    lowered += static_cast<char>(value >= 0x41 && value <= 0x5A ? value + 0x20 : value);
  }
  to_lower_ascii(text);
  EXPECT_EQ(text, lowered);
}

TEST(ParseBool, KnowsEachSwitchWordInAnyCaseAndBetweenBlanks) {
  for (const auto& [word, value] : plain_switches) {
    std::string capitals(word);
    for (char& letter : capitals)
      letter = letter < 'a' ? letter : static_cast<char>(letter - 0x20);
    for (const std::string& text : {std::string(word), capitals, "\t \r" + capitals + " \r\t"}) {
      bool parsed = !value;
      EXPECT_TRUE(parse_bool(text, parsed)) << testing::PrintToString(text);
      EXPECT_EQ(parsed, value) << testing::PrintToString(text);
    }
  }
}

TEST(ParseBool, RejectsOtherTextsAndKeepsTheValue) {
  for (const std::string_view text : {""sv, " \t\r"sv, "2"sv, "00"sv, "-1"sv, "t"sv, "y"sv, "of"sv, "enabled"sv,
                                      "on off"sv, "on\0"sv, "\0on"sv, "o n"sv}) {
    for (const bool before : {false, true}) {
      bool value = before;
      EXPECT_FALSE(parse_bool(text, value)) << testing::PrintToString(text);
      EXPECT_EQ(value, before) << testing::PrintToString(text);
    }
  }
}

} // namespace

} // namespace nebulark
