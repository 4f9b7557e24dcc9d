#include "thumbcache/thumbnail_tags.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/handles.h"
#include "near_misses.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

constexpr std::size_t longest = 1048576; // bytes of data in a chunk

void write_at(const Descriptor& file, std::uint64_t offset, std::string_view bytes) {
  ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)),
            static_cast<ssize_t>(bytes.size()));
}

Descriptor open_bytes(std::string_view bytes) {
  Descriptor file(::memfd_create("thumbnail", 0));
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
  expect_tags(png({ihdr, other, idat, iend}), {});
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
  const std::string mimetype = mimetype_chunk("image/fits");
  expect_tags(png({uri_chunk(bytes), mimetype_chunk(bytes)}), {bytes, bytes});
  expect_tags(png({uri_chunk(" \t\r\nuri\n "), mimetype_chunk(" m ")}), {" \t\r\nuri\n ", " m "});
  expect_tags(png({uri_chunk(mimetype)}), {mimetype, ""});
}

TEST(ReadThumbnailTags, SkipsATextWithoutKeywordOrNul) {
  const std::string uri = uri_chunk("m31.fits");
  for (const std::string_view data : {""sv, "\0"sv, "Thumb::URI"sv, "Thumb::Mimetype"sv, "\0Thumb::URI\0x"sv})
    expect_tags(png({uri, chunk("tEXt", data), mimetype_chunk("image/fits")}), {"m31.fits", "image/fits"});
}

TEST(ReadThumbnailTags, ChecksNoCrc) {
  expect_tags(png({chunk("IHDR", "", "CRC!"), chunk("tEXt", "Thumb::URI\0m31.fits"sv, "\0\0\0\0"sv),
                   chunk("tEXt", "Thumb::Mimetype\0image/fits"sv, "tEXt")}),
              {"m31.fits", "image/fits"});
}

// Every PNG file ends in these 12 bytes: they show that the CRCs here are right.
TEST(PngBuilder, WritesTheStandardEndChunk) { EXPECT_EQ(chunk("IEND", ""), "\0\0\0\0IEND\xAE\x42\x60\x82"sv); }

TEST(ReadThumbnailTags, ComparesEveryByteOfAKeyword) {
  for (const std::string& keyword : near_misses("Thumb::URI"))
    expect_tags(png({text_chunk(keyword, "uri"), mimetype_chunk("next")}), {"", "next"});
  for (const std::string& keyword : near_misses("Thumb::Mimetype"))
    expect_tags(png({text_chunk(keyword, "mimetype"), uri_chunk("next")}), {"next", ""});
  for (const std::string_view keyword : {"thumb::uri", "THUMB::URI", " Thumb::URI", "Thumb::URI ", "thumb::mimetype",
                                         "THUMB::MIMETYPE", " Thumb::Mimetype", "Thumb::Mimetype "})
    expect_tags(png({text_chunk(keyword, "x"), chunk("skIp", uri_chunk("inside"))}), {});
  const std::string long_keyword = "Thumb::URI" + std::string(longest - 12, 'I');
  expect_tags(png({text_chunk(long_keyword, "x"), mimetype_chunk("next")}), {"", "next"});
}

// Adds the type with one byte in the other case, with its high bit changed, one more, one less, or NUL.
void add_types_near(const std::string& type, std::vector<std::string>& types) {
  for (std::size_t place = 0; place < type.size(); ++place)
    for (const int other : {type[place] ^ 0x20, type[place] ^ 0x80, type[place] + 1, type[place] - 1, 0})
      types.push_back(std::string(type).replace(place, 1, 1, static_cast<char>(other)));
}

TEST(ReadThumbnailTags, SkipsEveryTypeButTextAndImageData) {
  std::vector<std::string> types{"zTXt", "iTXt", "TEXT", "text", "TEXt", "tXEt", "idat", "TADI", "IEND", "\0\xFF\n "s};
  add_types_near("tEXt", types);
  add_types_near("IDAT", types);
  for (const std::string& type : types)
    expect_tags(png({chunk(type, text_data("Thumb::URI", "uri")), mimetype_chunk("next")}), {"", "next"});
}

TEST(ReadThumbnailTags, FindsNoneAfterAnotherSignature) {
  const std::string rest = uri_chunk("uri");
  for (const std::string& other : near_misses(signature))
    if (!other.starts_with(signature)) expect_tags(other + rest, {});
  for (const std::string& other :
       {""s, "\x09PNG\r\n\x1A\n"s, "\x89png\r\n\x1A\n"s, "\x89PNG\n\x1A\n"s, "GIF89a\0\0"s, std::string(8, '\0')})
    expect_tags(other + rest, {});
  expect_tags(png({signature, rest}), {}); // "PNG" as a length is gigabytes
}

// The beginning of a file, then every kind of chunk.
std::string sample_after(const std::string& beginning) {
  return beginning + chunk("IHDR", "\0\0\0\1\0\0\0\1\x08\0\0\0\0"sv) + text_chunk("Software", "any text") +
         uri_chunk("file:///a/first.fits") + chunk("pHYs", "\0\0\x0B\x13\0\0\x0B\x13\x01"sv) +
         mimetype_chunk("image/fits") + chunk("tEXt", "") + uri_chunk("file:///b/second.png") +
         chunk("zTXt", text_data("Thumb::URI", "\0x")) + mimetype_chunk("") + chunk("IDAT", "data") +
         uri_chunk("file:///after/the/image.fits");
}

// The sizes of buffers, where a reader's pieces of a file may meet.
constexpr std::array<std::size_t, 2> seams{4096, 8192};

TEST(ReadThumbnailTags, ReadsAcrossSeams) {
  const std::size_t length = sample_after("").size();
  for (const std::size_t seam : seams) {
    for (std::size_t offset = seam - length - 1; offset <= seam + 1; ++offset) {
      SCOPED_TRACE(offset);
      expect_tags(sample_after(head(offset)), {"file:///b/second.png", ""});
    }
  }
}

void expect_tags_of_plain_reader(std::string_view bytes) {
  const PlainTags plain = plain_tags(std::string(bytes));
  SCOPED_TRACE(bytes.size());
  expect_tags(bytes, {plain.uri, plain.mimetype});
}

TEST(ReadThumbnailTags, FindsTheTagsBeforeTheEndOfATruncatedFile) {
  const std::string whole = sample_after(png({}));
  for (std::size_t size = 0; size <= whole.size(); ++size)
    expect_tags_of_plain_reader(whole.substr(0, size));
  for (const std::size_t seam : seams)
    for (const std::size_t before : {1U, 30U, 100U, 150U, 200U})
      for (std::size_t size = seam - 9; size <= seam + 9; ++size)
        expect_tags_of_plain_reader(sample_after(head(seam - before)).substr(0, size));
}

// Lengths for each byte of the length field, and lengths near a seam.
std::vector<std::size_t> telling_lengths() {
  std::vector<std::size_t> lengths{0,     1,     127,   128,   255,    256,     257,         32767,  32768,
                                   65535, 65536, 65537, 66051, 131072, 1000000, longest - 1, longest};
  for (const std::size_t seam : seams)
    for (std::size_t length = seam - 40; length <= seam + 4; ++length)
      lengths.push_back(length);
  return lengths;
}

TEST(ReadThumbnailTags, FindsATagAfterASkippedChunkOfAnyLength) {
  for (const std::size_t length : telling_lengths()) {
    SCOPED_TRACE(length);
    const std::string skipped = chunk("skIp", std::string(length, 's'), "CRC!");
    expect_tags(png({skipped, uri_chunk("uri"), skipped, mimetype_chunk("mimetype")}), {"uri", "mimetype"});
  }
}

TEST(ReadThumbnailTags, FindsAValueOfAnyLength) {
  for (const std::size_t length : telling_lengths()) {
    SCOPED_TRACE(length);
    const std::string keyword = text_data("Thumb::URI", "");
    const std::string value(std::min(length, longest - keyword.size()), 'v');
    expect_tags(png({chunk("tEXt", keyword + value, "CRC!"), mimetype_chunk("mimetype")}), {value, "mimetype"});
  }
}

TEST(ReadThumbnailTags, FindsATagAfterThousandsOfChunks) {
  std::string bytes = png({});
  for (int number = 0; number < 2000; ++number)
    bytes += number % 2 == 0 ? chunk("skIp", "") : chunk("tEXt", "Comment\0odd"sv);
  expect_tags(bytes + uri_chunk("uri"), {"uri", ""});
}

TEST(ReadThumbnailTags, StopsAtAChunkOfMoreThanOneMegabyte) {
  for (const std::string_view type : {"tEXt", "zTXt", "iTXt", "IHDR", "IEND", "eXIf"}) {
    SCOPED_TRACE(type);
    const std::string greatest = chunk(type, std::string(longest, 'd'), "CRC!");
    const std::string longer = chunk(type, std::string(longest + 1, 'd'), "CRC!");
    expect_tags(png({uri_chunk("before"), greatest, uri_chunk("after")}), {"after", ""});
    expect_tags(png({uri_chunk("before"), longer, uri_chunk("after")}), {"before", ""});
  }
}

// A reader that loses a byte of the length, or takes it as signed, would find the next tag.
TEST(ReadThumbnailTags, StopsAtALengthOfMegabytes) {
  for (const std::uint32_t length :
       {0x00100001U, 0x00110000U, 0x01000000U, 0x01000004U, 0x10000004U, 0x7FFFFFFFU, 0x80000000U, 0x80000004U,
        0xFF000004U, 0xFFFF0004U, 0xFFFFFFF0U, 0xFFFFFFF4U, 0xFFFFFFFCU, 0xFFFFFFFFU}) {
    SCOPED_TRACE(length);
    for (const std::string_view type : {"tEXt", "skIp"})
      for (const std::string_view rest : {"", "CRC!", "dataCRC!"})
        expect_tags(png({uri_chunk("before"), chunk_header(length, type), rest, uri_chunk("after")}), {"before", ""});
  }
}

TEST(ReadThumbnailTags, StopsAtAChunkLongerThanTheFile) {
  for (const std::string_view type : {"tEXt", "skIp"}) {
    for (const std::uint32_t length : {1U, 20U, 4096U, 1048576U})
      expect_tags(png({uri_chunk("before"), chunk_header(length, type), std::string(length - 1, '\0')}),
                  {"before", ""});
    expect_tags(png({uri_chunk("before"), chunk_header(100, type), uri_chunk("inside")}), {"before", ""});
  }
}

TEST(ReadThumbnailTags, FindsATagBeyondFourGigabytes) {
  const std::string skipped = chunk_header(longest, "skIp");
  const Descriptor file = open_bytes(signature);
  std::uint64_t end = signature.size();
  for (; end < std::uint64_t{1} << 32; end += skipped.size() + longest + 4)
    write_at(file, end, skipped);
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
  expect_tags_in(Descriptor(::open("/dev/null", O_WRONLY)), {});
  expect_tags_in(Descriptor(-1), {});
}

} // namespace

} // namespace nebulark
