#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "core/KioskLog.h"
#include "tests/unit/CapturedError.h"

namespace {

constexpr std::string_view kPrefix = "[BrindlexKioskHelper] ";

template <class... Arguments>
std::string Formatted(KioskFormat<std::type_identity_t<Arguments>...> format,
                      const Arguments&... arguments) {
  const std::array<KioskLogArgument, sizeof...(Arguments)> values{KioskLogValue(arguments)...};
  return KioskFormatMessage(format.text(), values);
}

/// A string literal as a template argument.
template <std::size_t N>
struct Literal {
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to become one.
  consteval Literal(const char (&source)[N]) {
    for (std::size_t at = 0; at < N; ++at) text[at] = source[at];
  }
  char text[N]{};
};

/// Whether KioskLog("Format", Arguments...) compiles.
template <Literal Format, class... Arguments>
concept Compiles = requires {
  typename std::bool_constant<(KioskFormat<Arguments...>(Format.text).text().size() < 1000)>;
};

static_assert(Compiles<"">);
static_assert(Compiles<"started">);
static_assert(Compiles<"%@ %s", std::string, char[4]>);
static_assert(Compiles<"%@ %s", const char*, std::string_view>);
static_assert(Compiles<"%d %ld", int, std::int64_t>);
static_assert(Compiles<"%u %lu %llu %02x", unsigned, unsigned long, std::uint64_t, unsigned char>);
static_assert(Compiles<"%.0f h", double>);

static_assert(!Compiles<"%@">, "an argument is missing");
static_assert(!Compiles<"%@ %d", std::string>, "an argument is missing");
static_assert(!Compiles<"", int>, "an argument is left over");
static_assert(!Compiles<"%d", int, int>, "an argument is left over");

static_assert(!Compiles<"%@", int>);
static_assert(!Compiles<"%s", unsigned>);
static_assert(!Compiles<"%d", unsigned>);
static_assert(!Compiles<"%d", std::string>);
static_assert(!Compiles<"%d", bool>);
static_assert(!Compiles<"%ld", double>);
static_assert(!Compiles<"%u", int>);
static_assert(!Compiles<"%llu", long>);
static_assert(!Compiles<"%02x", int>);
static_assert(!Compiles<"%.0f", int>);
static_assert(!Compiles<"%@ %d", int, std::string>, "the arguments are swapped");

static_assert(!Compiles<"%">);
static_assert(!Compiles<"100 %">);
static_assert(!Compiles<"%%">);
static_assert(!Compiles<"%i", int>);
static_assert(!Compiles<"%x", unsigned>);
static_assert(!Compiles<"%lld", long long>);
static_assert(!Compiles<"%f", double>);
static_assert(!Compiles<"%n", int>);

TEST(LogFormat, PrintsTextOfEveryKind) {
  EXPECT_EQ(Formatted("%@ %@ %@", std::string("a"), std::string_view("b"), "c"), "a b c");
  const char* pointer = "d";
  EXPECT_EQ(Formatted("%s %s", pointer, "e"), "d e");
  EXPECT_EQ(Formatted("<%@>", ""), "<>");
  EXPECT_EQ(Formatted("<%@>", "\u00E9\U0001F600"), "<\u00E9\U0001F600>");
}

TEST(LogFormat, KeepsPlainTextAroundAndBetweenConversions) {
  EXPECT_EQ(Formatted(""), "");
  EXPECT_EQ(Formatted("plain"), "plain");
  EXPECT_EQ(Formatted("%@%@", "a", "b"), "ab");
  EXPECT_EQ(Formatted("(%@)-[%d].", "a", 1), "(a)-[1].");
}

TEST(LogFormat, PrintsSignedNumbers) {
  EXPECT_EQ(Formatted("%d %d %d", 0, -1, 42), "0 -1 42");
  EXPECT_EQ(Formatted("%d", std::numeric_limits<int>::min()), "-2147483648");
  EXPECT_EQ(Formatted("%ld %ld", std::numeric_limits<std::int64_t>::min(),
                      std::numeric_limits<std::int64_t>::max()),
            "-9223372036854775808 9223372036854775807");
}

TEST(LogFormat, PrintsUnsignedNumbers) {
  EXPECT_EQ(Formatted("%u", std::numeric_limits<std::uint32_t>::max()), "4294967295");
  EXPECT_EQ(Formatted("%lu", std::size_t{0}), "0");
  EXPECT_EQ(Formatted("%llu", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(LogFormat, PrintsHexadecimalWithTwoDigitsOrMore) {
  EXPECT_EQ(Formatted("%02x %02x %02x %02x", 0U, 0xFU, 0xABU, 0x1234U), "00 0f ab 1234");
  EXPECT_EQ(Formatted("%02x", static_cast<unsigned char>(0xFF)), "ff");
}

TEST(LogFormat, PrintsRealsRoundedToWholeNumbers) {
  EXPECT_EQ(Formatted("%.0f %.0f %.0f", 24.0, 0.4, -1.6), "24 0 -2");
  EXPECT_EQ(Formatted("%.0f", 1e15 + 0.25), "1000000000000000");
  EXPECT_EQ(Formatted("%.0f", std::numeric_limits<double>::max()).size(), 309U);
  EXPECT_EQ(Formatted("%.0f", -std::numeric_limits<double>::max()).size(), 310U);
}

TEST(LogFormat, LeavesPercentSignsInArgumentsAlone) {
  EXPECT_EQ(Formatted("%@|%@", "100 %", "%d %@ %n %s %%"), "100 %|%d %@ %n %s %%");
}

TEST(Log, WritesMessagesAndErrorsAlikeToStandardError) {
  const CapturedError error;
  KioskLog("started: %@", "enrolled");
  KioskLogError("HTTP %ld", 503L);
  EXPECT_EQ(error.text(),
            std::string(kPrefix) + "started: enrolled\n" + std::string(kPrefix) + "HTTP 503\n");
}

TEST(Log, WritesPercentSignsInArgumentsUnchanged) {
  const CapturedError error;
  KioskLog("%@", "%s%s%s%n %d 100%");
  EXPECT_EQ(error.text(), std::string(kPrefix) + "%s%s%s%n %d 100%\n");
}

TEST(Log, WritesLongMessagesWhole) {
  const CapturedError error;
  const std::string message(200'000, 'x');
  KioskLogError("%@", message);
  EXPECT_EQ(error.text(), std::string(kPrefix) + message + "\n");
}

TEST(Log, KeepsTheLinesOfSeveralThreadsApart) {
  constexpr std::size_t threadCount = 4;
  constexpr std::size_t lineCount = 100;
  const CapturedError error;
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([thread] {
      for (std::size_t line = 0; line < lineCount; ++line) KioskLog("thread %lu speaks", thread);
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string rest = error.text();
  for (std::size_t line = 0; line < threadCount * lineCount; ++line) {
    ASSERT_EQ(rest.substr(0, kPrefix.size()), kPrefix);
    const std::size_t end = rest.find('\n');
    ASSERT_EQ(end, kPrefix.size() + std::string_view("thread 0 speaks").size());
    rest.erase(0, end + 1);
  }
  EXPECT_EQ(rest, "");
}

}  // namespace
