// The fuzz targets: each gives any bytes to the tool, and requires properties of the result.
//
// corpus/NAME holds the inputs of a target, and together they reach every branch. fuzzer.cpp makes a libFuzzer program
// of a target, to look for new inputs; replay.cpp makes a test of each input.

#pragma once

#include <stdexcept>
#include <string_view>

namespace nebulark {

void tag_reader(std::string_view input);
void ownership(std::string_view input);
void preferences_file(std::string_view input);
void assignments(std::string_view input);

// Throws if a property does not hold: the test fails, and a libFuzzer program stops and keeps the input.
inline void require(bool holds, const char* property) {
  if (!holds) throw std::logic_error(property);
}

} // namespace nebulark
