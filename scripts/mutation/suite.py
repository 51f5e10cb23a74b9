"""Which tests judge a fault in which room, and how they are run."""

import collections
import glob
import json
import os
import re
import subprocess
import threading
import time

from mutation.children import LIMITED, Stopped

# A room's own tests first, then those of the rooms that use it most.
ROOM_TESTS = {
    "base": ["base", "timebase", "ptp", "autosar", "platform"],
    "wire": ["wire", "ptp", "autosar", "platform"],
    "timebase": ["timebase", "ptp", "api"],
    "platform": ["platform", "api"],
    "autosar": ["autosar", "ptp", "api"],
    "ptp": ["ptp", "autosar", "api"],
    "profile": ["profile", "ptp", "api"],
    "api": ["api", "ptp"],
}
# Namespaces and sleeps take most of a case's time, hence more cases at a time than processors; the
# daemons of the control interface hardly do anything else.
CASES_AT_A_TIME = 8
CASES_AT_A_TIME_OF = {"api": 16}
LEAST_SECONDS = 10
TIMES_AS_LONG = 4


def at_a_time(room):
    return CASES_AT_A_TIME_OF.get(room, CASES_AT_A_TIME)


class Case:
    def __init__(self, name, command, folder):
        self.name = name
        self.command = command
        self.folder = folder


class Suites:
    """What is known of the cases in all workers: how long they take, how often they noticed."""

    def __init__(self, root):
        self.lock = threading.Lock()
        self.seconds = {}
        self.kills = collections.Counter()
        self.file_of = {}
        for path in glob.glob(os.path.join(root, "tests", "*", "*.cpp")):
            with open(path, encoding="utf-8") as file:
                for suite in re.findall(r"\bTEST(?:_[FP])?\((\w+),", file.read()):
                    self.file_of[suite] = os.path.basename(path)

    def in_order(self, cases, mutated):
        """Cases of the test file named like the mutated one first, then the most successful."""
        stem = os.path.splitext(os.path.basename(mutated))[0]

        def key(case):
            suite = case.name.split(".")[1] if "." in case.name else ""
            own = self.file_of.get(suite, "").startswith(stem)
            return (not own, -self.kills[case.name], self.seconds.get(case.name, 0), case.name)
        with self.lock:
            return sorted(cases, key=key)

    def limit(self, name):
        return LEAST_SECONDS + TIMES_AS_LONG * self.seconds.get(name, 5)


def cases_of(children, build, room):
    """The cases that ctest knows for a room."""
    status, output = children.run(["ctest", "--show-only=json-v1", "-R", rf"^{room}\."], cwd=build)
    if status != 0:
        return []
    found = []
    for test in json.loads(output)["tests"]:
        if "command" in test and not test["name"].endswith("NOT_BUILT"):
            folder = {p["name"]: p["value"] for p in test["properties"]}.get("WORKING_DIRECTORY")
            found.append(Case(test["name"], test["command"], folder or build))
    return found


class Run:
    """One run of some cases, several at a time."""

    def __init__(self, children, suites, parallel):
        self.children = children
        self.suites = suites
        self.parallel = parallel
        self.running = {}

    def first_failure(self, cases):
        """Name of the first case that fails twice or takes too long; None when none does."""
        waiting = collections.deque((case, 1) for case in cases)
        try:
            while waiting or self.running:
                while waiting and len(self.running) < self.parallel:
                    self._start(*waiting.popleft())
                time.sleep(0.005)
                for child in list(self.running):
                    case, attempt, began = self.running[child]
                    took = time.monotonic() - began
                    timed_out = not self.children.has_ended(child)
                    if timed_out and took < self.suites.limit(case.name):
                        continue
                    del self.running[child]
                    self.children.end(child)
                    if self.children.stopping:
                        raise Stopped()
                    if timed_out:
                        return case.name + " (timeout)"
                    if child.returncode == 0:
                        self.suites.seconds.setdefault(case.name, took)
                    elif attempt == 2:
                        return case.name
                    else:
                        # Once more: a busy machine is no fault.
                        waiting.appendleft((case, 2))
            return None
        finally:
            for child in self.running:
                self.children.end(child)
            self.running.clear()

    def _start(self, case, attempt):
        child = self.children.start(LIMITED + case.command, cwd=case.folder,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.running[child] = (case, attempt, time.monotonic())
