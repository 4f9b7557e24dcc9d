// A row of a table of tests.

#pragma once

#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace nebulark {

// What goes in, what comes out, and a name in CamelCase for what the row is about. It is the test's name:
//
//     INSTANTIATE_TEST_SUITE_P(, Suite, testing::ValuesIn(rows), case_name);
template <typename Given, typename Expected = void>
struct Case {
  const char* name;
  Given given;
  Expected expected;

  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

// For tables whose rows all come to the same.
template <typename Given>
struct Case<Given, void> {
  const char* name;
  Given given;

  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

inline constexpr auto case_name = [](const auto& row) { return std::string(row.param.name); };

} // namespace nebulark
