// What the daemon replies in several tests.
#pragma once

inline constexpr const char* kBegun = R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":900})";
inline constexpr const char* kOpen = R"({"ok":true,"paired":false})";
inline constexpr const char* kUnlocked =
    R"({"ok":true,"unlockToken":"0123456789abcdef0123456789abcdef","expiresInSeconds":600})";
