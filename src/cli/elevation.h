// Running this tool again with administrator rights, by polkit's pkexec.

#pragma once

#include <span>

namespace nebulark {

// Runs this very executable again under /usr/bin/pkexec with the given words behind its path, as they are, and waits
// for it to end. The second run has this one's terminal, standard streams and environment; what this process printed
// before appears before what that one prints. Prints nothing itself.
//
// Returns the second run's exit status, 0 to 255: among them what pkexec gives when the user is refused or dismisses
// the dialog, and 127 when pkexec cannot be run at all. Returns -1 when there was no second run or nobody knows how it
// ended: this process is root already and has nothing to gain, pkexec is missing or not executable, the path of this
// executable cannot be read, fork or wait failed, or a signal killed it.
[[nodiscard]] int reexec_with_pkexec(std::span<char* const> words);

} // namespace nebulark
