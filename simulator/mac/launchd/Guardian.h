// Makes sure that nothing of a running Mac is left when a part of simmac is killed.
#pragma once

#include <csignal>
#include <functional>

namespace simmac {

/// Tells the guarded process to kill everything below it and to go.
inline constexpr int kEndAtOnce = SIGQUIT;

/// Runs `work` in a child and returns its exit status. SIGTERM is passed on. When the
/// caller is killed the child receives kEndAtOnce; when the child is killed the caller kills what
/// the child leaves behind.
int Guard(const std::function<int()>& work);

}  // namespace simmac
