// The daemon's side of the command channel, played from a script.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// What is sent back for a request (no bytes: silence) and whether the connection ends then.
struct ScriptAnswer {
  std::string bytes;
  bool closes;
};

/// Makes the answer to the request of that number.
using ScriptStep = std::function<ScriptAnswer(std::uint32_t number)>;

/// A frame with a reply, as the daemon sends it.
std::string ReplyFrame(std::uint32_t number, const std::string& key, const std::string& value);

ScriptStep Replies(const std::string& text);       ///< the reply `text`
ScriptStep Sends(const std::string& bytes);        ///< these bytes, whatever they are
ScriptStep Closes(const std::string& bytes = "");  ///< these bytes, then the connection ends
ScriptStep StaysSilent();                          ///< no answer, the connection stays

/// Listens on a socket and answers the requests one after another as its script says; the last step
/// serves all further requests. Speaks to one client at a time.
class ScriptedDaemon {
 public:
  ScriptedDaemon(const std::string& path, std::vector<ScriptStep> script);
  ~ScriptedDaemon();
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

  /// The texts of the requests so far.
  std::vector<std::string> requests() const;

  /// How many connections were made so far.
  int connections() const;

 private:
  void listen(const std::string& path);
  bool readable(int descriptor) const;
  bool receive(int client, std::string& bytes) const;
  void run();
  void serve(int client);
  bool answer(int client);
  ScriptStep takeStep(const std::string& request);

  int _listener = -1;
  int _stop = -1;
  mutable std::mutex _mutex;
  std::vector<ScriptStep> _script;
  std::vector<std::string> _requests;
  int _connections = 0;
  std::thread _thread;
};
