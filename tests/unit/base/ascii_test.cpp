#include "base/ascii.h"

#include <string_view>

#include <gtest/gtest.h>

namespace nebulark {

namespace {

constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view small_letters = "abcdefghijklmnopqrstuvwxyz";

TEST(AsciiLower, LowersTheCapitalsAndKeepsEveryOtherByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const std::size_t place = capitals.find(byte);
    EXPECT_EQ(ascii_lower(byte), place == std::string_view::npos ? byte : small_letters[place]) << "byte " << value;
  }
}

} // namespace

} // namespace nebulark
