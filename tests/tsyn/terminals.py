"""A terminal with a command of the shell on it."""
import fcntl
import os
import pty
import re
import select
import signal
import struct
import termios
import time


class Terminal:
    def __init__(self, command, variables, folder, rows=24, columns=80):
        self.written = b""
        self.status = None
        self.pid, self.own = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe("bash", ["bash", "-c", command], variables)
        fcntl.ioctl(self.own, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def text(self):
        return self.written.decode(errors="replace")

    def read(self, seconds):
        """Takes what is written next; False when nobody can write any more."""
        if not select.select([self.own], [], [], seconds)[0]:
            return True
        try:
            self.written += os.read(self.own, 65536)
        except OSError:
            return False
        return True

    def wait_for(self, pattern, seconds):
        self.wait_until(lambda: re.search(pattern, self.text()), pattern, seconds)

    def wait_until_written(self, path, size, seconds):
        self.wait_until(lambda: path.exists() and path.stat().st_size >= size, path, seconds)

    def wait_until(self, condition, what, seconds):
        give_up = time.monotonic() + seconds
        while not condition():
            alive = self.read(0.1)
            if time.monotonic() > give_up or not alive and not condition():
                raise AssertionError(f"never came: {what}\n{self.text()}")

    def wait(self, seconds):
        """The exit status, as the shell tells it."""
        give_up = time.monotonic() + seconds
        while self.read(0.1):
            if time.monotonic() > give_up:
                raise AssertionError(f"does not end\n{self.text()}")
        if self.status is None:
            self.status = os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])
        return self.status if self.status >= 0 else 128 - self.status

    def type(self, text):
        os.write(self.own, text.encode())

    def interrupt(self, seconds):
        """Ctrl-C, and then as wait()."""
        self.type("\x03")
        return self.wait(seconds)

    def close(self):
        if self.status is None:
            os.killpg(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.own)
