#include "thumbcache/ownership.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/handles.h"
#include "case.h"
#include "near_misses.h"
#include "thumbcache/png.h"
#include "thumbcache/scratch.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

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

bool is_nebulark_file(const std::string& path) { return is_nebulark_thumbnail(AT_FDCWD, path.c_str()); }

bool is_nebulark(std::string_view bytes) {
  const ScratchDirectory directory;
  const std::string file = directory.path + "/thumbnail.png";
  write(file, bytes);
  return is_nebulark_file(file);
}

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
    {"ByAnEndingBeforeTwoFragments", {"file:///data/m31.fits#a#b", absent}},
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
    {"EndingPercentEncodedInLowerCase", {"file:///data/m31%2efits", absent}},
    {"EndingWithALetterPercentEncoded", {"file:///data/m31.fit%73", absent}},
    {"EndingWithBytesThatAreCapitalsElsewhere", {"file:///data/m31.f\xC9ts", absent}},
    {"EndingWithTheSignBelowA", {"file:///data/m31.FI@S", absent}},
    {"EndingBeforeASemicolon", {"file:///data/m31.fits;v=1", absent}},
    {"EndingBeforeAnAmpersand", {"file:///data/m31.fits&v=1", absent}},
    {"EndingBeforeAQuestionMarkPercentEncoded", {"file:///data/m31.fits%3Frev=2", absent}},
    {"EndingBeforeAHashPercentEncoded", {"file:///data/m31.fits%23top", absent}},
    {"EndingBeforeABlankPercentEncoded", {"file:///data/m31.fits%20", absent}},
    {"EndingBeforeANulPercentEncoded", {"file:///data/m31.fits%00", absent}},
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
  EXPECT_FALSE(is_nebulark_file("/absent/m31.fits"));
  EXPECT_FALSE(is_nebulark_file("/dev/null/m31.fits"));
  EXPECT_FALSE(is_nebulark_file("/"));
  EXPECT_FALSE(is_nebulark_file(""));
}

TEST(IsNebularkThumbnail, IsFalseForAFileThatTheUserMayNotRead) {
  const OrdinaryUser user;
  if (!user.is_one) GTEST_SKIP() << "root reads every file, and cannot become another user here";
  const ScratchDirectory directory;
  const std::string file = directory.path + "/thumbnail.png";
  write(file, thumbnail({"file:///m31.fits", absent}));
  EXPECT_TRUE(is_nebulark_file(file));
  const Mode unreadable(file, 0000);
  EXPECT_FALSE(is_nebulark_file(file));
}

TEST(IsNebularkThumbnail, LooksForTheNameInTheDirectory) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.png", thumbnail({"file:///m31.fits", absent}));
  const Descriptor descriptor(::open(directory.path.c_str(), O_RDONLY));
  EXPECT_TRUE(is_nebulark_thumbnail(descriptor.get(), "m31.png"));
  EXPECT_FALSE(is_nebulark_thumbnail(descriptor.get(), "absent.png"));
}

TEST(IsNebularkThumbnail, IsFalseForALink) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.png", thumbnail({"file:///m31.fits", absent}));
  std::filesystem::create_symlink("m31.png", directory.path + "/link");
  EXPECT_FALSE(is_nebulark_file(directory.path + "/link"));
}

TEST(IsNebularkThumbnail, DoesNotWaitForAPipe) {
  const ScratchDirectory directory;
  ASSERT_EQ(::mkfifo((directory.path + "/pipe").c_str(), 0600), 0);
  EXPECT_FALSE(is_nebulark_file(directory.path + "/pipe"));
}

TEST(IsNebularkThumbnail, DoesNotGoByTheNameOfTheFileItself) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.fits", thumbnail({"file:///m31.png", absent}));
  write(directory.path + "/m31.jpeg", thumbnail({"file:///m31.fits", absent}));
  EXPECT_FALSE(is_nebulark_file(directory.path + "/m31.fits"));
  EXPECT_TRUE(is_nebulark_file(directory.path + "/m31.jpeg"));
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
