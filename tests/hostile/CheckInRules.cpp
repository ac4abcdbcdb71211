#include "tests/hostile/CheckInRules.h"

#include <optional>
#include <string>

#include "tests/unit/PolicyTables.h"

namespace {

constexpr std::size_t kLongestName = 80;

Json Member(const Json& answer, const char* key) {
  return answer.contains(key) ? answer.at(key) : Json();
}

// Of names without blanks, in which a character is a byte: the others have tests of their own.
std::string Name(const Json& name) {
  return name.is_string() ? name.get<std::string>().substr(0, kLongestName) : "";
}

void StorePolicy(Json& state, const Json& answer, const std::string& key,
                 const std::optional<Json>& policy) {
  if (!policy) return;  // none, or one that is refused: the stored one stays
  const std::string sourceKey = key + "Source";
  const Json source = Member(answer, sourceKey.c_str());
  state[key] = *policy;
  state[sourceKey] = source == "device" || source == "tenant" ? source : Json("default");
}

}  // namespace

Json StateByTheRules(const Json& former, const Json& answer) {
  Json state = former;
  if (!answer.is_object() || Member(answer, "status") != "enrolled") return state;
  state.erase("tokenUnknownSince");
  state["signIn"] = SignInByTheTable(Member(answer, "signIn"));
  state.erase("terminalName");
  const std::string name = Name(Member(answer, "name"));
  if (!name.empty()) state["terminalName"] = name;
  StorePolicy(state, answer, "power", PowerByTheTables(Member(answer, "power")));
  StorePolicy(state, answer, "updates", UpdatesByTheTables(Member(answer, "updates")));
  const Json password = Member(answer, "exitPassword");
  if (password.is_string()) state["exitPassword"] = password;
  return state;
}
