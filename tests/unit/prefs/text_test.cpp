#include "prefs/text.h"

#include <gtest/gtest.h>

namespace nebulark {

namespace {

TEST(TrimBlanks, KeepsBlanksInside) { EXPECT_EQ(trim_blanks(" a b "), "a b"); }

} // namespace

} // namespace nebulark
