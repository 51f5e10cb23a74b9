"""A cable between two virtual i210 cards, and tsyn or a small host on it."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
MASTER_IF = "tsm0"
SLAVE_IF = "tss0"
CABLE_NS = 500
WAIT_S = 30.0

CARDS = (f"state=/dev/shm/cards seed=1; {MASTER_IF} phc=0 offset_ns=-3600000000000; "
         f"{SLAVE_IF} phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns={CABLE_NS}")


def other_build():
    """The same kind of build for the other ABI, when it is at hand."""
    pairs = (("i386", "x86_64"), ("x86_64", "i386"))
    for one, other in pairs:
        if BUILD.name.startswith(one):
            candidate = BUILD.with_name(other + BUILD.name[len(one):])
            return candidate if (candidate / "tsyn").exists() else None
    return None


def environment(cards=CARDS):
    suppressions = ROOT / "tests/tsyn/asan-suppressions.txt"
    return {**os.environ, "VIRTUAL_I210": cards,
            "ASAN_OPTIONS": f"verify_asan_link_order=0:detect_leaks=0:suppressions={suppressions}"}


def ip(*words):
    subprocess.run(["ip", *words], check=True)


def as_deployed(words):
    """What most tests are about: a daemon that does what deployed nodes do."""
    told = words[:1] != ("run",) or "--profile" in words
    return words if told else (*words, "--profile", "deployed")


class Network(unittest.TestCase):
    """A cable between two cards; shared memory and interfaces vanish with the process."""

    @classmethod
    def setUpClass(cls):
        ip("link", "add", MASTER_IF, "type", "veth", "peer", "name", SLAVE_IF)
        for name in (MASTER_IF, SLAVE_IF):
            ip("link", "set", name, "addrgenmode", "none")
            ip("link", "set", name, "up")

    @classmethod
    def tearDownClass(cls):
        ip("link", "del", MASTER_IF)

    def setUp(self):
        for file in pathlib.Path("/dev/shm").iterdir():
            file.unlink()

    def start(self, *words, build=None, program="tsyn", wrapper=(), cards=True):
        build = build or BUILD
        # Set for the program alone: a wrapper may be of the other ABI.
        preload = ("env", f"LD_PRELOAD={build / 'libvirtual_i210.so'}") if cards else ()
        child = subprocess.Popen([*wrapper, *preload, str(build / program), *as_deployed(words)],
                                 env=environment(), text=True, bufsize=1,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(self.reap, child)
        return child

    @staticmethod
    def reap(child):
        if child.poll() is None:
            child.kill()
        child.communicate()

    def now(self):
        """Seconds of the time that the programs live in."""
        return time.monotonic()

    def run_json(self, name, role, *options, build=None):
        return self.start("run", name, "--role", role, "--json", "--log", f"/dev/shm/{role}.log",
                          *options, build=build)

    def wait_for(self, child, condition):
        """The first JSON line that meets the condition."""
        give_up = self.now() + WAIT_S
        seen = None
        while self.now() < give_up:
            line = child.stdout.readline()
            if not line:
                break
            seen = json.loads(line)
            if condition(seen):
                return seen
        return self.fail(f"never came; last line: {seen}")

    def wait_for_state(self, child, state):
        return self.wait_for(child, lambda line: line["state"] == state)

    def end(self, child, number=signal.SIGTERM):
        """Ends tsyn and returns its closing line."""
        child.send_signal(number)
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 0)
        return json.loads(output.splitlines()[-1])

    def assert_ends_soon(self, child, number, role):
        before = self.now()
        closing = self.end(child, number)
        self.assertLess(self.now() - before, 2.0)
        self.assertEqual((closing["event"], closing["role"]), ("end", role))

    def assert_one_error(self, child, status, *parts):
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, status, errors)
        self.assertEqual(output, "")
        self.assertEqual(errors.count("\n"), 1, errors)
        self.assertTrue(errors.startswith("tsyn: "), errors)
        for part in parts:
            self.assertIn(part, errors)
