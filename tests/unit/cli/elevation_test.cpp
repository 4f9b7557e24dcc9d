#include "cli/elevation.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>
#include <unistd.h>

// The linker sends these calls of the tool here (see CMakeLists.txt): an ordinary user, and a pkexec that
// cannot start. execvp() too, so that a mistake does not start the real one.
extern "C" {
uid_t __wrap_geteuid();
int __wrap_access(const char* path, int mode);
int __wrap_execv(const char* path, char* const* arguments);
int __wrap_execvp(const char* path, char* const* arguments);

uid_t __wrap_geteuid() { return 65534; }
int __wrap_access(const char*, int) { return 0; }
int __wrap_execv(const char*, char* const*) { return -1; }
int __wrap_execvp(const char*, char* const*) { return -1; }
}

namespace nebulark {

namespace {

[[noreturn]] void write_and_elevate() {
  static std::array<char, BUFSIZ> buffer;
  (void)std::setvbuf(stderr, buffer.data(), _IOFBF, buffer.size());
  (void)::dup2(STDERR_FILENO, STDOUT_FILENO);
  (void)std::fputs("said, ", stdout);
  (void)std::fputs("complained", stderr);
  (void)reexec_with_pkexec({});
  ::_exit(0); // flushes nothing
}

TEST(ReexecWithPkexec, FlushesBothStreamsFirst) {
  EXPECT_EXIT(write_and_elevate(), testing::ExitedWithCode(0), "^said, complained$");
}

[[noreturn]] void elevate_with_an_exit_handler() {
  (void)std::atexit([] { (void)!::write(STDERR_FILENO, "handler", 7); });
  ::_exit(reexec_with_pkexec({}));
}

TEST(ReexecWithPkexec, RunsNoExitHandlerInAChildThatCannotStartPkexec) {
  // In the coverage build _exit() is exit(), here and in the child.
  EXPECT_EXIT(elevate_with_an_exit_handler(), testing::ExitedWithCode(127), "^(handlerhandler)?$");
}

} // namespace

} // namespace nebulark
