#!/usr/bin/env python3
"""tsyn status and tsyn watch beside daemons on virtual i210 cards, and beside none.

Usage: watching.py BUILD_FOLDER [CASE...]
"""
import json
import pathlib
import signal
import socket
import struct
import subprocess
import time

import programs
from network import (BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, Network, environment,
                     ip)
from simulated import Simulated

STANDARD = ("--profile", "standard")
OPTIONAL_INT = (int, type(None))
OPTIONAL_TEXT = (str, type(None))
SCHEMA = {"event": str, "interface": str, "role": str, "profile": str, "state": str,
          "seconds": OPTIONAL_INT, "nanoseconds": OPTIONAL_INT, "timescale": OPTIONAL_TEXT,
          "utc": OPTIONAL_TEXT, "tai": OPTIONAL_TEXT, "sequence_id": int, "offset_ns": int,
          "rate_ppm": (float, type(None)), "link_delay_ns": int, "soft_offset_ns": int,
          "sync_age_s": (float, type(None)), "sync_accepted": int, "sync_rejected": int,
          "pdelay_incomplete": int, "quality": (dict, type(None)), "subtlv": type(None),
          "owner": dict}
QUALITY = {"state": str, "master": str, "master_port": int, "bound_ns": OPTIONAL_INT,
           "flags": list, "steps": int, "ignored_frames": int, "unstamped_frames": int,
           "stray_stamps": int, "unused_exchanges": int, "refused_samples": int,
           "bound_growth_ppb": int, "void_after_ns": int}
OWNER = {"pid": OPTIONAL_INT, "alive": (bool, type(None)), "command": OPTIONAL_TEXT}
WATCH = {**SCHEMA, "t_s": float, "began_anew": bool, "moved_ns": (float, type(None)),
         "per_second": dict}


class Daemons(Simulated):
    def assert_schema(self, told, schema=None):
        schema = schema or SCHEMA
        self.assertEqual(list(told), list(schema))
        for key, kind in schema.items():
            self.assertIsInstance(told[key], kind, key)
        if told.get("quality"):
            self.assert_schema(told["quality"], QUALITY)
        if "owner" in told:
            self.assert_schema(told["owner"], OWNER)

    def status(self, *words):
        child = self.start("status", *words)
        output, errors = child.communicate()
        return child.returncode, output, errors

    def status_json(self, *words):
        code, output, errors = self.status(*words, "--json")
        told = json.loads(output)
        self.assert_schema(told)
        return code, told, errors

    def pair(self, *profile):
        master = self.run_json(MASTER_IF, "master", *profile)
        self.wait_for_state(master, "sending")
        slave = self.run_json(SLAVE_IF, "slave", "--propagation-delay", str(CABLE_NS), *profile)
        self.wait_for_state(slave, "synchronised")
        return master, slave


class Status(Daemons):
    def test_of_a_deployed_slave_tells_what_can_be_known(self):
        _, slave = self.pair()
        code, told, errors = self.status_json(SLAVE_IF)
        self.assertEqual((code, errors), (0, ""))
        self.assertEqual((told["state"], told["role"], told["profile"], told["quality"]),
                         ("synchronised", "slave", "deployed", None))
        self.assertEqual(told["link_delay_ns"], CABLE_NS)
        self.assertLess(told["sync_age_s"], 0.3)
        self.assertGreater(told["sync_accepted"], 1)
        self.assertEqual(told["owner"], {"pid": slave.pid, "alive": True, "command": "tsyn"})
        _, text, _ = self.status(SLAVE_IF)
        self.assertIn("deployed: no bound", text)
        self.assertIn("tss0: synchronised, role slave, profile deployed\n", text)

    def test_of_a_standard_pair_tells_bound_and_master(self):
        _, slave = self.pair(*STANDARD)
        code, told, _ = self.status_json(SLAVE_IF)
        self.assertEqual((code, told["state"], told["profile"]), (0, "synchronised", "standard"))
        self.assertGreater(told["quality"]["bound_ns"], 0)
        self.assertRegex(told["quality"]["master"], "^[0-9a-f]{6}fffe[0-9a-f]{6}$")
        self.assertEqual(told["owner"]["pid"], slave.pid)
        code, told, _ = self.status_json(MASTER_IF)
        self.assertEqual((code, told["state"], told["role"]), (0, "sending", "master"))

    def test_takes_the_time_for_what_its_distance_to_the_host_tells(self):
        self.pair(*STANDARD)
        _, told, _ = self.status_json(MASTER_IF)
        self.assertEqual(told["timescale"], "utc")
        at = "%Y-%m-%dT%H:%M:%S"
        utc, tai = (time.mktime(time.strptime(told[key][:19], at)) for key in ("utc", "tai"))
        self.assertEqual(tai - utc, 37)
        _, told, _ = self.status_json(MASTER_IF, "--utc-offset", "30")
        self.assertEqual(told["tai"][17:19], f"{(int(told['utc'][17:19]) + 30) % 60:02}")

    def test_of_a_slave_without_a_master_is_3(self):
        slave = self.run_json(SLAVE_IF, "slave")
        self.wait_for_state(slave, "no sync yet")
        code, told, errors = self.status_json(SLAVE_IF)
        self.assertEqual((code, errors), (3, ""))
        self.assertEqual((told["state"], told["sync_age_s"], told["utc"]),
                         ("no sync yet", None, None))

    def test_of_a_standard_slave_without_a_master_is_told_from_its_start_on(self):
        slave = self.run_json(SLAVE_IF, "slave", *STANDARD)
        line = self.wait_for(slave, lambda line: line["state"] != "starting")
        self.assertLess(line["t_s"], 1.5)
        self.assertEqual((line["state"], line["seconds"]), ("no master", None))
        code, told, errors = self.status_json(SLAVE_IF)
        self.assertEqual((code, errors), (3, ""))
        self.assertEqual((told["state"], told["role"], told["profile"], told["utc"]),
                         ("no master", "slave", "standard", None))
        self.assertEqual(told["owner"]["pid"], slave.pid)
        self.end(slave)
        self.assertEqual(self.status_json(SLAVE_IF)[1]["state"], "lost")

    def test_after_the_masters_end_is_3_as_deployed_and_4_with_a_bound(self):
        for profile, expected in (((), (3, "stale")), (STANDARD, (4, "holdover"))):
            with self.subTest(profile=profile):
                master, slave = self.pair(*profile)
                self.end(master)
                self.timekeeper.sleep(2)
                code, told, _ = self.status_json(SLAVE_IF)
                self.assertEqual((code, told["state"]), expected)
                self.end(slave)

    def test_of_a_slave_whose_receive_stamps_are_missing_is_4(self):
        """The master speaks on, but nothing of it can be used."""
        self.pair(*STANDARD)
        self.fault(SLAVE_IF, "rx-stamp-lost")
        self.timekeeper.sleep(2)
        code, told, _ = self.status_json(SLAVE_IF)
        self.assertEqual((code, told["state"]), (4, "holdover"))

    def status_after_the_end(self, *profile):
        _, slave = self.pair(*profile)
        slave.kill()
        slave.wait(WAIT_S)
        code, told, errors = self.status_json(SLAVE_IF)
        return slave.pid, code, told["owner"]["alive"], errors

    def test_after_the_end_of_a_standard_daemon_names_its_process(self):
        pid, *told = self.status_after_the_end(*STANDARD)
        self.assertEqual(told, [1, False, f"tsyn: tss0: owner {pid} has ended; what is shown is "
                                          "its last\n"])

    def test_after_the_end_of_a_deployed_daemon_says_that_nobody_writes(self):
        """Also where other processes hide what they map."""
        _, *told = self.status_after_the_end()
        self.assertEqual(told, [1, False, "tsyn: tss0: no process writes this record; what is "
                                          "shown is its owner's last\n"])


class StatusErrors(Network):
    def refused(self, content, *parts):
        if content is not None:
            pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(content)
        self.assert_one_error(self.start("status", SLAVE_IF), 1, *parts)

    def test_no_segment_lists_those_that_there_are(self):
        self.refused(None, SLAVE_IF, "no time record", "start the daemon first")
        pathlib.Path("/dev/shm/eth8").write_bytes(bytes(260))
        pathlib.Path("/dev/shm/eth8.lock").write_bytes(b"1\n")
        self.refused(None, "those of eth8\n")
        self.assertFalse(pathlib.Path(f"/dev/shm/{SLAVE_IF}").exists())

    def test_short_long_and_foreign_segments(self):
        self.refused(bytes(0), "has 0 bytes", "260", "too short")
        self.refused(bytes(4096), "has 4096 bytes", "another program's")
        self.refused(b"x" * 260, "holds no time record", "another program's")

    def test_segment_without_permission(self):
        file = pathlib.Path(f"/dev/shm/{SLAVE_IF}")
        file.write_bytes(bytes(260))
        file.chmod(0)
        drop = ("setpriv", "--bounding-set", "-dac_override,-dac_read_search",
                "--inh-caps", "-dac_override,-dac_read_search")
        child = self.start("status", SLAVE_IF, wrapper=drop)
        self.assert_one_error(child, 1, "Permission denied", "segmentMode")

    def test_looking_leaves_the_segment_as_it_is(self):
        record = bytearray(260)
        struct.pack_into("<I", record, 24 + 84, 77)
        file = pathlib.Path(f"/dev/shm/{SLAVE_IF}")
        file.write_bytes(record)
        self.start("status", SLAVE_IF).communicate(timeout=WAIT_S)
        self.assertEqual(file.read_bytes(), record)

    def test_wrong_use(self):
        for words, part in (((), "--spy"), ((SLAVE_IF, "--spy", "h"), "--spy"),
                            (("--spy", "h:0"), "h:0"), (("a/b",), "a/b"),
                            ((SLAVE_IF, "--stale-after", "0"), "--stale-after")):
            with self.subTest(words=words):
                self.assert_one_error(self.start("status", *words), 2, part)

    def test_output_that_nobody_reads(self):
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(bytes(260))
        for words, status in ((("status", SLAVE_IF), 1), (("watch", SLAVE_IF, "--json"), 1),
                              (("doctor", SLAVE_IF, "--listen", "0.1"), 2)):
            with self.subTest(words=words), open("/dev/full", "w", encoding="ascii") as full:
                child = subprocess.run([BUILD / "tsyn", *words], env=environment(), stdout=full,
                                       stderr=subprocess.PIPE, text=True, check=False)
                self.assertEqual((child.returncode, child.stderr),
                                 (status, "tsyn: standard output cannot be written (No space left "
                                          "on device)\n"))


class Spied(Network):
    def setUp(self):
        super().setUp()
        ip("link", "set", "lo", "up")

    def test_status_and_watch_by_the_spy(self):
        master = self.run_json(MASTER_IF, "master", "--spy")
        self.wait_for_state(master, "sending")
        child = self.start("status", "--spy", "127.0.0.1", "--json")
        output, errors = child.communicate(timeout=WAIT_S)
        told = json.loads(output)
        self.assertEqual((child.returncode, errors), (0, ""))
        self.assertEqual((told["interface"], told["role"], told["state"]),
                         ("127.0.0.1:319", "master", "sending"))
        watch = self.start("watch", "--spy", "127.0.0.1", "--json")
        self.wait_for(watch, lambda line: line.get("state") == "sending")

    def test_spies_that_do_not_answer(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
            peer.bind(("127.0.0.1", 0))
            port = peer.getsockname()[1]
            child = self.start("status", "--spy", f"127.0.0.1:{port}", "--timeout", "0.5")
            self.assert_one_error(child, 1, "no answer for 0.5 s", "tsyn run --spy")
            peer.recv(100)
            child = self.start("status", "--spy", f"127.0.0.1:{port}", "--timeout", "20")
            _, asker = peer.recvfrom(100)
            peer.sendto(b"hello", asker)
            self.assert_one_error(child, 1, "sends no time record")
        self.assert_one_error(self.start("status", "--spy", f"127.0.0.1:{port}"), 1,
                              "nobody listens there")
        self.assert_one_error(self.start("status", "--spy", "no.such.host.invalid"), 1,
                              "the host is not known")


class Watch(Daemons):
    def watch_json(self):
        watch = self.start("watch", SLAVE_IF, "--json")
        waiting = self.wait_for(watch, lambda line: line["event"] == "waiting")
        self.assertEqual(list(waiting), ["event", "interface", "t_s", "problem"])
        self.assertIn("no time record", waiting["problem"])
        return watch

    @staticmethod
    def is_settled(line):
        return (line["event"] == "watch" and line["moved_ns"] is not None
                and line["state"] == "synchronised" and not line["began_anew"])

    def check_restart(self, *profile):
        watch = self.watch_json()
        _, slave = self.pair(*profile)
        told = self.wait_for(watch, self.is_settled)
        self.assert_schema(told, WATCH)
        self.assertEqual(told["owner"]["pid"], slave.pid)
        self.assertAlmostEqual(told["per_second"]["sync_accepted"], 8, delta=2)
        self.assertLess(abs(told["moved_ns"]), 20_000)
        slave.kill()
        slave.wait(WAIT_S)
        self.wait_for(watch, lambda line: line["owner"]["alive"] is False)
        slave = self.run_json(SLAVE_IF, "slave", *profile)
        self.wait_for(watch, lambda line: line["began_anew"])
        told = self.wait_for(watch, self.is_settled)
        self.assertEqual(told["owner"], {"pid": slave.pid, "alive": True, "command": "tsyn"})
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").unlink()
        self.wait_for(watch, lambda line: line["event"] == "waiting")

    def test_goes_on_through_the_end_and_restart_of_a_deployed_daemon(self):
        self.check_restart()

    def test_goes_on_through_the_end_and_restart_of_a_standard_daemon(self):
        self.check_restart(*STANDARD)

    def test_lines_and_summary(self):
        self.pair(*STANDARD)
        watch = self.start("watch", SLAVE_IF, "--duration", "3.5")
        output, errors = watch.communicate()
        self.assertEqual((watch.returncode, errors), (0, ""))
        lines = output.splitlines()
        self.assertEqual(len(lines), 4)
        self.assertRegex(lines[-1], r"^tss0  synchronised +offset -?\d+ ns  rate .* ppm  delay 500 "
                                    r"ns  last Sync 0\.\d+ s  bound \d+ ns  accepted \d+  rejected")
        watch = self.start("watch", SLAVE_IF, "--summary", "--duration", "3.5")
        output, _ = watch.communicate()
        for line in output.splitlines()[1:]:
            self.assertRegex(line, r"^rms +\d+ max +\d+ freq +[+-]\d+ \+/- +\d+ "
                                   r"delay +500 \+/- +0$")

    def test_a_signal_ends_it(self):
        watch = self.watch_json()
        watch.send_signal(signal.SIGTERM)
        self.assertEqual(watch.wait(WAIT_S), 0)


class WatchOutput(Network):
    def test_ends_with_one_line_when_its_reader_has_gone(self):
        watch = self.start("watch", SLAVE_IF, "--json")
        watch.stdout.readline()
        watch.stdout.close()
        self.assertEqual(watch.wait(timeout=WAIT_S), 1)
        self.assertEqual(watch.stderr.read(), "tsyn: standard output was closed; nobody reads "
                                              "what watch shows\n")

    def test_wrong_use(self):
        self.assert_one_error(self.start("watch"), 2, "--spy")
        self.assert_one_error(self.start("watch", "x", "--json", "--summary"), 2, "--summary")


if __name__ == "__main__":
    programs.main(__file__)
