#!/usr/bin/env python3
"""Programs that read the published time: both ABIs and Python, beside daemons and true time.

Usage: readers.py BUILD_FOLDER [CASE...]
"""
import os
import pathlib
import random
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests/tsyn"), str(ROOT / "python")]

from gptp_time import Result, State, TimeReader  # noqa: E402
from network import (BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, environment,  # noqa: E402
                     ip, other_build)
from simulated import Simulated  # noqa: E402

INSIDE = "TSYN_TEST_INSIDE"
SEGMENT = pathlib.Path(f"/dev/shm/{SLAVE_IF}")
BUILDS = [build for build in (BUILD, other_build()) if build and (build / "read_times").exists()]


def extended(value):
    """A ratio near 1, given in 2**-63, in the ten bytes of an 80-bit value."""
    shift = 64 - value.bit_length()
    return struct.pack("<QHxx", value << shift, 16383 - shift)


def segment(anchor_ns, rates=(1 << 63, 1 << 63), told=True, state=State.SYNCHRONISED,
            master_offset=0, void_after_ns=2**62, owner=0):
    line = struct.pack("<qq12s12sQ", master_offset, 55, *map(extended, rates), anchor_ns - 55)
    quality = struct.pack("<IBBBBIIIIq8xHH20x", 0x71507467, 1, 1, state, 0, 4, 100, 300, owner,
                          void_after_ns, 1, 9)
    record = bytes(20) + line + bytes(172 - 68) + (quality if told else bytes(64))
    return bytes(24) + record


def rows(build, *times):
    done = subprocess.run([str(build / "read_times"), SLAVE_IF, *map(str, times)], text=True,
                          capture_output=True, check=True, env=environment())
    return [tuple(map(int, line.split())) for line in done.stdout.splitlines()]


def python_rows(*times):
    found = []
    with TimeReader(SLAVE_IF) as reader:
        for system_ns in times:
            found.append(reader.at(system_ns))
            if found[-1].time_ns != -2**63:
                found.append(reader.system_at(found[-1].time_ns))
    return [tuple(map(int, reading)) for reading in found]


class Agreement(unittest.TestCase):
    """Python computes with integers what C has the x87 compute."""

    def check(self, content, *times):
        SEGMENT.write_bytes(content)
        expected = python_rows(*times)
        for build in BUILDS:
            self.assertEqual(rows(build, *times), expected)
        return expected

    def test_both_abis_and_python_agree_to_the_nanosecond(self):
        generator = random.Random(7)
        for _ in range(12):
            anchor = generator.randrange(10**18, 4 * 10**18)
            rates = [(1 << 63) + generator.randrange(-2**52, 2**52) for _ in range(2)]
            times = [anchor + generator.randrange(-10**reach, 10**reach)
                     for reach in (3, 6, 9, 11, 15, 17) for _ in range(8)]
            found = self.check(segment(anchor, rates, master_offset=generator.randrange(10**15)),
                               *times)
            self.assertIn(Result.OK, [row[0] for row in found])

    def test_each_lack_has_the_same_name(self):
        now = 1_700_000_000_000_000_000
        for name, content, when in (
                ("NO_TIME", bytes(260), now),
                ("FOREIGN", bytes(259), now),
                ("NO_QUALITY", segment(now, told=False), now),
                ("STALE", segment(now, told=False), now + 60_000_000_001),
                ("STALE", segment(now), now + 60_000_000_001),
                ("VOID", segment(now, void_after_ns=now), now + 1),
                ("VOID", segment(now, state=State.NO_MASTER), now),
                ("ACQUIRING", segment(now, state=State.ACQUIRING), now),
                ("FOREIGN", segment(now, state=5), now),
                ("OK", segment(now, state=State.HOLDOVER), now)):
            with self.subTest(name=name):
                self.assertEqual(self.check(content, when)[0][0], Result[name])

    def test_python_names_the_state(self):
        now = time.time_ns()
        for told, name in ((2, "SYNCHRONISED"), (4, "LOST"), (5, "UNKNOWN_5")):
            SEGMENT.write_bytes(segment(now, state=told))
            state = TimeReader(SLAVE_IF).at(now).state
            self.assertEqual((state, state.name), (told, name))
        self.assertIs(TimeReader("no/name").now().state, State.UNTOLD)

    def test_python_names_what_it_cannot_open(self):
        SEGMENT.unlink(missing_ok=True)
        self.assertEqual(TimeReader("no/name").now().result, Result.BAD_NAME)
        reader = TimeReader(SLAVE_IF)
        self.assertEqual(reader.now().result, Result.NO_SEGMENT)
        SEGMENT.write_bytes(segment(time.time_ns(), told=False))
        self.assertEqual(reader.now().result, Result.NO_QUALITY)
        self.assertEqual(len({result.text for result in Result}), len(Result))

    def test_python_gives_up_on_a_record_that_is_never_whole(self):
        content = bytearray(segment(10**18))
        struct.pack_into("<I", content, 24 + 172 + 8, 5)
        SEGMENT.write_bytes(content)
        self.assertEqual(TimeReader(SLAVE_IF).now().result, Result.TORN)

    def test_python_takes_a_new_segment_within_a_second(self):
        now = time.time_ns()
        SEGMENT.write_bytes(segment(now))
        reader = TimeReader(SLAVE_IF, max_width_ns=2**40)
        self.assertEqual(reader.now().step_count, 9)
        SEGMENT.unlink()
        SEGMENT.write_bytes(bytes(260))
        reader._looked_at_ns -= 2 * 10**9
        self.assertEqual(reader.now().result, Result.NO_TIME)


class Example(unittest.TestCase):
    def test_packets_are_given_their_earliest_and_latest_time(self):
        ip("link", "set", "lo", "up")
        SEGMENT.write_bytes(segment(time.time_ns()))
        for build in BUILDS:
            child = subprocess.Popen([str(build / "example_reader"), SLAVE_IF, "5000"], text=True,
                                     stdout=subprocess.PIPE, env=environment())
            self.addCleanup(child.communicate)
            self.addCleanup(child.kill)
            before = time.time_ns()
            line = self.answer(child)
            words = line.split()
            self.assertEqual(words[::2], ["between", "and"], line)
            earliest, latest = int(words[1]), int(words[3])
            self.assertLess(before, latest)
            self.assertLess(earliest, time.time_ns())
            self.assertLess(latest - earliest, 100_000)
            child.kill()
            child.wait()

    @staticmethod
    def answer(child):
        """The line about a packet; the first ones may come before the socket is there."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.connect(("127.0.0.1", 5000))
            os.set_blocking(child.stdout.fileno(), False)
            give_up = time.monotonic() + WAIT_S
            while time.monotonic() < give_up:
                try:
                    sender.send(b"hello")
                except ConnectionRefusedError:
                    pass
                line = child.stdout.readline()
                if line:
                    return line
                time.sleep(0.01)
        return ""


class Truth(Simulated):
    """Readers beside a pair, in the pair's time."""

    def pair(self, *options):
        master = self.run_json(MASTER_IF, "master", *options)
        self.wait_for_state(master, "sending")
        return self.slave(*options)

    def slave(self, *options):
        slave = self.run_json(SLAVE_IF, "slave", "--propagation-delay", str(CABLE_NS), *options)
        self.wait_for_state(slave, "synchronised")
        return slave

    def readings(self, count, build):
        """Result, earliest, latest, time, truth, bracket."""
        child = self.start_reader(count, build)
        output, errors = child.communicate()
        self.assertEqual((child.returncode, errors), (0, ""))
        return [tuple(map(int, line.split())) for line in output.splitlines()]

    def start_reader(self, count, build):
        return self.start(SLAVE_IF, MASTER_IF, str(count), "20", build=build,
                          program="reader_truth")

    def assert_inside(self, found):
        for _, earliest, latest, _, truth, bracket in found:
            self.assertLessEqual(earliest - bracket, truth)
            self.assertLessEqual(truth, latest + bracket)
            self.assertLess(latest - earliest, 10_000)

    def test_standard_daemon_keeps_the_true_time_between_its_bounds(self):
        self.pair("--profile", "standard")
        for build in BUILDS:
            found = self.readings(100, build)
            self.assertEqual([row[0] for row in found[-50:]], [Result.OK] * 50)
            self.assert_inside(found[-50:])

    def test_deployed_daemon_gives_a_time_without_a_bound(self):
        self.pair("--profile", "deployed")
        for build in BUILDS:
            found = self.readings(50, build)
            self.assertEqual({row[0] for row in found}, {Result.NO_QUALITY})
            self.assertLess(max(abs(row[3] - row[4]) for row in found), 20_000)

    def test_reader_outlives_a_daemon_that_is_killed_and_started_again(self):
        slave = self.pair("--profile", "standard")
        reader = self.start_reader(600, BUILD)
        outside = TimeReader(SLAVE_IF)
        self.assertEqual(outside.owner(), Result.OK)
        slave.kill()
        slave.wait(WAIT_S)
        outside.owner()
        self.assertEqual(outside.owner(), Result.OWNER_GONE)
        SEGMENT.unlink()
        self.slave("--profile", "standard")
        output, _ = reader.communicate()
        found = [tuple(map(int, line.split())) for line in output.splitlines()]
        self.assertEqual([row[0] for row in found[-50:]], [Result.OK] * 50)
        self.assert_inside(found[-50:])
        # The daemon's first words: its time is not known yet.
        self.assertTrue({row[0] for row in found} - {Result.OK})
        outside._looked_at_ns = 0
        outside.now()
        self.assertEqual(outside.owner(), Result.OK)


def main():
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if INSIDE not in os.environ:
        os.environ[INSIDE] = "1"
        flags = "-nm" if os.geteuid() == 0 else "-Urnm"
        os.execvp("unshare", ["unshare", flags, sys.executable, "-B", __file__, *sys.argv[1:]])
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/dev/shm"], check=True)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)


if __name__ == "__main__":
    main()
