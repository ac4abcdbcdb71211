// System calls, and the ways in which each may fail on a machine that is in trouble.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A system call that a watched process is about to make.
struct SystemCall {
  long number = 0;
  std::vector<std::uint64_t> arguments;
  std::string file;  ///< what its first argument is open on, as the kernel names it, or empty
  std::string
      path;  ///< the path that it is given, beginning with that of `file` if it is one in it
  /// Made by another thread than the operation's own, which may take its turns at any time.
  bool beside = false;
  std::size_t occurrence = 0;  ///< how many of this number came before it, on this side

  /// For people: "openat no. 3".
  std::string description() const;
};

/// What becomes of a call: it fails with an error number, or does half of what it was told to.
struct Failure {
  int error = 0;
  bool half = false;

  /// How a program that is told of it tells it.
  std::string text() const;
  std::string description() const;
};

/// The ways in which the call may plausibly fail; none for calls that do not fail, or whose failure
/// says that the program is wrong. Calls for memory are left out: a program that gets none ends.
std::vector<Failure> PlausibleFailures(const SystemCall& call);

/// Whether somebody has thought about how the call may fail, or why it does not. What a program
/// calls one day without this being so is never made to fail, and nobody would know.
bool IsJudged(const SystemCall& call);

/// Whether the call may change what the disk holds or what runs: between two such calls, one moment
/// is as good as another for a process to be killed.
bool ChangesTheMac(const SystemCall& call);
