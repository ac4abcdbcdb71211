"""What a running process takes up, sample by sample, and whether that stays flat."""
import dataclasses
import pathlib
import statistics
import time

PROC = pathlib.Path("/proc")
LOOKS, BETWEEN_LOOKS_SECONDS = 4, 0.05
# Caches fill and the allocator finds its size in the beginning; that part is not judged.
WARM_UP_PART = 0.25
# A shorter time says nothing about memory.
MEMORY_SECONDS = 600
# One page a minute is noise of the allocator; a leak of 256 bytes a check-in at one a second is
# 900 KiB an hour.
MEMORY_KIB_PER_HOUR = 600
# A slope over a short time is mostly noise, so the growth itself has to be worth a word: a sixth
# of what an hour may add.
MEMORY_KIB = 100
# What is under way (a tool, a connection that is being closed) may be seen in single samples, so it
# may be what the last ones of a short run see.
PASSING = {"descriptors": 6, "threads": 4, "children": 3}
FEW_SAMPLES = 12
# As a rule nothing stays, but the connection to the portal is kept from one check-in to the next
# only while all goes well.
STAYING = {"descriptors": 1, "threads": 0, "children": 0}


@dataclasses.dataclass
class Sample:
    """Figures of a process at a moment, seconds since the start of the observation."""
    at: float
    memory: int  # resident, in KiB
    own: int  # of that, what is no file's
    descriptors: int
    threads: int
    children: int


FIGURES = ("memory", "own", "descriptors", "threads", "children")


def status_of(pid):
    text = (PROC / str(pid) / "status").read_text(encoding="utf-8")
    return dict(line.split(":", 1) for line in text.splitlines() if ":" in line)


def children_of(pid):
    """How many processes it is the parent of, ended ones that it has not waited for included."""
    lists = (PROC / str(pid) / "task").glob("*/children")
    return sum(len(each.read_text(encoding="utf-8").split()) for each in lists)


def look(pid, at):
    status = status_of(pid)
    return Sample(at=at, memory=int(status["VmRSS"].split()[0]),
                  own=int(status["RssAnon"].split()[0]),
                  descriptors=len(list((PROC / str(pid) / "fd").iterdir())),
                  threads=int(status["Threads"]), children=children_of(pid))


def sample(pid, at):
    """The least of a few looks: what is kept is in all of them, what passes is not."""
    looks = []
    for _ in range(LOOKS):
        looks.append(look(pid, at))
        time.sleep(BETWEEN_LOOKS_SECONDS)
    return Sample(at, *(min(getattr(each, figure) for each in looks) for figure in FIGURES))


def slope_per_hour(samples, figure):
    """By the least squares; 0 for fewer than two moments."""
    times = [each.at for each in samples]
    if len(set(times)) < 2:
        return 0.0
    values = [getattr(each, figure) for each in samples]
    return statistics.linear_regression(times, values).slope * 3600


def judged_part(samples):
    return samples[int(len(samples) * WARM_UP_PART):]


def growth(samples, figure):
    """By how much the typical value of the last third exceeds that of the first."""
    third = max(len(samples) // 3, 1)
    first, last = (statistics.median(getattr(each, figure) for each in part)
                   for part in (samples[:third], samples[-third:]))
    return last - first


def judge(samples):
    """What is not flat, a sentence each; `samples` are in the order of time."""
    if not samples:
        return ["nothing was observed"]
    judged = judged_part(samples)
    return [*memory_problems(judged, "memory"), *memory_problems(judged, "own"),
            *(problem for figure in PASSING for problem in count_problems(judged, figure))]


def memory_problems(judged, figure):
    if judged[-1].at < MEMORY_SECONDS:
        return []
    grown, slope = growth(judged, figure), slope_per_hour(judged, figure)
    if grown <= MEMORY_KIB or slope <= MEMORY_KIB_PER_HOUR:
        return []
    return [f"{figure} grows by {slope:.0f} KiB an hour, {grown:.0f} KiB so far (at most "
            f"{MEMORY_KIB_PER_HOUR} and {MEMORY_KIB})"]


def count_problems(judged, figure):
    values = [getattr(each, figure) for each in judged]
    grown = growth(judged, figure)
    most = (PASSING if len(judged) < FEW_SAMPLES else STAYING)[figure]
    if grown > most:
        yield f"{figure} grow: {grown:g} more in the last third than in the first (at most {most})"
    usual = statistics.median(values)
    if max(values) > usual + PASSING[figure]:
        yield (f"{figure} were {max(values)} once, {usual:g} as a rule (at most "
               f"{PASSING[figure]} more)")


def table(samples):
    """The figures as lines of text."""
    heading = f"{'':<12}{'first':>10}{'median':>10}{'last':>10}{'greatest':>10}{'per hour':>10}"
    rows = [heading]
    for figure in FIGURES:
        values = [getattr(each, figure) for each in samples]
        slope = slope_per_hour(judged_part(samples), figure)
        rows.append(f"{figure:<12}{values[0]:>10}{statistics.median(values):>10g}"
                    f"{values[-1]:>10}{max(values):>10}{slope:>10.1f}")
    return rows
