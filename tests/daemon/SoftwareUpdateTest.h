// The world of tests of the software update driver with its real queue: a simulated Mac that the
// test's process has entered, whose software update tool follows a script.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "account/KioskDescriptor.h"
#include "platform/Json.h"
#include "tests/support/MacFolder.h"
#include "updates/KioskOsUpdates.h"

class SoftwareUpdateTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;
  using Operation = bool (KioskOsUpdates::*)(KioskOsUpdates::Completion);

  static constexpr char kTool[] = "/usr/sbin/softwareupdate";
  static constexpr char kOneUpdate[] =
      "* Label: Safari17.5-17.5\n\tTitle: Safari, Version: 17.5, Size: 1200KiB, \n";
  static constexpr char kTwoUpdates[] =
      "* Label: Safari17.5-17.5\n\tTitle: Safari, Version: 17.5, Size: 1200KiB, \n"
      "* Label: macOS 14.7\n\tTitle: macOS, Version: 14.7, Size: 2GiB, Action: restart, \n";

  SoftwareUpdateTest();
  /// Lets a tool that a failed test left waiting go on.
  ~SoftwareUpdateTest() override;

  // Steps of a script.
  static std::string say(const std::string& bytes);
  static std::string complain(const std::string& bytes);
  static std::string exit(int status) { return "exit " + std::to_string(status); }

  /// What the tool does when it lists, and when it installs.
  void whenListing(const Lines& steps) const { script("-l", steps); }
  void whenInstalling(const Lines& steps) const { script("-i", steps); }
  void offer(const std::string& list) const { whenListing({say(list)}); }

  /// A step at which the tool waits until the test lets it go on.
  std::string gate(const std::string& name);
  /// Waits until the tool stands at the gate; it goes on when the result is gone.
  [[nodiscard]] KioskDescriptor holdGate(const std::string& name) const;
  void passGate(const std::string& name) const { holdGate(name).close(); }

  /// Runs an operation of the driver to its end; what its completion was given.
  Json resultOf(Operation operation);
  Json check() { return resultOf(&KioskOsUpdates::check); }
  Json install() { return resultOf(&KioskOsUpdates::install); }
  /// Waits until the driver has nothing to do.
  void settle() const;

  /// The tool's runs so far: its arguments and how much there was to read, "[-l] 0 bytes".
  Lines runs() const;

  MacFolder mac;
  std::shared_ptr<KioskOsUpdates> updates = std::make_shared<KioskOsUpdates>();

 private:
  void script(const std::string& argument, const Lines& steps) const;

  Lines _gates;
};
