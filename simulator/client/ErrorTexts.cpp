#include "simulator/client/ErrorTexts.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "simulator/client/Printable.h"

namespace client {
namespace {

struct ErrorRow {
  std::string_view code;
  std::string_view sentence;
};

constexpr ErrorRow kErrors[] = {
    {"account_create_failed", "The kiosk account could not be made."},
    {"account_exists", "The Mac already has an account with the kiosk account's name."},
    {"account_password_failed", "The kiosk account's password could not be set."},
    {"already_enrolled", "This terminal is already paired."},
    {"authorization_required", "The update tool asked for an administrator's password."},
    {"autologin_failed", "Automatic login could not be switched on."},
    {"autologin_in_use", "Another account already logs in automatically."},
    {"bad_request", "kioskd does not understand the request."},
    {"busy", "A check or an install of updates is under way already."},
    {"claimed", "The code was already used for another terminal."},
    {"expired", "The code has expired; begin again to get a new one."},
    {"failed", "The Mac did not take it."},
    {"filevault_on", "FileVault is on, so the Mac cannot log in by itself."},
    {"home_failed", "The kiosk account's home folder could not be made."},
    {"invalid", "A value is not one that may be set."},
    {"invalid_code", "This is not a pairing code."},
    {"launch_agent_failed", "The kiosk application could not be set to start at login."},
    {"locked", "There were too many wrong passwords; try again in five minutes."},
    {"not_enrolled", "The portal has just taken this terminal out of service."},
    {"not_installed", "kioskd does not lie in a kiosk application that can be started."},
    {"not_pending", "No restart is pending."},
    {"not_permitted", "The caller may not do this."},
    {"not_provisioned", "The terminal is not set up as a kiosk."},
    {"not_unlocked", "The settings are not unlocked, or no longer; use kioskctl unlock."},
    {"pairing_failed", "The portal refused the pairing, or its answer made no sense."},
    {"revoked", "The portal revoked this terminal."},
    {"starting", "kioskd is still starting."},
    {"sync_failed", "The clock could not be set from the time server."},
    {"unknown_adapter", "No network service uses this adapter."},
    {"unknown_code", "kioskd did not hand out this code."},
    {"unknown_command", "kioskd does not know the command."},
    {"unreachable", "The portal cannot be reached."},
    {"wake_unavailable", "The minutes are set, but the Mac refused the schedule."},
    {"wrong_password", "The password is wrong."},
};

}  // namespace

std::string ErrorText(const std::string& code) {
  const auto* const row = std::find_if(std::begin(kErrors), std::end(kErrors),
                                       [&code](const ErrorRow& each) { return each.code == code; });
  if (row == std::end(kErrors)) return Printable(code);
  return std::string(row->sentence) + " (" + code + ")";
}

std::string ProblemText(const Json& reply, const char* key) {
  const std::optional<std::string> code = ReplyString(reply, key);
  return code ? ErrorText(*code) : "none";
}

}  // namespace client
