// What tests change for a while: directories, modes, the root directory, the user.

#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/handles.h"

namespace nebulark {

// Writes a file, and makes the directories above it.
inline void write(const std::string& path, std::string_view bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

// A new directory, removed at the end with its contents.
class ScratchDirectory {
public:
  ScratchDirectory() { EXPECT_NE(::mkdtemp(path.data()), nullptr); }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  std::string path = testing::TempDir() + "nebulark-XXXXXX";
};

// Makes a directory this process's root for a while: broken code that follows ".." would otherwise clear the whole
// machine. Needs root's rights or a user namespace.
class OwnRoot {
public:
  explicit OwnRoot(const std::string& path) : is_set(set(path.c_str())) {}
  ~OwnRoot() {
    const bool is_back =
        !is_set || (::fchdir(old_root.get()) == 0 && ::chroot(".") == 0 && ::fchdir(old_directory.get()) == 0);
    EXPECT_TRUE(is_back);
  }

private:
  static bool set(const char* path) {
    const bool done = ::chroot(path) == 0 || (::unshare(CLONE_NEWUSER) == 0 && ::chroot(path) == 0);
    return done && ::chdir("/") == 0;
  }

  const Descriptor old_root{::open("/", O_PATH)};
  const Descriptor old_directory{::open(".", O_PATH)};

public:
  const bool is_set;
};

// Takes root's rights away for a while, if the process has them.
class OrdinaryUser {
public:
  ~OrdinaryUser() {
    const bool is_back = !was_root || ::seteuid(0) == 0;
    EXPECT_TRUE(is_back);
  }

private:
  static constexpr uid_t nobody = 65534;
  const bool was_root = ::geteuid() == 0;

public:
  const bool is_one = !was_root || ::seteuid(nobody) == 0; // false where no other user exists
};

// The mode of a file or directory; 0700 at the end, so that it can be removed.
class Mode {
public:
  Mode(std::string entry, mode_t mode) : path(std::move(entry)) { EXPECT_EQ(::chmod(path.c_str(), mode), 0); }
  ~Mode() { (void)::chmod(path.c_str(), 0700); }
  Mode(const Mode&) = delete;
  Mode& operator=(const Mode&) = delete;

private:
  std::string path;
};

// The lowest free descriptor: the same before and after code that leaves nothing open.
inline int next_descriptor() { return Descriptor(::open("/", O_PATH)).get(); }

} // namespace nebulark
