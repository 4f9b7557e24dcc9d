#include "base/handles.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace nebulark {

namespace {

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(FileHandle, ClosesItsFileOnLeavingItsScope) {
  int descriptor = -1;
  {
    const FileHandle file(std::fopen("/dev/null", "r"));
    ASSERT_TRUE(file);
    descriptor = ::fileno(file.get());
    EXPECT_TRUE(is_open(descriptor));
  }
  EXPECT_FALSE(is_open(descriptor));
}

TEST(DirectoryHandle, ClosesItsDirectoryOnLeavingItsScope) {
  int descriptor = -1;
  {
    const DirectoryHandle directory(::opendir("/"));
    ASSERT_TRUE(directory);
    descriptor = ::dirfd(directory.get());
    EXPECT_TRUE(is_open(descriptor));
  }
  EXPECT_FALSE(is_open(descriptor));
}

} // namespace

} // namespace nebulark
