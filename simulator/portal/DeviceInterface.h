// The interface that terminals talk to: pairing and check-in.
#pragma once

#include <vector>

#include "simulator/portal/Misbehaviour.h"
#include "simulator/portal/Router.h"
#include "simulator/portal/Store.h"

namespace portal {

/// Answers terminals. `answer` may be called on any thread.
class DeviceInterface {
 public:
  /// @param store,misbehaviour must outlive this object
  DeviceInterface(Store& store, Misbehaviour& misbehaviour);

  /// Answers one request, well or as the misbehaviour in force wants it.
  HttpResponse answer(const HttpRequest& request);

 private:
  HttpResponse pair(const HttpRequest& request);
  HttpResponse checkIn(const HttpRequest& request);
  HttpResponse misbehave(const Misbehaviour::Use& use, const HttpRequest& request);

  Store& _store;
  Misbehaviour& _misbehaviour;
  const std::vector<Route> _routes;
};

}  // namespace portal
