#!/usr/bin/env python3
"""What the soak's judgement of figures notices, and what it lets pass."""
import random
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True  # the source tree stays as it is

import figures
from figures import Sample, judge

SECONDS, EVERY = 1200, 5


def observed(memory=lambda at: 9000, descriptors=lambda at: 14, threads=lambda at: 5,
             children=lambda at: 0, seconds=SECONDS):
    """Samples of a process whose figures are functions of the seconds."""
    return [Sample(at, int(memory(at)), int(memory(at)) - 6000, int(descriptors(at)),
                   int(threads(at)), int(children(at)))
            for at in range(0, seconds, EVERY)]


class JudgeTest(unittest.TestCase):

    def test_lets_flat_figures_pass(self):
        self.assertEqual(judge(observed()), [])

    def test_lets_memory_find_its_size_and_waver(self):
        dice = random.Random(1)
        samples = observed(memory=lambda at: 8000 + min(at, 200) * 5 + dice.randrange(-60, 60))
        self.assertEqual(judge(samples), [])

    def test_lets_a_tool_under_way_pass(self):
        samples = observed(descriptors=lambda at: 16 if at % 7 == 0 else 14,
                           threads=lambda at: 6 if at % 3 == 0 else 5,
                           children=lambda at: 1 if at % 4 == 0 else 0)
        self.assertEqual(judge(samples), [])

    def test_notices_memory_that_leaks_a_little_with_each_check_in(self):
        dice = random.Random(2)
        leak = 256 / 1024  # KiB a second at a check-in a second
        samples = observed(memory=lambda at: 9000 + at * leak + dice.randrange(-40, 40))
        self.assertRegex(" ".join(judge(samples)), "^memory grows")

    def test_notices_two_descriptors_that_are_lost_late(self):
        self.assertRegex(" ".join(judge(observed(descriptors=lambda at: 14 + 2 * (at > 900)))),
                         "^descriptors grow")

    def test_lets_a_connection_that_is_kept_pass(self):
        self.assertEqual(judge(observed(descriptors=lambda at: 14 + (at > 900))), [])

    def test_notices_threads_that_stay(self):
        self.assertRegex(" ".join(judge(observed(threads=lambda at: 5 + at / 300))),
                         "^threads grow")

    def test_notices_children_that_nobody_waits_for(self):
        self.assertRegex(" ".join(judge(observed(children=lambda at: at / 500))),
                         "^children grow")

    def test_notices_a_burst(self):
        samples = observed(children=lambda at: 9 if at == 800 else 0)
        self.assertRegex(" ".join(judge(samples)), "^children were 9 once")

    def test_judges_counts_in_a_short_run_but_not_memory(self):
        short = observed(memory=lambda at: 8000 + at * 90, seconds=40)
        self.assertEqual(judge(short), [])
        short = observed(descriptors=lambda at: 10 + at, seconds=2 * EVERY)
        self.assertEqual(judge(short), [])
        short = observed(descriptors=lambda at: 10 + 2 * at, seconds=2 * EVERY)
        self.assertRegex(" ".join(judge(short)), "^descriptors grow")

    def test_says_when_there_is_nothing_to_judge(self):
        self.assertEqual(judge([]), ["nothing was observed"])


class LookTest(unittest.TestCase):

    def test_sees_a_process_with_what_it_holds(self):
        holder = ("import os, subprocess, sys\n"
                  "held = [os.open('/', os.O_RDONLY) for _ in range(7)]\n"
                  "child = subprocess.Popen(['/bin/cat'], stdin=subprocess.PIPE)\n"
                  "print(len(os.listdir('/proc/self/fd')) - 1, flush=True)\n"
                  "sys.stdin.read()\n"
                  "child.communicate()\n")
        with subprocess.Popen([sys.executable, "-c", holder], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True) as process:
            held = int(process.stdout.readline())
            seen = figures.look(process.pid, 3)
            process.stdin.close()
            process.wait()
        self.assertEqual((seen.at, seen.descriptors, seen.threads, seen.children),
                         (3, held, 1, 1))
        self.assertGreater(seen.memory, seen.own)
        self.assertGreater(seen.own, 1000)


if __name__ == "__main__":
    unittest.main()
