#include <future>

#include "platform/UrlSession.h"
#include "tests/platform/TestServer.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

using contract::Answered;
using contract::TestServer;

constexpr char kGzippedHello[] =
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\xcb\x48\xcd\xc9\xc9\x07\x00\x86\xa6\x10\x36\x05\x00"
    "\x00\x00";

class UrlSessionTest : public contract::World {
 protected:
  static UrlResult exchange(UrlSession& session, const UrlRequest& request) {
    std::promise<UrlResult> result;
    session.start(request, [&](const UrlResult& value) { result.set_value(value); });
    return result.get_future().get();
  }
  UrlResult exchange(const UrlRequest& request) { return exchange(_session, request); }

  UrlResult get(const std::string& url) { return exchange({url, "GET", {}, std::nullopt}); }

  UrlSession _session{
      {.requestTimeoutSeconds = 60, .resourceTimeoutSeconds = 120, .maximumBodyBytes = 64 * 1024}};
};

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(UrlSessionTest, GetsABodyAndItsStatus) {
  const TestServer server([](const std::string&) { return Answered("hello", "", "418 Teapot"); });
  const UrlResult result = get(server.url("/a?b=c"));
  EXPECT_EQ(result.error, std::nullopt);
  EXPECT_EQ(result.httpStatus, 418);
  EXPECT_EQ(result.data, "hello");
  EXPECT_EQ(server.requests().at(0).text.rfind("GET /a?b=c HTTP/1.1\r\n", 0), 0u);
}

TEST_F(UrlSessionTest, GetsAnAnswerWithoutABody) {
  const TestServer server([](const std::string&) { return Answered("", "", "204 No Content"); });
  const UrlResult result = get(server.url("/"));
  EXPECT_EQ(result.error, std::nullopt);
  EXPECT_EQ(result.httpStatus, 204);
  EXPECT_EQ(result.data, "");
}

TEST_F(UrlSessionTest, GetsTheBodyOfARefusal) {
  const TestServer server([](const std::string&) {
    return Answered("who are you?", "WWW-Authenticate: Bearer\r\n", "401 Unauthorized");
  });
  const UrlResult result = get(server.url("/"));
  EXPECT_EQ(result.error, std::nullopt);
  EXPECT_EQ(result.httpStatus, 401);
  EXPECT_EQ(result.data, "who are you?");
}

TEST_F(UrlSessionTest, RefusesAUrlThatIsNone) {
  for (const char* url : {"", "nowhere", "http://", "http://a b/", "http://host:99999/"}) {
    const UrlResult result = get(url);
    EXPECT_TRUE(result.error) << url;
    EXPECT_EQ(result.httpStatus, std::nullopt) << url;
  }
}

TEST_F(UrlSessionTest, SendsMethodHeadersAndBodyAsGiven) {
  const TestServer server([](const std::string&) { return Answered(""); });
  const std::string body = std::string("{\"a\":1}\0x", 9);
  EXPECT_EQ(exchange({server.url("/"), "POST", {{"X-One", "1"}, {"X-None", ""}}, body}).error,
            std::nullopt);
  const std::string request = server.requests().at(0).text;
  EXPECT_EQ(request.rfind("POST / HTTP/1.1\r\n", 0), 0u);
  EXPECT_TRUE(contains(request, "\r\nX-One: 1\r\n"));
  EXPECT_TRUE(contains(request, "\r\nX-None:\r\n"));
  EXPECT_FALSE(contains(request, "Expect:"));
  EXPECT_TRUE(request.ends_with("\r\n\r\n" + body));
}

TEST_F(UrlSessionTest, DoesNotAskBeforeSendingALargeBody) {
  const TestServer server([](const std::string&) { return Answered(""); });
  EXPECT_EQ(exchange({server.url("/"), "POST", {}, std::string(3'000'000, 'x')}).error,
            std::nullopt);
  EXPECT_FALSE(contains(server.requests().at(0).text, "100-continue"));
}

TEST_F(UrlSessionTest, SendsOtherMethods) {
  const TestServer server([](const std::string&) { return Answered(""); });
  EXPECT_EQ(exchange({server.url("/"), "PUT", {}, "body"}).httpStatus, 200);
  EXPECT_EQ(exchange({server.url("/"), "DELETE", {}, std::nullopt}).httpStatus, 200);
  EXPECT_EQ(exchange({server.url("/"), "POST", {}, std::nullopt}).httpStatus, 200);
  EXPECT_EQ(exchange({server.url("/"), "GET", {}, std::nullopt}).httpStatus, 200);
  const auto requests = server.requests();
  EXPECT_EQ(requests.at(0).text.rfind("PUT / ", 0), 0u);
  EXPECT_TRUE(requests.at(0).text.ends_with("\r\n\r\nbody"));
  EXPECT_EQ(requests.at(1).text.rfind("DELETE / ", 0), 0u);
  EXPECT_TRUE(contains(requests.at(2).text, "Content-Length: 0\r\n"));
  EXPECT_EQ(requests.at(3).text.rfind("GET / ", 0), 0u);
  for (const auto& request : requests) EXPECT_FALSE(contains(request.text, "Content-Type"));
}

TEST_F(UrlSessionTest, KeepsItsConnectionBetweenExchanges) {
  const TestServer server([](const std::string&) { return Answered("x"); });
  (void)get(server.url("/1"));
  (void)exchange({server.url("/2"), "POST", {}, "x"});
  (void)get(server.url("/3"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].clientPort, requests[1].clientPort);
  EXPECT_EQ(requests[0].clientPort, requests[2].clientPort);
}

TEST_F(UrlSessionTest, AsksAgainForAnAnswerThatItMightHaveKept) {
  const TestServer server([](const std::string& request) {
    const std::string headers = "Cache-Control: public, max-age=3600\r\nETag: \"1\"\r\n";
    return Answered(contains(request, "\r\nIf-None-Match:") ? "conditional" : "whole", headers);
  });
  EXPECT_EQ(get(server.url("/")).data, "whole");
  EXPECT_EQ(get(server.url("/")).data, "whole");
  EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(UrlSessionTest, SendsNoCookiesBack) {
  const TestServer server([](const std::string&) { return Answered("", "Set-Cookie: a=b\r\n"); });
  (void)get(server.url("/"));
  (void)get(server.url("/"));
  EXPECT_FALSE(contains(server.requests().at(1).text, "ookie:"));
}

TEST_F(UrlSessionTest, DecodesACompressedBody) {
  const TestServer server([](const std::string&) {
    return Answered(std::string(kGzippedHello, sizeof kGzippedHello - 1),
                    "Content-Encoding: gzip\r\n");
  });
  EXPECT_EQ(get(server.url("/")).data, "hello");
  EXPECT_TRUE(contains(server.requests().at(0).text, "Accept-Encoding: "));
}

TEST_F(UrlSessionTest, RefusesABodyThatIsTooLarge) {
  const TestServer server([](const std::string& request) {
    return Answered(std::string(64 * 1024 + (contains(request, "/over") ? 1 : 0), 'x'));
  });
  EXPECT_EQ(get(server.url("/exact")).data.size(), 64u * 1024);
  const UrlResult result = get(server.url("/over"));
  EXPECT_EQ(result.error, "The answer is too large.");
  EXPECT_EQ(result.data, "");
  EXPECT_EQ(result.httpStatus, 200);
}

TEST_F(UrlSessionTest, RefusesASmallBodyThatUnfoldsToALargeOne) {
  // 300,000 zero bytes, compressed to 325.
  constexpr char kHead[] =
      "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xed\xc1\x01\x0d\x00\x00\x00\xc2\xa0\xf7\x4f\x6d\x0f"
      "\x07\x14";
  constexpr char kTail[] = "\xfc\x18\xfb\xe2\xb2\xf6\xe0\x93\x04\x00";
  const std::string bomb = std::string(kHead, sizeof kHead - 1) + std::string(290, '\0') +
                           std::string(kTail, sizeof kTail - 1);
  const TestServer server(
      [&](const std::string&) { return Answered(bomb, "Content-Encoding: gzip\r\n"); });
  const UrlResult result = get(server.url("/"));
  EXPECT_EQ(result.error, "The answer is too large.");
  EXPECT_EQ(result.data, "");
}

TEST_F(UrlSessionTest, ReportsABodyThatIsCutOff) {
  const TestServer server([](const std::string&) {
    return std::string("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
  });
  const UrlResult result = get(server.url("/"));
  EXPECT_TRUE(result.error);
  EXPECT_EQ(result.data, "");
}

TEST_F(UrlSessionTest, ReportsAnAnswerThatIsNotHttp) {
  const TestServer server([](const std::string&) { return std::string("SSH-2.0-x\r\n"); });
  const UrlResult result = get(server.url("/"));
  EXPECT_TRUE(result.error);
  EXPECT_EQ(result.httpStatus, std::nullopt);
}

TEST_F(UrlSessionTest, ReportsThatNobodyAnswers) {
  std::string url;
  {
    const TestServer gone([](const std::string&) { return Answered(""); });
    url = gone.url("/");
  }
  const UrlResult result = get(url);
  EXPECT_TRUE(result.error && !result.error->empty());
  EXPECT_EQ(result.httpStatus, std::nullopt);
}

TEST_F(UrlSessionTest, GivesUpWhenNoByteComes) {
  UrlSession impatient(
      {.requestTimeoutSeconds = 1, .resourceTimeoutSeconds = 600, .maximumBodyBytes = 1});
  const TestServer server([](const std::string&) { return std::string(); });
  EXPECT_EQ(exchange(impatient, {server.url("/"), "GET", {}, std::nullopt}).error,
            "The request timed out.");
}

TEST_F(UrlSessionTest, GivesUpWhenTheWholeTakesTooLong) {
  UrlSession patient(
      {.requestTimeoutSeconds = 600, .resourceTimeoutSeconds = 1, .maximumBodyBytes = 1});
  const TestServer server([](const std::string&) { return std::string(); });
  EXPECT_EQ(exchange(patient, {server.url("/"), "GET", {}, std::nullopt}).error,
            "The request timed out.");
}

TEST_F(UrlSessionTest, GoesOnAfterAFailure) {
  UrlSession session(
      {.requestTimeoutSeconds = 5, .resourceTimeoutSeconds = 600, .maximumBodyBytes = 4});
  const TestServer server([](const std::string& request) {
    return contains(request, "/silent") ? std::string() : Answered("fine");
  });
  EXPECT_TRUE(exchange(session, {server.url("/silent"), "GET", {}, std::nullopt}).error);
  EXPECT_EQ(exchange(session, {server.url("/"), "GET", {}, std::nullopt}).data, "fine");
}

TEST_F(UrlSessionTest, FollowsRedirectsAndReportsTheLastAnswer) {
  const TestServer server([](const std::string& request) {
    return contains(request, "/new") ? Answered("there", "", "201 Created")
                                     : Answered("", "Location: /new\r\n", "302 Found");
  });
  const UrlResult result = exchange({server.url("/old"), "POST", {}, "body"});
  EXPECT_EQ(result.httpStatus, 201);
  EXPECT_EQ(result.data, "there");
  EXPECT_EQ(server.requests().at(1).text.rfind("GET /new ", 0), 0u);
}

TEST_F(UrlSessionTest, RepeatsABodyWhenTheRedirectSaysSo) {
  const TestServer server([](const std::string& request) {
    return contains(request, " /new") ? Answered("there")
                                      : Answered("", "Location: /new\r\n", "307 Temporary");
  });
  EXPECT_EQ(exchange({server.url("/old"), "POST", {}, "body"}).data, "there");
  EXPECT_EQ(server.requests().at(1).text.rfind("POST /new ", 0), 0u);
  EXPECT_TRUE(server.requests().at(1).text.ends_with("\r\n\r\nbody"));
}

TEST_F(UrlSessionTest, DoesNotFollowRedirectsWithoutEnd) {
  const TestServer server(
      [](const std::string&) { return Answered("", "Location: /\r\n", "302 Found"); });
  EXPECT_TRUE(get(server.url("/")).error);
  EXPECT_EQ(server.requests().size(), 17u);
}

TEST_F(UrlSessionTest, KeepsItsAuthorizationFromOtherHosts) {
  const TestServer other([](const std::string&) { return Answered("other"); });
  const std::string away = "Location: " + other.url("/away", "localhost") + "\r\n";
  const TestServer server([&](const std::string& request) {
    if (contains(request, " /here")) return Answered("here");
    return Answered("", contains(request, " /stay") ? "Location: /here\r\n" : away, "302 Found");
  });
  const std::pair<std::string, std::string> token = {"Authorization", "Bearer secret"};
  EXPECT_EQ(exchange({server.url("/stay"), "GET", {token}, std::nullopt}).data, "here");
  EXPECT_TRUE(contains(server.requests().at(1).text, "Bearer secret"));
  EXPECT_EQ(exchange({server.url("/leave"), "GET", {token}, std::nullopt}).data, "other");
  EXPECT_FALSE(contains(other.requests().at(0).text, "secret"));
}

TEST_F(UrlSessionTest, SpeaksHttpAndHttpsOnly) {
  contract::WriteFile(folder() + "/file", "contents");
  const std::string file = "file://" + folder() + "/file";
  const TestServer server(
      [&](const std::string&) { return Answered("", "Location: " + file + "\r\n", "302 Found"); });
  EXPECT_TRUE(get(file).error);
  EXPECT_TRUE(get(server.url("/")).error);
  EXPECT_TRUE(get("ftp://127.0.0.1/").error);
}

TEST_F(UrlSessionTest, SendsNoHeaderThatWasSmuggledIn) {
  const TestServer server([](const std::string&) { return Answered(""); });
  const std::string url = server.url("/");
  EXPECT_TRUE(exchange({url, "GET", {{"X", "1\r\nEvil: 1"}}, std::nullopt}).error);
  EXPECT_TRUE(exchange({url, "GET", {{"X", std::string("1\0", 2)}}, std::nullopt}).error);
  EXPECT_TRUE(exchange({url, "GET", {{"X: 1\r\nEvil", "1"}}, std::nullopt}).error);
  EXPECT_TRUE(exchange({url, "GET / HTTP/1.1\r\nEvil: 1\r\nX:", {}, std::nullopt}).error);
  EXPECT_TRUE(exchange({url + " HTTP/1.1\r\nEvil: 1\r\n", "GET", {}, std::nullopt}).error);
  EXPECT_TRUE(exchange({"", "GET", {}, std::nullopt}).error);
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(UrlSessionTest, CancelsWhatIsUnderWayWhenItEnds) {
  std::atomic<int> cancelled = 0;
  const TestServer server([](const std::string&) { return std::string(); });
  {
    UrlSession session(
        {.requestTimeoutSeconds = 600, .resourceTimeoutSeconds = 600, .maximumBodyBytes = 1});
    for (int i = 0; i < 2; ++i) {
      session.start({server.url("/"), "GET", {}, std::nullopt},
                    [&](const UrlResult& result) { cancelled += result.error ? 1 : 0; });
    }
  }
  EXPECT_EQ(cancelled, 2);
}

TEST_F(UrlSessionTest, MayEndInACompletionOfItsOwn) {
  std::promise<void> done;
  auto* session = new UrlSession(
      {.requestTimeoutSeconds = 1, .resourceTimeoutSeconds = 1, .maximumBodyBytes = 1});
  session->start({"", "GET", {}, std::nullopt}, [&](const UrlResult&) {
    delete session;
    done.set_value();
  });
  done.get_future().wait();
}

}  // namespace
}  // namespace platform
