"""The same cable in simulated time, which moves only while the test waits for a program."""
import os
import pathlib
import signal
import subprocess

import network

STEP_S = 0.01
EPOCH_S = 1_700_000_000
CARDS = f"clock=simulated epoch_ns={EPOCH_S}000000000; {network.CARDS}"


class Timekeeper:
    """The program that directs the run; it holds time still between two orders."""

    def __init__(self, cards=CARDS):
        self.program = subprocess.Popen([str(network.BUILD / "timekeeper")], text=True, bufsize=1,
                                        env=network.environment(cards), stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)

    def order(self, *words):
        self.program.stdin.write("\t".join(map(str, words)) + "\n")
        answer = self.program.stdout.readline()
        if not answer:
            raise RuntimeError("the timekeeper has ended")
        return answer.rstrip("\n")

    def sleep(self, seconds):
        """Lets the programs run; returns the time since the beginning."""
        return int(self.order("sleep", round(seconds * 1e9))) / 1e9

    def end(self):
        self.program.stdin.close()
        self.program.stdout.close()
        self.program.wait()


class Output:
    """What a program writes into a file, read while it runs."""

    def __init__(self, program, path):
        self.program = program
        self.path = path
        self.taken = 0
        path.touch()

    def take(self, text):
        self.taken += len(text)
        return text

    def rest(self):
        return self.take(self.path.read_text()[self.taken:])

    def readline(self):
        """The next line, once it is there; less at the end, or when patience ends."""
        timekeeper = self.program.timekeeper
        give_up = timekeeper.sleep(0) + network.WAIT_S
        while True:
            ended = self.program.poll() is not None
            line, end, _ = self.path.read_text()[self.taken:].partition("\n")
            if end or ended or timekeeper.sleep(STEP_S) > give_up:
                return self.take(line + end)


class Program:
    """A program of the run, with what the tests use of subprocess.Popen."""

    count = 0

    def __init__(self, timekeeper, library, command):
        Program.count += 1
        self.timekeeper = timekeeper
        self.stdout, self.stderr = (Output(self, pathlib.Path(f"/dev/shm/{name}.{Program.count}"))
                                    for name in ("output", "errors"))
        self.pid = int(timekeeper.order("start", library, self.stdout.path, self.stderr.path,
                                        *command))
        self.returncode = None

    def poll(self):
        if self.returncode is None:
            answer = self.timekeeper.order("ended", self.pid)
            if answer != "no":
                self.returncode = os.waitstatus_to_exitcode(int(answer))
        return self.returncode

    def send_signal(self, number):
        self.timekeeper.order("signal", self.pid, int(number))

    def kill(self):
        self.send_signal(signal.SIGKILL)

    def wait(self, timeout):
        give_up = self.timekeeper.sleep(0) + timeout
        while self.poll() is None:
            if self.timekeeper.sleep(STEP_S) > give_up:
                raise TimeoutError(f"still runs after {timeout} s")
        return self.returncode

    def communicate(self, timeout=network.WAIT_S):
        self.wait(timeout)
        return self.stdout.rest(), self.stderr.rest()


class Simulated(network.Network):
    cards = CARDS

    def setUp(self):
        super().setUp()
        self.timekeeper = Timekeeper(self.cards)
        self.addCleanup(self.timekeeper.end)

    def now(self):
        return self.timekeeper.sleep(0)

    def start(self, *words, build=None, program="tsyn"):
        build = build or network.BUILD
        child = Program(self.timekeeper, build / "libvirtual_i210.so",
                        (str(build / program), *network.as_deployed(words)))
        self.addCleanup(self.reap, child)
        return child

    def card(self, *words):
        """An order to the virtual cards."""
        subprocess.run([str(network.BUILD / "virtual_i210"), *words], check=True,
                       env=network.environment(self.cards))

    def fault(self, name, kind, *details):
        self.card("fault", name, kind, *(details or ("--until-cleared",)))
