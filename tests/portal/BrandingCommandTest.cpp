// Brandings and their photos from the command line.
#include <fstream>

#include "simulator/portal/Limits.h"
#include "tests/portal/Portal.h"

namespace {

class BrandingCommand : public PortalTest {
 protected:
  void SetUp() override {
    PortalTest::SetUp();
    token = pair();
  }

  int brand(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"branding", "-"});
    return command(arguments).status;
  }
  ProgramResult photos(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"photo", "-"});
    return command(arguments);
  }
  /// Expects the command to refuse and to say why.
  void refuses(const std::vector<std::string>& arguments, const std::string& reason,
               int status = 1) const {
    const ProgramResult result = photos(arguments);
    EXPECT_EQ(result.status, status) << Json(arguments);
    EXPECT_NE(result.output.find(reason), std::string::npos) << result.output;
  }
  std::string file(const std::string& name, const std::string& content) const {
    std::ofstream(dir() / name) << content;
    return dir() / name;
  }
  Json sent() const { return checkIn(token).body.value("branding", Json()); }

  std::string token;
};

TEST_F(BrandingCommand, BrandsATerminalAndWithdrawsIt) {
  EXPECT_EQ(brand({"--display-name", "H\u00f4tel", "--subtitle", "Bienvenue", "--tenant", "t-1"}),
            0);
  EXPECT_EQ(photos({"add", file("a", PngPhoto(2, 1))}).status, 0);
  EXPECT_EQ(sent()["displayName"], "H\u00f4tel");
  EXPECT_EQ(sent()["photos"].size(), 1U);
  EXPECT_EQ(checkIn(token).body["tenantId"], "t-1");
  for (const char* word : {"--none", "--withdraw"}) {
    EXPECT_EQ(brand({word}), 0);
    EXPECT_EQ(sent(), nullptr);
    EXPECT_FALSE(checkIn(token).body.contains("tenantId"));
  }
}

TEST_F(BrandingCommand, ChangesOnlyWhatIsGiven) {
  ASSERT_EQ(brand({"--display-name", "Hotel", "--subtitle", "Welcome", "--tenant", "t-1"}), 0);
  ASSERT_EQ(photos({"add", file("a", PngPhoto(2, 1))}).status, 0);
  ASSERT_EQ(brand({"--display-name", "Inn"}), 0);
  EXPECT_EQ(sent()["signInSubtitle"], "Welcome");
  ASSERT_EQ(brand({"--subtitle", ""}), 0);
  EXPECT_EQ(sent()["displayName"], "Inn");
  EXPECT_EQ(sent()["signInSubtitle"], "");
  EXPECT_EQ(sent()["photos"].size(), 1U);
  EXPECT_EQ(checkIn(token).body["tenantId"], "t-1");
  ASSERT_EQ(brand({"--tenant", ""}), 0);
  EXPECT_FALSE(checkIn(token).body.contains("tenantId"));
}

TEST_F(BrandingCommand, RefusesABrandingWithoutAName) {
  const ProgramResult refused = command({"branding", "-", "--subtitle", "x"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("give its --display-name"), std::string::npos) << refused.output;
  EXPECT_EQ(brand({}), 2);
  EXPECT_EQ(brand({"--none", "--tenant", "x"}), 2);
  EXPECT_EQ(sent(), nullptr);
}

TEST_F(BrandingCommand, AddsListsAndRemovesPhotos) {
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  const std::string png = PngPhoto(640, 480);
  const std::string jpeg = JpegPhoto(3, 4);
  const ProgramResult added =
      photos({"add", file("a.png", png), "--credit", "Zo\u00eb & Co, 100% +1; 'x'"});
  EXPECT_EQ(added.status, 0);
  EXPECT_EQ(added.output, "added: " + DigestOf(png) + ", image/png, 640x480\n");
  ASSERT_EQ(photos({"add", file("b.jpg", jpeg)}).status, 0);
  const std::string list = photos({"list"}).output;
  for (const std::string& shown : {DigestOf(png), DigestOf(jpeg), std::string("640x480"),
                                   std::string("Zo\u00eb & Co, 100% +1; 'x'")})
    EXPECT_NE(list.find(shown), std::string::npos) << list;
  const Json json = Json::parse(command({"--json", "photo", "-", "list"}).output, nullptr, false);
  EXPECT_EQ(json["photos"], sent()["photos"]);
  ASSERT_NE(DigestOf(png)[0], DigestOf(jpeg)[0]);
  const ProgramResult removed = photos({"remove", DigestOf(png).substr(0, 4)});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(removed.output, "removed: " + DigestOf(png) + "\n");
  EXPECT_EQ(sent()["photos"].size(), 1U);
  EXPECT_EQ(photos({"remove", DigestOf(jpeg)}).status, 0);
  EXPECT_EQ(sent()["photos"], Json::array());
}

TEST_F(BrandingCommand, NamesTheOptionThatIsTooShortOrTooLong) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong = {
      {{"--display-name", ""}, "--display-name: has 0 characters, not 1 to 120"},
      {{"--display-name", std::string(121, 'x')},
       "--display-name: has 121 characters, not 1 to 120"},
      {{"--subtitle", std::string(241, 'x')}, "--subtitle: has 241 characters, not 0 to 240"},
      {{"--tenant", std::string(129, 'x')}, "--tenant: has 129 characters, not 0 to 128"}};
  for (const auto& [arguments, reason] : wrong) {
    std::vector<std::string> all = {"branding", "-"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ProgramResult refused = command(all);
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.output.find(reason), std::string::npos) << refused.output;
  }
  refuses({"add", file("a", PngPhoto(1, 1)), "--credit", std::string(241, 'x')},
          "--credit: has 241 characters, not 0 to 240", 2);
  EXPECT_EQ(sent(), nullptr);
  std::string longest;
  for (int i = 0; i < 120; ++i) longest += "\u00f4";
  EXPECT_EQ(brand({"--display-name", longest}), 0);
}

TEST_F(BrandingCommand, TellsAPhotoThatIsAlreadyThereAndKeepsItsCredit) {
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  const std::string photo = file("a", PngPhoto(2, 1));
  ASSERT_EQ(photos({"add", photo, "--credit", "Zo\u00eb"}).status, 0);
  const ProgramResult again = photos({"add", photo});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.output, "already there: " + DigestOf(PngPhoto(2, 1)) + ", image/png, 2x1\n");
  EXPECT_EQ(sent()["photos"][0]["credit"], "Zo\u00eb");
  ASSERT_EQ(photos({"add", photo, "--credit", "Kim"}).status, 0);
  EXPECT_EQ(sent()["photos"][0]["credit"], "Kim");
  ASSERT_EQ(photos({"add", photo, "--credit", ""}).status, 0);
  EXPECT_EQ(sent()["photos"][0]["credit"], "");
  EXPECT_EQ(sent()["photos"].size(), 1U);
}

TEST_F(BrandingCommand, SaysThatThereIsNoBrandingToListThePhotosOf) {
  const ProgramResult none = photos({"list"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.output, "the terminal has no branding\n");
  const Json json = Json::parse(command({"--json", "photo", "-", "list"}).output, nullptr, false);
  EXPECT_EQ(json, Json({{"photos", Json::array()}}));
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  EXPECT_EQ(photos({"list"}).output.find("no branding"), std::string::npos);
}

TEST_F(BrandingCommand, AddsOtherPicturesByWhatItIsTold) {
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  const std::string webp = file("c.webp", "RIFF");
  refuses({"add", webp}, "give --content-type, --width and --height");
  refuses({"add", webp, "--content-type", "image/webp"}, "give --content-type");
  EXPECT_EQ(
      photos({"add", webp, "--content-type", "image/webp", "--width", "3", "--height", "4"}).status,
      0);
  EXPECT_EQ(sent()["photos"][0]["contentType"], "image/webp");
  refuses({"add", webp, "--content-type", "text/plain"}, "not a content type of pictures", 2);
  refuses({"add", webp, "--width", "0"}, "--width", 2);
}

TEST_F(BrandingCommand, ExplainsWhichPhotoItCannotAdd) {
  refuses({"add", file("a", PngPhoto(1, 1))}, "no branding yet");
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  refuses({"add", dir() / "nothing"}, "nothing cannot be read");
  refuses({"add", dir()}, "cannot be read");
  refuses({"add", file("empty", "")}, "empty is empty");
  std::filesystem::resize_file(file("large", ""), portal::kMaxPhoto + 1);
  refuses({"add", dir() / "large"}, "large has more than 15 MiB");
  for (unsigned i = 1; i <= portal::kMaxPhotos; ++i)
    ASSERT_EQ(photos({"add", file("a", PngPhoto(i, 1))}).status, 0);
  refuses({"add", file("a", PngPhoto(1, 2))}, "as many photos as it may have");
  EXPECT_EQ(sent()["photos"].size(), portal::kMaxPhotos);
}

TEST_F(BrandingCommand, RemovesOnlyThePhotoThatIsMeant) {
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  ASSERT_EQ(photos({"add", file("a", PngPhoto(1, 1))}).status, 0);
  const std::string digest = DigestOf(PngPhoto(1, 1));
  for (const std::string& wrong :
       {std::string(), digest.substr(0, 1), digest.substr(0, 3), std::string("wxyz"), digest + "0"})
    refuses({"remove", wrong}, "not 4 to 64 hexadecimal digits: " + wrong, 2);
  refuses({"remove"}, "DIGEST", 2);
  const std::string other = digest.substr(0, 3) + (digest[3] == '0' ? "1" : "0");
  refuses({"remove", other}, "no photo whose digest begins with \"" + other + "\"");
  EXPECT_EQ(sent()["photos"].size(), 1U);
}

TEST_F(BrandingCommand, RemovesNoneOfTwoPhotosThatAreMeant) {
  ASSERT_EQ(brand({"--display-name", "Hotel"}), 0);
  // The beginning of a digest is found out about by trying: two of these begin alike.
  std::map<std::string, std::string> begun;
  std::string first;
  std::string second;
  for (unsigned i = 1; second.empty(); ++i) {
    const std::string photo = PngPhoto(i, 1);
    const auto [before, fresh] = begun.emplace(DigestOf(photo).substr(0, 4), photo);
    if (fresh) continue;
    first = before->second;
    second = photo;
  }
  ASSERT_EQ(photos({"add", file("a", first)}).status, 0);
  ASSERT_EQ(photos({"add", file("b", second)}).status, 0);
  refuses({"remove", DigestOf(first).substr(0, 4)}, "more than one photo");
  EXPECT_EQ(sent()["photos"].size(), 2U);
}

TEST_F(BrandingCommand, EndsWithTwoWhenItIsMisused) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{}, {"add"}, {"dance"}, {"list", "x"}})
    EXPECT_EQ(photos(arguments).status, 2) << Json(arguments);
  EXPECT_EQ(command({"photo"}).status, 2);
}

TEST_F(BrandingCommand, EndsWithThreeWhenThePortalDoesNotRun) {
  const std::string photo = file("a", PngPhoto(1, 1));
  stop();
  EXPECT_EQ(brand({"--display-name", "Hotel"}), 3);
  EXPECT_EQ(photos({"add", photo}).status, 3);
  EXPECT_EQ(photos({"list"}).status, 3);
  EXPECT_EQ(photos({"remove", "0000"}).status, 3);
}

TEST_F(BrandingCommand, ShowsNoControlCharactersOfACredit) {
  ASSERT_EQ(brand({"--display-name", "Hotel\x1b[2J"}), 0);
  ASSERT_EQ(photos({"add", file("a", PngPhoto(1, 1)), "--credit", "\x1b[2J"}).status, 0);
  const std::string shown = photos({"list"}).output + command({"show", "-"}).output;
  EXPECT_NE(shown.find("?[2J"), std::string::npos) << shown;
  EXPECT_EQ(shown.find('\x1b'), std::string::npos);
}

}  // namespace
