"""What the administrator has done from afar: branding, and OS updates in their window."""
import datetime
import hashlib
import os
import struct
import zlib
from zoneinfo import ZoneInfo

from mac import APPLICATION, BRANDING, LOCAL_TIME, SYSTEM_VERSION, json_lines_of
from technician import PASSWORD

DISPLAY_NAME, SUBTITLE, TENANT = "Brindlex Lobby", "Welcome", "tenant-7"
BEFORE_NOW, AFTER_NOW = datetime.timedelta(minutes=5), datetime.timedelta(minutes=90)
UPDATE = {"label": "macOS Sonoma 14.7-23H124", "title": "macOS Sonoma 14.7", "version": "14.7",
          "build": "23H124", "size": 1520555, "action": "restart", "duration-ms": 9000}
SOFTWARE_UPDATE = "/usr/sbin/softwareupdate"
INSTALL = (SOFTWARE_UPDATE, "-i", "-a", "--agree-to-license")
RETRY_MINUTES, MOVED_MINUTES = 15, 16
LIVE = "OS updates deferred: a stream session is live"


def png(red, green, blue):
    """A picture of one pixel."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(bytes([0, red, green, blue]))) + chunk(b"IEND", b""))


class Upkeep:
    """Works at the portal, and looks at the Mac after each step."""

    def __init__(self, story, account):
        self.story, self.mac, self.account = story, story.mac, account
        self.home = self.mac.file(f"Users/{account}")

    def expect(self, holds, text):
        self.story.expect(holds, text)

    # -- branding ---------------------------------------------------------------------------------

    def photo(self, name, *colour):
        """A photo that the terminal's branding shows from now on. Returns its digest."""
        path = self.story.folder / name
        path.write_bytes(png(*colour))
        self.story.portal("photo", "Lobby", "add", path, "--credit", "The story")
        return hashlib.sha256(path.read_bytes()).hexdigest()

    def cached(self):
        """What lies in the cache."""
        folder = self.mac.file(BRANDING)
        return {path.name for path in folder.iterdir()} if folder.is_dir() else set()

    def brand(self):
        self.story.teller.chapter("The administrator brands the sign-in screen")
        self.story.portal("branding", "Lobby", "--display-name", DISPLAY_NAME,
                          "--subtitle", SUBTITLE, "--tenant", TENANT)
        digest = self.photo("first.png", 200, 30, 30)
        self.expect(self.story.terminal()["branding"]["displayName"] == DISPLAY_NAME,
                    f"the portal has the name “{DISPLAY_NAME}” and a photo")
        return digest

    def branded(self, digest):
        self.story.eventually("the branding is in the cache",
                              lambda: self.cached() == {"branding.json", digest})
        branding = self.mac.json(f"{BRANDING}/branding.json")
        self.expect(branding["displayName"] == DISPLAY_NAME and branding["tenantId"] == TENANT and
                    [photo["sha256"] for photo in branding["photos"]] == [digest],
                    f"branding.json and its photo are there ({self.mac.rights(BRANDING)})")
        photo = self.mac.file(f"{BRANDING}/{digest}").read_bytes()
        self.expect(hashlib.sha256(photo).hexdigest() == digest,
                    f"the photo has the digest {digest[:12]}… that is its name")

    def replace_photo(self, former):
        digest = self.photo("second.png", 30, 30, 200)
        self.story.portal("photo", "Lobby", "remove", former)
        self.story.teller.seen("the administrator has replaced the photo")
        return digest

    # -- the window -------------------------------------------------------------------------------

    def use(self, occupancy):
        """Has somebody use the kiosk application so."""
        note = self.home / "Library/Application Support/Brindlex/session"
        note.parent.mkdir(parents=True, exist_ok=True)
        note.write_text(occupancy + "\n", encoding="utf-8")
        log = self.home / "Library/Logs/kiosk-app-session.jsonl"
        self.story.eventually(
            "the application reports it",
            lambda: (json_lines_of(log) or [{}])[-1] == {"report": occupancy, "outcome": "ok"})

    def open_window(self):
        self.story.teller.chapter("An OS update is out, and the update window opens around now")
        options = [word for key, value in UPDATE.items() for word in (f"--{key}", str(value))]
        self.mac.simmac("updates", "add", "--macos", *options)
        self.use("live")
        self.story.teller.seen("the kiosk application reports: a stream is live")
        zone = os.readlink(self.mac.file(LOCAL_TIME)).split("zoneinfo/", 1)[1]
        now = datetime.datetime.now(ZoneInfo(zone))
        start, end = (f"{each:%H:%M}" for each in (now - BEFORE_NOW, now + AFTER_NOW))
        self.story.portal("updates", "Lobby", "--automatic", "on", "--start", start, "--end", end,
                          "--days", "all", "--source", "tenant")
        self.story.teller.seen(f"the window is open from {start} to {end} in {zone} (the next "
                               "check-in is at most 30 s away)")

    def deferred(self):
        self.story.eventually("the update is deferred", lambda: LIVE in self.mac.log())
        record = self.story.eventually("it is on record", lambda: self.mac.state().get("osUpdates"))
        self.expect(record["lastResult"] == "deferred" and self.mac.calls(*INSTALL) == 0 and
                    "updatesWindowDone" not in self.mac.state(),
                    "the live stream defers the update; the window stays eligible")

    def move_clock(self):
        self.use("idle")
        self.mac.simmac("clock", "--advance", f"{MOVED_MINUTES}m")
        self.story.teller.seen("the stream has ended, and the story moves the daemon's clock on by "
                               f"{MOVED_MINUTES} minutes: a deferral holds for {RETRY_MINUTES}")

    def installs(self, version):
        before = self.mac.plist(SYSTEM_VERSION)["ProductVersion"]
        self.expect(before != version, f"the Mac has macOS {before}")
        self.story.eventually("the update begins",
                              lambda: "installing 1 OS update(s)" in self.mac.log())
        self.mac.kioskctl("unlock", user=self.account, said=PASSWORD)
        shown = self.story.eventually("its progress shows", self.progress)
        self.expect(shown["updates"][0]["title"] == UPDATE["title"],
                    f"“os.updates” shows {UPDATE['title']} at {shown['progress']:.0f} %")
        self.story.programs.run(*self.mac.inside(f"{APPLICATION}/MacOS/kioskctl", "unlock",
                                                 "--forget", user=self.account))

    def progress(self):
        shown = self.mac.kioskctl("updates", "list", user=self.account)
        return shown if shown.get("installing") and shown["progress"] >= 10 else None

    def pruned(self, former, digest):
        self.story.eventually("the photo is replaced",
                              lambda: self.cached() == {"branding.json", digest})
        self.expect(former not in self.cached(), "the new photo is in the cache, and the old one "
                    "is pruned")

    def restarts(self, boots, version):
        self.story.eventually("the Mac restarts",
                              lambda: self.mac.status()["bootCount"] == boots)
        log = self.mac.log()
        self.expect("OS updates installed; a restart is required" in log and
                    "OS updates need a restart; restarting inside the window" in log and
                    self.mac.calls(*INSTALL) == 1,
                    "the update is installed, and the Mac has restarted inside the window")
        self.expect(self.mac.plist(SYSTEM_VERSION)["ProductVersion"] == version,
                    f"it has macOS {version} now")
        self.story.eventually("the session opens", lambda: self.mac.session(self.account))
        self.expect(self.mac.kioskctl("status")["provisioned"], "and is a kiosk again")

    def reported(self):
        run = self.story.eventually("the portal hears of the run", self.successful_run)
        self.expect(self.mac.state()["osUpdates"] == run and run["restartRequired"] is True,
                    f"the portal shows the run of {run['lastRunAt']}")
        self.expect("updatesWindowDone" in self.mac.state(), "this window has had its run")

    def successful_run(self):
        run = self.story.terminal().get("osUpdates") or {}
        return run if run.get("lastResult") == "ok" else None

    # -- the chapters -----------------------------------------------------------------------------

    def tell(self, boots):
        first = self.brand()
        self.open_window()
        self.branded(first)
        self.deferred()
        self.story.teller.chapter("The terminal is free")
        second = self.replace_photo(first)
        self.move_clock()
        self.installs(UPDATE["version"])
        self.pruned(first, second)
        self.restarts(boots, UPDATE["version"])
        self.reported()
