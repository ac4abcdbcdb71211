"""The programs that the story runs. Nothing is waited for without end."""
import shlex
import subprocess
import time

PATIENCE_SECONDS = 90
FAREWELL_SECONDS = 30


class StoryError(Exception):
    """A step of the story did not happen."""


class Child:
    """A program that stays."""

    def __init__(self, name, process):
        self.name, self.process = name, process

    def ended(self):
        """How it ended, or nothing while it runs."""
        status = self.process.poll()
        if status is None:
            return None
        return f"{self.name} ended " + (f"by signal {-status}" if status < 0 else
                                        f"with exit status {status}")

    def end(self):
        """Waits for its end, which it was asked for. What went wrong with that, or nothing."""
        try:
            status = self.process.wait(timeout=FAREWELL_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait(timeout=FAREWELL_SECONDS)
            return f"{self.name} had not ended {FAREWELL_SECONDS} s after SIGTERM and was killed"
        return self.ended() if status != 0 else None


class Programs:
    """Runs programs, and keeps an eye on those that stay."""

    def __init__(self):
        self.children = []

    @staticmethod
    def attempt(*command, said=""):
        """Runs a program to its end, whatever its exit status; `said` is its standard input."""
        line = [str(part) for part in command]
        try:
            return subprocess.run(line, capture_output=True, text=True, input=said,
                                  timeout=PATIENCE_SECONDS, check=False)
        except subprocess.TimeoutExpired:
            late = f"{shlex.join(line)}: had not ended after {PATIENCE_SECONDS} s"
            raise StoryError(late) from None

    def run(self, *command, statuses=(0,), said=""):
        """What the program printed; any other exit status, or a failure without a word of it, ends
        the story."""
        done = self.attempt(*command, said=said)
        if done.returncode not in statuses or (done.returncode != 0 and not done.stdout):
            shown = shlex.join(done.args)
            raise StoryError(f"{shown}: exit status {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout

    def spawn(self, name, log, *command):
        """Starts a program that stays; its words go to the file `log`."""
        with open(log, "wb") as output:
            process = subprocess.Popen([str(part) for part in command], stdout=output,
                                       stdin=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        self.children.append(Child(name, process))

    def check(self, when):
        """Ends the story when a program that should stay has ended."""
        for child in self.children:
            if ended := child.ended():
                raise StoryError(f"{ended} {when}")

    def eventually(self, what, look):
        """Waits until `look` finds something, and returns it."""
        deadline = time.monotonic() + PATIENCE_SECONDS
        while time.monotonic() < deadline:
            self.check(f"while waiting: {what}")
            found = look()
            if found:
                return found
            time.sleep(0.1)
        raise StoryError(f"did not happen in {PATIENCE_SECONDS} s: {what}")

    def end(self):
        """Ends the programs, the last one first. Returns what went wrong with that."""
        for child in reversed(self.children):
            if not child.ended():
                child.process.terminate()
        problems = [child.end() for child in reversed(self.children)]
        return [problem for problem in problems if problem]
