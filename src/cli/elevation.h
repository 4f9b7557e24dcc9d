// Runs this tool again with administrator rights, through polkit's pkexec.

#pragma once

#include "cli/words.h"

namespace nebulark {

// Runs this executable again under /usr/bin/pkexec, with these words as its arguments, and waits for it to end. The
// second run gets this run's terminal and standard streams, and the environment that pkexec allows. What this run has
// printed comes before the second run's output. Prints nothing itself.
//
// Returns pkexec's exit status, 0 to 255: the second run's status, pkexec's own if the user is refused or closes the
// dialog, or 127 if pkexec cannot be started. Returns -1 if nothing ran or the outcome is unknown: this process is
// root, pkexec is missing or not executable, this executable's path cannot be read, fork or wait failed, or a signal
// killed pkexec.
[[nodiscard]] int reexec_with_pkexec(Words words);

} // namespace nebulark
