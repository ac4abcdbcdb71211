// The patterns as they are written, to hold the scanners of the daemon against.
#pragma once

#include <optional>
#include <string>

/// Whether all of `text` matches the pattern of host names, pairing codes or times of day.
bool MatchesHostNamePattern(const std::string& text);
bool MatchesPairingCodePattern(const std::string& text);
bool MatchesClockPattern(const std::string& text);

/// Whether all of `text` matches the pattern of a label of a host name, or of labels joined by
/// dots; of a text of digits and dots; of a port; of a block of addresses.
bool MatchesHostLabelPattern(const std::string& text);
bool MatchesHostLabelsPattern(const std::string& text);
bool MatchesNumericHostPattern(const std::string& text);
bool MatchesPortPattern(const std::string& text);
bool MatchesAddressBlockPattern(const std::string& text);

/// Whether all of `text` matches the pattern of network adapters, or of time servers.
bool MatchesAdapterPattern(const std::string& text);
bool MatchesTimeServerPattern(const std::string& text);

/// The digits that the pattern of pmset's settings captures in one line, for a key of letters.
std::optional<std::string> PowerSettingByPattern(const std::string& line, const std::string& key);

/// The number that the pattern of sntp's offsets captures at the start of one line.
std::optional<std::string> ClockOffsetByPattern(const std::string& line);

/// A web address in parts; `port` begins with its colon, `rest` is path, query and fragment.
struct WebAddress {
  std::string scheme;
  std::string host;
  std::string port;
  std::string rest;
};

/// The parts of a web address (RFC 3986, without user) whose host is a name or an address in four
/// numbers, in letters of any case; nothing when it is none.
std::optional<WebAddress> WebAddressByPattern(const std::string& text);
