#include "cli/elevation.h"

#include <array>
#include <cstdio>
#include <vector>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nebulark {

namespace {

// Never looked up along PATH, which the user's environment may have set to anything.
constexpr const char* pkexec_path = "/usr/bin/pkexec";

// Where the running executable lies, as the kernel knows it; argument 0 says what the caller likes, and must not choose
// what runs as root. A path of more than 4095 bytes is cut there, and pkexec will not find it.
bool read_own_path(std::array<char, 4096>& path) {
  return ::readlink("/proc/self/exe", path.data(), path.size() - 1) > 0;
}

// Waits once: this process handles no signal, so nothing that leaves it running interrupts the wait.
int wait_for(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) == -1) return -1;
  if (WTERMSIG(status) != 0) return -1;
  return WEXITSTATUS(status);
}

} // namespace

int reexec_with_pkexec(std::span<char* const> words) {
  if (::geteuid() == 0) return -1;
  if (::access(pkexec_path, X_OK) != 0) return -1;

  // What is still in a buffer at the fork would be printed late, or twice.
  (void)std::fflush(stdout);
  (void)std::fflush(stderr);

  std::array<char, 4096> own_path{}; // readlink writes no NUL behind the path
  if (!read_own_path(own_path)) return -1;

  char pkexec_name[] = "pkexec";
  std::vector<char*> arguments{pkexec_name, own_path.data()};
  arguments.insert(arguments.end(), words.begin(), words.end());
  arguments.push_back(nullptr);

  const pid_t child = ::fork();
  if (child == -1) return -1;
  if (child == 0) {
    ::execv(pkexec_path, arguments.data());
    ::_exit(127); // as a shell says that a command could not be run; exit() would flush buffers that are not its own
  }
  return wait_for(child);
}

} // namespace nebulark
