#!/usr/bin/env python3
"""The commands of the documents, run as they stand there, each at a terminal of its own.

Usage: documents.py BUILD_FOLDER [CASE...]

In a document, what is indented by four or stands in a fence called sh is a command; all else has a
fence that names what it is. Here eth1 is one of two virtual cards.
"""
import os
import pathlib
import re
import shlex
import shutil
import socket
import subprocess
import time
import unittest

import programs
from feeding import CLONE_NEWIPC, LIBC
from network import BUILD, MASTER_IF, ROOT, SLAVE_IF, WAIT_S, Network, environment, ip
from terminals import Terminal

DOCUMENTS = sorted(
    [ROOT / "README.md", ROOT / "CONTRIBUTING.md", ROOT / "tests/README.md",
     ROOT / "tools/virtual_i210/README.md", *(ROOT / "doc").glob("*.md")])

# Commands that this test does not run, and what does; it looks whether the targets exist.
ELSEWHERE = {
    "make demo": "takes more than a minute",
    "make test": "runs this test",
    "make simulate": "takes minutes; simulate's own tests run scenarios",
    "make install prefix=/opt/tsyn": "packaging.install installs and removes",
    "make uninstall": "packaging.install installs and removes",
    "make deb": "make try runs it",
    "build/x86_64/simulate scenarios/measured.toml --seeds 1..50": "fifty times the line above it",
    "cmake --build build/x86_64 --target simulate flood tsyn libvirtual_i210.so":
        "would build here",
    "cmake --build build/x86_64 --target zeb_ptp_test": "would build here",
}
CHAPTERS_ELSEWHERE = {"From packages to a watched pair": "make try runs just these"}

# Fences of what is no command.
EXAMPLES = {"c", "ini", "mermaid", "text", "toml", "yaml"}

# What shows that a program does its work which ends only when it is told to.
GOES_ON = (
    (r"tsyn run .*masterIdentity", r"no sync yet|no master"),
    (r"tsyn run (?!.*--print-config)", r"(?<!not )sending|synchronised"),
    (r"tsyn watch .*--summary", r"rms +\d+ max"),
    (r"tsyn watch ", r"synchronised"),
    (r"tsyn feed ", r"samples go to"),
    (r"tsyn export ", r"metrics at http"),
    (r"ptp4l ", r"assuming the grand master role|to LISTENING"),
)
WRITES_ON = r"tsyn record .*-o (\S+)|dumpcap .*-w (\S+)"
ENOUGH_BYTES = 4000


def commands(text):
    """The commands of a document, in their order."""
    found, language, before = [], None, ""
    for heading in CHAPTERS_ELSEWHERE:
        text = re.sub(rf"(?ms)^## {heading}$.*?(?=^## |\Z)", "", text)
    for line in text.splitlines():
        if line.startswith("```"):
            language = None if language is not None else line[3:]
        elif language == "sh" or language is None and line.startswith("    ") and (
                before.strip() == "" or before.startswith("    ")):
            if found and found[-1].endswith("\\"):
                found[-1] = found[-1][:-1] + line.strip()
            elif line.strip():
                found.append(line.strip())
        before = line
    return [re.sub(r"\s+# .*$", "", command) for command in found]


def evidence(command):
    """What a program shows that goes on; None of one that ends by itself."""
    return next((text for program, text in GOES_ON if re.search(program, command)), None)


class Documents(unittest.TestCase):
    """All of them at once."""

    def test_commands_that_run_elsewhere_are_still_told(self):
        texts = [path.read_text() for path in DOCUMENTS]
        told = {command for text in texts for command in commands(text)}
        self.assertEqual(set(ELSEWHERE) - told, set())
        for heading in CHAPTERS_ELSEWHERE:
            self.assertIn(f"\n## {heading}\n", "".join(texts))

    def test_every_fence_says_what_is_in_it(self):
        for path in DOCUMENTS:
            opening = re.findall(r"(?ms)^```([^\n]*)\n.*?^```$", path.read_text())
            self.assertEqual(set(opening) - EXAMPLES - {"sh"}, set(), path)

    def test_what_make_and_cmake_shall_build_exists(self):
        alone = {name: value for name, value in os.environ.items() if not name.startswith("MAKE")}
        for command in ELSEWHERE:
            first, *words = shlex.split(command)
            if first in ("make", "cmake"):
                with self.subTest(command=command):
                    dry = ["make", "-C", ROOT, "-n", *words] if first == "make" else [
                        "cmake", "--build", BUILD, *words[2:], "--", "-n"]
                    done = subprocess.run(dry, env=alone, capture_output=True, text=True,
                                          check=False)
                    self.assertEqual(done.returncode, 0, done.stderr)

    def test_a_command_is_told_from_an_example(self):
        self.assertEqual(commands("Text\n\n    one \\\n        -x  # why\n    two\n\n```text\n"
                                  "    no\n```\n```sh\nthree; four\n```\n- item\n    goes on\n"),
                         ["one -x", "two", "three; four"])


class Document(Network):
    """One of them: a folder like the tree's, a pair of cards, and daemons that stay."""

    FOLDER = pathlib.Path("/run/user-folder")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
        ip("link", "set", "lo", "up")
        if LIBC.unshare(CLONE_NEWIPC) != 0:
            raise OSError("no shared memory of its own")
        programs_folder = cls.FOLDER / "bin"
        programs_folder.mkdir(parents=True)
        for name in ("tools", "scenarios", "examples"):
            (cls.FOLDER / name).symlink_to(ROOT / name)
        (cls.FOLDER / "build").mkdir()
        (cls.FOLDER / "build/x86_64").symlink_to(BUILD)
        tsyn = programs_folder / "tsyn"
        tsyn.write_text(f'#!/bin/sh\nexec env LD_PRELOAD={BUILD}/libvirtual_i210.so '
                        f'{BUILD}/tsyn "$@"\n')
        tsyn.chmod(0o755)
        (programs_folder / "start-the-recorder").symlink_to("/bin/true")
        (cls.FOLDER / "times").write_text("1795206340.5\n")

    def setUp(self):
        super().setUp()
        self.daemons = {}
        self.exports = ""
        self.variables = {**environment(), "TERM": "xterm", "LC_ALL": "C.UTF-8",
                          "PATH": f"{self.FOLDER}/bin:{os.environ['PATH']}"}

    def here(self, command):
        """The command for this machine, where a master and a slave are neighbours and a service is
        what its unit runs; make try has a systemd for it."""
        service = re.match(r"systemctl enable --now tsyn@(\S+)$", command)
        if service:
            unit = (ROOT / "packaging/tsyn@.service").read_text()
            command = re.search("^ExecStart=(.*)", unit, re.M)[1].replace("%i", service[1])
        is_master = re.search(r"--role master|^tsyn set ", command)
        for told, meant in (("eth1", MASTER_IF if is_master else SLAVE_IF),
                            ("/etc/tsyn", "/run/etc"), ("192.168.1.2", "127.0.0.1")):
            command = command.replace(told, meant)
        return command

    def at_terminal(self, command):
        terminal = Terminal(self.exports + command, self.variables, self.FOLDER)
        self.addCleanup(terminal.close)
        return terminal

    def run_daemon(self, command):
        """Stays when it works, in place of the one that its card had."""
        card = MASTER_IF if MASTER_IF in command.split("--")[0] else SLAVE_IF
        if card in self.daemons:
            self.assertEqual(self.daemons.pop(card).interrupt(WAIT_S), 0)
        daemon = self.at_terminal(command)
        daemon.wait_for(evidence(command), WAIT_S)
        self.daemons[card] = daemon

    def wait_until(self, condition, what):
        give_up = time.monotonic() + WAIT_S
        while not condition():
            self.assertLess(time.monotonic(), give_up, f"never came: {what}")
            time.sleep(0.1)

    @staticmethod
    def slave_is_synchronised():
        return subprocess.run([BUILD / "tsyn", "status", SLAVE_IF], stdout=subprocess.DEVNULL,
                              check=False).returncode == 0

    def prepare(self, command):
        """What somebody who reads the document has by then."""
        if re.match(f"tsyn (?!run {MASTER_IF})", command) and MASTER_IF not in self.daemons:
            self.run_daemon(f"tsyn run {MASTER_IF} --role master")
        if re.match("tsyn (?!run)", command):
            if SLAVE_IF not in self.daemons:
                self.run_daemon(f"tsyn run {SLAVE_IF} --role slave --spy")
            self.wait_until(self.slave_is_synchronised, "a synchronised slave")
        for file in re.findall(r"\S+\.csv", command) if command.startswith("tsyn plot") else ():
            # A running daemon hands its samples over some at a time.
            self.wait_until(lambda: (self.FOLDER / file).stat().st_size, file)
        chrony = re.search(r"--chrony (\S+)", command)
        if chrony:
            pathlib.Path(chrony[1]).parent.mkdir(exist_ok=True)
            server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            self.addCleanup(server.close)
            if not pathlib.Path(chrony[1]).exists():
                server.bind(chrony[1])
        record = re.search(r"--record (\S+)", command)
        if record:
            shutil.copy(f"/dev/shm/{SLAVE_IF}", self.FOLDER / record[1])
        if "ip link add" in command:
            ip("link", "del", MASTER_IF)

    def run_command(self, command):
        self.prepare(command)
        if command.startswith("export "):
            self.exports += command + "\n"
            return
        shown = evidence(command)
        if shown and command.startswith("tsyn run "):
            self.run_daemon(command)
            return
        terminal = self.at_terminal(command)
        file = re.match(WRITES_ON, command)
        if file:
            terminal.wait_until_written(self.FOLDER / (file[1] or file[2]), ENOUGH_BYTES, WAIT_S)
        elif shown:
            terminal.wait_for(shown, WAIT_S)
        status = terminal.interrupt(WAIT_S) if file or shown else terminal.wait(WAIT_S)
        # The other end of a pipe is interrupted as well.
        self.assertIn(status, (0, 130) if "|" in command else (0,), terminal.text())

    def check(self, path):
        """Each chapter begins without daemons."""
        for chapter in re.split("(?m)^(?=## )", path.read_text()):
            for command in commands(chapter):
                if command not in ELSEWHERE:
                    with self.subTest(command=command):
                        self.run_command(self.here(command))
            for card, daemon in self.daemons.items():
                with self.subTest(card=card):
                    self.assertEqual(daemon.interrupt(WAIT_S), 0, daemon.text())
            self.daemons = {}


for document in DOCUMENTS:
    name = re.sub(r"\W", "_", str(document.relative_to(ROOT).with_suffix("")))
    setattr(Document, f"test_{name}", lambda self, path=document: self.check(path))

if __name__ == "__main__":
    programs.main(__file__)
