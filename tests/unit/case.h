// A row of a table of tests, for inputs that need a name.

#pragma once

#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace nebulark {

// The name is the test's, in CamelCase:
//
//     INSTANTIATE_TEST_SUITE_P(, Suite, testing::ValuesIn(rows), case_name);
template <typename Given, typename Expected>
struct Case {
  const char* name;
  Given given;
  Expected expected;

  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

inline constexpr auto case_name = [](const auto& row) { return std::string(row.param.name); };

} // namespace nebulark
