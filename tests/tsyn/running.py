#!/usr/bin/env python3
"""tsyn run in what its surroundings do to it: configuration files, full disks, vanished
interfaces, a second daemon, signals.

Usage: running.py BUILD_FOLDER [CASE...]
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import time

import network
import programs
from network import BUILD, MASTER_IF, SLAVE_IF, WAIT_S, Network, ip
from simulated import Simulated

CONFIG = pathlib.Path("/dev/shm/tsyn.toml")


class Config(Network):
    def effective(self, text, *words):
        """The lines that --print-config shows as told."""
        CONFIG.write_text(text)
        child = self.start("run", *words, "--config", str(CONFIG), "--print-config")
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual((child.returncode, errors), (0, ""))
        return [line for line in output.splitlines() if line and line[0] not in "#["], output

    def refused(self, text, *parts):
        CONFIG.write_text(text)
        child = self.start("run", "--config", str(CONFIG))
        self.assert_one_error(child, 2, *parts)

    def test_values_of_the_file_and_of_the_command_line(self):
        told, _ = self.effective(
            'interface = "eth1"\nrole = "master"\n[protocol]\ndomain = 3\nvlan-id = 7\n'
            '[autosar]\nautosar = true\ntime-tlv = "secured"\ncrc-time-flags = 0x3F\n',
            "--domain", "4", "--profile", "deployed")
        self.assertEqual(told, ['interface = "eth1"', 'role = "master"', "domain = 4",
                                "vlan-id = 7", 'profile = "deployed"', "autosar = true",
                                'time-tlv = "secured"', "crc-time-flags = 63"])

    def test_what_is_printed_reads_back_the_same(self):
        text = ('interface = "eth1"\nrole = "slave"\n[protocol]\nsync-interval = 250.5\n'
                '[profile]\nprofile = "standard"\nswitch = ["robustDelay=0", "timescale=2"]\n'
                '[output]\nlog = "a \\"quoted\\" file"\njson = true\n')
        told, printed = self.effective(text)
        self.assertEqual(len(told), 7)
        self.assertEqual(self.effective(printed)[1], printed)

    def test_template_with_every_line_taken_reads_back(self):
        _, printed = self.effective('[profile]\nprofile = "standard"\n')
        filled = re.sub(r'(?m)^#(?=[a-z])', "", printed)
        filled = re.sub(r'(?m)^(interface|stack|truth|samples) = .*$', r'\1 = "x1"', filled)
        filled = re.sub(r'(?m)^role = .*$', 'role = "slave"', filled)
        filled = re.sub(r'(?m)^(data-id-list|user-data|log-level|status|duration|control) = .*$',
                        "", filled)
        told, _ = self.effective(filled)
        self.assertIn("domain = 0", told)
        self.assertIn('log = "-"', told)

    def test_mistakes_are_told_with_file_line_and_what_is_allowed(self):
        self.refused("[protocol]\n\ndomian = 1\n", "tsyn.toml:3", "'domian'", "did you mean 'domain'")
        self.refused("domain = 1\n", "tsyn.toml:1", "belongs in [protocol]")
        self.refused("[protocl]\ndomain = 1\n", "tsyn.toml:1", "protocl", "protocol")
        self.refused('[protocol]\ndomain = "1"\n', "tsyn.toml:2", "needs a number", "0 to 15")
        self.refused("[protocol]\ndomain = 16\n", "tsyn.toml:2", "from 0 to 15")
        self.refused('[autosar]\ntime-tlv = "on"\n', "tsyn.toml:2", "off, secured")
        self.refused('[output]\njson = 1\n', "tsyn.toml:2", "true or false")
        self.refused("[output\n", "tsyn.toml:1", "TOML")
        self.refused('role = "slave"\n', "interface is required")

    def test_file_that_is_not_there(self):
        child = self.start("run", "--config", "/nowhere/tsyn.toml")
        self.assert_one_error(child, 2, "/nowhere/tsyn.toml", "No such file", "--print-config")


class Words(Network):
    """What a mistyped command line is answered."""

    def test_unknown_words_are_named(self):
        self.assert_one_error(self.start("run", SLAVE_IF, "--rolle", "slave"), 2,
                              "unknown option --rolle", "did you mean --role?")
        self.assert_one_error(self.start("frobnicate"), 2, "unknown command 'frobnicate'", "check")
        self.assert_one_error(self.start("chekc", "x"), 2, "did you mean check?")

    def test_only_a_slip_is_taken_for_another_word(self):
        child = self.start("run", SLAVE_IF, "--foo", "slave")
        _, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual((child.returncode, errors),
                         (2, "tsyn: unknown option --foo; 'tsyn run --help' lists the options\n"))

    def test_allowed_values_are_listed(self):
        run = ("run", SLAVE_IF, "--role", "slave")
        self.assert_one_error(self.start(*run, "--time-tlv", "not-secured"), 2,
                              "'not-secured' is not one of off, secured;")
        self.assert_one_error(self.start(*run, "--domain", "abc"), 2,
                              "'abc' is not a whole number from 0 to 15;")
        self.assert_one_error(self.start(*run, "--sync-interval", "0"), 2,
                              "'0' is not a number from 125 to 3600000;")
        for words, part in ((("status", "--stale-after", "x"), "'x' is not a number from 0.1 to 3600"),
                            (("watch", "--duration", "nan"),
                             "'nan' is not a number from 0.1 to 1000000000;"),
                            (("feed", "--max-bound", "0"), "'0' is not a whole number from 1 to")):
            with self.subTest(words=words):
                command, option, value = words
                self.assert_one_error(self.start(command, SLAVE_IF, option, value), 2,
                                      f"{option}: {part}")

    def test_help_is_grouped_and_tells_values_and_defaults(self):
        child = self.start("run", "--help")
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 0)
        for part in ("\nProtocol:\n", "\nAUTOSAR:\n", "--status none|gateway|global|global+gateway",
                     "--domain NUMBER", "(default 125)"):
            self.assertIn(part, output)
        self.assertNotRegex(output, r"UINT|INT:|\{")
        self.assertLess(max(map(len, output.splitlines())), 101)

    def test_version(self):
        child = self.start("--version")
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 0)
        self.assertRegex(output, r"^tsyn \d+\.\d+\.\d+ \((i386|x86_64)\), built "
                                 r"\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d UTC\n$")

    def test_options_that_change_nothing_are_warned_of(self):
        child = self.start("run", "nope0", "--role", "master", "--time-tlv", "secured",
                           "--propagation-delay", "500")
        _, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual(errors.splitlines()[:2],
                         ["tsyn: warning: --propagation-delay changes nothing with --role master",
                          "tsyn: warning: --time-tlv changes nothing without --autosar"])


class SecondDaemon(Simulated):
    def test_is_refused_with_either_profile(self):
        for first, second in (("deployed", "deployed"), ("deployed", "standard"),
                              ("standard", "deployed")):
            with self.subTest(first=first, second=second):
                slave = self.run_json(SLAVE_IF, "slave", "--profile", first)
                self.wait_for(slave, lambda line: line["state"] != "starting")
                other = self.start("run", SLAVE_IF, "--role", "slave", "--profile", second)
                self.assert_one_error(other, 1, f"{SLAVE_IF}: already run by pid {slave.pid}")
                self.end(slave)

    def test_two_masters_show_as_two_senders(self):
        forced = ("--switch", "oneDaemon=0")
        first = self.run_json(MASTER_IF, "master", *forced)
        self.wait_for_state(first, "sending")
        slave = self.run_json(SLAVE_IF, "slave")
        status = self.wait_for(slave, lambda line: line["t_s"] > 5)
        self.assertFalse(status["two_senders"])
        self.run_json(MASTER_IF, "master", *forced)
        self.wait_for(slave, lambda line: line.get("two_senders"))


class InterfaceGone(Network):
    def cable(self):
        subprocess.run(["ip", "link", "del", MASTER_IF], stderr=subprocess.DEVNULL, check=False)
        Network.setUpClass()

    def setUp(self):
        super().setUp()
        self.addCleanup(self.cable)

    def test_ends_the_deployed_profile_with_a_line_and_status_1(self):
        master = self.run_json(MASTER_IF, "master")
        self.wait_for_state(master, "sending")
        ip("link", "del", MASTER_IF)
        self.wait_for_state(master, "interface gone")
        closing = self.wait_for(master, lambda line: line["event"] == "end")
        self.assertEqual(closing["state"], "interface gone")
        self.assertEqual(master.wait(timeout=WAIT_S), 1)
        errors = master.stderr.read()
        self.assertEqual(errors.count("\n"), 1, errors)
        self.assertIn(f"{MASTER_IF}: the interface is gone", errors)

    def test_standard_profile_goes_on_when_it_is_back(self):
        master = self.run_json(MASTER_IF, "master", "--profile", "standard")
        self.wait_for_state(master, "sending")
        ip("link", "del", MASTER_IF)
        self.wait_for_state(master, "interface gone")
        self.cable()
        self.wait_for_state(master, "sending")
        self.end(master)

    def test_standard_profile_ends_when_told_to(self):
        master = self.run_json(MASTER_IF, "master", "--profile", "standard", "--end-when-gone")
        self.wait_for_state(master, "sending")
        ip("link", "del", MASTER_IF)
        self.assertEqual(master.wait(timeout=WAIT_S), 1)


class LostOutput(Network):
    def run_into(self, path, *words):
        """A master whose standard output goes to a file."""
        command = ("env", f"LD_PRELOAD={BUILD / 'libvirtual_i210.so'}", str(BUILD / "tsyn"), "run",
                   MASTER_IF, "--role", "master", *words)
        with open(path, "w", encoding="ascii") as file:
            return subprocess.run(command, env=network.environment(), stdout=file,
                                  stderr=subprocess.PIPE, text=True, timeout=WAIT_S, check=False)

    def test_full_disk_under_standard_output(self):
        done = self.run_into("/dev/full", "--log", "/dev/null")
        self.assertEqual((done.returncode, done.stderr),
                         (1, "tsyn: standard output cannot be written (No space left on device)\n"))

    def test_full_disk_under_the_log_is_told_while_tsyn_goes_on(self):
        for profile in ("standard", "deployed"):
            with self.subTest(profile=profile):
                done = self.run_into("/dev/shm/output", "--log", "/dev/full", "--duration", "3",
                                     "--profile", profile)
                self.assertEqual(done.returncode, 1)
                self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
                self.assertIn("--log /dev/full: lines are lost", done.stderr)
                self.assertIn("end after", pathlib.Path("/dev/shm/output").read_text())

    def test_full_disk_under_the_samples(self):
        done = self.run_into("/dev/shm/output", "--log", "/dev/null", "--truth", MASTER_IF,
                             "--samples", "/dev/full", "--duration", "2")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn("--samples /dev/full", done.stderr)


class Signals(Network):
    def test_hangup_opens_the_log_anew(self):
        log = pathlib.Path("/dev/shm/master.log")
        master = self.run_json(MASTER_IF, "master")
        self.wait_for_state(master, "sending")
        log.rename("/dev/shm/master.log.1")
        master.send_signal(signal.SIGHUP)
        give_up = time.monotonic() + WAIT_S
        # The log of a deployed master gets a line with each Sync.
        while time.monotonic() < give_up and not (log.exists() and log.read_text()):
            master.stdout.readline()
        self.assertIn("TxMode", log.read_text())
        self.end(master)

    def test_every_other_end_comes_with_the_closing_line(self):
        for number in (signal.SIGALRM, signal.SIGUSR2, signal.SIGQUIT):
            with self.subTest(signal=number):
                master = self.run_json(MASTER_IF, "master", "--profile", "standard")
                self.wait_for_state(master, "sending")
                self.assert_ends_soon(master, number, role="master")

    def test_stopped_process_leaves_the_missed_lines_out(self):
        master = self.run_json(MASTER_IF, "master", "--profile", "standard")
        before = self.wait_for_state(master, "sending")
        master.send_signal(signal.SIGSTOP)
        time.sleep(3.2)  # it is the time that passes that is at stake
        master.send_signal(signal.SIGCONT)
        after = [json.loads(master.stdout.readline())["t_s"] for _ in range(3)]
        self.assertGreater(after[0] - before["t_s"], 2.5)
        self.assertGreater(after[2] - after[0], 0.9)
        self.end(master)


class LogLevel(Simulated):
    def log_of(self, *words):
        log = pathlib.Path("/dev/shm/master.log")
        log.write_text("")
        master = self.run_json(MASTER_IF, "master", "--duration", "3.5", *words)
        master.communicate(timeout=WAIT_S)
        return {re.match(r"\[ *(\w+)", line)[1] for line in log.read_text().splitlines()
                if line.startswith("[")}

    def test_sifts_what_is_logged(self):
        self.assertIn("DEBUG", self.log_of())
        errors = self.log_of("--log-level", "error")
        self.assertIn("ERROR", errors)
        self.assertNotIn("DEBUG", errors)


if __name__ == "__main__":
    programs.main(__file__)
