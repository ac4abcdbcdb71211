// A real portal in a process of its own, for tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Json.h"
#include "simulator/portal/HttpsClient.h"
#include "tests/support/TemporaryFolder.h"

/// What a program left behind.
struct ProgramResult {
  int status = -1;     ///< exit status; -1 when it died by a signal
  std::string output;  ///< standard output and standard error
};

/// Runs a program to its end.
/// @param command path and arguments
/// @param input its standard input, a few lines at most
ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input = "");

/// What the portal answered; status 0 means no answer.
struct Answer {
  int status = 0;
  Json body;          ///< null when it is not JSON
  std::string text;   ///< the body as it came
  std::string error;  ///< why there was no answer
  std::map<std::string, std::string> headers;
};

/// A test with a running portal, whose whole traffic is held against its description at the end.
class PortalTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void start();
  /// Sends SIGTERM and waits. @return the exit status
  int stop();

  /// A new connection to the terminals' or the administrator's interface.
  portal::HttpsClient deviceClient() const;
  portal::HttpsClient adminClient() const;

  Answer device(const std::string& method, const std::string& path, const std::string& body = "",
                const std::string& token = "") const;
  Answer admin(const std::string& method, const std::string& path,
               const Json& body = nullptr) const;
  Answer checkIn(const std::string& token, const Json& changes = Json::object()) const;

  /// Adds a photo to a terminal's branding, through the administrator's interface.
  /// @param query with "?"; may be empty
  Answer upload(const std::string& id, const std::string& photo, const std::string& query = "",
                const std::string& type = "application/octet-stream") const;
  /// Fetches a photo as a terminal does.
  Answer photo(const std::string& digest, const std::string& token) const;

  /// Runs the portal's command line for this portal.
  ProgramResult command(const std::vector<std::string>& arguments,
                        const std::string& input = "") const;

  /// Asks for a code.
  std::string newCode() const;
  /// Pairs a terminal. @return its token; its id is put into `id`
  std::string pair(std::string* id = nullptr) const;

  std::filesystem::path dir() const { return _folder.path("portal"); }
  std::filesystem::path record() const { return _folder.path("record.jsonl"); }
  const Json& ready() const { return _ready; }

 private:
  TemporaryFolder _folder;
  pid_t _process = -1;
  Json _ready;
};

/// Sends one request over a client and reads the answer.
/// @param type the content type of the body, if there is one
Answer Exchange(portal::HttpsClient& client, const std::string& method, const std::string& path,
                const std::string& body, const std::string& token,
                const std::string& type = "application/json");

/// A picture of that size, as far as its header goes.
/// @param more what follows the header, to tell pictures apart
std::string PngPhoto(unsigned width, unsigned height, const std::string& more = "");
std::string JpegPhoto(unsigned width, unsigned height, const std::string& more = "");

/// The SHA-256 of a photo, in lower-case hexadecimal digits.
std::string DigestOf(const std::string& photo);

/// A pair request that the portal accepts.
Json PairRequest();

/// A check-in that the portal accepts.
Json CheckInRequest();

/// The content of a small file.
std::string FileText(const std::filesystem::path& path);
