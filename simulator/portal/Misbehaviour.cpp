#include "simulator/portal/Misbehaviour.h"

#include <chrono>

namespace portal {

void Misbehaviour::set(const Json& settings) {
  {
    const std::lock_guard lock(_mutex);
    _settings = settings;
    ++_generation;
  }
  _changed.notify_all();
}

Json Misbehaviour::current() const {
  const std::lock_guard lock(_mutex);
  return _settings;
}

std::optional<Misbehaviour::Use> Misbehaviour::takeForRequest(const std::string& path) {
  const std::lock_guard lock(_mutex);
  const Json& mode = _settings["mode"];
  if (mode == "none" || mode == "refuse" || mode == "wrongCertificate") return std::nullopt;
  const auto prefix = _settings.find("path");
  if (prefix != _settings.end() && !path.starts_with(prefix->get_ref<const std::string&>()))
    return std::nullopt;
  Use taken{_settings, _generation};
  takeUse();
  return taken;
}

bool Misbehaviour::takeForConnection() {
  const std::lock_guard lock(_mutex);
  if (_settings["mode"] != "wrongCertificate") return false;
  takeUse();
  return true;
}

void Misbehaviour::delay(const Use& use) {
  std::unique_lock lock(_mutex);
  _changed.wait_for(lock, std::chrono::milliseconds(use.settings["delayMs"].get<int>()),
                    [&] { return _generation != use.generation; });
}

void Misbehaviour::takeUse() {
  const auto times = _settings.find("times");
  if (times == _settings.end()) return;
  const int left = times->get<int>() - 1;
  if (left > 0)
    *times = left;
  else
    _settings = {{"mode", "none"}};
}

}  // namespace portal
