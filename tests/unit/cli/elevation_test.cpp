#include "cli/elevation.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include <sys/mman.h>
#include <sys/wait.h>

#include "base/handles.h"
#include "scratch.h"

namespace nebulark {

namespace {

// What `run` writes to the standard streams of a forked process. Both are one file, and only `run` flushes.
std::string written_by(void (*run)()) {
  const Descriptor file(::memfd_create("streams", MFD_CLOEXEC));
  (void)std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    for (std::FILE* const stream : {stdout, stderr}) {
      (void)::dup2(file.get(), ::fileno(stream));
      (void)std::setvbuf(stream, nullptr, _IOFBF, BUFSIZ);
    }
    run();
    ::_exit(0);
  }
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  std::array<char, 100> text;
  const ssize_t size = ::pread(file.get(), text.data(), text.size(), 0);
  return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

void write_handler() { (void)!::write(STDOUT_FILENO, "handler", 7); }

// A root directory without /proc, an executable pkexec that is no program, and an ordinary user.
class ReexecWithPkexec : public testing::Test {
protected:
  void SetUp() override {
    if (!root.is_set) GTEST_SKIP() << "without chroot() the real pkexec might start";
    std::filesystem::permissions("/", std::filesystem::perms{0777});
    write("/usr/bin/pkexec", "no program");
    std::filesystem::permissions("/usr/bin/pkexec", std::filesystem::perms{0755});
    user.emplace();
    if (!user->is_one) GTEST_SKIP() << "root cannot become another user here";
  }

  ScratchDirectory directory;
  OwnRoot root{directory.path};
  std::optional<OrdinaryUser> user;
};

TEST_F(ReexecWithPkexec, FlushesBothStreamsFirst) {
  EXPECT_EQ(written_by([] {
              (void)std::fputs("said, ", stdout);
              (void)std::fputs("complained", stderr);
              (void)reexec_with_pkexec({});
            }),
            "said, complained");
}

TEST_F(ReexecWithPkexec, RunsNoExitHandlerInAChildThatCannotStartPkexec) {
  std::filesystem::create_directories("/proc/self");
  std::filesystem::create_symlink("/usr/bin/nebulark-ctl", "/proc/self/exe");
  char byte = 0;
  if (::readlink("/proc/self/exe", &byte, 1) == -1) GTEST_SKIP() << "qemu answers for /proc and knows no path here";
  const std::string written_at_exit = written_by([] { (void)std::atexit(write_handler); });
  if (!written_at_exit.empty()) GTEST_SKIP() << "in the coverage build _exit() is exit()";

  EXPECT_EQ(written_by([] {
              (void)std::atexit(write_handler);
              if (reexec_with_pkexec({}) == 127) (void)!::write(STDOUT_FILENO, "127", 3);
            }),
            "127");
}

} // namespace

} // namespace nebulark
