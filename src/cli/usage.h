// The usage text.

#pragma once

namespace nebulark {

// Prints the usage text on standard error, also when the user asked for it: standard output carries what a command did,
// and never the usage text.
void print_usage();

} // namespace nebulark
