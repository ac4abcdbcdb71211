#include "simulator/portal/Misbehaviour.h"

#include <chrono>

namespace portal {

void Misbehaviour::set(const Json& settings) {
  {
    const std::lock_guard lock(mutex_);
    settings_ = settings;
    ++generation_;
  }
  changed_.notify_all();
}

Json Misbehaviour::current() const {
  const std::lock_guard lock(mutex_);
  return settings_;
}

std::optional<Misbehaviour::Use> Misbehaviour::takeForRequest(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const Json& mode = settings_["mode"];
  if (mode == "none" || mode == "refuse" || mode == "wrongCertificate") return std::nullopt;
  const auto prefix = settings_.find("path");
  if (prefix != settings_.end() && !path.starts_with(prefix->get_ref<const std::string&>()))
    return std::nullopt;
  Use taken{settings_, generation_};
  takeUse();
  return taken;
}

bool Misbehaviour::takeForConnection() {
  const std::lock_guard lock(mutex_);
  if (settings_["mode"] != "wrongCertificate") return false;
  takeUse();
  return true;
}

void Misbehaviour::delay(const Use& use) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::milliseconds(use.settings["delayMs"].get<int>()),
                    [&] { return generation_ != use.generation; });
}

void Misbehaviour::takeUse() {
  const auto times = settings_.find("times");
  if (times == settings_.end()) return;
  const int left = times->get<int>() - 1;
  if (left > 0)
    *times = left;
  else
    settings_ = {{"mode", "none"}};
}

}  // namespace portal
