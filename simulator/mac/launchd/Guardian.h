// Makes sure that nothing of a running Mac is left when a part of simmac is killed.
#pragma once

#include <csignal>
#include <functional>

namespace simmac {

/// Tells the guarded process to kill everything below it and to go.
inline constexpr int kEndAtOnce = SIGQUIT;

/// Runs `work` in a child and returns its exit status. SIGTERM and SIGINT reach the child as
/// SIGTERM. When the caller is killed the child receives kEndAtOnce, and what it started is for it
/// to kill; when the child ends, however that is, the caller kills what it leaves behind.
int Guard(const std::function<int()>& work);

}  // namespace simmac
