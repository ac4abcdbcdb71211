"""A simulated Mac, and what can be seen of it from outside.

A file that is not there is nothing; one that is there but cannot be read or parsed ends the story.
"""
import datetime
import hashlib
import json
import os
import pathlib
import plistlib
import stat
from xml.parsers.expat import ExpatError

from programs import StoryError

APPLICATION = "/Applications/Brindlex.app/Contents"
HELPER = "Applications/Brindlex.app/Contents/Helpers/kioskd"
SERVICE = "com.brindlex.stream.kioskd"
STATE_FILE = "Library/Application Support/Brindlex/Kiosk/state.json"
LOGIN_WINDOW = "Library/Preferences/com.apple.loginwindow.plist"
USERS = "private/var/db/dslocal/nodes/Default/users"
LOGS = "private/var/log"
DAEMON_LOG = f"{LOGS}/system.log"
JOURNAL = "private/var/simulated/journal.jsonl"
POWER = "private/var/simulated/power.json"
CLOCK = "private/var/simulated/time.json"
NETWORK = "Library/Preferences/SystemConfiguration/preferences.plist"
LOCAL_TIME = "private/etc/localtime"
BRANDING = "Library/Application Support/Brindlex/Kiosk/Branding"
SYSTEM_VERSION = "System/Library/CoreServices/SystemVersion.plist"
# What a Mac notes down while it runs. Nothing else may be left behind by what happened on it.
NOTES = {
    LOGS,
    f"private/var/run/{SERVICE}.socket",
    JOURNAL,
    "private/var/simulated/boot.json",
    "private/var/simulated/launchd.pid",
    "private/var/simulated/gui",
}
# What the technician sets on the Mac is the Mac's afterwards, and so is its newer version.
SETTINGS = {NETWORK, f"{NETWORK}-lock", LOCAL_TIME, CLOCK, "private/var/simulated/network.json",
            SYSTEM_VERSION}
# What the story itself does to the Mac.
PROPS = {"private/var/simulated/updates.json", "private/var/simulated/clock.json"}
# Files whose meaning counts, not their spelling.
PARSED = {STATE_FILE: json.loads, LOGIN_WINDOW: plistlib.loads, POWER: json.loads}


def content_of(path, parse=bytes):
    """What `parse` makes of a file, or nothing when there is none."""
    try:
        return parse(path.read_bytes())
    except FileNotFoundError:
        return None
    except (ValueError, ExpatError) as problem:
        raise StoryError(f"{path} makes no sense: {problem}") from problem


def lines_of(path):
    """The whole lines of a file that grows."""
    return (content_of(path, bytes.decode) or "").split("\n")[:-1]


def json_lines_of(path):
    try:
        return [json.loads(line) for line in lines_of(path)]
    except ValueError as problem:
        raise StoryError(f"{path} makes no sense: {problem}") from problem


def daemon_words(line):
    """The message of a line of the Mac's system log."""
    return line.split("]: ", 1)[-1]


class Mac:
    """The Mac in the folder `root`."""

    def __init__(self, programs, simmac, root):
        self.programs, self.tool, self.root = programs, simmac, root

    # -- acting -----------------------------------------------------------------------------------

    def simmac(self, verb, *arguments):
        return self.programs.run(self.tool, verb, self.root, *arguments)

    def inside(self, *command, user="root"):
        """The command line that runs a command inside the Mac."""
        return [self.tool, "run", self.root, "--user", user, "--", *command]

    def kioskctl(self, *arguments, user="root", said=""):
        """The daemon's reply to what the application would send."""
        command = self.inside(f"{APPLICATION}/MacOS/kioskctl", *arguments, "--json", user=user)
        out = self.programs.run(*command, statuses=(0, 1), said=said)
        return json.loads(out.strip().split("\n")[-1])

    def daemon_answers(self):
        command = self.inside(f"{APPLICATION}/MacOS/kioskctl", "--json", "status")
        return self.programs.attempt(*command).returncode == 0

    # -- looking ----------------------------------------------------------------------------------

    def file(self, path):
        return self.root / path

    def there(self, path):
        try:
            self.file(path).lstat()
            return True
        except FileNotFoundError:
            return False

    def rights(self, path):
        entry = self.file(path).lstat()
        return f"{stat.S_IMODE(entry.st_mode):04o}, owner {entry.st_uid}:{entry.st_gid}"

    def state(self):
        return content_of(self.file(STATE_FILE), json.loads) or {}

    def plist(self, path):
        return content_of(self.file(path), plistlib.loads) or {}

    def json(self, path):
        return content_of(self.file(path), json.loads) or {}

    def service(self, device):
        """The network service of an adapter, as the preferences have it."""
        services = self.plist(NETWORK)["NetworkServices"].values()
        return next(each for each in services if each["Interface"]["DeviceName"] == device)

    def account(self, name):
        """The record of an account, empty when there is none."""
        record = self.plist(f"{USERS}/{name}.plist")
        return {key: values[0] for key, values in record.items() if values}

    def status(self):
        return json.loads(self.simmac("status", "--json"))

    def session(self, account):
        """The account's open GUI session, if any."""
        uid = int(self.account(account).get("uid", -1))
        return next((each for each in self.status()["sessions"] if each["uid"] == uid), None)

    def daemon_users(self):
        """Real, effective, saved and file system user id of the daemon, by the kernel's word."""
        text = pathlib.Path(f"/proc/{self.status()['daemons'][SERVICE]}/status").read_text()
        users = next(line for line in text.split("\n") if line.startswith("Uid:"))
        return [int(user) for user in users.split()[1:]]

    def log(self):
        """The messages of the system log with the time of the latest of each."""
        return {daemon_words(line): datetime.datetime.fromisoformat(line.split(" ", 1)[0])
                for line in lines_of(self.file(DAEMON_LOG))}

    def calls(self, tool, *arguments):
        """How often a system tool was called so, and did it."""
        expected = (tool, list(arguments), 0)
        return sum((call["tool"], call["arguments"], call["status"]) == expected
                   for call in json_lines_of(self.file(JOURNAL)))

    # -- the whole --------------------------------------------------------------------------------

    def picture(self):
        """What makes the Mac what it is: every entry with its rights and content, but no notes."""
        names = (str(path.relative_to(self.root)) for path in sorted(self.root.rglob("*")))
        return {name: self.entry(name) for name in names if self.is_kept(name)}

    @staticmethod
    def is_kept(name):
        return not {name, *map(str, pathlib.PurePath(name).parents)} & (NOTES | SETTINGS | PROPS)

    def entry(self, name):
        path = self.file(name)
        info = path.lstat()
        content = None
        if stat.S_ISLNK(info.st_mode):
            content = os.readlink(path)
        elif name in PARSED:
            content = content_of(path, PARSED[name])
        elif stat.S_ISREG(info.st_mode):
            content = hashlib.sha256(path.read_bytes()).hexdigest()
        return stat.filemode(info.st_mode), info.st_uid, info.st_gid, info.st_rdev, content
