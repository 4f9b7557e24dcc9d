#include "base/handles.h"

#include <optional>

#include <fcntl.h>
#include <gtest/gtest.h>

namespace nebulark {

namespace {

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

Descriptor open_null() { return Descriptor(::open("/dev/null", O_RDONLY)); }

TEST(Descriptor, ClosesAtTheEndOfItsScope) {
  std::optional<Descriptor> descriptor(open_null());
  const int number = descriptor->get();
  EXPECT_TRUE(*descriptor);
  EXPECT_TRUE(is_open(number));
  descriptor.reset();
  EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, IsNoneIfOpeningFails) { EXPECT_FALSE(Descriptor(::open("/dev/null/absent", O_RDONLY))); }

TEST(Descriptor, BelongsToTheOwnerItIsMovedTo) {
  Descriptor first = open_null();
  const int number = first.get();
  {
    const Descriptor second(std::move(first));
    EXPECT_EQ(second.get(), number);
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): a descriptor that was moved is none
  }
  EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, StaysOpenWhenReleased) {
  int number = -1;
  {
    Descriptor descriptor = open_null();
    number = descriptor.release();
  }
  EXPECT_TRUE(is_open(number));
  (void)::close(number);
}

TEST(StreamOver, OwnsTheDescriptor) {
  FileHandle file = stream_over(open_null(), "r");
  ASSERT_TRUE(file);
  const int number = ::fileno(file.get());
  file.reset();
  EXPECT_FALSE(is_open(number));
}

TEST(DirectoryOver, OwnsTheDescriptor) {
  DirectoryHandle directory = directory_over(Descriptor(::open("/", O_RDONLY | O_DIRECTORY)));
  ASSERT_TRUE(directory);
  const int number = ::dirfd(directory.get());
  directory.reset();
  EXPECT_FALSE(is_open(number));
}

TEST(StreamOver, ClosesADescriptorThatCannotBeAStream) {
  Descriptor descriptor = open_null();
  const int number = descriptor.get();
  EXPECT_FALSE(stream_over(std::move(descriptor), "w")); // open for reading only
  EXPECT_FALSE(is_open(number));
  EXPECT_FALSE(stream_over(Descriptor(-1), "r"));
}

TEST(DirectoryOver, ClosesADescriptorThatIsNoDirectory) {
  Descriptor descriptor = open_null();
  const int number = descriptor.get();
  EXPECT_FALSE(directory_over(std::move(descriptor)));
  EXPECT_FALSE(is_open(number));
  EXPECT_FALSE(directory_over(Descriptor(-1)));
}

} // namespace

} // namespace nebulark
