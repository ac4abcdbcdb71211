// Changes inputs as JSON values, so that they get past the parser, behind a first character.
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/fuzz/Fuzz.h"
#include "tests/unit/Random.h"
#include "tests/unit/RandomJson.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maximum, unsigned seed);

namespace {

constexpr std::size_t kLongestString = 300;

/// Whatever the daemon's policies, requests and answers call something.
const std::vector<std::string>& Words() {
  static const std::vector<std::string> words{"account",
                                              "action",
                                              "adapter",
                                              "answer",
                                              "authBaseUrl",
                                              "auto",
                                              "automatic",
                                              "body",
                                              "branding",
                                              "bypass",
                                              "check",
                                              "cmd",
                                              "code",
                                              "contentType",
                                              "credit",
                                              "days",
                                              "deviceToken",
                                              "dhcp",
                                              "displayName",
                                              "dns",
                                              "email",
                                              "enabled",
                                              "end",
                                              "enrolled",
                                              "error",
                                              "exitPassword",
                                              "expiresInSeconds",
                                              "extraHosts",
                                              "gateway",
                                              "generatedUID",
                                              "height",
                                              "ip",
                                              "lastError",
                                              "lastTimeSync",
                                              "live",
                                              "maintenance",
                                              "maintenanceFailures",
                                              "maintenanceLockedUntil",
                                              "manual",
                                              "microsoft",
                                              "mode",
                                              "name",
                                              "none",
                                              "osUpdates",
                                              "output",
                                              "pacUrl",
                                              "pairingCode",
                                              "password",
                                              "pending",
                                              "photos",
                                              "power",
                                              "powerBefore",
                                              "powerError",
                                              "powerLocal",
                                              "powerRepeatArmed",
                                              "powerSource",
                                              "prefix",
                                              "provisioned",
                                              "revoked",
                                              "schedule",
                                              "screenOffMinutes",
                                              "server",
                                              "sha256",
                                              "signIn",
                                              "signInSubtitle",
                                              "signedIn",
                                              "sleepAt",
                                              "sleepMinutes",
                                              "start",
                                              "static",
                                              "status",
                                              "tenant",
                                              "tenantId",
                                              "terminalName",
                                              "token",
                                              "tokenUnknownSince",
                                              "uid",
                                              "unknown",
                                              "unlockToken",
                                              "updates",
                                              "updatesSource",
                                              "updatesWindowDone",
                                              "useOrganisation",
                                              "wakeAt",
                                              "width",
                                              "window",
                                              "zone",
                                              "22:00",
                                              "07:00",
                                              "23:59",
                                              "en0",
                                              "192.168.1.10",
                                              "192.168.1.1",
                                              "255.255.255.255",
                                              "proxy:8080",
                                              "http://pac/p",
                                              "<local>",
                                              "*.corp",
                                              "10.0.0.0/8",
                                              "a.example"};
  return words;
}

/// All values within one, itself included.
void Collect(Json& value, std::vector<Json*>& all) {
  all.push_back(&value);
  if (!value.is_structured()) return;
  for (Json& element : value) Collect(element, all);
}

Json AnyValue(Random& random) {
  return random.oneIn(2) ? Json(random.pick(Words())) : AnyJson(random, 2);
}

void ChangeText(Random& random, Json& value) {
  std::string text = value.get<std::string>();
  const std::size_t size = std::min(text.size(), kLongestString);
  text.resize(std::max<std::size_t>(2 * size, 16));
  text.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(text.data()), size, text.size()));
  value = random.oneIn(4) ? random.pick(Words()) : text;
}

void ChangeNumber(Random& random, Json& value) {
  static const std::vector<double> steps{-1, 1, 0.5, -60, 60, 1e18, 1e300};
  if (random.oneIn(4)) {
    value = static_cast<std::int64_t>(random.bits() >> random.below(64));
  } else {
    const double changed = value.get<double>() + random.pick(steps);
    const bool whole = random.oneIn(2) && changed > -1e15 && changed < 1e15;
    value = whole ? Json(static_cast<std::int64_t>(changed)) : Json(changed);
  }
}

void ChangeObject(Random& random, Json& object, const Json& other) {
  if (!object.empty() && random.oneIn(3)) {
    const auto at =
        std::next(object.begin(), static_cast<std::ptrdiff_t>(random.below(object.size())));
    object.erase(at);
  } else {
    object[random.pick(Words())] = random.oneIn(2) ? other : AnyValue(random);
  }
}

void ChangeArray(Random& random, Json& array, const Json& other) {
  if (!array.empty() && random.oneIn(3)) {
    array.erase(random.below(array.size()));
  } else if (array.size() > 1 && random.oneIn(3)) {
    std::swap(array[random.below(array.size())], array[random.below(array.size())]);
  } else {
    const Json added = random.oneIn(4) ? AnyValue(random) : other;
    array.insert(array.begin() + static_cast<std::ptrdiff_t>(random.below(array.size() + 1)),
                 added);
  }
}

void Change(Random& random, Json& root) {
  std::vector<Json*> all;
  Collect(root, all);
  const Json other = *random.pick(all);
  Json& value = *random.pick(all);
  if (random.oneIn(6)) {
    value = random.oneIn(2) ? other : AnyValue(random);
  } else if (value.is_string()) {
    ChangeText(random, value);
  } else if (value.is_number()) {
    ChangeNumber(random, value);
  } else if (value.is_object()) {
    ChangeObject(random, value, other);
  } else if (value.is_array()) {
    // An element is a likelier neighbour than any other value.
    ChangeArray(random, value, value.empty() ? other : Json(random.pick(value)));
  } else {
    value = AnyValue(random);
  }
}

}  // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                    unsigned seed) {
  Random random(seed);
  Json value;
  if (size > 1) value = Json::parse(data + 1, data + size, nullptr, false);
  if (size == 0 || value.is_discarded() || random.oneIn(50)) {
    return LLVMFuzzerMutate(data, size, maximum);
  }
  for (std::size_t changes = 1 + random.below(4); changes > 0; --changes) Change(random, value);
  const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() + 1 > maximum) return LLVMFuzzerMutate(data, size, maximum);
  if (random.oneIn(30)) data[0] = static_cast<std::uint8_t>('0' + random.below(10));
  std::memcpy(data + 1, text.data(), text.size());
  return text.size() + 1;
}
