"""What happens at the portal during the soak: policies, names and branding change, answers fail."""
import hashlib
import itertools
import json
import random

from mac import BRANDING
from programs import StoryError
from upkeep import png

NAME = "Lobby"
# The terminal takes none of them for a reason to stop being a kiosk.
TROUBLES = (("cut",), ("empty",), ("garbage",), ("html500",), ("refuse",),
            ("wrongCertificate",), ("slow", "--delay-ms", "300"),
            ("status", "--status", "403", "--body", '{"status": "revoked"}'))
INVALID = '{"automatic": 1, "window": {"start": "24:00", "end": "05:00", "days": []}}'


class Office:
    """An administrator who changes what the terminal is told, and looks whether it has heard."""

    def __init__(self, story, terminal):
        self.story, self.mac, self.terminal = story, story.mac, terminal
        self.dice = random.Random(21)
        self.number = 0
        self.troubles = itertools.cycle(TROUBLES)
        self.photos = []
        self.deeds = itertools.cycle((
            self.power, self.brand, self.trouble, self.updates, self.offer, self.sign_in,
            self.trouble, self.password, self.photo, self.terminal.lock_out))

    def next_deed(self):
        next(self.deeds)()

    def heard(self, what, look):
        """The terminal has heard of it after its next check-in."""
        self.terminal.unlock()
        if not look():
            raise StoryError(f"the terminal has not heard of {what}: "
                             f"{json.dumps(self.mac.state())}")

    def power(self):
        policy = {"screenOffMinutes": self.dice.randrange(241), "sleepMinutes": 0,
                  "schedule": {"enabled": False, "sleepAt": "22:00", "wakeAt": "07:00",
                               "days": [1]}}
        self.story.portal("power", NAME, json.dumps(policy), "--source", "device")
        self.heard("its power policy", lambda: self.mac.state().get("power") == policy)

    def updates(self):
        hour = self.dice.randrange(24)
        policy = {"automatic": True, "window": {"start": f"{hour:02}:00", "end": f"{hour:02}:30",
                                                "days": [0, 1, 2, 3, 4, 5, 6]}}
        self.story.portal("updates", NAME, "--raw", INVALID)
        self.terminal.unlock()
        self.story.portal("updates", NAME, json.dumps(policy))
        self.heard("its update policy", lambda: self.mac.state().get("updates") == policy)
        self.story.portal("updates", NAME, "--raw", INVALID)
        self.heard("that it keeps a valid policy",
                   lambda: self.mac.state().get("updates") == policy)
        self.story.portal("updates", NAME, json.dumps(policy))

    def offer(self):
        """An update that does not restart the Mac, which would end what is observed."""
        self.number += 1
        self.mac.simmac("updates", "add", "--label", f"Tools-{self.number}", "--version", "1",
                        "--size", "1000", "--duration-ms", "300")

    def sign_in(self):
        self.number += 1
        host = f"login{self.number}.example.org"
        self.story.portal("sign-in", NAME, "--host", host)
        self.heard("its hosts", lambda: self.mac.state()["signIn"]["extraHosts"] == [host])

    def password(self):
        self.number += 1
        self.terminal.password = f"Open Sesame {self.number}"
        self.story.portal("exit-password", NAME, "-", said=self.terminal.password + "\n")
        self.terminal.unlock()

    def brand(self):
        self.number += 1
        name = f"Brindlex {self.number}"
        self.story.portal("branding", NAME, "--display-name", name)
        self.heard("its branding",
                   lambda: self.mac.json(f"{BRANDING}/branding.json").get("displayName") == name)

    def photo(self):
        path = self.story.folder / "photo.png"
        path.write_bytes(png(*(self.dice.randrange(256) for _ in range(3))))
        self.photos.append(hashlib.sha256(path.read_bytes()).hexdigest())
        self.story.portal("photo", NAME, "add", path)
        if len(self.photos) > 2:
            self.story.portal("photo", NAME, "remove", self.photos.pop(0))
        expected = {"branding.json", *self.photos}
        self.heard("its photos", lambda: {path.name for path in
                                          self.mac.file(BRANDING).iterdir()} == expected)

    def trouble(self):
        """The stored password unlocks while the portal is away."""
        self.story.portal("misbehave", *next(self.troubles))
        made = self.terminal.check_ins
        for _ in range(3):
            self.terminal.unlock()
            self.terminal.next_deed()
        self.terminal.check_ins = made  # the portal may not have taken notice of these
        self.story.portal("misbehave", "none")
