#!/usr/bin/env python3
"""tsyn watch on a terminal, beside a record of the test's own.

Usage: screen.py BUILD_FOLDER [CASE...]
"""
import fcntl
import mmap
import os
import pathlib
import pty
import resource
import select
import signal
import struct
import subprocess
import termios
import time

import programs
from network import BUILD, SLAVE_IF, WAIT_S, Network


class Terminal:
    """A terminal of a size, with a program on it that is written to and read."""

    def __init__(self, *words, rows=24, columns=80, **variables):
        self.own, self.other = pty.openpty()
        self.resize(rows, columns)
        self.before = termios.tcgetattr(self.other)
        environment = {**os.environ, "TERM": "xterm", "LC_ALL": "C.UTF-8", **variables}
        self.program = subprocess.Popen([BUILD / "tsyn", *words], env=environment,
                                        stdin=self.other, stdout=self.other,
                                        stderr=subprocess.PIPE, text=True, start_new_session=True)

    def resize(self, rows, columns):
        fcntl.ioctl(self.other, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self, seconds, until=None):
        """What the program writes within a time, or before a text comes."""
        give_up = time.monotonic() + seconds
        text = b""
        while until is None or until not in text:
            ready, _, _ = select.select([self.own], [], [], max(0, give_up - time.monotonic()))
            if not ready:
                break
            text += os.read(self.own, 65536)
        return text

    def press(self, keys):
        os.write(self.own, keys)

    def end(self):
        if self.program.poll() is None:
            self.program.kill()
        self.program.communicate()
        os.close(self.own)
        os.close(self.other)


class Segment(Network):
    """A record of the test's own."""

    def setUp(self):
        super().setUp()
        path = f"/dev/shm/{SLAVE_IF}"
        pathlib.Path(path).write_bytes(bytes(260))
        with open(path, "r+b") as file:
            self.segment = mmap.mmap(file.fileno(), 260)
        self.addCleanup(self.segment.close)
        self.syncs = 0
        self.sync()

    def sync(self):
        """What a slave publishes with a Sync."""
        self.syncs += 1
        now = time.time_ns()
        at = 24
        struct.pack_into("<qqIqq", self.segment, at, 500, 0, 0, 1_500_000_000 + self.syncs,
                         -1_500_000_000)
        for ratio in (36, 48):
            struct.pack_into("<QH", self.segment, at + ratio, 1 << 63, 16383)
        struct.pack_into("<QQQII", self.segment, at + 60, now + 1_500_000_000, now - 500, 0,
                         self.syncs, 0)
        struct.pack_into("<I", self.segment, at + 104, self.syncs)

    def assert_lines_follow(self, kind, reason):
        terminal = Terminal("watch", SLAVE_IF, "--duration", "0.5", TERM=kind)
        self.addCleanup(terminal.end)
        self.assertIn(b"accepted 1", terminal.read(WAIT_S, until=b"incomplete"))
        self.assertRegex(terminal.program.communicate(timeout=WAIT_S)[1],
                         f"^tsyn: .*{reason}.*; a line a second follows\n$")


class NoScreen(Segment):
    def test_a_build_without_ncurses_says_so(self):
        self.assert_lines_follow("xterm", "has no ncurses")


class Screen(Segment):
    def open(self, *words, **shape):
        terminal = Terminal("watch", SLAVE_IF, *words, **shape)
        self.addCleanup(terminal.end)
        first = terminal.read(WAIT_S, until=b"quit")
        self.assertIn(b"quit", first)
        return terminal, first

    def quit(self, terminal, keys=b"q"):
        terminal.press(keys)
        rest = terminal.read(5, until=b"\x1b[?1049l")
        self.assertIn(b"\x1b[?1049l", rest)
        self.assertEqual(terminal.program.wait(timeout=WAIT_S), 0)
        self.assertEqual(termios.tcgetattr(terminal.other), terminal.before)

    def test_shows_the_daemon_and_sends_only_what_changes(self):
        terminal, first = self.open()
        for part in (b"synchronised, role slave, profile deployed", b"delay", b"owner"):
            self.assertIn(part, first)
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        seconds = 3
        later = b""
        for _ in range(seconds):
            self.sync()
            later += terminal.read(1)
        self.assertGreater(len(later), 0)
        for clearing in (b"\x1b[2J", b"\x1b[J", b"\x1b[H\x1b[2J"):
            self.assertNotIn(clearing, later)
        self.assertLess(len(later) / seconds, 1000)
        self.assertNotIn(b"profile deployed", later)
        self.assertIn("\u2585".encode(), first)
        self.quit(terminal)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        self.assertLess(used, 0.5)

    def test_pauses_and_goes_on(self):
        terminal, _ = self.open()
        terminal.press(b" ")
        self.assertIn(b"PAUSED", terminal.read(5, until=b"PAUSED"))
        self.syncs = 4710
        self.sync()
        self.assertNotIn(b"4711", terminal.read(1.5))
        terminal.press(b"p")
        self.assertIn(b"4711", terminal.read(5, until=b"4711"))
        self.quit(terminal)

    def test_follows_the_size_of_its_terminal(self):
        terminal, _ = self.open()
        for rows, columns in ((3, 12), (1, 1), (50, 200)):
            terminal.resize(rows, columns)
            terminal.program.send_signal(signal.SIGWINCH)
            shown = terminal.read(5, until=b"tss0: synchronised"[:min(columns, 18)])
            self.assertIn(b"tss0"[:columns], shown)
        self.quit(terminal)

    def test_is_ascii_where_the_locale_is(self):
        for words, variables in (((), {"LC_ALL": "C"}), (("--ascii",), {})):
            terminal, first = self.open(*words, **variables)
            shown = first + terminal.read(1.5)
            self.assertTrue(shown.isascii(), shown)
            self.assertIn(b"=", shown)
            self.quit(terminal)

    def test_a_signal_restores_the_terminal(self):
        terminal, _ = self.open()
        terminal.program.send_signal(signal.SIGTERM)
        self.quit(terminal, keys=b"")

    def test_terminal_of_no_kind_gets_lines(self):
        self.assert_lines_follow("nonsense", "TERM=nonsense")


if __name__ == "__main__":
    programs.main(__file__)
