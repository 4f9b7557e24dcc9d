#include "cli/elevation.h"

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nebulark {

namespace {

// Never searched in PATH, which may hold anything.
constexpr const char* pkexec_path = "/usr/bin/pkexec";

// The running executable's path, from the kernel. Argument 0 comes from the caller, who must not choose what runs as
// root. The kernel gives no path longer than 4095 bytes.
std::optional<std::string> own_path() {
  std::array<char, 4095> path;
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) return std::nullopt;
  return std::string(path.data(), static_cast<std::size_t>(length));
}

// Needs no retry: this process handles no signals, so none interrupts the wait.
int wait_for(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) == -1) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

int reexec_with_pkexec(Words words) {
  if (::geteuid() == 0) return -1;
  if (::access(pkexec_path, X_OK) != 0) return -1;

  // Text still in a buffer would be printed late or twice.
  (void)std::fflush(stdout);
  (void)std::fflush(stderr);

  std::optional<std::string> path = own_path();
  if (!path) return -1;

  char pkexec_name[] = "pkexec";
  std::vector<char*> arguments{pkexec_name, path->data()};
  arguments.insert(arguments.end(), words.begin(), words.end());
  arguments.push_back(nullptr);

  const pid_t child = ::fork();
  if (child == -1) return -1;
  if (child == 0) {
    ::execv(pkexec_path, arguments.data());
    ::_exit(127); // the shell's status for a command that cannot be run; exit() would flush the parent's buffers
  }
  return wait_for(child);
}

} // namespace nebulark
