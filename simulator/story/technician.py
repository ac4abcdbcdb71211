"""What a technician does at the terminal: settings behind the unlock, and maintenance."""
import json
import os

from mac import CLOCK, LOCAL_TIME, LOGIN_WINDOW, POWER
from programs import StoryError

PASSWORD = "open sesame"
POLICY = {"screenOffMinutes": 10, "sleepMinutes": 0,
          "schedule": {"enabled": True, "sleepAt": "22:00", "wakeAt": "07:00",
                       "days": [1, 2, 3, 4, 5]}}
ADDRESS = {"ConfigMethod": "Manual", "Addresses": ["192.0.2.7"],
           "SubnetMasks": ["255.255.255.0"], "Router": "192.0.2.1"}


class Technician:
    """Works at the terminal's kiosk session, and looks at the Mac after each step."""

    def __init__(self, story, account):
        self.story, self.mac, self.account = story, story.mac, account

    def ask(self, *arguments, said=""):
        return self.mac.kioskctl(*arguments, user=self.account, said=said)

    def done(self, text, *arguments, said=""):
        reply = self.ask(*arguments, said=said)
        if reply["ok"] is not True:
            raise StoryError(f"not so: {text}: {json.dumps(reply)}")
        return reply

    def expect(self, holds, text):
        self.story.expect(holds, text)

    def timeouts(self):
        """The machine's own display sleep and sleep, in minutes."""
        settings = self.mac.json(POWER)["settings"]
        return settings["displaysleep"], settings["sleep"]

    # -- the chapters -----------------------------------------------------------------------------

    def unlock(self):
        self.story.teller.chapter("A technician unlocks the settings")
        self.expect(self.ask("unlock", said="guess")["error"] == "wrong_password",
                    "a wrong password is refused")
        reply = self.done("the password unlocks", "unlock", said=PASSWORD)
        self.expect(reply["expiresInSeconds"] == 600, "the maintenance password unlocks them for "
                    "600 s; the daemon fetched it from the portal just now")
        self.expect(not any("unlock" in key.lower() for key in self.mac.state()),
                    "the unlock is held in memory only")

    def power(self):
        self.story.teller.chapter("The terminal's own settings")
        shown = self.done("power is shown", "power", "show")
        self.expect(shown["policy"] == POLICY and shown["source"] == "tenant" and
                    self.timeouts() == (10, 0),
                    "the organisation's power policy is in force: screen off after 10 min")
        self.expect([event["time"] for event in self.mac.json(POWER)["repeat"]] ==
                    ["07:00:00", "22:00:00"], "and the Mac sleeps at 22:00 and wakes at 07:00")
        self.done("power is set", "power", "set", "--screen-off", "5", "--sleep", "0")
        self.expect(self.timeouts() == (5, 0) and
                    self.mac.state()["powerLocal"]["screenOffMinutes"] == 5,
                    "overridden at the terminal: 5 min")

    def network(self):
        self.done("the address is set", "net", "static", "en0", "192.0.2.7/24",
                  "--gateway", "192.0.2.1", "--dns", "192.0.2.53")
        service = self.mac.service("en0")
        self.expect(service["IPv4"] == ADDRESS and
                    service["DNS"]["ServerAddresses"] == ["192.0.2.53"],
                    "en0 has the address 192.0.2.7/24 in the network preferences")
        self.done("the proxy is set", "proxy", "manual", "proxy.example:8080",
                  "--bypass", "<local>,*.corp")
        proxies = self.mac.service("en0")["Proxies"]
        self.expect((proxies["HTTPEnable"], proxies["HTTPProxy"], proxies["HTTPPort"]) ==
                    (1, "proxy.example", 8080), "and the proxy proxy.example:8080")

    def time(self):
        self.done("the zone is set", "time", "zone", "Europe/Berlin")
        link = os.readlink(self.mac.file(LOCAL_TIME))
        self.expect(link.endswith("/zoneinfo/Europe/Berlin"), f"the time zone links to {link}")
        out = self.mac.json(CLOCK)["offset"]
        reply = self.done("the clock is set", "time", "sync")
        self.expect(reply["offsetMs"] == round(out * 1000) and self.mac.json(CLOCK)["offset"] == 0,
                    f"the clock was {reply['offsetMs']} ms out and was set by {reply['server']}")

    def maintenance(self):
        self.story.teller.chapter("Maintenance")
        self.done("maintenance begins", "maintenance")
        self.expect("autoLoginUser" not in self.mac.plist(LOGIN_WINDOW),
                    "no one signs in automatically,")
        self.story.eventually("the session ends", lambda: not self.mac.session(self.account))
        self.expect(self.mac.kioskctl("status")["maintenance"] is True,
                    "the kiosk session has ended, and the status says so")

    def restart(self, boots):
        self.story.teller.chapter("The technician is done and restarts the Mac")
        self.mac.simmac("reboot")
        self.story.eventually("the Mac restarts",
                              lambda: self.mac.status()["bootCount"] == boots)
        self.story.eventually("the session opens", lambda: self.mac.session(self.account))
        self.expect("maintenance over: auto-login restored" in self.mac.log() and
                    self.mac.kioskctl("status")["maintenance"] is False,
                    "maintenance is over, and the kiosk session is back")
        self.expect(self.timeouts() == (5, 0), "the override is still in force")
