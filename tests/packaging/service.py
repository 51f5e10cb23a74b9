#!/usr/bin/env python3
"""tsyn as its service runs it: a user of its own, with the unit's capabilities and no others.

Usage: service.py BUILD_FOLDER [CASE...]
"""
import configparser
import os
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/tsyn"))

import programs  # noqa: E402
from network import CABLE_NS, MASTER_IF, SLAVE_IF, Network  # noqa: E402

USER = 4711


def unit():
    parser = configparser.RawConfigParser(strict=False)
    parser.optionxform = str
    parser.read(ROOT / "packaging/tsyn@.service")
    return parser["Service"]


def as_service():
    """setpriv's words for what the unit grants."""
    granted, most = (
        ",".join(["-all", *(f"+{name.removeprefix('CAP_').lower()}"
                            for name in unit()[key].split())])
        for key in ("AmbientCapabilities", "CapabilityBoundingSet"))
    return ("setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups", "--no-new-privs",
            f"--inh-caps={granted}", f"--ambient-caps={granted}", f"--bounding-set={most}")


class Service(Network):
    def run_as_service(self, name, role, *options):
        return self.start("run", name, "--role", role, "--json", "--profile", "standard", *options,
                          "--log", f"/dev/shm/{role}.log", wrapper=as_service())

    def test_master_and_slave_need_no_more_than_the_unit_grants(self):
        if int(pathlib.Path("/proc/self/uid_map").read_text().split()[2]) <= USER:
            self.skipTest("only root may become another user")
        master = self.run_as_service(MASTER_IF, "master")
        self.wait_for_state(master, "sending")
        slave = self.run_as_service(SLAVE_IF, "slave", "--propagation-delay", str(CABLE_NS))
        self.wait_for_state(slave, "synchronised")
        for name in (MASTER_IF, SLAVE_IF):
            self.assertEqual(os.stat(f"/dev/shm/{name}").st_uid, USER)
        for child in (slave, master):
            self.end(child)


if __name__ == "__main__":
    programs.main(__file__)
