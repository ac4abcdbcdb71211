"""How the story is told: a timeline on standard output."""
import sys
import threading
import time


class Teller:
    """Prints the timeline. Lines come from several threads."""

    def __init__(self):
        self.start = time.monotonic()
        self.lock = threading.Lock()
        self.colour = sys.stdout.isatty()

    def line(self, text, code=""):
        elapsed = time.monotonic() - self.start
        if code and self.colour:
            text = f"\033[{code}m{text}\033[0m"
        with self.lock:
            print(f"{elapsed:6.1f} s  {text}", flush=True)

    def chapter(self, title):
        with self.lock:
            print(flush=True)
        self.line(title, "1")

    def seen(self, text):
        self.line(f"  ✓ {text}", "32")

    def failed(self, text):
        self.line(f"  ✗ {text}", "31")

    def told(self, who, text):
        self.line(f"  {who:>6} │ {text}", "2")


class Follower(threading.Thread):
    """Repeats the lines of a growing file, as the words of `who`."""

    def __init__(self, teller, who, path, keep=lambda line: line):
        super().__init__(daemon=True)
        self.teller, self.who, self.path, self.keep = teller, who, path, keep
        self.stopped = threading.Event()

    def run(self):
        while not self.path.exists():
            if self.stopped.wait(0.05):
                return
        with open(self.path, encoding="utf-8", errors="replace") as file:
            while True:
                line = file.readline()
                if line:
                    text = self.keep(line.rstrip("\n"))
                    if text:
                        self.teller.told(self.who, text)
                elif self.stopped.wait(0.05):
                    return

    def stop(self):
        """Repeats what is there already, and ends."""
        self.stopped.set()
        self.join()
