// The usage text.

#pragma once

namespace nebulark {

// Prints the usage text on standard error: also when it was asked for, so that standard output only ever carries
// results.
void print_usage();

} // namespace nebulark
