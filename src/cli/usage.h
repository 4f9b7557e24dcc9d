// The usage text.

#pragma once

namespace nebulark {

// Prints the usage text on standard error, even if the user asked for it: standard output never carries it.
void print_usage();

} // namespace nebulark
