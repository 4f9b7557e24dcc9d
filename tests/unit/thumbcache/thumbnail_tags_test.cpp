#include "thumbcache/thumbnail_tags.h"

#include <array>
#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/handles.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::size_t longest = 1048576; // bytes of data in a chunk

void write_at(const Descriptor& file, std::uint64_t offset, std::string_view bytes) {
  ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)),
            static_cast<ssize_t>(bytes.size()));
}

Descriptor open_bytes(std::string_view bytes) {
  Descriptor file(::memfd_create("thumbnail", MFD_CLOEXEC));
  write_at(file, 0, bytes);
  return file;
}

void expect_tags_in(const Descriptor& file, const ThumbnailTags& expected) {
  const ThumbnailTags tags = read_thumbnail_tags(file.get());
  EXPECT_EQ(tags.uri, expected.uri);
  EXPECT_EQ(tags.mimetype, expected.mimetype);
}

void expect_tags(std::string_view bytes, const ThumbnailTags& expected) { expect_tags_in(open_bytes(bytes), expected); }

TEST(ReadThumbnailTags, FindsTheLastTagOfAKindBeforeTheImageData) {
  const std::string ihdr = chunk("IHDR", "\0\0\0\1\0\0\0\1\x08\0\0\0\0"sv);
  const std::string idat = chunk("IDAT", "\x78\x9C\x63\x60\0\0\0\2\0\1"sv);
  const std::string iend = chunk("IEND", "");
  const std::string uri = uri_chunk("m31.fits");
  const std::string mimetype = mimetype_chunk("image/fits");
  const std::string other = text_chunk("Software", "Thumb::URI");
  const ThumbnailTags both{"m31.fits", "image/fits"};

  expect_tags(png({ihdr, uri, mimetype, idat, iend}), both);
  expect_tags(png({ihdr, other, uri, idat, iend}), {"m31.fits", ""});
  expect_tags(png({ihdr, mimetype, other, idat, iend}), {"", "image/fits"});
  expect_tags(png({uri, mimetype, ihdr, idat, iend}), both);
  expect_tags(png({ihdr, iend, uri, mimetype}), both);
  expect_tags(png({ihdr, chunk("IDAT", uri + mimetype)}), {});
  expect_tags(png({ihdr, uri, idat, uri_chunk("late"), mimetype}), {"m31.fits", ""});

  expect_tags(png({uri_chunk("three"), mimetype, uri_chunk("two")}), {"two", "image/fits"});
  expect_tags(png({mimetype_chunk("three"), uri, mimetype_chunk("two")}), {"m31.fits", "two"});
  expect_tags(png({uri, mimetype, uri_chunk("")}), {"", "image/fits"});
  expect_tags(png({uri, mimetype, mimetype_chunk("")}), {"m31.fits", ""});
}

TEST(ReadThumbnailTags, KeepsEveryByteOfAValue) {
  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  expect_tags(png({uri_chunk(bytes), mimetype_chunk(bytes)}), {bytes, bytes});
  expect_tags(png({uri_chunk(" \t\r\nuri\n "), mimetype_chunk(" m ")}), {" \t\r\nuri\n ", " m "});
  expect_tags(png({uri_chunk(mimetype_chunk("image/fits"))}), {mimetype_chunk("image/fits"), ""});
}

TEST(ReadThumbnailTags, ComparesWholeKeywords) {
  for (const std::string_view keyword :
       {"", "thumb::uri", " Thumb::URI", "Thumb::URI ", "THUMB::MIMETYPE", " Thumb::Mimetype", "Thumb::Mimetype "})
    expect_tags(png({text_chunk(keyword, "x"), chunk("skIp", uri_chunk("inside"))}), {});
  expect_tags(png({text_chunk("Thumb::URI" + std::string(longest - 12, 'I'), "x"), mimetype_chunk("next")}),
              {"", "next"});
}

TEST(ReadThumbnailTags, FindsNoneAfterAnotherSignature) {
  for (const std::string_view other : {""sv, "\x89PNG\n\x1A\n"sv, "\x89png\r\n\x1A\n"sv, "GIF89a\0\0"sv})
    expect_tags(std::string(other) + uri_chunk("uri"), {});
  expect_tags(png({signature, uri_chunk("uri")}), {}); // "PNG" as a length is gigabytes
}

// Every kind of chunk, after another of this length.
std::string sample_after(std::size_t skipped) {
  return png({chunk("skIp", std::string(skipped, 's')), chunk("IHDR", "\0\0\0\1\0\0\0\1\x08\0\0\0\0"sv),
              text_chunk("Software", "any text"), uri_chunk("file:///a/first.fits"), mimetype_chunk("image/fits"),
              chunk("tEXt", ""), uri_chunk("file:///b/second.png"), text_chunk("Thumb::URIs", "x"),
              chunk("zTXt", "Thumb::URI\0\0x"sv), mimetype_chunk(""), chunk("IDAT", "data"),
              uri_chunk("file:///after/the/image.fits")});
}

TEST(ReadThumbnailTags, ReadsAcrossTheSeamsOfItsBuffers) {
  const std::size_t length = sample_after(0).size();
  for (std::size_t skipped = 4096 - length - 1; skipped <= 4096; ++skipped) {
    const std::string whole = sample_after(skipped);
    for (const std::size_t size : {whole.size(), std::size_t{4095}, std::size_t{4096}, std::size_t{4097}}) {
      SCOPED_TRACE(testing::Message() << size << " bytes, a chunk of " << skipped);
      const PlainTags plain = plain_tags(whole.substr(0, size));
      expect_tags(whole.substr(0, size), {plain.uri, plain.mimetype});
    }
  }
}

TEST(ReadThumbnailTags, FindsTagsOfAnyLengthAndAfterChunksOfAnyLength) {
  std::vector<std::size_t> lengths{0, 1, 127, 128, 255, 256, 257, 32767, 32768, 65535, 65536, 66051, 1000000};
  lengths.push_back(longest - "Thumb::URI\0"sv.size());
  for (std::size_t near_a_seam = 4096 - 40; near_a_seam <= 4096 + 4; ++near_a_seam)
    lengths.push_back(near_a_seam);
  for (const std::size_t length : lengths) {
    SCOPED_TRACE(length);
    const std::string bytes(length, 'b');
    expect_tags(png({chunk("skIp", bytes), uri_chunk("uri"), mimetype_chunk("mimetype")}), {"uri", "mimetype"});
    expect_tags(png({uri_chunk(bytes), mimetype_chunk("mimetype")}), {bytes, "mimetype"});
  }
}

TEST(ReadThumbnailTags, StopsAtAChunkOfMoreThanOneMegabyte) {
  for (const std::string_view type : {"tEXt", "IHDR"}) {
    const std::string before = uri_chunk("before");
    expect_tags(png({before, chunk(type, std::string(longest, 'd')), uri_chunk("after")}), {"after", ""});
    expect_tags(png({before, chunk(type, std::string(longest + 1, 'd')), uri_chunk("after")}), {"before", ""});
    // 4 and -4 to a reader that loses the sign, or takes it for one
    expect_tags(png({before, "\x80\0\0\x04"sv, type, "dataCRC!", uri_chunk("after")}), {"before", ""});
    expect_tags(png({before, "\xFF\xFF\xFF\xFC"sv, type, uri_chunk("after")}), {"before", ""});
  }
}

TEST(ReadThumbnailTags, FindsATagAfterThousandsOfChunks) {
  std::string bytes = png({});
  for (int number = 0; number < 2000; ++number)
    bytes += number % 2 == 0 ? chunk("skIp", "") : text_chunk("Comment", "odd");
  expect_tags(bytes + uri_chunk("uri"), {"uri", ""});
}

TEST(ReadThumbnailTags, FindsATagBeyondFourGigabytes) {
  const std::string skipped = chunk("skIp", std::string(longest, 's'));
  const Descriptor file = open_bytes(signature);
  std::uint64_t end = signature.size();
  for (; end < std::uint64_t{1} << 32; end += skipped.size())
    write_at(file, end, skipped.substr(0, 8)); // only length and type take room
  write_at(file, end, uri_chunk("far"));
  expect_tags_in(file, {"far", ""});
}

TEST(ReadThumbnailTags, ReadsFromTheStartAndDoesNotMoveTheDescriptor) {
  const Descriptor file = open_bytes(png({uri_chunk("uri"), mimetype_chunk("mimetype")}));
  ASSERT_EQ(::lseek(file.get(), 5, SEEK_SET), 5);
  expect_tags_in(file, {"uri", "mimetype"});
  EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 5);
}

TEST(ReadThumbnailTags, FindsNoneIfReadingFails) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const Descriptor out(ends[0]);
  const Descriptor in(ends[1]);
  const std::string bytes = png({uri_chunk("uri")});
  ASSERT_EQ(::write(in.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  expect_tags_in(out, {});
  expect_tags_in(Descriptor(::open("/", O_RDONLY)), {});
  expect_tags_in(Descriptor(-1), {});
}

} // namespace

} // namespace nebulark
