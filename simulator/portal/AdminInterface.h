// The administrator's interface: terminals, their photos, codes and misbehaviour.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/portal/Misbehaviour.h"
#include "simulator/portal/PhotoFiles.h"
#include "simulator/portal/Router.h"
#include "simulator/portal/Store.h"

namespace portal {

/// Answers the administrator. `answer` may be called on any thread.
class AdminInterface {
 public:
  /// How closely new settings of a terminal are looked at.
  enum class Check { kShapes, kNothing };

  /// Puts a changed misbehaviour into force.
  using Apply = std::function<bool(const Json& settings)>;

  /// @param store,photos,misbehaviour must outlive this object
  /// @param token the administrator's bearer token
  /// @param apply called with new settings; false when they could not be put into force
  AdminInterface(Store& store, const PhotoFiles& photos, Misbehaviour& misbehaviour,
                 std::string token, Apply apply);

  /// Answers one request.
  HttpResponse answer(const HttpRequest& request);

  /// The most bytes that the body of a request may have: many for the administrator's photos.
  /// @param head the request without its body
  std::size_t bodyLimit(const HttpRequest& head) const;

 private:
  HttpResponse listTerminals();
  HttpResponse listCodes();
  HttpResponse showTerminal(const std::string& id);
  HttpResponse claim(const HttpRequest& request, const std::string& code);
  HttpResponse change(const HttpRequest& request, const std::string& id, Check check);
  HttpResponse revoke(const std::string& id);
  HttpResponse forget(const std::string& id);
  HttpResponse listPhotos(const std::string& id);
  HttpResponse addPhoto(const HttpRequest& request, const std::string& id);
  HttpResponse removePhoto(const std::string& id, const std::string& digest);
  HttpResponse misbehave(const HttpRequest& request);
  bool isAdministrator(const HttpRequest& request) const;
  std::vector<Route> routes();

  Store& _store;
  const PhotoFiles& _photos;
  Misbehaviour& _misbehaviour;
  const std::string _token;
  const Apply _apply;
  const std::vector<Route> _routes;
};

}  // namespace portal
