#!/usr/bin/env python3
"""tsyn and small hosts as a user runs them, on virtual i210 cards.

Usage: programs.py BUILD_FOLDER [CASE...]
"""
import json
import os
import pathlib
import selectors
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

from network import (BUILD, CABLE_NS, MASTER_IF, ROOT, SLAVE_IF, WAIT_S, Network, environment, ip,
                     other_build)
from simulated import EPOCH_S, Simulated

INSIDE = "TSYN_TEST_INSIDE"


class WrongUse(Network):
    def test_each_bad_option_gives_one_line_and_status_2(self):
        for words in (("--domain", "16"), ("--vlan-id", "4097"), ("--vlan-prio", "8"),
                      ("--sync-interval", "124"), ("--sync-interval", "nan"),
                      ("--trace-level", "3"), ("--data-id-list", "xy"), ("--nonsense",)):
            with self.subTest(words=words):
                child = self.start("run", SLAVE_IF, "--role", "slave", *words)
                self.assert_one_error(child, 2, words[0])

    def test_role_is_required_and_checked(self):
        self.assert_one_error(self.start("run", SLAVE_IF), 2, "--role")
        self.assert_one_error(self.start("run", SLAVE_IF, "--role", "king"), 2, "king")

    def test_no_command(self):
        self.assert_one_error(self.start(), 2, "subcommand")

    def test_log_that_cannot_be_written(self):
        child = self.start("run", SLAVE_IF, "--role", "slave", "--log", "/nowhere/log")
        self.assert_one_error(child, 1, "/nowhere/log", "No such file or directory")

    def test_truth_of_an_unknown_card(self):
        child = self.start("run", SLAVE_IF, "--role", "slave", "--truth", "nocard",
                           "--samples", "/dev/shm/samples.csv")
        self.assert_one_error(child, 1, "nocard", "VIRTUAL_I210")


    def test_truth_without_the_preloaded_card(self):
        child = self.start("run", SLAVE_IF, "--role", "slave", "--truth", MASTER_IF,
                           "--samples", "/dev/shm/samples.csv", cards=False)
        self.assert_one_error(child, 1, f"--truth {MASTER_IF}", "LD_PRELOAD", "libvirtual_i210.so")
        self.assertFalse(pathlib.Path("/dev/shm/samples.csv").exists())


class Symbols(unittest.TestCase):
    def test_program_holds_nothing_of_the_virtual_card(self):
        names = subprocess.run(["nm", "-C", str(BUILD / "tsyn")], capture_output=True, text=True,
                               check=True).stdout
        self.assertIn("tsyn::runCommand", names)
        self.assertNotIn("virtual_i210", names)


class RefusedInterface(Network):
    def run_on(self, name, wrapper=()):
        return self.start("run", name, "--role", "slave", wrapper=wrapper)

    def test_no_such_interface(self):
        self.assert_one_error(self.run_on("nope0"), 1, "nope0", "no such interface")
        self.assert_one_error(self.run_on("a" * 16), 1, "1 to 15 characters")

    def test_no_hardware_clock(self):
        self.assert_one_error(self.run_on("lo"), 1, "lo", "no PTP hardware clock")

    def test_interface_down(self):
        ip("link", "set", SLAVE_IF, "down")
        self.addCleanup(ip, "link", "set", SLAVE_IF, "up")
        self.assert_one_error(self.run_on(SLAVE_IF), 1, "is down", "ip link set tss0 up")

    def test_missing_capabilities(self):
        for capability in ("net_raw", "net_admin"):
            with self.subTest(capability=capability):
                drop = ("setpriv", "--bounding-set", f"-{capability}")
                self.assert_one_error(self.run_on(SLAVE_IF, drop), 1,
                                      f"CAP_{capability.upper()}", "no permission")


class Pair:
    """A master, and a slave that follows it; mixed into the cables of both times."""

    def synchronised_pair(self, master_build=None, slave_build=None):
        delay = ("--propagation-delay", str(CABLE_NS))
        master = self.run_json(MASTER_IF, "master", build=master_build)
        self.wait_for_state(master, "sending")
        slave = self.run_json(SLAVE_IF, "slave", *delay, "--truth", MASTER_IF, "--samples",
                              "/dev/shm/samples.csv", build=slave_build)
        return master, slave, self.wait_for_state(slave, "synchronised")

    def check_pair(self, **builds):
        _, slave, status = self.synchronised_pair(**builds)
        self.assertEqual(status["link_delay_ns"], CABLE_NS)
        self.assertAlmostEqual(status["rate_ppm"], -37.0, delta=5.0)
        closing = self.end(slave)
        self.assertLess(closing["first_valid_after_sync_s"], 2.0)
        if "sanitized" not in BUILD.name:
            self.assertLess(closing["rss_kib"], 8 * 1024)


class RealTimeMaster(Network):
    def test_ends_cleanly(self):
        master = self.run_json(MASTER_IF, "master")
        self.wait_for_state(master, "sending")
        self.assert_ends_soon(master, signal.SIGTERM, role="master")

    def test_ends_when_its_reader_has_gone(self):
        master = self.run_json(MASTER_IF, "master")
        self.wait_for_state(master, "starting")
        master.stdout.close()
        self.assertEqual(master.wait(timeout=WAIT_S), 1)
        self.assertEqual(master.stderr.read(),
                         "tsyn: standard output cannot be written (Broken pipe)\n")


class FullPipes(Network):
    """Pipes that nobody empties."""

    def full_pipe(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        os.set_blocking(writer, False)
        try:
            while True:
                os.write(writer, bytes(4096))
        except BlockingIOError:
            os.set_blocking(writer, True)
        return writer

    def run_with(self, profile, **streams):
        command = ("env", f"LD_PRELOAD={BUILD / 'libvirtual_i210.so'}", str(BUILD / "tsyn"), "run",
                   MASTER_IF, "--role", "master", "--json", "--profile", profile)
        child = subprocess.Popen(command, env=environment(), text=True, bufsize=1,
                                 **{"stdout": subprocess.PIPE, **streams})
        self.addCleanup(self.reap, child)
        return child

    def test_full_log_pipe_keeps_nothing_from_running(self):
        for profile in ("deployed", "standard"):
            with self.subTest(profile=profile):
                writer = self.full_pipe()
                master = self.run_with(profile, stderr=writer)
                os.close(writer)
                self.wait_for_state(master, "sending")
                self.assert_ends_soon(master, signal.SIGTERM, role="master")

    def test_full_output_pipe_does_not_keep_a_signal_out(self):
        writer = self.full_pipe()
        master = self.run_with("standard", stdout=writer, stderr=subprocess.DEVNULL)
        os.close(writer)
        record = pathlib.Path(f"/dev/shm/{MASTER_IF}")
        give_up = time.monotonic() + WAIT_S
        while not record.exists() and time.monotonic() < give_up:
            time.sleep(0.02)
        master.send_signal(signal.SIGTERM)
        self.assertEqual(master.wait(timeout=WAIT_S), 0)


class RealTimeSlave(Pair, Network):
    def test_becomes_synchronised(self):
        self.check_pair()


class Master(Simulated):
    def test_ends_cleanly_on_both_signals(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number):
                master = self.run_json(MASTER_IF, "master")
                self.wait_for_state(master, "sending")
                self.assert_ends_soon(master, number, role="master")

    def test_status_goes_to_output_and_log_to_error(self):
        master = self.start("run", MASTER_IF, "--role", "master", "--duration", "4.5")
        output, errors = master.communicate(timeout=WAIT_S)
        self.assertEqual(master.returncode, 0)
        lines = output.splitlines()
        self.assertIn("sending", lines[-2])
        self.assertTrue(lines[-1].startswith("end after"), output)
        self.assertNotIn("->", output)
        self.assertIn("->ZebEthTSynInterface_Create()>", errors)

    def test_log_file_takes_the_log(self):
        master = self.run_json(MASTER_IF, "master", "--duration", "2.5")
        _, errors = master.communicate(timeout=WAIT_S)
        self.assertEqual(errors, "")
        log = pathlib.Path("/dev/shm/master.log").read_text()
        self.assertIn("Starting as Master", log)

    def test_gives_the_card_the_time_of_day(self):
        master = self.run_json(MASTER_IF, "master")
        status = self.wait_for_state(master, "sending")
        self.assertLess(abs(status["seconds"] - EPOCH_S - self.now()), 3)
        self.end(master)


class Slave(Pair, Simulated):
    def test_becomes_synchronised(self):
        self.check_pair()

    def test_becomes_synchronised_with_a_master_of_the_other_abi(self):
        other = other_build()
        if other is None:
            self.skipTest("no build for the other ABI at hand")
        self.check_pair(master_build=other)

    def test_samples_hold_the_error_against_the_true_clock(self):
        _, slave, _ = self.synchronised_pair()
        self.wait_for(slave, lambda line: line["t_s"] > 6)
        closing = self.end(slave)
        lines = pathlib.Path("/dev/shm/samples.csv").read_text().splitlines()
        self.assertEqual(lines[0], "t_s,error_ns,bracket_ns,valid")
        rows = [line.split(",") for line in lines[1:]]
        self.assertEqual(len(rows), closing["samples"])
        errors = sorted(abs(int(row[1])) for row in rows if row[3] == "1")
        self.assertGreater(len(errors), 50)
        self.assertLess(errors[len(errors) // 2], 5000)

    def test_goes_stale_and_its_record_reads_the_same_from_outside(self):
        master, slave, _ = self.synchronised_pair()
        self.end(master)
        status = self.wait_for_state(slave, "stale")
        record = pathlib.Path(f"/dev/shm/{SLAVE_IF}").read_bytes()
        self.assertEqual(len(record), 260)
        link, _, rejected, offset = struct.unpack_from("<qqIq", record, 24)
        accepted, sequence = (struct.unpack_from("<I", record, 24 + at)[0] for at in (84, 104))
        mantissa, exponent = struct.unpack_from("<QH", record, 24 + 36)
        ratio = mantissa * 2.0 ** (exponent - 16383 - 63)
        self.assertEqual((link, rejected, offset, accepted, sequence),
                         (status["link_delay_ns"], status["sync_rejected"], status["offset_ns"],
                          status["sync_accepted"], status["sequence_id"]))
        self.assertAlmostEqual(1e6 * (ratio - 1.0), status["rate_ppm"], places=6)

    def test_waits_for_a_master(self):
        slave = self.run_json(SLAVE_IF, "slave")
        status = self.wait_for_state(slave, "no sync yet")
        self.assertEqual(status["sync_accepted"], 0)
        self.assertIsNone(self.end(slave)["first_valid_s"])


class Autosar(Simulated):
    DATA_IDS = ("--data-id-list", "101112131415161718191a1b1c1d1e1f")
    SECURED = ("--autosar", "--time-tlv", "secured", "--status-tlv", "secured",
               "--user-data-tlv", "secured", "--crc-time-flags", "0x3F")

    def received(self, slave_data_ids=DATA_IDS, follow_ups=5):
        master = self.run_json(MASTER_IF, "master", *self.SECURED, *self.DATA_IDS,
                               "--status", "global+gateway", "--user-data", "1122")
        self.wait_for_state(master, "sending")
        slave = self.run_json(SLAVE_IF, "slave", *slave_data_ids)
        self.wait_for(slave, lambda line: line.get("subtlv", {}).get("follow_ups", 0) >= follow_ups)
        return self.end(slave)["subtlv"]

    def test_slave_reports_what_the_master_sends(self):
        report = self.received()
        self.assertEqual(report["count"], 4)
        self.assertEqual(report["valid"], {"CRC_Time_0": True, "CRC_Time_1": True,
                                           "CRC_Status": True, "CRC_UserData": True})
        self.assertEqual((report["status"], report["user_data"]), (1, "1122"))
        self.assertEqual(report["all_valid"], report["follow_ups"])

    def test_a_daemon_that_sleeps_has_every_follow_up_counted(self):
        standard = (*self.DATA_IDS, "--profile", "standard")
        master = self.run_json(MASTER_IF, "master", *self.SECURED, *standard)
        self.wait_for_state(master, "sending")
        slave = self.run_json(SLAVE_IF, "slave", *standard)
        begin, end = (self.wait_for(slave, lambda line, n=seconds: line["t_s"] > n)
                      for seconds in (2.5, 12.5))
        told = end["subtlv"]["follow_ups"] - begin["subtlv"]["follow_ups"]
        self.assertAlmostEqual(told, end["sync_accepted"] - begin["sync_accepted"], delta=1)
        self.assertGreater(told, 60)

    def test_another_data_id_list_makes_every_crc_wrong(self):
        report = self.received(slave_data_ids=())
        self.assertEqual(set(report["valid"].values()), {False})
        self.assertEqual(report["all_valid"], 0)

    def test_status_line_tells_of_the_sub_tlvs(self):
        master = self.run_json(MASTER_IF, "master", *self.SECURED, *self.DATA_IDS)
        self.wait_for_state(master, "sending")
        slave = self.start("run", SLAVE_IF, "--role", "slave", "--log", "/dev/null",
                           *self.DATA_IDS)
        give_up = self.now() + WAIT_S
        line = ""
        while "tlv valid" not in line and self.now() < give_up:
            line = slave.stdout.readline()
        self.assertRegex(line, r"tlv valid \(\d+ of \d+ valid\) status 0x00 user data -")

    def test_master_without_a_global_time_base_sends_no_sync(self):
        master = self.run_json(MASTER_IF, "master", "--autosar", "--status", "gateway")
        self.wait_for(master, lambda line: line["state"] == "not sending" and line["t_s"] > 4)
        self.assertIsNone(self.end(master)["first_sync_s"])


class Spy(Network):
    def setUp(self):
        super().setUp()
        ip("link", "set", "lo", "up")
        self.peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.addCleanup(self.peer.close)
        self.peer.settimeout(WAIT_S)

    def test_port_319_answers_with_the_record(self):
        master = self.run_json(MASTER_IF, "master", "--spy")
        self.wait_for_state(master, "sending")
        self.peer.sendto(b"hello", ("127.0.0.1", 319))
        give_up = time.monotonic() + WAIT_S
        answer = bytes(236)
        while answer == bytes(236) and time.monotonic() < give_up:
            answer = self.peer.recv(512)
        self.assertEqual(len(answer), 236)
        sequence_id, = struct.unpack_from("<I", answer, 104)
        self.assertGreater(sequence_id, 0)
        self.end(master)

    def test_taken_port_is_refused(self):
        self.peer.bind(("0.0.0.0", 319))
        child = self.start("run", SLAVE_IF, "--role", "slave", "--spy")
        self.assert_one_error(child, 1, "--spy", "319", "Address already in use")


class HostExample(Simulated):
    def test_readme_shows_the_example_that_is_built(self):
        self.assertIn((ROOT / "examples/host.c").read_text(), (ROOT / "README.md").read_text())

    def test_prints_ten_times_and_ends(self):
        host = self.start(SLAVE_IF, program="example_host")
        _, errors = host.communicate(timeout=WAIT_S)
        self.assertEqual(host.returncode, 0)
        times = [line for line in errors.splitlines() if line.replace(".", "").isdigit()]
        self.assertEqual(len(times), 10, errors)


class HostReturns(Network):
    def test_returning_from_main_on_a_running_master_ends_within_a_second(self):
        host = self.start(MASTER_IF, program="host_returns")
        with selectors.DefaultSelector() as selector:
            selector.register(host.stdout, selectors.EVENT_READ)
            selector.register(host.stderr, selectors.EVENT_READ)
            give_up = time.monotonic() + WAIT_S
            line = ""
            while line != "returning\n" and time.monotonic() < give_up:
                for key, _ in selector.select(timeout=1.0):
                    text = key.fileobj.readline()
                    line = text if key.fileobj is host.stderr else line
        self.assertEqual(line, "returning\n")
        before = time.monotonic()
        self.assertEqual(host.wait(timeout=WAIT_S), 0)
        self.assertLess(time.monotonic() - before, 1.0)


def main(script=__file__):
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if INSIDE not in os.environ:
        os.environ[INSIDE] = "1"
        flags = "-nm" if os.geteuid() == 0 else "-Urnm"
        os.execvp("unshare", ["unshare", flags, sys.executable, "-B", script, *sys.argv[1:]])
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/dev/shm"], check=True)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)


if __name__ == "__main__":
    main()
