#include "tests/faults/Operations.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "account/KioskAutoLogin.h"
#include "account/KioskHome.h"
#include "account/KioskLaunchAgent.h"
#include "platform/PropertyList.h"
#include "portal/KioskBranding.h"
#include "portal/KioskHttp.h"
#include "tests/daemon/EncodedPassword.h"

namespace {

namespace fs = std::filesystem;

using Errors = std::vector<std::string>;

constexpr gid_t kStaff = 20;
constexpr char kPhotoPath[] = "/api/kiosk/branding/photos/";
constexpr char kLoginWindowFile[] = "/Library/Preferences/com.apple.loginwindow.plist";
constexpr char kProgram[] = "/Applications/Brindlex.app/Contents/MacOS/Brindlex";
constexpr double kLockedUntil = 1'790'009'000;  // beyond the longest lock-out

bool Begins(const std::string& text, const std::string& beginning) {
  return text.starts_with(beginning);
}

bool Ends(const std::string& text, const Failure& failure) {
  return text.ends_with(": " + failure.text());
}

bool IsOpenFailure(const std::string& error, const std::string& folder, const Failure& failure) {
  return Begins(error, "cannot open " + folder + " without following a link: ") &&
         Ends(error, failure);
}

// One line of the file writer, about the file `name` in the folder `folder`.
bool IsWriteFailure(const Errors& errors, const Failure& failure, const std::string& folder,
                    const std::string& name) {
  if (errors.size() != 1 || !Ends(errors[0], failure)) return false;
  return IsOpenFailure(errors[0], folder, failure) ||
         Begins(errors[0], "cannot create ." + name + ".tmp.") ||
         Begins(errors[0], "cannot write " + name + ": ");
}

// What the call is about, by name or by descriptor.
const std::string& PlaceOf(const SystemCall& call) {
  return call.path.empty() ? call.file : call.path;
}

// The one place where the preparation of the home fails without a word: nobody knows the account.
bool IsInUserDatabase(const SystemCall& call) {
  const std::string& place = PlaceOf(call);
  return place.ends_with("/etc/passwd") || place.ends_with("/etc/nsswitch.conf");
}

// A folder on the way to the preferences, also while it has a name for the time being, and the home
// itself once it is open: without a further word it is only told that one of them is not as it
// should be.
bool IsHomeFolder(const SystemCall& call) {
  const std::string& place = PlaceOf(call);
  if (place == kHome) return call.number == SYS_fstat || call.number == SYS_newfstatat;
  return place == kLibrary || place == kPreferencesFolder ||
         Begins(place, std::string(kHome) + "/.Library.tmp.") ||
         Begins(place, std::string(kLibrary) + "/.Preferences.tmp.");
}

// Of a tool whose status nobody judges.
bool IsNotStarted(const Errors& errors, const Failure& failure, const std::string& tool) {
  return errors.size() == 1 && errors[0] == tool + " did not start: " + failure.text();
}

// A tool that did not start is told by the runner, and by its caller, who judges the status.
bool IsRunFailure(const Errors& errors, const Failure& failure, const std::string& tool,
                  const std::string& argument) {
  return errors.size() == 2 && IsNotStarted({errors[0]}, failure, tool) &&
         errors[1] == tool + " " + argument + " exited -1: ";
}

bool IsUnreached(const Errors& errors) {
  return errors.size() == 1 && Begins(errors[0], std::string("GET ") + kPhotoPath) &&
         errors[0].find(": not reached (") != std::string::npos;
}

}  // namespace

OperationsTest::OperationsTest() {
  // Not enrolled, so that nothing is said to the portal: the session is the watched process's.
  startDaemon();
  provision();
  daemon.reset();
  const Json state = mac.state();
  EXPECT_EQ(state["provisioned"], true);
  _account = {{"generatedUID", state["generatedUID"]}, {"password", state["password"]}};
  _uid = kioskUid();
  for (const BrandingPhoto* photo : {&oldPhoto, &hills, &sea}) {
    portal.answerText("GET " + std::string(kPhotoPath) + photo->digest, 200, photo->bytes,
                      "image/jpeg");
  }
}

Json OperationsTest::enrolledState() const {
  Json state = {{"authBaseUrl", portal.url()},
                {"token", "device-token"},
                {"provisioned", false},
                {"maintenanceLockedUntil", kLockedUntil}};
  state.update(_account);
  return state;
}

void OperationsTest::resetMac() {
  for (const char* path : {kLaunchAgent, kPasswordFile, kLoginWindowFile, kLibrary, kStateDir}) {
    mac.remove(path);
  }
  mac.writeState(enrolledState());
  chmod(kStateDir, 0711);
  for (const char* folder : {"/Library/LaunchAgents", "/private/etc", kHome}) {
    for (const std::string& name : mac.list(folder)) {
      if (name.find(".tmp.") != std::string::npos) mac.remove(std::string(folder) + "/" + name);
    }
  }
  portal.answer(kCheckInCall, 503, Json::object());
  clearRecords();
}

void OperationsTest::expectFile(const std::string& path, const std::string& content,
                                const char* modeAndOwner) const {
  EXPECT_TRUE(mac.read(path) == content) << path << ": " << mac.read(path);
  EXPECT_EQ(mac.modeAndOwner(path), modeAndOwner) << path;
}

void OperationsTest::expectOldOrNew(const std::string& path, const std::string& before,
                                    const std::string& after) const {
  const std::string content = mac.read(path);
  EXPECT_TRUE(content == before || content == after) << path << ": " << content;
}

// --- state save
// -----------------------------------------------------------------------------------

Operation OperationsTest::stateSave() {
  const auto saved = [this] {
    Json state = mac.state();
    EXPECT_TRUE(state.is_object()) << mac.read(kStateFile);
    if (!state.is_object()) return 0.0;
    const double until = state["maintenanceLockedUntil"];
    state["maintenanceLockedUntil"] = kLockedUntil;
    EXPECT_EQ(state, enrolledState());
    return until;
  };
  return {.reset = [this] { resetMac(); },
          .prepare =
              [this] {
                restartDaemon();
                virtual_time::RunReady();  // its first check-in, which is answered with nothing
              },
          .attempt =
              [this] {
                // A lock-out that is longer than any is shortened and saved; and again a second
                // later, when the clock goes backwards.
                virtual_time::ShiftWallClock(-1);
                return send({{"cmd", "maintenance"}, {"password", "x"}})["error"] == "locked";
              },
          .tellsSuccess = false,
          .expectOldOrNew =
              [saved, this] {
                const double until = saved();
                EXPECT_TRUE(until == kLockedUntil || until < kLockedUntil - 8000) << until;
                EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
              },
          .expectDone = [saved] { EXPECT_LT(saved(), kLockedUntil - 8000); },
          .maySay =
              [](const Errors& errors, const Failure& failure, const SystemCall&) {
                return IsWriteFailure(errors, failure, kStateDir, "state.json");
              },
          .folders = {kStateDir}};
}

// --- LaunchAgent
// ----------------------------------------------------------------------------------

Operation OperationsTest::launchAgent() {
  const std::string before = "an old agent";
  resetMac();
  EXPECT_TRUE(KioskInstallLaunchAgent(kProgram));
  const std::string after = mac.read(kLaunchAgent);
  return {.reset =
              [this, before] {
                resetMac();
                mac.write(kLaunchAgent, before, 0644);
              },
          .attempt = [] { return KioskInstallLaunchAgent(kProgram); },
          .expectOldOrNew = [this, before, after] { expectOldOrNew(kLaunchAgent, before, after); },
          .expectDone = [this, after] { expectFile(kLaunchAgent, after, "0644 0:0"); },
          .maySay =
              [](const Errors& errors, const Failure& failure, const SystemCall&) {
                return IsWriteFailure(errors, failure, "/Library/LaunchAgents",
                                      "com.brindlex.stream.kiosk.plist");
              },
          .folders = {"/Library/LaunchAgents"}};
}

// --- auto-login
// -----------------------------------------------------------------------------------

Operation OperationsTest::autoLogin() {
  const std::string password = _account["password"];
  const std::string before = EncodedPassword("the former password");
  const std::string after = EncodedPassword(password);
  return {.reset =
              [this, before] {
                resetMac();
                mac.write(kPasswordFile, before, 0600);
              },
          .attempt = [password] { return KioskEnableAutoLogin(password); },
          .expectOldOrNew =
              [this, before, after] {
                expectOldOrNew(kPasswordFile, before, after);
                EXPECT_EQ(mac.modeAndOwner(kPasswordFile), "0600 0:0");
                // Never the preference without the password that goes with it.
                if (autoLoginUser() == kAccount) expectFile(kPasswordFile, after, "0600 0:0");
              },
          .expectDone =
              [this, after] {
                EXPECT_EQ(autoLoginUser(), kAccount);
                expectFile(kPasswordFile, after, "0600 0:0");
              },
          .maySay =
              [](const Errors& errors, const Failure& failure, const SystemCall&) {
                return IsWriteFailure(errors, failure, "/private/etc", "kcpassword") ||
                       IsRunFailure(errors, failure, "defaults", "write") ||
                       IsNotStarted(errors, failure, "defaults");
              },
          .folders = {"/private/etc", "/Library/Preferences"}};
}

// --- home
// -----------------------------------------------------------------------------------------

Operation OperationsTest::homePreparation() {
  resetMac();
  EXPECT_TRUE(KioskPrepareHome(_uid, kStaff));
  const std::string after = mac.read(kSetupAssistant);
  // The tool leaves a home that is there as it is, so that the folders in it are the daemon's to
  // make.
  return {.reset = [this] { resetMac(); },
          .attempt = [this] { return KioskPrepareHome(_uid, kStaff); },
          .expectOldOrNew =
              [this, after] {
                // Without the system's version the assistant's screens are written alone.
                const std::string content = mac.read(kSetupAssistant);
                EXPECT_TRUE(content.empty() || platform::PropertyListParse(content)) << content;
              },
          .expectDone =
              [this, after] {
                const std::string owner = std::to_string(_uid) + ":" + std::to_string(kStaff);
                expectFile(kSetupAssistant, after, ("0600 " + owner).c_str());
                EXPECT_EQ(mac.modeAndOwner(kPreferencesFolder), "0700 " + owner);
                EXPECT_EQ(mac.modeAndOwner(kLibrary), "0700 " + owner);
              },
          .expectWorked = [this] { EXPECT_TRUE(mac.exists(kSetupAssistant)); },
          .maySay =
              [](const Errors& errors, const Failure& failure, const SystemCall& call) {
                const std::string notReal = std::string(kPreferencesFolder) +
                                            " is not a real directory the kiosk account owns";
                const bool opened = !errors.empty() && IsOpenFailure(errors[0], kHome, failure);
                if (errors.empty()) return IsInUserDatabase(call);
                return IsRunFailure(errors, failure, "createhomedir", "-c") ||
                       (errors == Errors{notReal} && IsHomeFolder(call)) ||
                       (opened && errors.size() == 2 && errors[1] == notReal) ||
                       IsWriteFailure(errors, failure, kPreferencesFolder,
                                      "com.apple.SetupAssistant.plist");
              },
          .folders = {kHome, kLibrary, kPreferencesFolder}};
}

// --- branding
// -------------------------------------------------------------------------------------

void OperationsTest::resetBranding() {
  resetMac();
  fs::create_directory(kBrandingCache);
  chmod(kBrandingCache, 0755);
  mac.write(std::string(kBrandingCache) + "/" + oldPhoto.digest, oldPhoto.bytes);
  mac.write(std::string(kBrandingCache) + "/" + kBrandingJson,
            ProjectionOf({oldPhoto}, "Old").dump());
}

void OperationsTest::expectBranded() const {
  const std::string cache = std::string(kBrandingCache) + "/";
  expectFile(cache + kBrandingJson, ProjectionOf({hills, sea}).dump(), "0644 0:0");
  expectFile(cache + hills.digest, hills.bytes, "0644 0:0");
  expectFile(cache + sea.digest, sea.bytes, "0644 0:0");
}

Operation OperationsTest::branding() {
  const auto apply = [this] {
    const auto fetch = [this](const std::string& digest) -> std::optional<std::string> {
      KioskHttpResult answer = KioskHttpGetData(portal.url(), kPhotoPath + digest, "device-token");
      if (!answer.success()) return std::nullopt;
      return std::move(answer.data);
    };
    return KioskBrandingApply(kBrandingCache, ProjectionOf({hills, sea}), fetch, 0, 0);
  };
  return {.reset = [this] { resetBranding(); },
          // The session is there; its connection is made on the way.
          .prepare = [] { static_cast<void>(KioskHttpGetData("http://127.0.0.1:1", "/", "")); },
          .attempt = apply,
          .expectOldOrNew =
              [this] {
                const std::string cache = std::string(kBrandingCache) + "/";
                expectOldOrNew(cache + kBrandingJson, ProjectionOf({oldPhoto}, "Old").dump(),
                               ProjectionOf({hills, sea}).dump());
                for (const BrandingPhoto* photo : {&oldPhoto, &hills, &sea}) {
                  if (mac.exists(cache + photo->digest)) {
                    expectFile(cache + photo->digest, photo->bytes, "0644 0:0");
                  }
                }
              },
          .expectDone =
              [this] {
                expectBranded();
                EXPECT_EQ(mac.list(kBrandingCache).size(), 3U);
              },
          .expectWorked = [this] { expectBranded(); },
          .maySay =
              [this](const Errors& errors, const Failure& failure, const SystemCall&) {
                // A cache that is not there needs no word.
                if (errors.empty()) return failure.error == ENOENT;
                return IsUnreached(errors) ||
                       IsWriteFailure(errors, failure, kStateDir, kBrandingJson) ||
                       IsWriteFailure(errors, failure, kStateDir, hills.digest) ||
                       IsWriteFailure(errors, failure, kStateDir, sea.digest) ||
                       (errors.size() == 1 && errors[0] == std::string("cannot open ") +
                                                               kBrandingCache + ": " +
                                                               failure.text()) ||
                       errors == Errors{std::string(kBrandingCache) +
                                        " is not owned by uid 0; leaving it alone"};
              },
          .folders = {kStateDir, kBrandingCache}};
}

Operation OperationsTest::brandingWithdrawn() {
  return {.reset = [this] { resetBranding(); },
          .attempt =
              [] {
                KioskBrandingClear(kBrandingCache);
                return true;
              },
          .tellsSuccess = false,
          .expectOldOrNew =
              [this] {
                const std::string cache = std::string(kBrandingCache) + "/";
                const std::string json = cache + kBrandingJson;
                const std::string photo = cache + oldPhoto.digest;
                if (mac.exists(json)) {
                  EXPECT_EQ(mac.read(json), ProjectionOf({oldPhoto}, "Old").dump());
                }
                if (mac.exists(photo)) {
                  EXPECT_EQ(mac.read(photo), oldPhoto.bytes);
                }
              },
          .expectDone = [this] { EXPECT_FALSE(mac.exists(kBrandingCache)); },
          .expectWorked = [] {},
          .maySay =
              [](const Errors& errors, const Failure& failure, const SystemCall&) {
                return errors.size() == 1 && IsOpenFailure(errors[0], kStateDir, failure);
              },
          .folders = {kStateDir}};
}
