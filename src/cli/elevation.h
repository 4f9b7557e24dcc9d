// Running this tool again with administrator rights, by polkit's pkexec.

#pragma once

#include "cli/words.h"

namespace nebulark {

// Runs this executable again under /usr/bin/pkexec, with the given words unchanged as its arguments, and waits for it
// to end. The second run has this one's terminal and standard streams, and of the environment what pkexec leaves.
// Everything that this process has printed appears before the output of the second run. Prints nothing itself.
//
// Returns the exit status of pkexec, 0 to 255: that of the second run, or pkexec's own when the user is refused or
// dismisses the dialog, or 127 when pkexec cannot be started after all. Returns -1 when nothing was run or the outcome
// is unknown: this process already is root, pkexec is missing or not executable, the path of this executable cannot be
// read, fork or wait failed, or a signal killed pkexec.
[[nodiscard]] int reexec_with_pkexec(Words words);

} // namespace nebulark
