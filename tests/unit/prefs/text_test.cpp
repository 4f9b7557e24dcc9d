#include "prefs/text.h"

#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

TEST(TrimBlanks, RemovesBlanksAtBothEndsOnly) {
  constexpr std::pair<std::string_view, std::string_view> trimmed[] = {
      {"", ""},
      {" ", ""},
      {" \t\r\r\t  ", ""},
      {"t", "t"},
      {"\r t\t ", "t"},
      {" \t\rtext", "text"},
      {"text \t\r", "text"},
      {" a b\t\rc ", "a b\t\rc"},
      {"\n text \n", "\n text \n"},
      {" \0 text \0 "sv, "\0 text \0"sv},
      {" \xC2\xA0text\xC2\xA0 ", "\xC2\xA0text\xC2\xA0"},
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

// Whether it is a switch word, and what it makes of false and of true.
void expect_parsed(std::string_view text, bool is_word, bool if_false, bool if_true) {
  bool was_false = false;
  bool was_true = true;
  EXPECT_EQ(parse_bool(text, was_false), is_word) << testing::PrintToString(text);
  EXPECT_EQ(parse_bool(text, was_true), is_word) << testing::PrintToString(text);
  EXPECT_EQ(was_false, if_false) << testing::PrintToString(text);
  EXPECT_EQ(was_true, if_true) << testing::PrintToString(text);
}

TEST(ParseBool, KnowsEachSwitchWordInAnyCaseAndBetweenBlanks) {
  for (const auto& [value, word] : switch_spellings) {
    std::string text(word);
    expect_parsed(text, true, value, value);
    for (char& letter : text)
      letter = letter < 'a' ? letter : static_cast<char>(letter - 0x20);
    expect_parsed(text, true, value, value);
    text[0] = word[0];
    expect_parsed("\t \r" + text + " \r\t", true, value, value);
  }
}

TEST(ParseBool, RejectsNearMissesAndKeepsTheValue) {
  for (const auto& [value, word] : switch_spellings)
    for (const std::string& text : near_misses(word))
      expect_parsed(text, false, false, true);
}

TEST(ParseBool, RejectsOtherTextsAndKeepsTheValue) {
  constexpr std::string_view texts[] = {
      "",  " \t\r", "2",       "00",       "01",     "10",    "-1",         "1.0",    "0x1",    "t",        "f",   "y",
      "n", "of",    "enabled", "disabled", "on off", "on=on", "\uFEFFon"sv, "on\0"sv, "\0on"sv, "on\0on"sv, "o n",
  };
  for (const std::string_view text : texts)
    expect_parsed(text, false, false, true);
}

} // namespace

} // namespace nebulark
