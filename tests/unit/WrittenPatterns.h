// The patterns as they are written, to hold the scanners of the daemon against.
#pragma once

#include <string>

/// Whether all of `text` matches the pattern of host names, pairing codes or times of day.
bool MatchesHostNamePattern(const std::string& text);
bool MatchesPairingCodePattern(const std::string& text);
bool MatchesClockPattern(const std::string& text);
