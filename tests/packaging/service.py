#!/usr/bin/env python3
"""tsyn as its service runs it: a user of its own, with the unit's words, capabilities and system
calls and no others.

Usage: service.py BUILD_FOLDER [CASE...]
"""
import configparser
import errno
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/tsyn"))

import programs  # noqa: E402
from network import CABLE_NS, MASTER_IF, SLAVE_IF, Network  # noqa: E402

UNIT = ROOT / "packaging/tsyn@.service"
USER = 4711
# Each is allowed to any user.
HARMLESS = """
import ctypes, os
libc = ctypes.CDLL(None, use_errno=True)
for name, words in (("setpriority", (0, 0, 1)), ("ptrace", (0, 0, 0, 0)),
                    ("sched_getscheduler", (0,)), ("getpid", ()),
                    ("sched_setaffinity", (0, 8, (ctypes.c_ulong * 1)(*[3])))):
    ctypes.set_errno(0)
    done = getattr(libc, name)(*words)
    print(name, ctypes.get_errno() if done < 0 else 0)
"""


def unit():
    parser = configparser.RawConfigParser(strict=False)
    parser.optionxform = str
    parser.read(UNIT)
    return parser["Service"]


def as_service():
    """setpriv's words for what the unit grants."""
    granted, most = (
        ",".join(["-all", *(f"+{name.removeprefix('CAP_').lower()}"
                            for name in unit()[key].split())])
        for key in ("AmbientCapabilities", "CapabilityBoundingSet"))
    return ("setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups", "--no-new-privs",
            f"--inh-caps={granted}", f"--ambient-caps={granted}", f"--bounding-set={most}")


def confined():
    """Words for the system calls that the unit leaves a program."""
    return "/usr/bin/python3", "-B", str(ROOT / "tests/packaging/confined.py"), str(UNIT)


class Service(Network):
    def run_as_service(self, name, role, *settings):
        """By the words of the unit and a file of options."""
        file = pathlib.Path(f"/dev/shm/{name}.toml")
        file.write_text("\n".join([f'role = "{role}"', *settings]))
        words = unit()["ExecStart"].replace("/etc/tsyn/", "/dev/shm/").replace("%i", name).split()
        self.assertEqual((words[0], words[-1]), ("tsyn", str(file)))
        return self.start(*words[1:], "--json", "--profile", "standard",
                          "--log", f"/dev/shm/{role}.log", wrapper=(*as_service(), *confined()))

    def test_master_and_slave_need_no_more_than_the_unit_grants(self):
        if int(pathlib.Path("/proc/self/uid_map").read_text().split()[2]) <= USER:
            self.skipTest("only root may become another user")
        master = self.run_as_service(MASTER_IF, "master")
        self.wait_for_state(master, "sending")
        slave = self.run_as_service(SLAVE_IF, "slave", "[protocol]",
                                    f"propagation-delay = {CABLE_NS}")
        self.wait_for_state(slave, "synchronised")
        for name in (MASTER_IF, SLAVE_IF):
            self.assertEqual(os.stat(f"/dev/shm/{name}").st_uid, USER)
        for child in (slave, master):
            self.end(child)

    def refusals(self, *wrapper):
        told = subprocess.run([*wrapper, "/usr/bin/python3", "-c", HARMLESS], capture_output=True,
                              text=True, check=True).stdout
        return {name: int(number) for name, number in map(str.split, told.splitlines())}

    def test_system_calls_that_it_does_not_need_are_refused(self):
        free = self.refusals()
        self.assertEqual(set(free.values()), {0}, free)
        refused = {name for name, number in self.refusals(*confined()).items()
                   if number == errno.EPERM}
        self.assertEqual(refused, {"setpriority", "ptrace", "sched_setaffinity"})


if __name__ == "__main__":
    programs.main(__file__)
