#!/usr/bin/env python3
"""tsyn feed between a slave on virtual i210 cards and those who set the clock by it.

Usage: feeding.py BUILD_FOLDER [CASE...]
"""
import ctypes
import os
import pathlib
import signal
import socket
import statistics
import struct
import sys

import programs
from network import MASTER_IF, SLAVE_IF, WAIT_S, Network
from watching import STANDARD, Daemons

FOLDER = pathlib.Path("/dev/shm/chrony")
SOCKET = FOLDER / "feed.sock"
CONFIGURATION = f"""refclock SOCK {SOCKET} refid TSYN poll 2 delay 0 precision 1e-8
user root
pidfile {FOLDER}/chronyd.pid
cmdport 0
bindcmdaddress /
logdir {FOLDER}
log refclocks
"""
# Runs as a program of the simulated time: by how much the card is ahead of the system clock.
AHEAD = """
import ctypes, time
card = ctypes.CDLL(None)
for _ in range(99):
    before = time.clock_gettime_ns(time.CLOCK_MONOTONIC_RAW)
    system = time.clock_gettime_ns(time.CLOCK_REALTIME)
    after = time.clock_gettime_ns(time.CLOCK_MONOTONIC_RAW)
    phc = ctypes.c_uint64()
    card.virtual_i210_true_time(b"CARD", ctypes.c_uint64((before + after) // 2), ctypes.byref(phc))
    print(phc.value - system)
"""
CLONE_NEWIPC = 0x08000000
LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.shmat.restype = ctypes.c_void_p
SEGMENT = struct.Struct("@iiqiqiiiiiII8i")


class Feeding(Daemons):
    def true_offset_ns(self):
        """What the system clock needs to be right, from the master's card itself."""
        script = pathlib.Path("/dev/shm/ahead.py")
        script.write_text(AHEAD.replace("CARD", MASTER_IF))
        child = self.start(str(script), program=sys.executable)
        output, errors = child.communicate()
        self.assertEqual(errors, "")
        return statistics.median(map(int, output.split()))

    def wait_until(self, is_so, what):
        give_up = self.now() + 60
        while not is_so():
            self.assertLess(self.now(), give_up, what)
            self.timekeeper.sleep(0.1)

    def wait_for_error(self, feed, text):
        errors = []

        def is_told():
            errors.append(feed.stderr.rest())
            return text in "".join(errors)
        self.wait_until(is_told, text)
        return "".join(errors)


class Chrony(Feeding):
    def setUp(self):
        super().setUp()
        FOLDER.mkdir(mode=0o700, exist_ok=True)
        for file in FOLDER.iterdir():
            file.unlink()
        self.addCleanup(self.remove_folder)
        (FOLDER / "chrony.conf").write_text(CONFIGURATION)

    @staticmethod
    def remove_folder():
        for file in FOLDER.iterdir():
            file.unlink()
        FOLDER.rmdir()

    def chronyd(self):
        return self.start("-x", "-d", "-n", "-f", str(FOLDER / "chrony.conf"),
                          program="/usr/sbin/chronyd")

    @staticmethod
    def samples():
        """Raw offsets in seconds, positive where the clock is behind."""
        log = FOLDER / "refclocks.log"
        words = [line.split() for line in log.read_text().splitlines()] if log.exists() else []
        return [float(each[6]) for each in words if each[2:3] == ["TSYN"] and each[6] != "-"]

    def wait_for_samples(self, count):
        wanted = len(self.samples()) + count
        self.wait_until(lambda: len(self.samples()) >= wanted, f"{wanted} samples")

    def test_takes_samples_that_are_right_and_none_without_a_master(self):
        master, _ = self.pair(*STANDARD)
        self.chronyd()
        self.wait_until(SOCKET.exists, "chronyd's socket")
        feed = self.start("feed", SLAVE_IF, "--chrony", str(SOCKET))
        began = self.now()
        self.wait_for_samples(12)
        self.assertAlmostEqual(self.now() - began, 12, delta=2)
        true_s = self.true_offset_ns() / 1e9
        self.assertGreater(abs(true_s), 1e-6)
        for offset in self.samples():
            self.assertAlmostEqual(offset, true_s, delta=200e-9)
        self.end(master)
        errors = self.wait_for_error(feed, "no samples")
        self.assertIn("not synchronised: holdover\n", errors)
        self.timekeeper.sleep(2)
        before = self.samples()
        self.timekeeper.sleep(90)
        self.assertEqual(self.samples(), before)

    def test_goes_on_when_chronyd_and_the_daemon_start_again(self):
        _, slave = self.pair()
        feed = self.start("feed", SLAVE_IF, "--chrony", str(SOCKET), "--rate", "4")
        self.assertIn("is not there", self.wait_for_error(feed, "\n"))
        for begin in ("samples go to chronyd", "samples go to chronyd"):
            chronyd = self.chronyd()
            self.wait_for_error(feed, begin)
            self.wait_for_samples(4)
            chronyd.kill()
            chronyd.wait(WAIT_S)
            self.timekeeper.sleep(3)
            self.assertEqual(feed.stderr.rest().count("start chronyd"), 1)
        self.chronyd()
        self.wait_for_error(feed, "samples go to")
        slave.kill()
        slave.wait(WAIT_S)
        self.wait_for_error(feed, "no samples")
        self.wait_for_state(self.run_json(SLAVE_IF, "slave"), "synchronised")
        self.wait_for_error(feed, "samples go to")
        self.wait_for_samples(4)
        feed.send_signal(signal.SIGTERM)
        self.assertEqual(feed.wait(WAIT_S), 0)


class NtpSharedMemory(Feeding):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Programs that begin later live in it, too.
        if LIBC.unshare(CLONE_NEWIPC) != 0:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))

    @staticmethod
    def read(unit):
        identifier = LIBC.shmget(0x4e545030 + unit, 0, 0)
        if identifier < 0:
            return None
        memory = LIBC.shmat(identifier, None, 0)
        fields = SEGMENT.unpack(ctypes.string_at(memory, SEGMENT.size))
        LIBC.shmdt(ctypes.c_void_p(memory))
        return dict(zip(("mode", "count", "clock_s", "clock_us", "receive_s", "receive_us", "leap",
                         "precision", "samples", "valid", "clock_ns", "receive_ns"), fields))

    def test_holds_the_latest_sample(self):
        self.pair()
        self.start("feed", SLAVE_IF, "--ntp-shm", "3", "--timescale", "tai", "--utc-offset", "30")
        self.wait_until(lambda: self.read(3) and self.read(3)["valid"], "a sample")
        told = self.read(3)
        self.assertEqual((told["mode"], told["count"], told["leap"]), (1, 2, 0))
        self.assertEqual((told["clock_us"], told["receive_us"]),
                         (told["clock_ns"] // 1000, told["receive_ns"] // 1000))
        ahead_ns = ((told["clock_s"] - told["receive_s"] + 30) * 10**9
                    + told["clock_ns"] - told["receive_ns"])
        self.assertAlmostEqual(ahead_ns, self.true_offset_ns(), delta=200)
        self.wait_until(lambda: self.read(3)["count"] == 6, "two more samples")

    def test_segment_of_another_word_size(self):
        LIBC.shmget(0x4e545030 + 4, 80, 0o1600)
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(bytes(260))
        self.assert_one_error(self.start("feed", SLAVE_IF, "--ntp-shm", "4"), 1,
                              "--ntp-shm 4", "word size", "ipcrm")


class FeedErrors(Network):
    def refused(self, status, words, *parts):
        self.assert_one_error(self.start("feed", *words), status, *parts)

    def test_wrong_use(self):
        sink = ("--chrony", "/dev/shm/none")
        self.refused(2, (SLAVE_IF,), "--chrony PATH or --ntp-shm UNIT")
        self.refused(2, sink, "interface")
        self.refused(2, (SLAVE_IF, *sink, "--ntp-shm", "1"), "--ntp-shm")
        self.refused(2, (SLAVE_IF, "--ntp-shm", "-1"), "--ntp-shm")
        self.refused(2, (SLAVE_IF, *sink, "--rate", "0"), "--rate")
        self.refused(2, (SLAVE_IF, *sink, "--timescale", "gps"), "--timescale")

    def test_no_record(self):
        self.refused(1, (SLAVE_IF, "--chrony", "/dev/shm/none"), SLAVE_IF, "no time record")

    def test_waits_for_a_record_where_it_is_told_to(self):
        feed = self.start("feed", SLAVE_IF, "--chrony", "/dev/shm/none", "--wait")
        self.assertIn("waiting: tss0: no time record", feed.stderr.readline())
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(bytes(260))
        self.assertIn("no samples: its daemon", feed.stderr.readline())

    def test_what_is_no_socket_of_chronyd(self):
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(bytes(260))
        self.refused(1, (SLAVE_IF, "--chrony", f"/dev/shm/{SLAVE_IF}"), "no socket", "chrony.conf")
        self.refused(1, (SLAVE_IF, "--chrony", "/" + 107 * "x"), "too long")
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as other:
            other.bind("/dev/shm/stream")
            self.refused(1, (SLAVE_IF, "--chrony", "/dev/shm/stream"), "another program's")


if __name__ == "__main__":
    programs.main(__file__)
