// Brandings and their photos through the portal's two interfaces.
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <set>

#include "simulator/portal/Limits.h"
#include "tests/portal/Portal.h"

namespace {

class BrandingInterface : public PortalTest {
 protected:
  void SetUp() override {
    PortalTest::SetUp();
    token = pair(&id);
  }

  std::string path(const std::string& below = "") const {
    return "/api/admin/terminals/" + id + below;
  }
  int brand(const std::string& name = "Hotel") const {
    return admin("PATCH", path(), {{"branding", {{"displayName", name}}}}).status;
  }
  int remove(const std::string& photo) const {
    return admin("DELETE", path("/photos/" + DigestOf(photo))).status;
  }
  Json listed() const { return admin("GET", path("/photos")).body["photos"]; }
  Json sent() const { return checkIn(token).body.value("branding", Json()); }

  /// The names of the photos on disk.
  std::set<std::string> files() const {
    std::set<std::string> names;
    if (!std::filesystem::exists(dir() / "photos")) return names;
    for (const auto& entry : std::filesystem::directory_iterator(dir() / "photos"))
      names.insert(entry.path().filename());
    return names;
  }

  std::string id;
  std::string token;
};

Json Record(const std::string& photo, const char* type, int width, int height,
            const std::string& credit = "") {
  return {{"sha256", DigestOf(photo)},
          {"contentType", type},
          {"width", width},
          {"height", height},
          {"credit", credit}};
}

TEST_F(BrandingInterface, SendsTheBrandingWithEveryCheckInWhileThereIsOne) {
  EXPECT_FALSE(checkIn(token).body.contains("branding"));
  EXPECT_FALSE(checkIn(token).body.contains("tenantId"));
  const Json texts = {{"displayName", "H\u00f4tel"}, {"signInSubtitle", "Bienvenue"}};
  ASSERT_EQ(admin("PATCH", path(), {{"branding", texts}, {"tenantId", "t-1"}}).status, 200);
  ASSERT_EQ(upload(id, PngPhoto(640, 480)).status, 201);
  Json expected = texts;
  expected["photos"] = Json::array({Record(PngPhoto(640, 480), "image/png", 640, 480)});
  EXPECT_EQ(sent(), expected);
  EXPECT_EQ(checkIn(token).body["tenantId"], "t-1");
  ASSERT_EQ(admin("PATCH", path(), {{"branding", nullptr}, {"tenantId", nullptr}}).status, 200);
  EXPECT_FALSE(checkIn(token).body.contains("branding"));
  EXPECT_FALSE(checkIn(token).body.contains("tenantId"));
}

TEST_F(BrandingInterface, KeepsThePhotosWhenTheTextsChange) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, JpegPhoto(3, 4), "?credit=Somebody").status, 201);
  ASSERT_EQ(brand("Inn"), 200);
  EXPECT_EQ(
      sent(),
      Json({{"displayName", "Inn"},
            {"signInSubtitle", ""},
            {"photos", Json::array({Record(JpegPhoto(3, 4), "image/jpeg", 3, 4, "Somebody")})}}));
}

TEST_F(BrandingInterface, TakesNoPhotoWithoutABranding) {
  const Answer refused = upload(id, PngPhoto(1, 1));
  EXPECT_EQ(refused.status, 409);
  EXPECT_EQ(refused.body, Json({{"error", "no_branding"}}));
  EXPECT_EQ(listed(), Json::array());
  EXPECT_EQ(files(), std::set<std::string>());
}

TEST_F(BrandingInterface, ListsPhotosInTheOrderInWhichTheyWereAdded) {
  ASSERT_EQ(brand(), 200);
  Json expected = Json::array();
  for (const char* more : {"c", "a", "b"}) {
    const Answer added = upload(id, PngPhoto(2, 1, more));
    EXPECT_EQ(added.status, 201);
    EXPECT_EQ(added.body, Record(PngPhoto(2, 1, more), "image/png", 2, 1));
    expected.push_back(added.body);
  }
  EXPECT_EQ(listed(), expected);
  EXPECT_EQ(sent()["photos"], expected);
  EXPECT_EQ(remove(PngPhoto(2, 1, "a")), 200);
  EXPECT_EQ(remove(PngPhoto(2, 1, "a")), 404);
  expected.erase(1);
  EXPECT_EQ(listed(), expected);
}

TEST_F(BrandingInterface, ListsAPhotoOnlyOnce) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, PngPhoto(2, 1)).status, 201);
  ASSERT_EQ(upload(id, PngPhoto(2, 2)).status, 201);
  const Answer again = upload(id, PngPhoto(2, 1), "?credit=A%20%26%20B%2B&width=20");
  EXPECT_EQ(again.status, 200);
  EXPECT_EQ(again.body, Record(PngPhoto(2, 1), "image/png", 20, 1, "A & B+"));
  const Answer last = upload(id, PngPhoto(2, 1), "?width=20");
  EXPECT_EQ(last.status, 200);
  EXPECT_EQ(last.body, again.body);
  EXPECT_EQ(listed(), Json::array({again.body, Record(PngPhoto(2, 2), "image/png", 2, 2)}));
  EXPECT_EQ(files().size(), 2U);
}

TEST_F(BrandingInterface, TakesOtherPicturesByWhatItIsTold) {
  ASSERT_EQ(brand(), 200);
  const Answer added = upload(id, "RIFF", "?width=3&height=4", "image/webp");
  EXPECT_EQ(added.status, 201);
  EXPECT_EQ(added.body, Record("RIFF", "image/webp", 3, 4));
  EXPECT_EQ(photo(DigestOf("RIFF"), token).headers.at("content-type"), "image/webp");
  const Answer json = upload(id, "[5]", "?width=3&height=4", "image/x+y; z=1");
  EXPECT_EQ(json.body["contentType"], "image/x+y");
  EXPECT_EQ(photo(DigestOf("[5]"), token).text, "[5]");
}

TEST_F(BrandingInterface, RefusesWhatIsNoPhoto) {
  ASSERT_EQ(brand(), 200);
  const std::vector<std::pair<std::string, std::string>> unknown = {
      {"", "application/octet-stream"},
      {"?width=3", "image/webp"},
      {"?width=3&height=4", "application/octet-stream"},
      {"?width=3&height=4", "text/plain"},
      {"?width=3&height=4", "image/"},
      {"?width=3&height=4", "image/a/b"},
      {"?width=3&height=4", ""}};
  for (const auto& [query, type] : unknown) {
    const Answer refused = upload(id, "no picture", query, type);
    EXPECT_EQ(refused.status, 415) << query << " " << type;
    EXPECT_EQ(refused.body, Json({{"error", "unknown_format"}}));
  }
  for (const std::string& query :
       {std::string("?width=0"), std::string("?width=-1"), std::string("?width=2147483648"),
        std::string("?height=4x"), std::string("?height="), std::string("?more=1"),
        std::string("?credit=%ff"), "?credit=" + std::string(241, 'x')})
    EXPECT_EQ(upload(id, PngPhoto(1, 1), query).status, 400) << query;
  EXPECT_EQ(upload(id, "").status, 400);
  EXPECT_EQ(upload("0123456789abcdef", PngPhoto(1, 1)).status, 404);
  EXPECT_EQ(listed(), Json::array());
  EXPECT_EQ(files(), std::set<std::string>());
}

TEST_F(BrandingInterface, TakesPhotosUpToFifteenMebibytes) {
  ASSERT_EQ(brand(), 200);
  const std::string header = PngPhoto(1, 1);
  const std::string largest = header + std::string(portal::kMaxPhoto - header.size(), 'x');
  ASSERT_EQ(upload(id, largest).status, 201);
  EXPECT_EQ(photo(DigestOf(largest), token).text, largest);
  const Answer refused = upload(id, largest + "x");
  EXPECT_EQ(refused.status, 413);
  EXPECT_EQ(refused.body, Json({{"error", "too_large"}}));
  EXPECT_EQ(listed().size(), 1U);
}

TEST_F(BrandingInterface, LetsNobodyElseSendMuch) {
  portal::HttpsClient stranger = adminClient();
  const std::string much(std::size_t{4} << 20, 'x');
  EXPECT_EQ(Exchange(stranger, "POST", path("/photos"), much, "wrong").status, 0);
  EXPECT_EQ(Exchange(stranger, "POST", path("/photos"), std::string(70000, 'x'), "wrong").status,
            413);
  EXPECT_EQ(admin("PATCH", path(), std::string(70000, 'x')).status, 413);
}

TEST_F(BrandingInterface, TakesThirtyTwoPhotosAtMost) {
  ASSERT_EQ(brand(), 200);
  for (unsigned i = 1; i <= portal::kMaxPhotos; ++i)
    ASSERT_EQ(upload(id, PngPhoto(i, 1)).status, 201);
  const Answer refused = upload(id, PngPhoto(33, 1));
  EXPECT_EQ(refused.status, 409);
  EXPECT_EQ(refused.body, Json({{"error", "too_many_photos"}}));
  EXPECT_EQ(upload(id, PngPhoto(1, 1), "?credit=x").status, 200);
  EXPECT_EQ(files().size(), portal::kMaxPhotos);
}

TEST_F(BrandingInterface, HandsPhotosToTheirTerminalOnly) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, JpegPhoto(1, 1, "\r\n\x01")).status, 201);
  const std::string digest = DigestOf(JpegPhoto(1, 1, "\r\n\x01"));
  const Answer fetched = photo(digest, token);
  EXPECT_EQ(fetched.status, 200);
  EXPECT_EQ(fetched.headers.at("content-type"), "image/jpeg");
  EXPECT_EQ(fetched.text, JpegPhoto(1, 1, "\r\n\x01"));
  EXPECT_EQ(photo(digest, pair()).status, 404);
  for (const char* nobody : {"", "0123"}) {
    const Answer refused = photo(digest, nobody);
    EXPECT_EQ(refused.status, 401);
    EXPECT_EQ(refused.body, Json({{"status", "unknown"}}));
    EXPECT_EQ(refused.headers.at("www-authenticate"), "Bearer");
  }
  ASSERT_EQ(admin("POST", path("/revoke")).status, 200);
  EXPECT_EQ(photo(digest, token).status, 401);
  EXPECT_EQ(photo(digest, token).body, Json({{"status", "revoked"}}));
}

TEST_F(BrandingInterface, HandsOutNothingButPhotos) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, PngPhoto(1, 1)).status, 201);
  std::string upper = DigestOf(PngPhoto(1, 1));
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const std::string& name :
       {upper, DigestOf(PngPhoto(1, 1)).substr(1), DigestOf(PngPhoto(1, 1)) + "0",
        std::string("..%2fportal.json"), std::string("%2e%2e"), std::string("../portal.json"),
        std::string(64, '0'), std::string("portal.json")})
    EXPECT_EQ(photo(name, token).status, 404) << name;
  EXPECT_EQ(photo("x", "").status, 401) << "before anything is looked at";
  const Answer other = device("POST", "/api/kiosk/branding/photos/x", "{}", token);
  EXPECT_EQ(other.status, 405);
  EXPECT_EQ(other.headers.at("allow"), "GET");
}

TEST_F(BrandingInterface, LeavesNoPhotoBehindThatNobodyShows) {
  std::string other;
  pair(&other);
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(admin("PATCH", "/api/admin/terminals/" + other, {{"branding", {{"displayName", "x"}}}})
                .status,
            200);
  const std::string common = PngPhoto(1, 1);
  const std::string own = PngPhoto(2, 2);
  for (const std::string& bytes : {common, own}) ASSERT_EQ(upload(id, bytes).status, 201);
  ASSERT_EQ(upload(other, common).status, 201);
  EXPECT_EQ(files(), (std::set<std::string>{DigestOf(common), DigestOf(own)}));
  EXPECT_EQ(remove(own), 200);
  EXPECT_EQ(remove(common), 200);
  EXPECT_EQ(files(), std::set<std::string>{DigestOf(common)});
  ASSERT_EQ(upload(id, own).status, 201);
  ASSERT_EQ(admin("PATCH", path(), {{"branding", nullptr}}).status, 200);
  EXPECT_EQ(files(), std::set<std::string>{DigestOf(common)});
  ASSERT_EQ(admin("DELETE", "/api/admin/terminals/" + other).status, 200);
  EXPECT_EQ(files(), std::set<std::string>());
}

TEST_F(BrandingInterface, KeepsPhotosOverARestartButThoseThatNobodyShows) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, PngPhoto(1, 1)).status, 201);
  const std::string digest = DigestOf(PngPhoto(1, 1));
  stop();
  for (const std::string& name : {std::string(64, '0'), std::string(64, 'a') + ".new",
                                  digest + ".new", std::string("notes.txt")})
    std::ofstream(dir() / "photos" / name) << "x";
  start();
  EXPECT_EQ(files(), (std::set<std::string>{digest, "notes.txt"}));
  EXPECT_EQ(photo(digest, token).text, PngPhoto(1, 1));
}

TEST_F(BrandingInterface, KeepsPhotosFromOtherUsers) {
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, PngPhoto(1, 1)).status, 201);
  struct stat info {};
  ASSERT_EQ(stat((dir() / "photos").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0700U);
  ASSERT_EQ(stat((dir() / "photos" / DigestOf(PngPhoto(1, 1))).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(BrandingInterface, ChangesNothingWhenAPhotoCannotBeKept) {
  ASSERT_EQ(brand(), 200);
  std::ofstream(dir() / "photos") << "in the folder's place";
  EXPECT_EQ(upload(id, PngPhoto(1, 1)).body, Json({{"error", "storage"}}));
  EXPECT_EQ(listed(), Json::array());
  std::filesystem::remove(dir() / "photos");
  ASSERT_EQ(upload(id, PngPhoto(1, 1)).status, 201);
  // A folder in the place of the temporary file.
  std::filesystem::create_directory(dir() / "portal.json.new");
  EXPECT_EQ(upload(id, PngPhoto(2, 2)).status, 500);
  EXPECT_EQ(remove(PngPhoto(1, 1)), 500);
  EXPECT_EQ(files(), std::set<std::string>{DigestOf(PngPhoto(1, 1))});
  EXPECT_EQ(photo(DigestOf(PngPhoto(1, 1)), token).status, 200);
}

TEST_F(BrandingInterface, SendsABrandingAsItWasStoredUnchecked) {
  const std::string bytes = PngPhoto(1, 1);
  ASSERT_EQ(brand(), 200);
  ASSERT_EQ(upload(id, bytes).status, 201);
  const Json photos = {5,
                       {{"sha256", DigestOf(bytes)}, {"contentType", "text/html\r\nX: y"}},
                       {{"sha256", std::string(64, '0')}},
                       {{"sha256", "../portal.json"}}};
  for (const Json& branding : std::vector<Json>{{{"photos", photos}}, {{"photos", 5}}, 5}) {
    ASSERT_EQ(admin("PATCH", path("/raw"), {{"branding", branding}, {"tenantId", 5}}).status, 200);
    EXPECT_EQ(sent(), branding);
    EXPECT_EQ(checkIn(token).body["tenantId"], 5);
    EXPECT_EQ(listed(), Json::array());
    const bool lists = branding.is_object() && branding["photos"].is_array();
    EXPECT_EQ(photo(DigestOf(bytes), token).status, lists ? 200 : 404);
    EXPECT_EQ(photo(std::string(64, '0'), token).status, 404);
    EXPECT_EQ(files().size(), lists ? 1U : 0U);
    if (!lists) {
      EXPECT_EQ(upload(id, bytes).status, 409);
      EXPECT_EQ(remove(bytes), 404);
    } else {
      EXPECT_EQ(photo(DigestOf(bytes), token).headers.at("content-type"), "image/jpeg");
    }
  }
  ASSERT_EQ(brand(), 200);
  EXPECT_EQ(sent()["photos"], Json::array());
}

TEST_F(BrandingInterface, LetsOnlyTheAdministratorAtTheListOfPhotos) {
  portal::HttpsClient client = adminClient();
  for (const char* method : {"GET", "POST"})
    EXPECT_EQ(Exchange(client, method, path("/photos"), "", "").status, 401) << method;
  EXPECT_EQ(Exchange(client, "DELETE", path("/photos/0"), "", "").status, 401);
  EXPECT_EQ(admin("GET", "/api/admin/terminals/0123456789abcdef/photos").status, 404);
  EXPECT_EQ(admin("DELETE", "/api/admin/terminals/0123456789abcdef/photos/0").status, 404);
  const Answer other = admin("PUT", path("/photos"));
  EXPECT_EQ(other.status, 405);
  EXPECT_EQ(other.headers.at("allow"), "GET, POST");
}

}  // namespace
