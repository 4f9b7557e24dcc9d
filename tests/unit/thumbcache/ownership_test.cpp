#include "thumbcache/ownership.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "base/handles.h"
#include "case.h"
#include "near_misses.h"
#include "thumbcache/head_reader.h"
#include "thumbcache/png.h"
#include "thumbcache/scratch.h"

namespace nebulark {

namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

constexpr std::size_t longest = 1048576; // the data of a chunk, in bytes

// How a stream is buffered. Reading must not depend on it.
struct Buffering {
  const char* name;
  int mode;
  std::size_t size;
};

constexpr std::array<Buffering, 6> bufferings{{
    {"unbuffered", _IONBF, 0},
    {"a buffer of 1 byte", _IOFBF, 1},
    {"a buffer of 7 bytes", _IOFBF, 7},
    {"a buffer of 4095 bytes", _IOFBF, 4095},
    {"a buffer of 4096 bytes", _IOFBF, 4096},
    {"a buffer of 65537 bytes", _IOFBF, 65537},
}};

// A file of these bytes, open and standing at its start, and a descriptor behind it as a file on a disk has.
FileHandle open_bytes(std::string_view bytes) {
  const int descriptor = ::memfd_create("thumbnail", 0);
  EXPECT_EQ(::write(descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_EQ(::lseek(descriptor, 0, SEEK_SET), 0);
  return FileHandle(::fdopen(descriptor, "rb"));
}

// A path to open such a file by once more.
std::string path_of(const FileHandle& file) { return "/proc/self/fd/" + std::to_string(::fileno(file.get())); }

void expect_tags_in(std::FILE* file, const ThumbnailTags& expected, std::size_t size = 0) {
  const ThumbnailTags tags = read_thumbnail_tags(file, size);
  EXPECT_EQ(tags.uri, expected.uri);
  EXPECT_EQ(tags.mimetype, expected.mimetype);
}

void expect_tags(std::string_view bytes, const ThumbnailTags& expected) {
  const FileHandle original = open_bytes(bytes);
  expect_tags_in(original.get(), expected);
  for (const Buffering& buffering : bufferings) {
    SCOPED_TRACE(buffering.name);
    std::vector<char> buffer(buffering.size);
    const FileHandle file(std::fopen(path_of(original).c_str(), "rb"));
    ASSERT_TRUE(file);
    ASSERT_EQ(std::setvbuf(file.get(), buffer.data(), buffering.mode, buffer.size()), 0);
    expect_tags_in(file.get(), expected);
  }
  for (const std::size_t size : {std::size_t{1}, std::size_t{7}, bytes.size() - 1, bytes.size(), bytes.size() + 1}) {
    SCOPED_TRACE(testing::Message() << "a file that is said to have " << size << " bytes");
    const FileHandle file(std::fopen(path_of(original).c_str(), "rb"));
    ASSERT_TRUE(file);
    expect_tags_in(file.get(), expected, size);
  }
}

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

// A stream over memory refuses to seek behind its end, which a file allows.
TEST(ReadThumbnailTags, GivesTheTagsBeforeThePlaceWhereAStreamThatCannotSeekFurtherBreaksOff) {
  const Sample sample = sample_behind(png({}));
  for (std::size_t size = 0; size <= sample.bytes.size(); ++size) {
    SCOPED_TRACE(size);
    std::string bytes = sample.bytes.substr(0, size);
    const FileHandle file(::fmemopen(bytes.data(), bytes.size(), "rb"));
    ASSERT_TRUE(file);
    expect_tags_in(file.get(), tags_before(sample, size));
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

TEST(ReadThumbnailTags, LeavesTheFileOpen) {
  const FileHandle file = open_bytes(png({uri_chunk("uri"), mimetype_chunk("mimetype")}));
  expect_tags_in(file.get(), {"uri", "mimetype"});
  ASSERT_EQ(std::fseek(file.get(), 0, SEEK_SET), 0);
  expect_tags_in(file.get(), {"uri", "mimetype"});
}

// Writes the bytes into a pipe, where nothing can be skipped.
FileHandle open_pipe(std::string_view bytes) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  EXPECT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_EQ(::close(ends[1]), 0);
  return FileHandle(::fdopen(ends[0], "rb"));
}

// A seek is needed only where what is passed over ends outside the buffer.
TEST(ReadThumbnailTags, StopsWhereAStreamCannotSeek) {
  const std::string passed_over = chunk("skIp", std::string(HeadReader::buffer_size, 'x'));
  expect_tags_in(open_pipe(png({uri_chunk("first"), passed_over, mimetype_chunk("behind")})).get(), {"first", ""});
}

// The values of a thumbnail's tags; nothing for a tag that it has not.
struct Tags {
  std::optional<std::string_view> uri;
  std::optional<std::string_view> mimetype;
};

constexpr std::nullopt_t absent = std::nullopt;

std::string thumbnail(const Tags& tags) {
  std::string bytes = png({});
  if (tags.uri) bytes += uri_chunk(*tags.uri);
  if (tags.mimetype) bytes += mimetype_chunk(*tags.mimetype);
  return bytes + chunk("IDAT", "data") + chunk("IEND", "");
}

bool is_nebulark(std::string_view bytes) { return is_nebulark_thumbnail(path_of(open_bytes(bytes))); }

class NebularkThumbnail : public testing::TestWithParam<Case<Tags>> {};

TEST_P(NebularkThumbnail, IsKnown) { EXPECT_TRUE(is_nebulark(thumbnail(GetParam().given))); }

constexpr Case<Tags> nebulark_thumbnails[] = {
    {"ByTheUriOfAnXisfPicture", {"file:///data/m31.xisf", absent}},
    {"ByTheUriOfAFitsPicture", {"file:///data/m31.fits", absent}},
    {"ByTheUriOfAFitPicture", {"file:///data/m31.fit", absent}},
    {"ByTheUriOfAnFtsPicture", {"file:///data/m31.fts", absent}},
    {"ByTheUriOfAProject", {"file:///data/stack.kxproj", absent}},
    {"ByTheMimetypeOfAnXisfPicture", {absent, "image/x-xisf"}},
    {"ByTheMimetypeOfAFitsFile", {absent, "application/fits"}},
    {"ByTheMimetypeOfAFitsPicture", {absent, "image/fits"}},
    {"ByTheOldMimetypeOfAFitsPicture", {absent, "image/x-fits"}},
    {"ByTheMimetypeOfAProject", {absent, "application/x-kxproj"}},
    {"ByAnEndingInCapitals", {"file:///data/M31.FITS", absent}},
    {"ByAnEndingInMixedCase", {"file:///data/m31.XiSf", absent}},
    {"ByAnEndingBeforeAQuery", {"file:///data/m31.fits?rev=2", absent}},
    {"ByAnEndingBeforeAFragment", {"file:///data/m31.fit#top", absent}},
    {"ByAnEndingBeforeAQueryAndAFragment", {"file:///data/m31.fts?a#b", absent}},
    {"ByAnEndingBeforeAFragmentAndAQuery", {"file:///data/m31.fts#a?b", absent}},
    {"ByAnEndingBeforeTwoQueries", {"file:///data/m31.xisf?a?b.png", absent}},
    {"ByAnEndingBeforeAnEmptyQuery", {"file:///data/m31.fits?", absent}},
    {"ByAnEndingBehindAnother", {"file:///data/m31.png.fits", absent}},
    {"ByAnEndingBehindOddBytes", {"\0\xFF\n .fits"sv, absent}},
    {"ByAnEndingAlone", {".fit", absent}},
    {"ByAnEndingBehindASlash", {"file:///data/.kxproj", absent}},
    {"ByAnEndingOfTheHost", {"https://m31.fits", absent}},
    {"ByItsUriWhateverItsMimetype", {"file:///data/m31.fits", "image/png"}},
    {"ByItsUriWithAnEmptyMimetype", {"file:///data/m31.fits", ""}},
    {"ByItsMimetypeWhateverItsUri", {"file:///data/m31.png", "image/fits"}},
    {"ByItsMimetypeWithAnEmptyUri", {"", "image/x-xisf"}},
    {"ByItsMimetypeWhereTheUriNearlyFits", {"file:///data/m31.fits.gz", "application/fits"}},
    {"ByBoth", {"file:///data/m31.fits", "image/fits"}},
};
INSTANTIATE_TEST_SUITE_P(, NebularkThumbnail, testing::ValuesIn(nebulark_thumbnails), case_name);

class OtherThumbnail : public testing::TestWithParam<Case<Tags>> {};

TEST_P(OtherThumbnail, IsNotNebularks) { EXPECT_FALSE(is_nebulark(thumbnail(GetParam().given))); }

constexpr Case<Tags> other_thumbnails[] = {
    {"WithoutTags", {absent, absent}},
    {"WithEmptyTags", {"", ""}},
    {"OfAnotherPicture", {"file:///data/m31.png", "image/png"}},
    {"WithoutMimetype", {"file:///data/m31.png", absent}},
    {"WithoutUri", {absent, "image/png"}},
    {"CompressedFits", {"file:///data/m31.fits.gz", absent}},
    {"NamedLikeAnEnding", {"file:///data/fits", absent}},
    {"NamedLikeAnEndingAndNothingElse", {"fits", absent}},
    {"EndingWithoutItsDot", {"file:///data/m31fits", absent}},
    {"EndingWithoutItsFirstLetter", {"file:///data/m31.its", absent}},
    {"EndingWithoutItsLastLetter", {"file:///data/m31.fi", absent}},
    {"EndingOfAnXisfPictureCutShort", {"file:///data/m31.xis", absent}},
    {"EndingOfAProjectCutShort", {"file:///data/stack.kxpro", absent}},
    {"EndingWithALetterMore", {"file:///data/m31.fitsx", absent}},
    {"EndingWithABlankBehind", {"file:///data/m31.fits ", absent}},
    {"EndingWithALineFeedBehind", {"file:///data/m31.fits\n", absent}},
    {"EndingWithANulBehind", {"file:///data/m31.fits\0"sv, absent}},
    {"EndingWithANulBehindAndAnEnding", {"file:///data/m31.fits\0.png"sv, absent}},
    {"EndingWithAnotherSign", {"file:///data/m31-fits", absent}},
    {"EndingInsideTheName", {"file:///data/m31.fits.png", absent}},
    {"EndingOfADirectory", {"file:///data.fits/m31.png", absent}},
    {"EndingBeforeASlash", {"file:///data/m31.fits/", absent}},
    {"EndingPercentEncoded", {"file:///data/m31%2Efits", absent}},
    {"EndingWithALetterPercentEncoded", {"file:///data/m31.fit%73", absent}},
    {"EndingWithBytesThatAreCapitalsElsewhere", {"file:///data/m31.f\xC9ts", absent}},
    {"EndingWithTheSignBelowA", {"file:///data/m31.FI@S", absent}},
    {"EndingInAQueryAlone", {"file:///data/m31.png?name=m31.fits", absent}},
    {"EndingInAFragmentAlone", {"file:///data/m31.png#m31.fits", absent}},
    {"EndingInAQueryBehindAFragment", {"file:///data/m31.png#a?b.fits", absent}},
    {"NothingButAQuery", {"?.fits", absent}},
    {"NothingButAFragment", {"#.fits", absent}},
    {"MimetypeInCapitals", {absent, "Image/FITS"}},
    {"MimetypeWithACapital", {absent, "image/fitS"}},
    {"MimetypeWithAParameter", {absent, "image/fits; charset=binary"}},
    {"MimetypeBehindABlank", {absent, " image/fits"}},
    {"MimetypeBeforeANul", {absent, "image/fits\0"sv}},
    {"MimetypeLikeAnother", {absent, "application/xisf"}},
    {"MimetypeInTheUri", {"image/fits", absent}},
    {"UriInTheMimetype", {absent, "file:///data/m31.fits"}},
};
INSTANTIATE_TEST_SUITE_P(, OtherThumbnail, testing::ValuesIn(other_thumbnails), case_name);

TEST(IsNebularkThumbnail, KnowsAMimetypeToTheByteOnly) {
  for (const std::string_view mimetype :
       {"image/x-xisf", "application/fits", "image/fits", "image/x-fits", "application/x-kxproj"})
    for (const std::string& text : near_misses(mimetype))
      EXPECT_FALSE(is_nebulark(thumbnail({absent, text}))) << testing::PrintToString(text);
}

TEST(IsNebularkThumbnail, KnowsAnEndingWhereEveryByteOfItStands) {
  for (const std::string_view ending : {".xisf", ".fits", ".fit", ".fts", ".kxproj"}) {
    for (std::size_t place = 0; place < ending.size(); ++place) {
      std::string uri = "file:///data/m31" + std::string(ending);
      EXPECT_TRUE(is_nebulark(thumbnail({uri, absent}))) << uri;
      char& byte = uri[uri.size() - ending.size() + place];
      byte = '~';
      EXPECT_FALSE(is_nebulark(thumbnail({uri, absent}))) << uri;
      byte = static_cast<char>(ending[place] ^ 0x20); // another case; for the dot another sign
      EXPECT_EQ(is_nebulark(thumbnail({uri, absent})), place > 0) << uri;
    }
  }
}

TEST(IsNebularkThumbnail, GoesByTheLastTagOfAKind) {
  EXPECT_FALSE(is_nebulark(png({uri_chunk("file:///m31.fits"), uri_chunk("file:///m31.png")})));
  EXPECT_FALSE(is_nebulark(png({uri_chunk("file:///m31.fits"), uri_chunk("")})));
  EXPECT_TRUE(is_nebulark(png({uri_chunk("file:///m31.png"), uri_chunk("file:///m31.fits")})));
  EXPECT_FALSE(is_nebulark(png({mimetype_chunk("image/fits"), mimetype_chunk("")})));
}

TEST(IsNebularkThumbnail, GoesByTheTagsBeforeTheImageDataAlone) {
  EXPECT_FALSE(is_nebulark(png({chunk("IDAT", "data"), uri_chunk("file:///m31.fits"), mimetype_chunk("image/fits")})));
  EXPECT_TRUE(is_nebulark(png({uri_chunk("file:///m31.fits"), chunk("IDAT", "data"), uri_chunk("m31.png")})));
}

TEST(IsNebularkThumbnail, GoesByTheTagsBeforeThePlaceWhereAFileBreaksOff) {
  EXPECT_TRUE(is_nebulark(png({uri_chunk("file:///m31.fits"), "\0\0\0"sv})));
  EXPECT_FALSE(
      is_nebulark(png({mimetype_chunk("image/png"), chunk_header(28, "tEXt"), "Thumb::URI\0file:///m31.fits"sv})));
}

TEST(IsNebularkThumbnail, IsFalseForAFileThatIsNoPng) {
  EXPECT_FALSE(is_nebulark(""));
  EXPECT_FALSE(is_nebulark("SIMPLE  =                    T"));
  EXPECT_FALSE(is_nebulark(std::string(signature.size(), '\0') + uri_chunk("file:///m31.fits")));
}

TEST(IsNebularkThumbnail, IsFalseForWhatCannotBeOpenedOrRead) {
  EXPECT_FALSE(is_nebulark_thumbnail("/absent/m31.fits"));
  EXPECT_FALSE(is_nebulark_thumbnail("/dev/null/m31.fits"));
  EXPECT_FALSE(is_nebulark_thumbnail("/"));
  EXPECT_FALSE(is_nebulark_thumbnail(""));
}

TEST(IsNebularkThumbnail, IsFalseForAFileThatTheUserMayNotRead) {
  const OrdinaryUser user;
  if (!user.is_one) GTEST_SKIP() << "root reads every file, and cannot become another user here";
  const ScratchDirectory directory;
  const std::string file = directory.path + "/thumbnail.png";
  write(file, thumbnail({"file:///m31.fits", absent}));
  EXPECT_TRUE(is_nebulark_thumbnail(file));
  const Mode unreadable(file, 0000);
  EXPECT_FALSE(is_nebulark_thumbnail(file));
}

TEST(IsNebularkThumbnail, DoesNotGoByTheNameOfTheFileItself) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.fits", thumbnail({"file:///m31.png", absent}));
  write(directory.path + "/m31.jpeg", thumbnail({"file:///m31.fits", absent}));
  EXPECT_FALSE(is_nebulark_thumbnail(directory.path + "/m31.fits"));
  EXPECT_TRUE(is_nebulark_thumbnail(directory.path + "/m31.jpeg"));
}

TEST(IsNebularkThumbnail, LeavesNothingOpen) {
  const int before = next_descriptor();
  EXPECT_TRUE(is_nebulark(thumbnail({"file:///m31.fits", absent})));
  EXPECT_FALSE(is_nebulark(thumbnail({"file:///m31.png", absent})));
  EXPECT_FALSE(is_nebulark("no PNG"));
  EXPECT_EQ(next_descriptor(), before);
}

TEST(NebularkTables, AreTheseAndNoMore) {
  EXPECT_EQ(nebulark_extensions, (std::array{".xisf"sv, ".fits"sv, ".fit"sv, ".fts"sv, ".kxproj"sv}));
  EXPECT_EQ(nebulark_mime_types, (std::array{"image/x-xisf"sv, "application/fits"sv, "image/fits"sv, "image/x-fits"sv,
                                             "application/x-kxproj"sv}));
}

} // namespace

} // namespace nebulark
