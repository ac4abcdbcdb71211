#include "tests/bench/SdBus.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <utility>

#include "tests/bench/Measure.h"
#include "tests/bench/Server.h"

namespace {

constexpr char kObject[] = "/kiosk";
constexpr char kInterface[] = "bench.Kiosk";
constexpr char kMember[] = "Ask";
constexpr char kName[] = "bench.Kiosk";

void Check(int result, const char* call) {
  if (result < 0) Fail(std::string("sd-bus: ") + call + " failed: " + std::to_string(result));
}

int Answer(sd_bus_message* message, void* reply, sd_bus_error*) {
  const char* request = nullptr;
  Check(sd_bus_message_read(message, "s", &request), "read");
  return sd_bus_reply_method_return(message, "s", static_cast<std::string*>(reply)->c_str());
}

// sd-bus defines its tables' entries with C's casts.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
const sd_bus_vtable kTable[] = {SD_BUS_VTABLE_START(0),
                                SD_BUS_METHOD("Ask", "s", "s", Answer, SD_BUS_VTABLE_UNPRIVILEGED),
                                SD_BUS_VTABLE_END};
#pragma GCC diagnostic pop

void Offer(sd_bus* bus, std::string& reply) {
  Check(sd_bus_add_object_vtable(bus, nullptr, kObject, kInterface, kTable, &reply), "vtable");
}

void ServeUntilItEnds(sd_bus* bus) {
  for (;;) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0) return;
    if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return;
  }
}

}  // namespace

void ServeSdBus(const std::string& path, const std::string& reply) {
  std::string text = reply;
  const int listener = ListenAt(path);
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    sd_bus* bus = nullptr;
    sd_id128_t id = {};
    Check(sd_id128_randomize(&id), "randomize");
    Check(sd_bus_new(&bus), "new");
    Check(sd_bus_set_fd(bus, connection, connection), "set_fd");
    Check(sd_bus_set_server(bus, 1, id), "set_server");
    Offer(bus, text);
    // A connection that is closed at once is none to answer.
    if (sd_bus_start(bus) >= 0) ServeUntilItEnds(bus);
    sd_bus_close_unref(bus);
  }
}

void RunDbusDaemon(const std::string& path) {
  const std::string configuration = path + ".conf";
  std::ofstream(configuration)
      << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>bench</type><listen>unix:path=)"
      << path << R"(</listen><auth>EXTERNAL</auth><policy context="default">
<allow own="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
</policy></busconfig>)";
  const std::string option = "--config-file=" + configuration;
  execlp("dbus-daemon", "dbus-daemon", option.c_str(), "--nofork", "--nopidfile", nullptr);
  Fail("dbus-daemon cannot be started");
}

void ServeDbus(const std::string& path, const std::string& readyPath, const std::string& reply) {
  std::string text = reply;
  sd_bus* bus = nullptr;
  Check(sd_bus_new(&bus), "new");
  Check(sd_bus_set_address(bus, ("unix:path=" + path).c_str()), "set_address");
  Check(sd_bus_set_bus_client(bus, 1), "set_bus_client");
  Offer(bus, text);
  Check(sd_bus_start(bus), "start");
  Check(sd_bus_request_name(bus, kName, 0), "request_name");
  static_cast<void>(ListenAt(readyPath));
  ServeUntilItEnds(bus);
  Fail("the dbus-daemon is gone");
}

SdBusClient::SdBusClient(const std::string& path, bool isDaemon, std::string request,
                         std::string reply)
    : _destination(isDaemon ? kName : nullptr),
      _request(std::move(request)),
      _reply(std::move(reply)) {
  Check(sd_bus_new(&_bus), "new");
  Check(sd_bus_set_address(_bus, ("unix:path=" + path).c_str()), "set_address");
  if (isDaemon) Check(sd_bus_set_bus_client(_bus, 1), "set_bus_client");
  Check(sd_bus_start(_bus), "start");
}

SdBusClient::~SdBusClient() { sd_bus_flush_close_unref(_bus); }

void SdBusClient::ask() {
  sd_bus_message* answer = nullptr;
  Check(sd_bus_call_method(_bus, _destination, kObject, kInterface, kMember, nullptr, &answer, "s",
                           _request.c_str()),
        "call_method");
  const char* text = nullptr;
  Check(sd_bus_message_read(answer, "s", &text), "read");
  if (text != _reply) Fail("another reply than expected");
  sd_bus_message_unref(answer);
}
