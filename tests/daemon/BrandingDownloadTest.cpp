// Photos of the branding that cannot be had, or are not what they should be.
#include <string>

#include "tests/daemon/BrandingTest.h"

namespace {

using BrandingDownload = BrandingTest;

constexpr char kNothingDigest[] =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

TEST_F(BrandingDownload, SaysOnceThatAPhotoCannotBeFetchedUntilItCould) {
  startSettled();
  refuse(abc, 404);
  offer({abc});
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(404)}}));
  refuse(abc, 500);
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  EXPECT_EQ(askedFor(abc), 2U) << "it is tried again all the same";
  serve(abc);
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", abc.cachedLine()}}));
  mac.remove(inCache(abc.digest));
  refuse(abc, 503);
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(503)}}));
  EXPECT_EQ(linesOfACheckIn(), Lines{});
}

TEST_F(BrandingDownload, SaysOfEachPhotoThatItCannotBeFetched) {
  startSettled();
  refuse(abc, 404);
  refuse(sea, 403);
  serve(hills);
  offer({abc, hills, sea});
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(404)},
                                      {"Default", hills.cachedLine()},
                                      {"Error", sea.failedLine(403)}}));
  expectCached({hills}, ProjectionOf({abc, hills, sea}));
}

TEST_F(BrandingDownload, RemembersWhichPhotosFailedEvenWhileTheyAreNotListed) {
  startSettled();
  refuse(abc, 404);
  offer({abc});
  linesOfACheckIn();
  offer({});
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  offer({abc});
  EXPECT_EQ(linesOfACheckIn(), Lines{});
}

TEST_F(BrandingDownload, SaysAgainAfterARestartThatAPhotoCannotBeFetched) {
  startSettled();
  refuse(abc, 404);
  offer({abc});
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(404)}}));
  restartDaemon();
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(404)}}));
}

TEST_F(BrandingDownload, SaysStatusZeroOfAPhotoThatIsNotReached) {
  startSettled();
  ScriptedPortal away;
  away.stop();
  portal.redirect(callFor(abc), 302, away.url() + "/photo");
  offer({abc});
  const auto expectNotReached = [&](const LogLine& line) {
    EXPECT_EQ(line.level, "Default");
    EXPECT_TRUE(line.text.starts_with(callFor(abc) + ": not reached (")) << line.text;
  };
  const Lines first = linesOfACheckIn();
  ASSERT_EQ(first.size(), 2U);
  expectNotReached(first[0]);
  EXPECT_EQ(first[1], (LogLine{"Error", abc.failedLine(0)}));
  const Lines second = linesOfACheckIn();
  ASSERT_EQ(second.size(), 1U);
  expectNotReached(second[0]);
  expectCached({}, ProjectionOf({abc}));
}

TEST_F(BrandingDownload, TakesAnAnswerWithoutBytesForAFailure) {
  const BrandingPhoto nothing{"", kNothingDigest};
  startSettled();
  serve(nothing);
  portal.answerText(callFor(abc), 204, "", "");
  offer({nothing, abc});
  EXPECT_EQ(linesOfACheckIn(),
            (Lines{{"Error", nothing.failedLine(200)}, {"Error", abc.failedLine(204)}}));
  expectCached({}, ProjectionOf({nothing, abc}));
}

TEST_F(BrandingDownload, TakesPhotosFromSuccessesOnly) {
  startSettled();
  offer({abc});
  for (const int status : {300, 404, 500}) {
    portal.answerText(callFor(abc), status, abc.bytes, "image/jpeg");
    linesOfACheckIn();
    EXPECT_FALSE(mac.exists(inCache(abc.digest))) << status;
  }
  EXPECT_EQ(mac.countErrors(abc.failedLine(300)), 1U);
  portal.answerText(callFor(abc), 299, abc.bytes, "image/jpeg");
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", abc.cachedLine()}}));
}

TEST_F(BrandingDownload, DiscardsBytesThatDoNotHaveThePhotosDigest) {
  startSettled();
  offer({abc});
  for (const char* bytes : {"abd", "abc\n", "ab"}) {
    portal.answerText(callFor(abc), 200, bytes, "image/jpeg");
    EXPECT_EQ(linesOfACheckIn(),
              (Lines{{"Error",
                      "branding: SECURITY: photo ba7816bf8f01 did not match its digest; "
                      "discarded"}}));
    expectCached({}, ProjectionOf({abc}));
  }
  EXPECT_EQ(askedFor(abc), 3U);
  serve(abc);
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", abc.cachedLine()}}));
  expectCached({abc}, ProjectionOf({abc}));
}

TEST_F(BrandingDownload, CountsAPhotoWithAnotherDigestAsFetched) {
  startSettled();
  refuse(abc, 404);
  offer({abc});
  linesOfACheckIn();
  portal.answerText(callFor(abc), 200, "abd", "image/jpeg");
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.mismatchLine()}}));
  refuse(abc, 404);
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Error", abc.failedLine(404)}}));
}

TEST_F(BrandingDownload, DoesNotLookIntoPhotosThatAreThere) {
  becomeBranded({abc});
  mac.write(inCache(abc.digest), "something else");
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  EXPECT_EQ(mac.read(inCache(abc.digest)), "something else");
  EXPECT_EQ(askedFor(abc), 1U);
}

}  // namespace
