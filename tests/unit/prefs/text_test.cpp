#include "prefs/text.h"

#include <string>
#include <string_view>

#include "case.h"
#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

class TrimBlanks : public testing::TestWithParam<Case<std::string_view, std::string_view>> {};

TEST_P(TrimBlanks, Gives) { EXPECT_EQ(trim_blanks(GetParam().given), GetParam().expected); }

constexpr Case<std::string_view, std::string_view> trimmed[] = {
    {"NothingForTheEmptyText", "", ""},
    {"NothingForOneSpace", " ", ""},
    {"NothingForOneTab", "\t", ""},
    {"NothingForOneCarriageReturn", "\r", ""},
    {"NothingForBlanksOnly", " \t\r\r\t  ", ""},
    {"ATextWithoutBlanks", "text", "text"},
    {"OneByte", "t", "t"},
    {"OneByteAmongBlanks", "\r t\t ", "t"},
    {"TheTextAfterLeadingBlanks", " \t\rtext", "text"},
    {"TheTextBeforeTrailingBlanks", "text \t\r", "text"},
    {"TheTextBetweenBlanks", "\t text\r ", "text"},
    {"BlanksInside", " a b\t\rc ", "a b\t\rc"},
    {"ATextBetweenLineFeedsUnchanged", "\n text \n", "\n text \n"},
    {"OneLineFeed", " \n ", "\n"},
    {"VerticalTabAndFormFeed", " \v \f ", "\v \f"},
    {"NulBytes", " \0 text \0 "sv, "\0 text \0"sv},
    {"ANonBreakingSpace", " \xC2\xA0text\xC2\xA0 ", "\xC2\xA0text\xC2\xA0"},
};
INSTANTIATE_TEST_SUITE_P(, TrimBlanks, testing::ValuesIn(trimmed), case_name);

TEST(TrimBlanksOfEveryByte, TakesSpaceTabAndCarriageReturnAlone) {
  for (int value = 0; value < 256; ++value) {
    SCOPED_TRACE(value);
    const std::string byte(1, static_cast<char>(value));
    const bool blank = value == 0x20 || value == 0x09 || value == 0x0D;
    EXPECT_EQ(trim_blanks(byte), blank ? "" : byte);
    EXPECT_EQ(trim_blanks(" \t\r" + byte + " text " + byte + "\r\t "), blank ? "text" : byte + " text " + byte);
  }
}

TEST(ToLowerAscii, LowersTheCapitalsAndKeepsEveryOtherByte) {
  std::string text;
  std::string lowered;
  for (int value = 0; value < 256; ++value) {
    text += static_cast<char>(value);
    lowered += static_cast<char>(value >= 0x41 && value <= 0x5A ? value + 0x20 : value);
  }
  to_lower_ascii(text);
  EXPECT_EQ(text, lowered);
  to_lower_ascii(text);
  EXPECT_EQ(text, lowered);
}

TEST(ToLowerAscii, KeepsTheEmptyText) {
  std::string text;
  to_lower_ascii(text);
  EXPECT_EQ(text, "");
}

constexpr Spelling<bool> switch_spellings[] = {
    {true, "1"},  {true, "true"},   {true, "yes"}, {true, "on"}, //
    {false, "0"}, {false, "false"}, {false, "no"}, {false, "off"},
};

// Every way to write some of a word's letters as capitals.
std::vector<std::string> in_every_case(std::string_view word) {
  std::vector<std::string> texts{""};
  for (const char letter : word) {
    std::vector<std::string> longer;
    for (const std::string& text : texts) {
      longer.push_back(text + letter);
      if (letter >= 'a' && letter <= 'z') longer.push_back(text + static_cast<char>(letter - 0x20));
    }
    texts = longer;
  }
  return texts;
}

void expect_switch(const std::string& text, bool expected) {
  for (const bool before : {false, true}) {
    bool value = before;
    EXPECT_TRUE(parse_bool(text, value)) << testing::PrintToString(text);
    EXPECT_EQ(value, expected) << testing::PrintToString(text);
  }
}

void expect_no_switch(std::string_view text) {
  for (const bool before : {false, true}) {
    bool value = before;
    EXPECT_FALSE(parse_bool(text, value)) << testing::PrintToString(text);
    EXPECT_EQ(value, before) << testing::PrintToString(text);
  }
}

TEST(ParseBool, TakesEverySwitchWordInAnyCaseAndBetweenBlanks) {
  for (const auto& [expected, word] : switch_spellings) {
    for (const std::string& text : in_every_case(word)) {
      expect_switch(text, expected);
      expect_switch("\t \r" + text + " \r\t", expected);
    }
  }
}

TEST(ParseBool, RefusesWhatIsNearlyASwitchWordAndKeepsTheValue) {
  for (const auto& [value, word] : switch_spellings)
    for (const std::string& text : near_misses(word))
      expect_no_switch(text);
}

TEST(ParseBool, RefusesOtherTextsAndKeepsTheValue) {
  constexpr std::string_view texts[] = {
      "",           " \t\r", "2",       "00",       "01",     "10",       "-1",
      "+1",         "1.0",   "0x1",     "t",        "f",      "y",        "n",
      "o",          "of",    "enabled", "disabled", "on off", "on,",      "o n",
      "on=on",      "auto",  "none",    "on\0"sv,   "\0on"sv, "on\0on"sv, "\xEF\xBB\xBFon",
      "on\xC2\xA0", "o\xCE",
  };
  for (const std::string_view text : texts)
    expect_no_switch(text);
}

} // namespace

} // namespace nebulark
