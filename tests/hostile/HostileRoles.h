// How much each role of a hostile peer asks for, for its test to reckon with.
#pragma once

#include <cstddef>

inline constexpr std::size_t kIdleConnections = 400;

inline constexpr std::size_t kHalfFrames = 10;
inline constexpr std::size_t kHalfFrameBytes = 512'000;

inline constexpr std::size_t kUnreadConnections = 4;
inline constexpr std::size_t kUnreadRequests = 2000;

inline constexpr std::size_t kLargeConnections = 20;
inline constexpr std::size_t kLargeRequests = 16;
inline constexpr std::size_t kLargeRequestBytes = std::size_t{64} << 10;

inline constexpr std::size_t kKnocks = 1000;
