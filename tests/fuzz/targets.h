// What is fuzzed: functions that take any bytes and hold what they make the tool do against properties.
//
// Each has a corpus of inputs, corpus/NAME, which runs every branch of what it tests. fuzzer.cpp makes a libFuzzer
// program of one of them, which looks for new inputs; replay.cpp makes a test of every input that is kept.

#pragma once

#include <stdexcept>
#include <string_view>

namespace nebulark {

void tag_reader(std::string_view input);
void ownership(std::string_view input);
void preferences_file(std::string_view input);
void assignments(std::string_view input);

// Throws if a property does not hold: a test fails by that, and a libFuzzer program stops and keeps the input.
inline void require(bool holds, const char* property) {
  if (!holds) throw std::logic_error(property);
}

} // namespace nebulark
