#!/usr/bin/env python3
"""The completions in the shells that they are for, at a terminal.

Usage: completing.py BUILD_FOLDER [CASE...]
"""
import os
import pathlib
import subprocess

import programs
from network import BUILD, MASTER_IF, SLAVE_IF, WAIT_S, Network
from terminals import Terminal

FOLDER = pathlib.Path("/dev/shm/completion")
PROMPT = r"[#$%] "


class Completion(Network):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Tells of the interfaces of the network in which it is mounted.
        subprocess.run(["mount", "-t", "sysfs", "sysfs", "/sys"], check=True)

    def setUp(self):
        super().setUp()
        FOLDER.mkdir(exist_ok=True)
        self.addCleanup(self.clean)

    @staticmethod
    def clean():
        for file in FOLDER.iterdir():
            file.unlink()
        FOLDER.rmdir()

    def open(self, form, file, *lines, command):
        """A shell that has the completion, as typed by a user."""
        text = subprocess.run([BUILD / "tsyn", "--describe", form], capture_output=True, check=True)
        (FOLDER / file).write_bytes(text.stdout)
        self.shell = Terminal(command, {**os.environ, "TERM": "dumb", "LC_ALL": "C.UTF-8",
                                        "HOME": str(FOLDER)}, FOLDER, columns=200)
        self.addCleanup(self.shell.close)
        self.shell.wait_for(PROMPT, WAIT_S)
        for line in (*lines, "echo loa''ded"):
            self.shell.type(line + "\r")
        self.shell.wait_for("loaded", WAIT_S)

    def assert_completes(self, typed, *expected):
        self.shell.written = b""
        self.shell.type("\x15" + typed + "\t\t")
        for text in expected:
            self.assertNotIn(text, typed)
            self.shell.wait_for(text, WAIT_S)

    def assert_completes_all(self):
        self.assert_completes("tsyn conv", "convert ")
        self.assert_completes("tsyn run --prof", "--profile")
        self.assert_completes("tsyn run --pro", "--profile", "--propagation-delay")
        self.assert_completes("tsyn run --profile st", "standard")
        self.assert_completes("tsyn run --role ", "master", "slave")
        self.assert_completes("tsyn status ts", MASTER_IF, SLAVE_IF)
        self.assert_completes("tsyn check --le", "--least-frames")

    def test_zsh(self):
        self.open("zsh", "_tsyn", f"fpath=({FOLDER} $fpath)", "autoload -Uz compinit",
                  f"compinit -u -d {FOLDER}/dump", command="exec zsh -f -i")
        self.assert_completes_all()
        (FOLDER / "capture.pcapng").touch()
        self.assert_completes("tsyn check cap", "capture.pcapng")

    def test_bash(self):
        self.open("bash", "tsyn", ". ./tsyn", command="exec bash --norc --noprofile -i")
        self.assert_completes_all()
        (FOLDER / "capture.pcapng").touch()
        self.assert_completes("tsyn check cap", "capture.pcapng")


if __name__ == "__main__":
    programs.main(__file__)
