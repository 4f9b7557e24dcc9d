#include "thumbcache/thumbnail_tags.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/handles.h"
#include "case.h"
#include "near_misses.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

constexpr std::size_t longest = 1048576; // the data of a chunk, in bytes

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

class TaggedFile : public testing::TestWithParam<Case<std::string, ThumbnailTags>> {};

TEST_P(TaggedFile, IsReadWith) { expect_tags(GetParam().given, GetParam().expected); }

std::vector<Case<std::string, ThumbnailTags>> tagged_files() {
  const std::string ihdr = chunk("IHDR", "\0\0\0\1\0\0\0\1\x08\0\0\0\0"sv);
  const std::string idat = chunk("IDAT", "\x78\x9C\x63\x60\0\0\0\2\0\1"sv);
  const std::string iend = chunk("IEND", "");
  const std::string uri = uri_chunk("file:///m31.fits");
  const std::string mimetype = mimetype_chunk("image/fits");
  const std::string other = text_chunk("Software", "Thumb::URI");
  return {
      {"BothTags", png({ihdr, uri, mimetype, idat, iend}), {"file:///m31.fits", "image/fits"}},
      {"TheUriAlone", png({ihdr, other, uri, idat, iend}), {"file:///m31.fits", ""}},
      {"TheMimetypeAlone", png({ihdr, mimetype, other, idat, iend}), {"", "image/fits"}},
      {"NoTags", png({ihdr, other, idat, iend}), {}},
      {"NoTagsInTheSignatureAlone", png({}), {}},
      {"TagsBeforeTheHeaderChunk", png({uri, mimetype, ihdr, idat, iend}), {"file:///m31.fits", "image/fits"}},

      {"NoTagsBehindTheImageData", png({ihdr, idat, uri, mimetype, iend}), {}},
      {"NoTagsFromTheImageData", png({ihdr, chunk("IDAT", uri + mimetype)}), {}},
      {"NoTagsBehindEmptyImageData", png({ihdr, chunk("IDAT", ""), uri, iend}), {}},
      {"TheTagsBeforeTheImageDataAlone", png({ihdr, uri, idat, uri_chunk("late"), mimetype}), {"file:///m31.fits", ""}},
      {"TagsBehindTheEndChunk", png({ihdr, iend, uri, mimetype}), {"file:///m31.fits", "image/fits"}},

      {"TheLastUri", png({uri_chunk("one"), uri_chunk("two")}), {"two", ""}},
      {"TheLastUriWhenItIsShorter", png({uri_chunk("three"), uri_chunk("two")}), {"two", ""}},
      {"TheLastUriWhenItIsEmpty", png({uri, mimetype, uri_chunk("")}), {"", "image/fits"}},
      {"TheLastMimetype", png({mimetype_chunk("one"), uri, mimetype_chunk("two")}), {"file:///m31.fits", "two"}},
      {"TheLastMimetypeWhenItIsEmpty", png({mimetype, uri, mimetype_chunk("")}), {"file:///m31.fits", ""}},
      {"TheUriBeforeATextWithoutNul", png({uri, chunk("tEXt", "Thumb::URI")}), {"file:///m31.fits", ""}},

      {"NulBytesInAValue", png({uri_chunk("\0a\0\0b\0"sv)}), {"\0a\0\0b\0"s, ""}},
      {"BlanksAroundAValue", png({uri_chunk(" \t\r\nuri\n "), mimetype_chunk(" m ")}), {" \t\r\nuri\n ", " m "}},
      {"AKeywordInAValue", png({uri_chunk("Thumb::URI\0x"sv)}), {"Thumb::URI\0x"s, ""}},
      {"AChunkInAValue", png({uri_chunk(mimetype)}), {mimetype, ""}},
      {"NothingFromAChunkInASkippedOne", png({chunk("skIp", uri + mimetype)}), {}},

      {"WhatFollowsAnEmptyText", png({chunk("tEXt", ""), uri}), {"file:///m31.fits", ""}},
      {"WhatFollowsATextOfOneNul", png({chunk("tEXt", "\0"sv), uri}), {"file:///m31.fits", ""}},
      {"WhatFollowsATextWithoutNul", png({chunk("tEXt", "Thumb::URI file"), mimetype}), {"", "image/fits"}},
      {"WhatFollowsATextWithoutKeyword", png({chunk("tEXt", "\0Thumb::URI\0x"sv), mimetype}), {"", "image/fits"}},
      {"WhatFollowsAnEmptySkippedChunk", png({chunk("skIp", ""), uri}), {"file:///m31.fits", ""}},
      {"WhatFollowsATypeOfNoLetters", png({chunk("\0\xFF\n "sv, "data"), uri}), {"file:///m31.fits", ""}},

      {"NoTagInLowerCase", png({text_chunk("thumb::uri", "x"), text_chunk("thumb::mimetype", "y")}), {}},
      {"NoTagInCapitals", png({text_chunk("THUMB::URI", "x"), text_chunk("THUMB::MIMETYPE", "y")}), {}},
      {"NoTagWithBlanks", png({text_chunk("Thumb::URI ", "x"), text_chunk(" Thumb::Mimetype", "y")}), {}},
      {"NoTagOfTheSameFamily", png({text_chunk("Thumb::MTime", "1"), text_chunk("Thumb::Size", "2")}), {}},

      {"WrongCrcs",
       png({chunk("IHDR", "", "CRC!"), chunk("tEXt", "Thumb::URI\0file:///m31.fits"sv, "\0\0\0\0"sv),
            chunk("tEXt", "Thumb::Mimetype\0image/fits"sv, "tEXt")}),
       {"file:///m31.fits", "image/fits"}},
  };
}
INSTANTIATE_TEST_SUITE_P(, TaggedFile, testing::ValuesIn(tagged_files()), case_name);

// These 12 bytes end every sound PNG file, so that the builder's CRCs are right.
TEST(PngBuilder, WritesTheEndChunkThatEveryoneWrites) {
  EXPECT_EQ(chunk("IEND", ""), "\0\0\0\0IEND\xAE\x42\x60\x82"sv);
}

TEST(ReadThumbnailTags, FindsAKeywordToTheByteOnly) {
  for (const std::string& keyword : near_misses("Thumb::URI"))
    expect_tags(png({text_chunk(keyword, "uri"), mimetype_chunk("next")}), {"", "next"});
  for (const std::string& keyword : near_misses("Thumb::Mimetype"))
    expect_tags(png({text_chunk(keyword, "mimetype"), uri_chunk("next")}), {"next", ""});
  const std::string longest_keyword = "Thumb::URI" + std::string(longest - 12, 'I');
  expect_tags(png({text_chunk(longest_keyword, "x"), mimetype_chunk("next")}), {"", "next"});
}

// The four letters with one of them changed: its case, the bit above ASCII, or to its neighbours.
std::vector<std::string> types_near(std::string_view type) {
  std::vector<std::string> types;
  for (std::size_t place = 0; place < type.size(); ++place) {
    for (const int other : {type[place] ^ 0x20, type[place] ^ 0x80, type[place] + 1, type[place] - 1, 0}) {
      std::string changed(type);
      changed[place] = static_cast<char>(other);
      types.push_back(changed);
    }
  }
  return types;
}

TEST(ReadThumbnailTags, SkipsEveryTypeThatIsNotQuiteText) {
  for (const std::string& type : types_near("tEXt"))
    expect_tags(png({chunk(type, text_data("Thumb::URI", "uri")), mimetype_chunk("next")}), {"", "next"});
  for (const std::string_view type : {"zTXt", "iTXt", "TEXT", "text", "TEXt", "tXEt"})
    expect_tags(png({chunk(type, text_data("Thumb::URI", "uri")), mimetype_chunk("next")}), {"", "next"});
}

TEST(ReadThumbnailTags, ReadsOnBehindEveryTypeThatIsNotQuiteImageData) {
  for (const std::string& type : types_near("IDAT"))
    expect_tags(png({chunk(type, "data"), uri_chunk("next")}), {"next", ""});
  for (const std::string_view type : {"idat", "fdAT", "TADI", "IEND"})
    expect_tags(png({chunk(type, "data"), uri_chunk("next")}), {"next", ""});
}

TEST(ReadThumbnailTags, TakesEveryByteInAValue) {
  std::string bytes;
  for (int value = 0; value < 256; ++value)
    bytes += static_cast<char>(value);
  expect_tags(png({uri_chunk(bytes), mimetype_chunk(bytes + bytes)}), {bytes, bytes + bytes});
}

TEST(ReadThumbnailTags, FindsNoneBehindAnyOtherSignature) {
  const std::string rest = uri_chunk("uri");
  expect_tags(std::string(signature) + rest, {"uri", ""});
  for (std::size_t place = 0; place < signature.size(); ++place) {
    for (const int flipped : {0x01, 0x20, 0x80, 0xFF}) {
      std::string other(signature);
      other[place] = static_cast<char>(other[place] ^ flipped);
      expect_tags(other + rest, {});
    }
    expect_tags(std::string(signature).erase(place, 1) + rest, {});
    expect_tags(std::string(signature).insert(place, 1, '\0') + rest, {});
  }
  expect_tags(rest, {});
  expect_tags("\x89PNG\n\x1A\n"s + rest, {});
  expect_tags("GIF89a\0\0"s + rest, {});
  expect_tags(std::string(signature) + std::string(signature) + rest, {}); // "PNG" makes a length of gigabytes
}

// A file, and the tags that are known once a place in it has come.
struct Milestone {
  std::size_t place;
  ThumbnailTags tags;
};

struct Sample {
  std::string bytes;
  std::vector<Milestone> milestones;
};

// Every kind of chunk behind the beginning of a file. A tag counts from the last byte of its data on.
Sample sample_behind(std::string beginning) {
  Sample sample{std::move(beginning), {}};
  const auto add = [&sample](const std::string& bytes, const ThumbnailTags& tags) {
    sample.bytes += bytes;
    sample.milestones.push_back({sample.bytes.size() - 4, tags});
  };
  sample.milestones.push_back({0, {}});
  add(chunk("IHDR", "\0\0\0\1\0\0\0\1\x08\0\0\0\0"sv), {});
  add(text_chunk("Software", "a text like any other"), {});
  add(uri_chunk("file:///a/first.fits"), {"file:///a/first.fits", ""});
  add(chunk("pHYs", "\0\0\x0B\x13\0\0\x0B\x13\x01"sv), {"file:///a/first.fits", ""});
  add(mimetype_chunk("image/fits"), {"file:///a/first.fits", "image/fits"});
  add(chunk("tEXt", ""), {"file:///a/first.fits", "image/fits"});
  add(uri_chunk("file:///b/second.png"), {"file:///b/second.png", "image/fits"});
  add(chunk("zTXt", text_data("Thumb::URI", "\0x")), {"file:///b/second.png", "image/fits"});
  add(mimetype_chunk(""), {"file:///b/second.png", ""});
  add(chunk("IDAT", "data"), {"file:///b/second.png", ""});
  add(uri_chunk("file:///behind/the/image.fits"), {"file:///b/second.png", ""});
  return sample;
}

ThumbnailTags tags_before(const Sample& sample, std::size_t place) {
  const auto later = [place](const Milestone& milestone) { return milestone.place > place; };
  return std::prev(std::ranges::find_if(sample.milestones, later))->tags;
}

TEST(ReadThumbnailTags, GivesTheTagsBeforeThePlaceWhereAFileBreaksOff) {
  const Sample sample = sample_behind(png({}));
  for (std::size_t size = 0; size <= sample.bytes.size(); ++size) {
    SCOPED_TRACE(size);
    expect_tags(sample.bytes.substr(0, size), tags_before(sample, size));
  }
}

// The sizes of blocks and buffers, where a reader that takes the file in pieces has its seams.
constexpr std::array<std::size_t, 2> seams{4096, 8192};

TEST(ReadThumbnailTags, SeesNoSeamWhereverItFallsInAFile) {
  const std::size_t length = sample_behind("").bytes.size();
  for (const std::size_t seam : seams) {
    for (std::size_t offset = seam - length - 1; offset <= seam + 1; ++offset) {
      SCOPED_TRACE(offset);
      expect_tags(sample_behind(head(offset)).bytes, {"file:///b/second.png", ""});
    }
  }
}

TEST(ReadThumbnailTags, SeesNoSeamInAFileThatBreaksOffNearIt) {
  for (const std::size_t seam : seams) {
    for (const std::size_t before : {1U, 30U, 100U, 150U, 200U}) {
      const Sample sample = sample_behind(head(seam - before));
      for (std::size_t size = seam - 9; size <= seam + 9; ++size) {
        SCOPED_TRACE(testing::Message() << size << " bytes, " << before << " of them before " << seam);
        expect_tags(sample.bytes.substr(0, size), tags_before(sample, size));
      }
    }
  }
}

// Lengths that show each byte of the length field, and those that come out at a seam or near it.
std::vector<std::size_t> telling_lengths() {
  std::vector<std::size_t> lengths{0,     1,     127,   128,   255,    256,     257,         32767,  32768,
                                   65535, 65536, 65537, 66051, 131072, 1000000, longest - 1, longest};
  for (const std::size_t seam : seams)
    for (std::size_t length = seam - 40; length <= seam + 4; ++length)
      lengths.push_back(length);
  return lengths;
}

TEST(ReadThumbnailTags, FindsWhatFollowsASkippedChunkOfAnyLength) {
  for (const std::size_t length : telling_lengths()) {
    SCOPED_TRACE(length);
    const std::string skipped = chunk("skIp", std::string(length, 's'), "CRC!");
    expect_tags(png({skipped, uri_chunk("uri"), skipped, mimetype_chunk("mimetype")}), {"uri", "mimetype"});
  }
}

TEST(ReadThumbnailTags, TakesAValueOfAnyLength) {
  for (const std::size_t length : telling_lengths()) {
    SCOPED_TRACE(length);
    const std::string keyword = text_data("Thumb::URI", "");
    const std::string value(std::min(length, longest - keyword.size()), 'v');
    expect_tags(png({chunk("tEXt", keyword + value, "CRC!"), mimetype_chunk("mimetype")}), {value, "mimetype"});
  }
}

TEST(ReadThumbnailTags, FindsWhatFollowsThousandsOfChunks) {
  std::string bytes = png({});
  for (int number = 0; number < 2000; ++number)
    bytes += number % 2 == 0 ? chunk("skIp", "") : chunk("tEXt", "Comment\0odd"sv);
  expect_tags(bytes + uri_chunk("uri"), {"uri", ""});
}

TEST(ReadThumbnailTags, ReadsOnBehindAChunkOfTheGreatestLength) {
  for (const std::string_view type : {"tEXt", "zTXt", "iTXt", "IHDR", "IEND", "eXIf"}) {
    SCOPED_TRACE(type);
    const std::string greatest = chunk(type, std::string(longest, 'd'), "CRC!");
    expect_tags(png({uri_chunk("before"), greatest, uri_chunk("behind")}), {"behind", ""});
  }
}

TEST(ReadThumbnailTags, StopsAtALongerChunkOfAnyType) {
  for (const std::string_view type : {"tEXt", "zTXt", "iTXt", "IHDR", "IEND", "eXIf", "IDAT"}) {
    SCOPED_TRACE(type);
    const std::string longer = chunk(type, std::string(longest + 1, 'd'), "CRC!");
    expect_tags(png({uri_chunk("before"), longer, uri_chunk("behind")}), {"before", ""});
  }
}

TEST(ReadThumbnailTags, TakesAValueInAChunkOfTheGreatestLengthAndNoneInALonger) {
  const std::string keyword = text_data("Thumb::URI", "");
  const std::string value(longest - keyword.size(), 'v');
  expect_tags(png({chunk("tEXt", keyword + value, "CRC!")}), {value, ""});
  expect_tags(png({chunk("tEXt", keyword + value + "v", "CRC!")}), {});
}

// Where a part of the length is lost, or its sign counts, the 4 bytes of data or what follows at once lead to the tag
// behind.
TEST(ReadThumbnailTags, StopsAtALengthOfMegabytesWhateverFollows) {
  for (const std::uint32_t length :
       {0x00100001U, 0x00110000U, 0x01000000U, 0x01000004U, 0x10000004U, 0x7FFFFFFFU, 0x80000000U, 0x80000004U,
        0xFF000004U, 0xFFFF0004U, 0xFFFFFFF0U, 0xFFFFFFF4U, 0xFFFFFFFCU, 0xFFFFFFFFU}) {
    SCOPED_TRACE(length);
    for (const std::string_view type : {"tEXt", "skIp"})
      for (const std::string_view rest : {"", "CRC!", "dataCRC!"})
        expect_tags(png({uri_chunk("before"), chunk_header(length, type), rest, uri_chunk("behind")}), {"before", ""});
  }
}

TEST(ReadThumbnailTags, StopsAtAChunkThatGoesOnBehindTheEndOfTheFile) {
  for (const std::uint32_t length : {1U, 20U, 4096U, 1048576U}) {
    SCOPED_TRACE(length);
    const std::string missing = std::string(length - 1, '\0');
    for (const std::string_view type : {"tEXt", "skIp"})
      expect_tags(png({uri_chunk("before"), chunk_header(length, type), missing}), {"before", ""});
  }
  for (const std::string_view type : {"tEXt", "skIp"})
    expect_tags(png({uri_chunk("before"), chunk_header(100, type), uri_chunk("inside")}), {"before", ""});
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

TEST(ReadThumbnailTags, ReadsFromTheStartAndLeavesTheDescriptorWhereItStands) {
  const Descriptor file = open_bytes(png({uri_chunk("uri"), mimetype_chunk("mimetype")}));
  ASSERT_EQ(::lseek(file.get(), 5, SEEK_SET), 5);
  expect_tags_in(file, {"uri", "mimetype"});
  EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 5);
}

TEST(ReadThumbnailTags, FindsNoneInAPipe) {
  const std::string bytes = png({uri_chunk("uri")});
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const Descriptor out(ends[0]);
  const Descriptor in(ends[1]);
  ASSERT_EQ(::write(in.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  expect_tags_in(out, {});
}

TEST(ReadThumbnailTags, FindsNoneWhereReadingFails) {
  expect_tags_in(Descriptor(::open("/", O_RDONLY)), {});
  expect_tags_in(Descriptor(::open("/dev/null", O_WRONLY)), {});
  expect_tags_in(Descriptor(-1), {});
}

} // namespace

} // namespace nebulark
