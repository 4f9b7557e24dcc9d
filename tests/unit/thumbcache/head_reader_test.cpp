#include "thumbcache/head_reader.h"

#include <cstdio>
#include <string>
#include <string_view>

#include <unistd.h>

#include <gtest/gtest.h>

#include "base/handles.h"

namespace nebulark {

namespace {

constexpr std::size_t buffer_size = 4096; // a page

FileHandle open_bytes(const std::string& bytes) {
  FileHandle file(std::tmpfile());
  (void)std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  std::rewind(file.get());
  (void)std::setvbuf(file.get(), nullptr, _IONBF, 0);
  return file;
}

// How far the file itself has been read or sought, whatever has been taken of it.
off_t reached(const FileHandle& file) { return ::lseek(::fileno(file.get()), 0, SEEK_CUR); }

// No two places look alike over any distance that is tested.
std::string different_bytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

TEST(HeadReader, ReadsTheHeadOnceForManySteps) {
  const std::string bytes = different_bytes(3 * buffer_size);
  const FileHandle file = open_bytes(bytes);
  HeadReader reader(file.get(), bytes.size());
  std::string_view taken;
  ASSERT_TRUE(reader.read(8, taken));
  EXPECT_EQ(taken, bytes.substr(0, 8));
  ASSERT_TRUE(reader.skip(1000));
  ASSERT_TRUE(reader.read(buffer_size - 1008, taken)); // up to the buffer's last byte
  EXPECT_EQ(taken, bytes.substr(1008, buffer_size - 1008));
  EXPECT_EQ(reached(file), buffer_size);
}

TEST(HeadReader, SeeksByWhatLiesBehindTheBufferOnly) {
  const std::string bytes = different_bytes(4 * buffer_size);
  const FileHandle file = open_bytes(bytes);
  HeadReader reader(file.get(), 0);
  std::string_view taken;
  ASSERT_TRUE(reader.read(96, taken));
  ASSERT_TRUE(reader.skip(buffer_size - 96)); // to the buffer's very end
  EXPECT_EQ(reached(file), buffer_size);
  ASSERT_TRUE(reader.skip(100));
  EXPECT_EQ(reached(file), buffer_size + 100);
  ASSERT_TRUE(reader.read(4, taken));
  EXPECT_EQ(taken, bytes.substr(buffer_size + 100, 4));
  ASSERT_TRUE(reader.skip(buffer_size)); // 4 bytes more than are left
  EXPECT_EQ(reached(file), 2 * buffer_size + 104);
  ASSERT_TRUE(reader.read(1, taken));
  EXPECT_EQ(taken, bytes.substr(2 * buffer_size + 104, 1));
}

TEST(HeadReader, NeedsNoSeekInsideTheBuffer) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileHandle file(::fdopen(ends[0], "rb"));
  FileHandle writer(::fdopen(ends[1], "wb"));
  const std::string bytes = different_bytes(buffer_size);
  ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), writer.get()), bytes.size());
  writer.reset();
  (void)std::setvbuf(file.get(), nullptr, _IONBF, 0);
  HeadReader reader(file.get(), 0);
  std::string_view taken;
  ASSERT_TRUE(reader.read(96, taken));
  EXPECT_TRUE(reader.skip(buffer_size - 96)); // to the buffer's very end
  EXPECT_FALSE(reader.skip(1));
}

TEST(HeadReader, KeepsWhatIsLeftWhenItReadsOn) {
  const std::string bytes = different_bytes(3 * buffer_size);
  const FileHandle file = open_bytes(bytes);
  HeadReader reader(file.get(), 0);
  std::string_view taken;
  ASSERT_TRUE(reader.read(buffer_size - 3, taken));
  ASSERT_TRUE(reader.read(8, taken)); // 3 bytes from before, 5 from behind
  EXPECT_EQ(taken, bytes.substr(buffer_size - 3, 8));
  EXPECT_EQ(reached(file), 2 * buffer_size - 3); // as much as there was room for
}

TEST(HeadReader, ReadsWhatTheBufferCannotHold) {
  const std::string bytes = different_bytes(3 * buffer_size);
  const FileHandle file = open_bytes(bytes);
  HeadReader reader(file.get(), 0);
  std::string_view taken;
  ASSERT_TRUE(reader.read(8, taken));
  ASSERT_TRUE(reader.read(buffer_size + 1, taken));
  EXPECT_EQ(taken, bytes.substr(8, buffer_size + 1));
  EXPECT_EQ(reached(file), buffer_size + 9); // to the byte: what follows may be the image data
  ASSERT_TRUE(reader.read(8, taken));
  EXPECT_EQ(taken, bytes.substr(buffer_size + 9, 8));
}

TEST(HeadReader, ReadsNoMoreAtFirstThanItIsToldThereIs) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{200}}) {
    const FileHandle file = open_bytes(different_bytes(buffer_size));
    HeadReader reader(file.get(), size);
    std::string_view taken;
    ASSERT_TRUE(reader.read(1, taken));
    EXPECT_EQ(reached(file), size);
  }
}

TEST(HeadReader, GivesTheSameBytesWhateverItIsTold) {
  const std::string bytes = different_bytes(100);
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{99}, std::size_t{5000}}) {
    SCOPED_TRACE(size);
    const FileHandle file = open_bytes(bytes);
    HeadReader reader(file.get(), size);
    std::string_view taken;
    ASSERT_TRUE(reader.read(8, taken));
    EXPECT_EQ(taken, bytes.substr(0, 8));
    ASSERT_TRUE(reader.read(92, taken));
    EXPECT_EQ(taken, bytes.substr(8));
    EXPECT_FALSE(reader.read(1, taken));
  }
}

TEST(HeadReader, SaysWhereTheFileEndsTooEarly) {
  for (const std::size_t wanted : {std::size_t{101}, buffer_size, buffer_size + 1}) {
    SCOPED_TRACE(wanted);
    const FileHandle file = open_bytes(different_bytes(100));
    HeadReader reader(file.get(), 0);
    std::string_view taken;
    EXPECT_FALSE(reader.read(wanted, taken));
  }
}

TEST(HeadReader, SkipsBeyondTheEndAndReadsNothingThere) {
  const FileHandle file = open_bytes(different_bytes(100));
  HeadReader reader(file.get(), 0);
  std::string_view taken;
  EXPECT_TRUE(reader.skip(5000));
  EXPECT_FALSE(reader.read(1, taken));
}

} // namespace

} // namespace nebulark
