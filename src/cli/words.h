// The words of a command line, as main() gets them.

#pragma once

#include <span>

namespace nebulark {

// Each ends in a NUL byte, may hold any other byte, and is valid for the whole run.
using Words = std::span<char* const>;

} // namespace nebulark
