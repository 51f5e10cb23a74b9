"""Child processes, each in a group of its own, so that all of one's descendants end with it."""

import os
import signal
import subprocess
import threading
import time

# A fault may print or allocate without end.
LIMITED = ["sh", "-c", 'ulimit -c 0; ulimit -f 131072; exec "$@"', "sh"]
# A build passes the request to end on to its compilers, which it puts into groups of their own.
SECONDS_TO_END = 2


class Stopped(Exception):
    """Raised in place of starting a process once everything has to end."""


class Children:
    def __init__(self):
        self.lock = threading.Lock()
        self.running = set()
        self.stopping = False

    def start(self, command, **options):
        with self.lock:
            if self.stopping:
                raise Stopped()
            child = subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True,
                                     **options)
            self.running.add(child)
            return child

    @staticmethod
    def has_ended(child):
        """Leaves the child unreaped: its number stays taken, so that its group can be killed."""
        return os.waitid(os.P_PID, child.pid,
                         os.WEXITED | os.WNOWAIT | os.WNOHANG) is not None

    def end(self, child):
        """Kills what is left of a child's group and forgets it."""
        with self.lock:
            self._kill(child)
            self.running.discard(child)
        child.wait()

    def run(self, command, **options):
        """Exit status and output of a command."""
        child = self.start(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                           **options)
        with child.stdout:
            output = child.stdout.read()
        os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
        self.end(child)
        if self.stopping:
            raise Stopped()
        return child.returncode, output

    def stop(self):
        with self.lock:
            self.stopping = True
            for child in self.running:
                self._kill(child, signal.SIGTERM)
            give_up = time.monotonic() + SECONDS_TO_END
            while time.monotonic() < give_up and not all(map(self.has_ended, self.running)):
                time.sleep(0.01)
            for child in self.running:
                self._kill(child)

    @staticmethod
    def _kill(child, number=signal.SIGKILL):
        try:
            os.killpg(child.pid, number)
        except ProcessLookupError:
            pass  # it ended by itself just now
