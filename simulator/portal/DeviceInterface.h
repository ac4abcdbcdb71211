// The interface that terminals talk to: pairing, check-in and photos.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/portal/Limits.h"
#include "simulator/portal/Misbehaviour.h"
#include "simulator/portal/PhotoFiles.h"
#include "simulator/portal/Router.h"
#include "simulator/portal/Store.h"

namespace portal {

/// Answers terminals. `answer` may be called on any thread.
class DeviceInterface {
 public:
  /// @param store,photos,misbehaviour must outlive this object
  DeviceInterface(Store& store, const PhotoFiles& photos, Misbehaviour& misbehaviour);

  /// Answers one request, well or as the misbehaviour in force wants it.
  HttpResponse answer(const HttpRequest& request);

  /// The most bytes that the body of a request may have.
  static std::size_t bodyLimit(const HttpRequest&) { return kMaxBody; }

 private:
  HttpResponse pair(const HttpRequest& request);
  HttpResponse checkIn(const HttpRequest& request);
  HttpResponse photo(const HttpRequest& request, const std::string& digest);
  HttpResponse forTerminal(const HttpRequest& request,
                           const std::function<HttpResponse(Json& terminal)>& step);
  HttpResponse misbehave(const Misbehaviour::Use& use, const HttpRequest& request);

  Store& _store;
  const PhotoFiles& _photos;
  Misbehaviour& _misbehaviour;
  const std::vector<Route> _routes;
};

}  // namespace portal
