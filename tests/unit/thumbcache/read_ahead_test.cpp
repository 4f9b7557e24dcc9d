#include "thumbcache/read_ahead.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/handles.h"
#include "thumbcache/scratch.h"

namespace nebulark {

namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t ahead = 128; // files that are asked for at first

// A directory of files that are not in memory, where the file system can forget them.
class ColdDirectory : public testing::Test {
protected:
  void SetUp() override {
    for (std::size_t i = 0; i < 2 * ahead; ++i)
      write(directory.path + "/" + std::to_string(i), std::string(2 * page, 'x'));
    listing = directory_over(Descriptor(::open(directory.path.c_str(), O_RDONLY | O_DIRECTORY)));
    while (const dirent* const entry = ::readdir(listing.get()))
      if (entry->d_type == DT_REG) std::memcpy(&entries.emplace_back(), entry, entry->d_reclen);
    for (const dirent& entry : entries)
      forget(entry);
    if (entries.size() != 2 * ahead || !is_known_to_be_cold(entries.back()))
      GTEST_SKIP() << "this file system, or this kernel, does not tell what is in memory";
  }

  Descriptor open_file(const dirent& entry) const {
    return Descriptor(::openat(::dirfd(listing.get()), entry.d_name, O_RDONLY));
  }

  void forget(const dirent& entry) const {
    const Descriptor file = open_file(entry);
    EXPECT_EQ(::fsync(file.get()), 0);
    EXPECT_EQ(::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED), 0);
  }

  bool is_known_to_be_cold(const dirent& entry) const {
#ifdef RWF_NOWAIT
    char byte = 0;
    const iovec part{&byte, 1};
    return ::preadv2(open_file(entry).get(), &part, 1, 0, RWF_NOWAIT) == -1 && errno == EAGAIN;
#else
    (void)entry;
    return false;
#endif
  }

  bool is_in_memory(const dirent& entry) const {
    void* const mapped = ::mmap(nullptr, page, PROT_READ, MAP_SHARED, open_file(entry).get(), 0);
    unsigned char state = 0;
    EXPECT_EQ(::mincore(mapped, page, &state), 0);
    EXPECT_EQ(::munmap(mapped, page), 0);
    return (state & 1) != 0;
  }

  // The disk takes a moment. The limit is there to end a test whose file nobody reads.
  bool comes_into_memory(const dirent& entry) const {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!is_in_memory(entry)) {
      if (std::chrono::steady_clock::now() > limit) return false;
      ::sched_yield();
    }
    return true;
  }

  void arrive_at(std::size_t number) { read_ahead.arrive_at(::dirfd(listing.get()), entries[number]); }

  ScratchDirectory directory;
  DirectoryHandle listing;
  std::vector<dirent> entries;
  ReadAhead read_ahead;
};

TEST_F(ColdDirectory, HasTheNextHeadsReadAndNoMore) {
  arrive_at(0);
  for (std::size_t i = 1; i <= ahead; ++i)
    EXPECT_TRUE(comes_into_memory(entries[i])) << i;
  for (std::size_t i = ahead + 1; i < entries.size() - 1; ++i) // the last one was probed above
    EXPECT_FALSE(is_in_memory(entries[i])) << i;
}

TEST_F(ColdDirectory, LeavesNothingOpen) {
  const int before = next_descriptor();
  for (std::size_t i = 0; i < entries.size(); ++i)
    arrive_at(i);
  EXPECT_EQ(next_descriptor(), before);
}

} // namespace

} // namespace nebulark
