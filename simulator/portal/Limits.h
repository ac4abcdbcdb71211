// Limits on everything that a peer of the portal can make it allocate, keep or wait for.
#pragma once

#include <chrono>
#include <cstddef>

namespace portal {

/// Bytes of a request body.
inline constexpr std::size_t kMaxBody = std::size_t{64} << 10;
/// Bytes of a photo: the body of an administrator's upload and of the answer that hands it on,
/// which terminals take no more than 16 MiB of.
inline constexpr std::size_t kMaxPhoto = std::size_t{15} << 20;
/// Bytes of a whole request as they come over the wire, handshake, head and what a body has too
/// much included, beside a body that may be larger than `kMaxBody`; whoever sends more is cut off.
inline constexpr std::size_t kMaxRequestBytes = std::size_t{1} << 20;
/// Nesting levels of the JSON body of a request.
inline constexpr std::size_t kMaxJsonDepth = 64;
/// Nesting levels of the JSON body of an answer: what a request brought, within a list of records.
inline constexpr std::size_t kMaxAnswerDepth = kMaxJsonDepth + 4;
/// Pairing codes kept, in whatever state.
inline constexpr std::size_t kMaxCodes = 1000;
/// Connections of one interface served at a time; each holds a thread while it is kept alive.
inline constexpr std::size_t kMaxConnections = 64;
/// Accepted connections that wait for such a thread; more of them stay in the system's backlog.
inline constexpr std::size_t kMaxWaitingConnections = 64;
/// Requests on one connection.
inline constexpr std::size_t kMaxRequestsPerConnection = 10000;
/// How long a connection may be idle before it is closed; terminals check in every 30 seconds.
inline constexpr std::chrono::seconds kIdleTimeout{45};
/// How long one read or write of a connection may take.
inline constexpr std::chrono::seconds kTransferTimeout{10};
/// How long a whole request may take to arrive, however steadily it does.
inline constexpr std::chrono::seconds kRequestTimeout{30};

/// Characters of a host name that a terminal tells.
inline constexpr std::size_t kMaxHostname = 255;
/// Characters of a version that a terminal tells.
inline constexpr std::size_t kMaxVersion = 64;
/// Characters of a terminal's power error.
inline constexpr std::size_t kMaxPowerError = 1024;
/// Characters of a terminal's name.
inline constexpr std::size_t kMaxName = 80;
/// Characters of a terminal's exit password.
inline constexpr std::size_t kMaxExitPassword = 256;
/// Characters of a host name of the sign-in options.
inline constexpr std::size_t kMaxSignInHost = 253;
/// Host names of the sign-in options.
inline constexpr std::size_t kMaxSignInHosts = 10;
/// Characters of a branding's display name.
inline constexpr std::size_t kMaxDisplayName = 120;
/// Characters of a branding's subtitle.
inline constexpr std::size_t kMaxSubtitle = 240;
/// Characters of a tenant's id.
inline constexpr std::size_t kMaxTenantId = 128;
/// Photos of a terminal's branding.
inline constexpr std::size_t kMaxPhotos = 32;
/// Characters of a photo's content type.
inline constexpr std::size_t kMaxContentType = 64;
/// Characters of a photo's credit.
inline constexpr std::size_t kMaxCredit = 240;
/// Bytes of the portal's own file; a change that would need more is refused.
inline constexpr std::size_t kMaxStoredBytes = std::size_t{256} << 20;
/// Milliseconds that a misbehaving portal may delay its answer.
inline constexpr int kMaxDelayMs = 600'000;
/// Requests that a misbehaviour may be limited to.
inline constexpr int kMaxTimes = 1'000'000;
/// Characters of the path prefix that a misbehaviour may be limited to.
inline constexpr std::size_t kMaxPathPrefix = 256;

}  // namespace portal
