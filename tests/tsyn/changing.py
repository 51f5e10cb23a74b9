#!/usr/bin/env python3
"""tsyn set and the texts for the installation.

Usage: changing.py BUILD_FOLDER [CASE...]
"""
import json
import os
import pathlib
import re
import socket
import subprocess
import sys

import programs
from network import BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, Network
from simulated import EPOCH_S, Simulated

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "python"))

from gptp_time import Result, TimeReader  # noqa: E402

SOCKET = "/dev/shm/control.sock"
YEAR_2026 = "2026-11-21T20:25:40.5Z"
YEAR_2026_NS = 1795292740_500_000_000


def whole(status):
    return status["seconds"] * 10**9 + status["nanoseconds"]


class Set(Network):
    AUTOSAR = ("--autosar", "--status-tlv", "secured", "--user-data-tlv", "secured")

    def controlled(self, name, role, *options):
        daemon = self.run_json(name, role, "--profile", "standard", "--control", SOCKET, *options)
        self.wait_for(daemon, lambda line: line["state"] != "starting")
        return daemon

    def ask(self, *words):
        return self.start("set", MASTER_IF, "--control", SOCKET, *words)

    def done(self, *words):
        child = self.ask(*words)
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual((child.returncode, errors), (0, ""))
        return output

    def send(self, packet):
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as client:
            client.connect(SOCKET)  # with a timeout it would not wait for others to be served
            client.settimeout(WAIT_S)
            client.send(packet)
            return json.loads(client.recv(4096))

    def test_slave_gets_time_status_and_user_data_that_a_master_was_told(self):
        master = self.controlled(MASTER_IF, "master", *self.AUTOSAR)
        slave = self.run_json(SLAVE_IF, "slave", "--profile", "standard")
        self.wait_for_state(slave, "synchronised")
        answer = self.done("--time", YEAR_2026, "--status", "global+gateway",
                           "--user-data", "0x11:22")
        self.assertEqual(answer, "user data 0x11:22; status global+gateway; "
                                 "time 2026-11-21T20:25:40.500000000Z\n")
        told = self.wait_for(
            slave, lambda line: line.get("subtlv", {}).get("user_data") == "1122" and
            line["state"] == "synchronised" and
            0 <= whole(line) - YEAR_2026_NS < WAIT_S * 10**9)
        self.assertEqual(told["subtlv"]["status"] & 1, 1)
        self.done("--step", "-100000s")
        self.wait_for(slave, lambda line: -100000 * 10**9 <= whole(line) - YEAR_2026_NS <
                      (WAIT_S - 100000) * 10**9)
        self.end(master)
        self.assertFalse(pathlib.Path(SOCKET).exists())

    def test_what_is_kept_but_not_sent_is_told_as_such(self):
        master = self.controlled(MASTER_IF, "master")
        self.assertEqual(self.done("--status", "none", "--user-data", "11"),
                         "user data 11 (kept, but not sent without --autosar); "
                         "status none (kept, but not sent without --autosar)\n")
        self.end(master)
        master = self.controlled(MASTER_IF, "master", "--autosar")
        self.assertEqual(self.done("--status", "global", "--user-data", "11"),
                         "user data 11 (kept, but not sent without --user-data-tlv); "
                         "status global\n")
        self.end(master)

    def test_slave_answers_that_it_cannot(self):
        slave = self.controlled(SLAVE_IF, "slave")
        self.assert_one_error(self.ask("--status", "global"), 1, "slave", "cannot be set")
        self.end(slave)

    def test_slave_without_a_socket_is_none_to_be_given_one(self):
        for profile in ("deployed", "standard"):
            with self.subTest(profile=profile):
                master = self.run_json(MASTER_IF, "master", "--profile", profile)
                slave = self.run_json(SLAVE_IF, "slave", "--profile", profile)
                self.wait_for(slave, lambda line: line.get("sync_accepted", 0) > 0)
                self.refused(SLAVE_IF, "its daemon is a slave", "cannot be set")
                self.refused(MASTER_IF, "no daemon takes requests", "--control")
                slave.kill()
                slave.wait(WAIT_S)
                self.end(master)
        self.refused(SLAVE_IF, "no daemon takes requests")

    def refused(self, name, *parts):
        child = self.start("set", name, "--status", "global", cards=False)
        self.assert_one_error(child, 1, f"tsyn: {name}: ", *parts)

    def test_hostile_requests_are_answered_and_disturb_nothing(self):
        master = self.controlled(MASTER_IF, "master")
        silent = [socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) for _ in range(20)]
        for client in silent:
            client.connect(SOCKET)
            self.addCleanup(client.close)
        for packet in (b"x", b"[" * 900, b"{}", b"\xff\x00", b'{"time_ns":"1"}', b'{"time_ns":1e99}',
                       b'{"status":"king"}', b'{"user_data":"11223344"}', b'{"odd":1}', b"a" * 60000,
                       b'{"time_ns":-5}', b'{"step_ns":9223372036854775807}',
                       b'{"time_ns":1,"step_ns":1}'):
            with self.subTest(packet=packet[:20]):
                answer = self.send(packet)
                self.assertFalse(answer["ok"], answer)
        self.assertTrue(self.send(b'{"status":"global"}')["ok"])
        before = master.stdout.readline()
        self.assertEqual(self.wait_for_state(master, "sending")["event"], "status", before)
        self.end(master)

    def test_others_may_not_connect(self):
        master = self.controlled(MASTER_IF, "master")
        self.assertEqual(os.stat(SOCKET).st_mode & 0o777, 0o600)
        self.end(master)

    def test_socket_of_a_killed_daemon_is_taken_over_and_a_served_one_is_not(self):
        killed = self.controlled(MASTER_IF, "master")
        killed.kill()
        killed.wait(WAIT_S)  # its lock ends with it
        master = self.controlled(MASTER_IF, "master")
        other = self.start("run", SLAVE_IF, "--role", "slave", "--log", "/dev/null",
                           "--control", SOCKET)
        self.assert_one_error(other, 1, "--control", SOCKET, "Address already in use")
        self.end(master)

    def test_nobody_to_ask(self):
        self.assert_one_error(self.ask("--status", "global"), 1, SOCKET, "No such file",
                              "--control auto")

    def test_wrong_use(self):
        self.assert_one_error(self.ask(), 2, "one of --time")
        self.assert_one_error(self.ask("--time", "1795206340"), 2, "is no time", "unit")
        self.assert_one_error(self.ask("--step", "5"), 2, "+1.5s")
        self.assert_one_error(self.ask("--status", "king"), 2, "gateway, global")


class Distributed(Simulated):
    """What a master's own record tells once its host has set the time."""

    STEP_NS = 90_000_000_123

    def pair(self, profile):
        self.master = self.run_json(MASTER_IF, "master", "--profile", profile, "--control", SOCKET)
        self.slave = self.run_json(SLAVE_IF, "slave", "--profile", profile,
                                   "--propagation-delay", str(CABLE_NS))
        self.wait_for_state(self.slave, "synchronised")
        self.timekeeper.sleep(2)

    def step(self, text):
        child = self.start("set", MASTER_IF, "--control", SOCKET, "--step", text)
        _, errors = child.communicate()
        self.assertEqual((child.returncode, errors), (0, ""))
        self.timekeeper.sleep(2)

    def told(self, name):
        child = self.start("status", name, "--json")
        return json.loads(child.communicate()[0])

    def assert_run_tells_it(self):
        """The status lines, which come each second, of the host itself."""
        line = self.wait_for(self.master, lambda line: line["t_s"] > self.now() - 1.5)
        self.assertAlmostEqual(whole(line) - EPOCH_S * 10**9, self.STEP_NS + line["t_s"] * 1e9,
                               delta=10**9)

    @staticmethod
    def both_at(system_ns):
        with TimeReader(MASTER_IF) as master, TimeReader(SLAVE_IF) as slave:
            return master.at(system_ns), slave.at(system_ns)

    def test_readers_of_a_standard_master_have_its_slaves_time_and_see_the_step(self):
        self.pair("standard")
        moment = EPOCH_S * 10**9 + round(self.now() * 1e9)
        before, _ = self.both_at(moment)
        self.step(f"{self.STEP_NS}ns")
        after, slaves = self.both_at(moment)
        self.assertEqual((after.result, slaves.result), (Result.OK, Result.OK))
        self.assertAlmostEqual(after.time_ns - before.time_ns, self.STEP_NS, delta=500)
        self.assertAlmostEqual(after.time_ns, slaves.time_ns, delta=1000)
        self.assertEqual(after.step_count, before.step_count + 1)
        self.assert_run_tells_it()

    def test_tools_tell_what_a_deployed_master_distributes(self):
        self.pair("deployed")
        self.step(f"{self.STEP_NS}ns")
        after = self.told(MASTER_IF)
        slaves = self.told(SLAVE_IF)
        self.assertAlmostEqual(whole(after), whole(slaves), delta=10**9)
        moment = str(EPOCH_S * 10**9 + round(self.now() * 1e9))
        master, slave = (int(self.start("convert", name, moment).communicate()[0].split()[0])
                         for name in (MASTER_IF, SLAVE_IF))
        self.assertAlmostEqual(master, slave, delta=20_000)
        self.assert_run_tells_it()

    def check_steps(self, profile):
        self.pair(profile)
        self.step("+1.5s")
        self.assertAlmostEqual(self.told(MASTER_IF)["soft_offset_ns"], 1_500_000_000, delta=1000)
        self.step("-20000001ns")
        self.assertAlmostEqual(self.told(MASTER_IF)["soft_offset_ns"], 1_479_999_999, delta=2000)

    def test_a_step_of_a_standard_master_is_as_long_as_it_was_asked_for(self):
        self.check_steps("standard")

    def test_a_step_of_a_deployed_master_is_as_long_as_it_was_asked_for(self):
        self.check_steps("deployed")


class Guides(Network):
    """What is made for the installation, out of the options as they are."""

    def text(self, form):
        child = self.start("--describe", form, cards=False)
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual((child.returncode, errors), (0, ""))
        return output

    def completed(self, *words):
        script = self.text("bash") + (
            'COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tsyn; echo "${COMPREPLY[@]}"')
        done = subprocess.run(["bash", "-c", script, "bash", "tsyn", *words], capture_output=True,
                              text=True, timeout=WAIT_S, check=True)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def test_bash_completes_commands_options_and_values(self):
        self.assertEqual(self.completed("conv"), ["convert"])
        self.assertEqual(self.completed("run", "--ro"), ["--role"])
        self.assertEqual(self.completed("run", "--role", ""), ["master", "slave"])
        self.assertEqual(self.completed("run", "--profile", "st"), ["standard"])
        self.assertIn("lo", self.completed("run", "l"))
        self.assertEqual(self.completed("check", "--le"), ["--least-frames"])
        self.assertEqual(self.completed("run", "--log", ""), [])

    def test_page_is_without_findings_and_names_every_command(self):
        page = pathlib.Path("/dev/shm/tsyn.1")
        page.write_text(self.text("man"))
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", str(page)],
                              capture_output=True, text=True, timeout=WAIT_S, check=False)
        self.assertEqual(lint.stdout + lint.stderr, "")
        shown = subprocess.run(["mandoc", "-T", "ascii", str(page)], capture_output=True, text=True,
                               timeout=WAIT_S, check=True).stdout
        child = self.start("--help", cards=False)
        listed = child.communicate(timeout=WAIT_S)[0].partition("ommands:\n")[2]
        commands = [line.split()[0] for line in listed.splitlines() if line[:3].strip()]
        self.assertGreater(len(commands), 3)
        for command in commands:
            self.assertIn(f"tsyn {command}", re.sub(".\b", "", shown))


if __name__ == "__main__":
    programs.main(__file__)
