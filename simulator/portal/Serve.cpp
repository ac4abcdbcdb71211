#include "simulator/portal/Serve.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "simulator/portal/AdminInterface.h"
#include "simulator/portal/Branding.h"
#include "simulator/portal/Certificates.h"
#include "simulator/portal/DeviceInterface.h"
#include "simulator/portal/Files.h"
#include "simulator/portal/HttpsServer.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Misbehaviour.h"
#include "simulator/portal/PhotoFiles.h"
#include "simulator/portal/Recorder.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Store.h"

namespace portal {
namespace {

/// The certificates that terminals may be shown.
struct Identities {
  Identity right;
  Identity wrong;
};

std::optional<Identities> MakeIdentities(const std::filesystem::path& dir, std::string& problem) {
  const std::optional<Identity> authority = LoadOrMakeAuthority(dir, problem);
  if (!authority) return std::nullopt;
  const std::optional<Identity> other = MakeAuthority("Another authority");
  const std::optional<Identity> right = MakeServerIdentity(*authority);
  const std::optional<Identity> wrong = other ? MakeServerIdentity(*other) : std::nullopt;
  if (right && wrong) return Identities{*right, *wrong};
  problem = "cannot make a server certificate";
  return std::nullopt;
}

/// Both interfaces and what they share.
class Portal {
 public:
  Portal(std::unique_ptr<Store> store, PhotoFiles photos, Identities identities,
         std::string adminToken);

  /// @return false, and why in `problem`
  bool start(const ServeOptions& options, std::string& problem);

  /// Ends every connection.
  void stop();

  std::string url() const { return "https://127.0.0.1:" + std::to_string(_deviceServer.port()); }
  std::string adminUrl() const {
    return "https://127.0.0.1:" + std::to_string(_adminServer.port());
  }

 private:
  bool apply(const Json& settings);
  template <class Interface>
  HttpsServer::Handler recorded(Interface& interface);

  const std::unique_ptr<Store> _store;
  const PhotoFiles _photos;
  const Identities _identities;
  Misbehaviour _misbehaviour;
  Recorder _recorder;
  std::mutex _applying;
  DeviceInterface _device;
  AdminInterface _admin;
  HttpsServer _deviceServer;
  HttpsServer _adminServer;
};

Portal::Portal(std::unique_ptr<Store> store, PhotoFiles photos, Identities identities,
               std::string adminToken)
    : _store(std::move(store)),
      _photos(std::move(photos)),
      _identities(std::move(identities)),
      _device(*_store, _photos, _misbehaviour),
      _admin(*_store, _photos, _misbehaviour, std::move(adminToken),
             [this](const Json& settings) { return apply(settings); }),
      _deviceServer(recorded(_device),
                    [this] {
                      return _misbehaviour.takeForConnection() ? _identities.wrong
                                                               : _identities.right;
                    }),
      _adminServer(
          recorded(_admin), [this] { return _identities.right; }, {},
          [this](const HttpRequest& head) { return _admin.bodyLimit(head); }) {}

template <class Interface>
HttpsServer::Handler Portal::recorded(Interface& interface) {
  return [this, &interface](HttpRequest request) {
    const bool tooLarge = request.body.size() > interface.bodyLimit(request);
    if (tooLarge) request.body.clear();  // the record has no use for it
    HttpResponse response = tooLarge ? ErrorResponse(413, "too_large") : interface.answer(request);
    _recorder.write(request, response);
    return response;
  };
}

/// Misbehaviour that lies below HTTP must be felt by connections that are already open as well.
bool Portal::apply(const Json& settings) {
  const std::lock_guard lock(_applying);
  _misbehaviour.set(settings);
  if (settings["mode"] == "refuse") {
    _deviceServer.refuse();
    return true;
  }
  if (settings["mode"] == "wrongCertificate") _deviceServer.dropConnections();
  return _deviceServer.accept();
}

bool Portal::start(const ServeOptions& options, std::string& problem) {
  if (options.record && !_recorder.open(*options.record)) {
    problem = "cannot write " + options.record->string();
    return false;
  }
  for (const auto& [server, port] :
       {std::pair{&_deviceServer, options.port}, {&_adminServer, options.adminPort}}) {
    if (server->reserve(port) && server->accept()) continue;
    problem = "cannot listen on port " + std::to_string(port) + " of 127.0.0.1";
    return false;
  }
  return true;
}

void Portal::stop() {
  _misbehaviour.set({{"mode", "none"}});  // wakes delayed answers
  _adminServer.refuse();
  _deviceServer.refuse();
}

/// The lock of a folder that only one portal serves; released when the process ends.
std::optional<Descriptor> Lock(const std::filesystem::path& dir, std::string& problem) {
  std::error_code error;
  if (std::filesystem::create_directories(dir, error)) chmod(dir.c_str(), 0700);
  const std::filesystem::path path = dir / "portal.lock";
  Descriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (lock.open() && flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return lock;
  problem =
      lock.open() ? "another portal serves " + dir.string() : "cannot write in " + dir.string();
  return std::nullopt;
}

int Fail(const std::string& problem) {
  std::cerr << "portal: " << problem << "\n";
  return 1;
}

/// Blocked before the first thread starts, so that no thread but the main one takes them.
sigset_t BlockSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  return ending;
}

/// Tells the world where the portal is until it is told to end.
int Run(Portal& portal, const std::filesystem::path& dir, const std::string& adminToken,
        const sigset_t& ending) {
  const std::filesystem::path ready = dir / "ready.json";
  const Json content = {{"url", portal.url()},
                        {"adminUrl", portal.adminUrl()},
                        {"adminToken", adminToken},
                        {"pid", getpid()}};
  if (!ReplaceFile(ready, content.dump(2) + "\n", 0600))
    return Fail("cannot write " + ready.string());
  std::cout << "terminals:     " << portal.url() << "\nadministrator: " << portal.adminUrl()
            << "\nauthority:     " << (dir / "ca.pem").string() << std::endl;
  int signal = 0;
  sigwait(&ending, &signal);
  unlink(ready.c_str());
  portal.stop();
  return 0;
}

}  // namespace

int Serve(const ServeOptions& options) {
  const sigset_t ending = BlockSignals();
  std::string problem;
  const std::optional<Descriptor> lock = Lock(options.dir, problem);
  if (!lock) return Fail(problem);
  std::unique_ptr<Store> store = Store::open(options.dir / "portal.json", problem);
  if (!store) return Fail(problem);
  std::optional<Identities> identities = MakeIdentities(options.dir, problem);
  if (!identities) return Fail(problem);
  const std::optional<std::string> adminToken = RandomHex(32);
  if (!adminToken) return Fail("the system gives no random bytes");
  PhotoFiles photos(options.dir / "photos");
  RemoveUnlistedPhotos(*store, photos);  // a portal that was killed may have left some
  Portal portal(std::move(store), std::move(photos), std::move(*identities), *adminToken);
  if (!portal.start(options, problem)) return Fail(problem);
  return Run(portal, options.dir, *adminToken, ending);
}

}  // namespace portal
