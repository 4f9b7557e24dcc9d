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

// Gives a standard stream a buffer and a file to write to. It goes back where it led, without a buffer.
class Buffered {
public:
  explicit Buffered(std::FILE* stream) : stream_(stream), before_(::dup(::fileno(stream))) {
    (void)std::fflush(stream_);
    EXPECT_NE(::dup2(file_.get(), ::fileno(stream_)), -1);
    EXPECT_EQ(std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size()), 0);
  }
  ~Buffered() {
    (void)std::fflush(stream_);
    (void)std::setvbuf(stream_, nullptr, _IONBF, 0);
    EXPECT_NE(::dup2(before_.get(), ::fileno(stream_)), -1);
  }
  Buffered(const Buffered&) = delete;
  Buffered& operator=(const Buffered&) = delete;

  // What is in the file, not the buffer.
  [[nodiscard]] std::string written() const {
    std::array<char, 100> text;
    const ssize_t size = ::pread(file_.get(), text.data(), text.size(), 0);
    return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
  }

private:
  std::FILE* stream_;
  Descriptor before_;
  Descriptor file_{::memfd_create("stream", MFD_CLOEXEC)};
  std::array<char, BUFSIZ> buffer_{};
};

// A root directory without /proc whose pkexec is executable and no program, and a user who is not root.
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
  std::array<std::string, 2> written;
  {
    const Buffered out(stdout);
    const Buffered error(stderr);
    (void)std::fputs("said", stdout);
    (void)std::fputs("complained", stderr);
    EXPECT_NE(reexec_with_pkexec({}), 0);
    written = {out.written(), error.written()};
  }
  EXPECT_EQ(written, (std::array<std::string, 2>{"said", "complained"}));
}

void end_a_process_at_once() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

off_t size_of(const Descriptor& file) { return ::lseek(file.get(), 0, SEEK_END); }

int exit_handler_writes_to = -1; // a descriptor, or none

TEST_F(ReexecWithPkexec, RunsNoExitHandlerInAChildThatCannotStartPkexec) {
  std::filesystem::create_directories("/proc/self");
  std::filesystem::create_symlink("/usr/bin/nebulark-ctl", "/proc/self/exe");
  char byte = 0;
  if (::readlink("/proc/self/exe", &byte, 1) == -1) GTEST_SKIP() << "qemu answers for /proc and knows no path here";
  const Descriptor told(::memfd_create("told", MFD_CLOEXEC));
  ASSERT_EQ(std::atexit([] { (void)!::write(exit_handler_writes_to, "x", 1); }), 0);

  exit_handler_writes_to = told.get();
  end_a_process_at_once();
  const bool ends_by_exit = size_of(told) != 0;
  const int result = reexec_with_pkexec({});
  exit_handler_writes_to = -1;
  if (ends_by_exit) GTEST_SKIP() << "in the coverage build _exit() is exit()";
  EXPECT_EQ(result, 127);
  EXPECT_EQ(size_of(told), 0);
}

} // namespace

} // namespace nebulark
