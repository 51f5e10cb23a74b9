"""Two network namespaces, a cable between two virtual i210 cards, a master and a slave."""
import ctypes
import dataclasses
import json
import os
import pathlib
import selectors
import signal
import subprocess
import sys
import time

MASTER_IF = "tsm0"
SLAVE_IF = "tss0"
CABLE_NS = 500
SLAVE_RATE_PPB = 37000
SLAVE_OFFSET_NS = 1500000000
MASTER_READY_S = 15.0
END_S = 10.0
DATA_ID_LIST = "101112131415161718191a1b1c1d1e1f"
USER_DATA = "112233"
# Time, status and user data with CRCs, every header field under the time CRCs.
MASTER_OPTIONS = ("--autosar", "--status", "global+gateway", "--time-tlv", "secured",
                  "--status-tlv", "secured", "--user-data-tlv", "secured",
                  "--crc-time-flags", "0x3F", "--user-data", USER_DATA)


class DemoError(Exception):
    """One line for the user: what failed, where, what to do."""


@dataclasses.dataclass
class Setup:
    outdir: pathlib.Path
    build: pathlib.Path
    check_build: pathlib.Path
    duration_s: float
    seed: int
    profile: str

    @property
    def samples(self):
        return self.outdir / "samples.csv"

    @property
    def capture(self):
        return self.outdir / "capture.pcapng"

    def log(self, role):
        return self.outdir / f"{role}.log"

    def cards(self):
        """The two cards in the syntax of VIRTUAL_I210."""
        return (f"state=/dev/shm/tsyn-demo seed={self.seed}; "
                f"{MASTER_IF} phc=0 cable_ns={CABLE_NS}; "
                f"{SLAVE_IF} phc=1 cable_ns={CABLE_NS} rate_ppb={SLAVE_RATE_PPB} "
                f"offset_ns={SLAVE_OFFSET_NS}")


@dataclasses.dataclass
class Measured:
    """The last JSON lines of both sides."""
    master: dict
    slave: dict
    link_delays: list


def end_with_parent():
    """A child does not outlive the demo, however the demo ends."""
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGKILL)


class Bench:
    def __init__(self, setup):
        self.setup = setup
        self.children = []
        self.link_delays = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for child in reversed(self.children):
            if child.poll() is None:
                child.kill()
            child.wait()
        # Its other end goes with the slave's namespace, which the kernel may take some time over.
        subprocess.run(["ip", "link", "del", MASTER_IF], capture_output=True, check=False)

    def command(self, *words):
        done = subprocess.run(words, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise DemoError(f"'{' '.join(words)}' failed: {done.stderr.strip()}")
        return done.stdout

    def spawn(self, *words, **options):
        child = subprocess.Popen(words, preexec_fn=end_with_parent, **options)
        self.children.append(child)
        return child

    def build_network(self):
        """The demo's own namespace is the master's; a waiting process holds the slave's."""
        self.command("mount", "-t", "tmpfs", "tmpfs", "/dev/shm")
        holder = self.spawn("unshare", "-n", "sh", "-c", "echo ready; exec cat",
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if holder.stdout.readline() != "ready\n":
            raise DemoError("unshare: no second network namespace; allow user namespaces or "
                            "run as root")
        self.in_slave = ["nsenter", "-t", str(holder.pid), "-n"]
        self.command("ip", "link", "add", MASTER_IF, "type", "veth", "peer", "name", SLAVE_IF)
        self.command("ip", "link", "set", SLAVE_IF, "netns", str(holder.pid))
        for prefix, name in (([], MASTER_IF), (self.in_slave, SLAVE_IF)):
            # No IPv6 address, so that the cable carries nothing but PTP.
            self.command(*prefix, "ip", "link", "set", name, "addrgenmode", "none")
            self.command(*prefix, "ip", "link", "set", name, "up")

    def start_capture(self):
        capture = self.spawn("dumpcap", "-q", "-i", MASTER_IF, "-w", str(self.setup.capture),
                             stderr=subprocess.PIPE, text=True)
        for line in capture.stderr:
            if line.startswith("File:"):
                return capture
        raise DemoError("dumpcap: no capture; check that it may be run by this user")

    def start_tsyn(self, prefix, name, role, *options):
        environment = {**os.environ, "VIRTUAL_I210": self.setup.cards(),
                       "LD_PRELOAD": str(self.setup.build / "libvirtual_i210.so")}
        words = [*prefix, "env", f"LD_PRELOAD={environment.pop('LD_PRELOAD')}",
                 str(self.setup.build / "tsyn"), "run", name, "--role", role, "--json",
                 "--profile", self.setup.profile,
                 "--log", str(self.setup.log(role)), "--data-id-list", DATA_ID_LIST, *options]
        self.setup.log(role).unlink(missing_ok=True)
        return self.spawn(*words, stdout=subprocess.PIPE, env=environment, text=True, bufsize=1)

    def wait_for_master(self, master):
        give_up = time.monotonic() + MASTER_READY_S
        for line in master.stdout:
            if json.loads(line)["state"] == "sending":
                return
            if time.monotonic() > give_up:
                break
        raise DemoError(f"the master sends no Sync; see {self.setup.log('master')}")

    def run(self):
        self.build_network()
        capture = self.start_capture()
        master = self.start_tsyn([], MASTER_IF, "master", *MASTER_OPTIONS)
        self.wait_for_master(master)
        slave = self.start_tsyn(self.in_slave, SLAVE_IF, "slave", "--autosar",
                                "--duration", str(self.setup.duration_s),
                                "--truth", MASTER_IF, "--samples", str(self.setup.samples))
        last = self.follow(master, slave)
        capture.send_signal(signal.SIGINT)
        capture.communicate(timeout=END_S)
        return Measured(*last, self.link_delays)

    def follow(self, master, slave):
        """Shows both sides until the slave's time is over; returns their closing lines."""
        view = LiveView()
        with selectors.DefaultSelector() as selector:
            for side, child in enumerate((master, slave)):
                selector.register(child.stdout, selectors.EVENT_READ, side)
            give_up = time.monotonic() + self.setup.duration_s + END_S
            last = [{}, {}]
            while last[1].get("event") != "end" and time.monotonic() < give_up:
                for key, _ in selector.select(timeout=1.0):
                    line = key.fileobj.readline()
                    if not line:
                        raise DemoError(f"a tsyn ended early; see the logs in {self.setup.outdir}")
                    last[key.data] = json.loads(line)
                    if key.data == 1 and last[1].get("link_delay_ns"):
                        self.link_delays.append(last[1]["link_delay_ns"])
                    view.show(*last, changed=key.data)
        master.send_signal(signal.SIGTERM)
        closing = [json.loads(master.communicate(timeout=END_S)[0].splitlines()[-1]), last[1]]
        if slave.wait(timeout=END_S) != 0 or master.returncode != 0:
            raise DemoError(f"a tsyn did not end cleanly; see the logs in {self.setup.outdir}")
        return closing


class LiveView:
    """One line for each second; on a terminal the block is drawn over again."""

    def __init__(self):
        self.redraw = sys.stdout.isatty()
        self.drawn = False

    def show(self, master, slave, changed):
        if slave.get("event") != "status":
            return
        lines = [f"  master {MASTER_IF}  {self.describe(master)}",
                 f"  slave  {SLAVE_IF}  {self.describe(slave)}"]
        if not self.redraw:
            if changed == 1:
                print(lines[1].strip(), flush=True)
            return
        print(("\x1b[2A" if self.drawn else "") + "".join(f"\x1b[2K{x}\n" for x in lines),
              end="", flush=True)
        self.drawn = True

    @staticmethod
    def describe(status):
        text = f"{status.get('t_s', 0.0):5.1f} s  {status.get('state', '-'):<12}"
        if status.get("sequence_id") is not None:
            text += f"  seq {status['sequence_id']:<4}"
        if status.get("role") == "slave" and "rate_ppm" in status:
            text += (f"  offset {status['offset_ns']:>+14,} ns  rate {status['rate_ppm']:+8.3f} ppm"
                     f"  link {status['link_delay_ns']} ns")
        if "subtlv" in status:
            text += f"  tlv {status['subtlv']['all_valid']}/{status['subtlv']['follow_ups']} valid"
        if "error_ns" in status:
            text += f"  error {status['error_ns']:+d} ns"
        return text
