"""What happens at the terminal during the soak: commands of every kind, each answer checked."""
import itertools
import json
import random

from mac import LOCAL_TIME, NETWORK
from programs import StoryError

ACCOUNT = "BrindlexKiosk"
REFUSED = {code: {"ok": False, "error": code} for code in
           ("already_enrolled", "busy", "invalid", "locked", "not_pending", "not_permitted",
            "not_unlocked", "unknown_adapter", "unknown_command", "wrong_password")}
DONE = {"ok": True}
ATTEMPTS, PAST_THE_LOCK = 5, "301s"
SCHEDULE = {"enabled": True, "sleepAt": "22:00", "wakeAt": "07:00", "days": [1, 2, 3, 4, 5]}
ZONES = ("Europe/Berlin", "America/New_York", "Australia/Sydney")
COMMANDS = {"status", "pair.begin", "pair.check", "restart.now", "unlock", "maintenance",
            "session.report", "power.get", "power.set", "net.set", "proxy.set", "time.zone",
            "time.sync", "time.get", "os.updates", "os.install"}


class Terminal:
    """Somebody who knows the maintenance password works at the kiosk session without a pause."""

    def __init__(self, mac, password):
        self.mac, self.password = mac, password
        self.dice = random.Random(20)
        self.token = ""
        self.used = {}  # commands that were answered, and how often
        self.check_ins = 0  # that the commands brought about
        self.maintained = False
        self.deeds = itertools.cycle((
            self.status, self.pairing, self.restart, self.session, self.power, self.network,
            self.proxy, self.zone, self.clock, self.updates, self.install, self.guess,
            self.nonsense, self.maintenance))

    # -- asking -----------------------------------------------------------------------------------

    def ask(self, command, user=ACCOUNT, **keys):
        reply = self.mac.kioskctl("send", json.dumps({"cmd": command, **keys}), user=user)
        self.used[command] = self.used.get(command, 0) + 1
        return reply

    def set(self, command, **keys):
        return self.ask(command, unlockToken=self.token, **keys)

    @staticmethod
    def expect(holds, what, seen):
        if not holds:
            raise StoryError(f"{what}: {json.dumps(seen)}")

    def same(self, what, reply, expected):
        self.expect(reply == expected, f"{what} is not answered with {json.dumps(expected)}", reply)

    # -- the unlock, which checks in --------------------------------------------------------------

    def unlock(self):
        self.check_ins += 1
        reply = self.ask("unlock", password=self.password)
        self.expect(reply.get("ok") is True and reply.get("expiresInSeconds") == 600 and
                    len(reply.get("unlockToken", "")) == 32, "the password does not unlock", reply)
        self.token = reply["unlockToken"]

    def guess(self):
        self.check_ins += 1
        self.same("a wrong password", self.ask("unlock", password="guess"),
                  REFUSED["wrong_password"])

    def lock_out(self):
        self.unlock()  # sets the count of attempts to 0
        for _ in range(ATTEMPTS):
            self.guess()
        self.same("the right password during a lock-out",
                  self.ask("unlock", password=self.password), REFUSED["locked"])
        self.mac.simmac("clock", "--advance", PAST_THE_LOCK)
        self.unlock()

    # -- the deeds --------------------------------------------------------------------------------

    def next_deed(self):
        next(self.deeds)()

    def status(self):
        reply = self.ask("status", user="root")
        self.expect(reply.get("ok") is True and reply.get("enrolled") == 1 and
                    reply.get("provisioned") is True and reply.get("kioskSession") == 0 and
                    reply.get("maintenance") is self.maintained, "the status is wrong", reply)

    def pairing(self):
        self.same("pairing anew", self.ask("pair.begin"), REFUSED["already_enrolled"])
        self.same("a check of an enrolled device", self.ask("pair.check", code="K7QX2MPA"),
                  {"ok": True, "paired": True, "provisioned": True})

    def restart(self):
        self.same("a restart that nobody waits for", self.ask("restart.now", user="root"),
                  REFUSED["not_pending"])
        self.same("a restart from the session", self.ask("restart.now"), REFUSED["not_permitted"])

    def session(self):
        use = {"live": self.dice.random() < 0.5, "signedIn": self.dice.random() < 0.5}
        self.same("a report", self.ask("session.report", **use), DONE)
        self.same("a stranger's report", self.ask("session.report", user="root", **use),
                  REFUSED["not_permitted"])

    def power(self):
        policy = {"screenOffMinutes": self.dice.randrange(241), "sleepMinutes": 0,
                  "schedule": SCHEDULE}
        reply = self.set("power.set", **policy)
        self.expect(reply.get("ok") is True and reply.get("local") == policy and
                    self.mac.state().get("powerLocal") == policy, "power is not set", reply)
        self.same("power of no kind", self.set("power.set", screenOffMinutes="soon"),
                  REFUSED["invalid"])
        self.set("power.set", useOrganisation=True)
        shown = self.set("power.get")
        self.expect(shown.get("ok") is True and shown.get("local") is None and
                    shown["effective"] == shown["policy"], "power is not the policy's", shown)

    def network(self):
        address = f"192.0.2.{self.dice.randrange(2, 250)}"
        self.same("an address", self.set("net.set", adapter="en0", mode="static", ip=address,
                                         prefix=24, gateway="192.0.2.1", dns=["192.0.2.53"]), DONE)
        self.expect(self.mac.service("en0")["IPv4"]["Addresses"] == [address],
                    f"{NETWORK} has another address than {address}", self.mac.service("en0"))
        self.same("an unknown adapter", self.set("net.set", adapter="en9", mode="dhcp", dns=[]),
                  REFUSED["unknown_adapter"])

    def proxy(self):
        port = self.dice.randrange(1, 65536)
        self.same("a proxy", self.set("proxy.set", mode="manual", server=f"proxy.example:{port}",
                                      bypass=["<local>", "*.corp.example"]), DONE)
        self.expect(self.mac.service("en0")["Proxies"]["HTTPPort"] == port,
                    f"{NETWORK} has another port than {port}", self.mac.service("en0"))
        self.same("no proxy", self.set("proxy.set", mode="none"), DONE)

    def zone(self):
        zone = self.dice.choice(ZONES)
        self.same("a zone", self.set("time.zone", zone=zone), DONE)
        link = str(self.mac.file(LOCAL_TIME).readlink())
        self.expect(link.endswith(zone), f"the zone is not {zone}", link)
        self.same("no zone", self.set("time.zone", zone="Europe/Atlantis"), REFUSED["invalid"])

    def clock(self):
        reply = self.set("time.sync")
        self.expect(reply.get("ok") is True and "offsetMs" in reply, "the clock is not set", reply)
        shown = self.set("time.get")
        self.expect(shown.get("ok") is True and
                    shown["lastSync"] == {key: reply[key] for key in ("at", "ok", "server")},
                    "the clock was set otherwise", shown)

    def updates(self):
        reply = self.set("os.updates", check=True)
        self.expect(reply == REFUSED["busy"] or
                    (reply.get("ok") is True and reply.get("checking") is True),
                    "updates are not looked for", reply)
        self.expect(self.set("os.updates").get("ok") is True, "updates are not shown", reply)

    def install(self):
        reply = self.set("os.install")
        self.expect(reply in (DONE, REFUSED["busy"]), "updates are not installed", reply)

    def nonsense(self):
        self.same("no command", self.ask("reboot"), REFUSED["unknown_command"])
        self.used.pop("reboot")
        self.same("a token of another kind", self.ask("power.get", unlockToken=[self.token]),
                  REFUSED["not_unlocked"])

    def maintenance(self):
        self.same("maintenance without anything", self.ask("maintenance", unlockToken="f" * 32),
                  REFUSED["not_unlocked"])
        if self.dice.random() < 0.5:
            return
        self.same("maintenance", self.set("maintenance"), DONE)
        self.maintained = True
        self.same("a token that is used up", self.set("power.get"), REFUSED["not_unlocked"])
