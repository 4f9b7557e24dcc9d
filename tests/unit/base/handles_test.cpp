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

TEST(Descriptor, IsNoneIfOpeningFails) {
  EXPECT_FALSE(Descriptor(-1));
  EXPECT_FALSE(stream_over(Descriptor(-1), "r"));
  EXPECT_FALSE(directory_over(Descriptor(-1)));
}

// Returns whether the handle was made. Its descriptor must be open while the handle is there, and closed then.
template <typename Handle>
bool owns(Handle (*make)(Descriptor), const char* path) {
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
  EXPECT_TRUE(owns<FileHandle>([](Descriptor file) { return stream_over(std::move(file), "r"); }, "/dev/null"));
  EXPECT_FALSE(owns<FileHandle>([](Descriptor file) { return stream_over(std::move(file), "w"); }, "/dev/null"));
}

TEST(DirectoryOver, OwnsTheDescriptorOrClosesIt) {
  EXPECT_TRUE(owns<DirectoryHandle>(directory_over, "/"));
  EXPECT_FALSE(owns<DirectoryHandle>(directory_over, "/dev/null"));
}

} // namespace

} // namespace nebulark
