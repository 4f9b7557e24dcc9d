#include "base/handles.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace nebulark {

namespace {

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(Descriptor, IsClosedByItsLastOwner) {
  int number = -1;
  {
    Descriptor first(::open("/", O_RDONLY));
    number = first.get();
    const Descriptor second(std::move(first));
    EXPECT_FALSE(first); // a descriptor that was moved is none
    EXPECT_TRUE(second);
    EXPECT_EQ(second.get(), number);
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, IsNoneIfOpeningFailed) { EXPECT_FALSE(Descriptor(-1)); }

// Returns whether the handle was made. Its descriptor must be open as long as the handle, and closed afterwards.
template <typename Handle>
bool is_made_and_owns(Handle (*make)(Descriptor), const char* path) {
  Descriptor descriptor(::open(path, O_RDONLY));
  const int number = descriptor.get();
  Handle handle = make(std::move(descriptor));
  const bool made = handle != nullptr;
  EXPECT_EQ(is_open(number), made);
  handle.reset();
  EXPECT_FALSE(is_open(number));
  return made;
}

TEST(StreamOver, OwnsTheDescriptorOrClosesIt) {
  const auto stream = [](Descriptor file) { return stream_over(std::move(file), "r"); };
  const auto no_stream = [](Descriptor file) { return stream_over(std::move(file), "?"); };
  EXPECT_TRUE(is_made_and_owns<FileHandle>(stream, "/dev/null"));
  EXPECT_FALSE(is_made_and_owns<FileHandle>(no_stream, "/dev/null"));
  EXPECT_FALSE(is_made_and_owns<FileHandle>(stream, "/nothing"));
}

TEST(DirectoryOver, OwnsTheDescriptorOrClosesIt) {
  EXPECT_TRUE(is_made_and_owns<DirectoryHandle>(directory_over, "/"));
  EXPECT_FALSE(is_made_and_owns<DirectoryHandle>(directory_over, "/dev/null"));
  EXPECT_FALSE(is_made_and_owns<DirectoryHandle>(directory_over, "/nothing"));
}

} // namespace

} // namespace nebulark
