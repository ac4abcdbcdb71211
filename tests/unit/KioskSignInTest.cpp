#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/KioskJson.h"
#include "portal/KioskCheckIn.h"
#include "tests/unit/CapturedError.h"

namespace {

const Json kDefault = Json::parse(R"({"microsoft":true,"email":false,"extraHosts":[]})");

Json Hosts(const Json& offered) { return KioskSignInFrom({{"extraHosts", offered}})["extraHosts"]; }

std::string Ignored(const std::string& description) {
  return "[BrindlexKioskHelper] sign-in: ignoring extra host " + description + "\n";
}

TEST(SignIn, IsTheDefaultWhenThePortalSentNone) {
  EXPECT_EQ(KioskDefaultSignIn(), kDefault);
  for (const Json& signIn :
       {Json(), Json(1), Json(true), Json("x"), Json(0.5), Json::array({{{"email", true}}})}) {
    EXPECT_EQ(KioskSignInFrom(signIn), kDefault) << signIn;
  }
  EXPECT_EQ(KioskSignInFrom(Json::object()), kDefault);
}

TEST(SignIn, TakesFlagsFromBooleansAndNumbers) {
  for (const Json& yes : {Json(true), Json(1), Json(2), Json(-1), Json(0.5)}) {
    const Json signIn = KioskSignInFrom({{"microsoft", yes}, {"email", yes}});
    EXPECT_EQ(signIn["microsoft"], true) << yes;
    EXPECT_EQ(signIn["email"], true) << yes;
  }
  for (const Json& no : {Json(false), Json(0), Json(0.0), Json(-0.0)}) {
    const Json signIn = KioskSignInFrom({{"microsoft", no}, {"email", no}});
    EXPECT_EQ(signIn["microsoft"], false) << no;
    EXPECT_EQ(signIn["email"], false) << no;
  }
}

TEST(SignIn, TakesDefaultsForFlagsOfOtherTypes) {
  for (const Json& other :
       {Json(), Json("false"), Json("true"), Json(""), Json::array({true}), Json({{"on", true}})}) {
    EXPECT_EQ(KioskSignInFrom({{"microsoft", other}, {"email", other}}), kDefault) << other;
  }
}

TEST(SignIn, HasExactlyItsThreeKeysWithTheirTypes) {
  const Json signIn = KioskSignInFrom(
      {{"microsoft", 0}, {"email", 1}, {"extraHosts", {"a.example"}}, {"google", true}});
  EXPECT_EQ(KioskJsonText(signIn),
            R"({"email":true,"extraHosts":["a.example"],"microsoft":false})");
}

TEST(SignIn, KeepsHostsInTheirOrder) {
  EXPECT_EQ(Hosts({"z.example", "a.example", "m.example"}),
            Json({"z.example", "a.example", "m.example"}));
}

TEST(SignIn, HasNoExtraHostsWhenTheyAreNotAList) {
  for (const Json& other :
       {Json(), Json("a.example"), Json(1), Json(true), Json({{"0", "a.example"}})}) {
    const CapturedError error;
    EXPECT_EQ(Hosts(other), Json::array()) << other;
    EXPECT_EQ(error.text(), "");
  }
}

TEST(SignIn, KeepsOnlyTheFirstOfAHostAndLogsTheOthers) {
  const CapturedError error;
  EXPECT_EQ(Hosts({"login.example", "LOGIN.example", "login", 5, "login.example"}),
            Json::array({"login.example"}));
  EXPECT_EQ(error.text(),
            Ignored("LOGIN.example") + Ignored("login") + Ignored("5") + Ignored("login.example"));
}

TEST(SignIn, LogsHostsThatAreNoTextByTheirDescription) {
  const CapturedError error;
  EXPECT_EQ(Hosts(Json::array({Json::array({"a.example"}), {{"host", "a.example"}}, ""})),
            Json::array());
  EXPECT_EQ(error.text(),
            Ignored(R"(["a.example"])") + Ignored(R"({"host":"a.example"})") + Ignored(""));
}

TEST(SignIn, RefusesAHostWithALineEnd) {
  EXPECT_EQ(Hosts(Json::array({"a.example\n"})), Json::array());
}

TEST(SignIn, KeepsTenHostsAndIgnoresTheEleventh) {
  Json offered = Json::array();
  for (char c = 'a'; c < 'a' + 10; ++c) offered.push_back(std::string(1, c) + ".example");
  const Json ten = offered;
  offered.push_back("k.example");
  const CapturedError error;
  EXPECT_EQ(Hosts(offered), ten);
  EXPECT_EQ(error.text(), Ignored("k.example"));
}

TEST(SignIn, DoesNotCountIgnoredHostsAmongTheTen) {
  Json offered = Json::array({"x", 1, nullptr, "A.example"});
  Json kept = Json::array();
  for (char c = 'a'; c < 'a' + 10; ++c) {
    kept.push_back(std::string(1, c) + ".example");
    offered.push_back(kept.back());
    offered.push_back(kept.back());
  }
  EXPECT_EQ(Hosts(offered), kept);
}

TEST(SignIn, AmountsToItself) {
  const Json signIn =
      KioskSignInFrom({{"microsoft", 0}, {"email", 3}, {"extraHosts", {"b.example", "a.example"}}});
  EXPECT_EQ(KioskSignInFrom(signIn), signIn);
}

}  // namespace
