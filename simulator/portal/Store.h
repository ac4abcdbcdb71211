// What the portal remembers: terminals and pairing codes, in one file.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/Json.h"
#include "simulator/portal/Http.h"
#include "simulator/portal/Limits.h"

namespace portal {

/// The remembered records.
struct State {
  /// Terminals by their id: the public record (see docs/portal-api.yaml) without "id" and with
  /// instants as seconds since 1970, and "tokenDigest", absent until the token was handed out.
  Json terminals = Json::object();
  /// Pairing codes by the code: {"device": pair request, "createdAt", "expiresAt", "terminal": id
  /// or null, "collected": bool}.
  Json codes = Json::object();

  bool operator==(const State&) const = default;
};

/// The state and its file. Every method may be called on any thread.
class Store {
 public:
  /// Reads the file; a missing one is an empty state.
  /// @param path the file
  /// @param problem receives one sentence when the file is there but broken; it is left alone
  /// @param limit the most bytes that the file may have
  /// @return nothing on that problem
  static std::unique_ptr<Store> open(const std::filesystem::path& path, std::string& problem,
                                     std::size_t limit = kMaxStoredBytes);

  /// Runs one step on the state while nobody else does. What a step that answers with success
  /// changed is kept and is in the file before this returns; a step that refuses changes nothing.
  /// @return the step's answer, or 500 "storage" when the file could not be written or would be
  ///         larger than the limit, so that it could not be read again; nothing is changed then
  HttpResponse run(const std::function<HttpResponse(State&)>& step);

 private:
  Store(std::filesystem::path path, std::size_t limit, State state);
  bool keep(const State& state) const;

  const std::filesystem::path _path;
  const std::size_t _limit;
  std::mutex _mutex;
  State _state;
};

}  // namespace portal
