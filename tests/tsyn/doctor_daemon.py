#!/usr/bin/env python3
"""tsyn doctor names what is wrong with the daemon and its time: one fault at a time.

Usage: doctor_daemon.py BUILD_FOLDER [CASE...]
"""
import pathlib
import signal
import time

import programs
import simulated
from doctoring import DEPLOYED, FIXED, PDELAY_RESP, STANDARD, Doctoring
from network import MASTER_IF, SLAVE_IF, WAIT_S, ip


class DaemonFaults(Doctoring):
    def test_no_daemon(self):
        self.daemon(MASTER_IF, "master")
        self.timekeeper.sleep(1.0)
        self.assert_first("daemon", "no daemon runs", f"tsyn run {SLAVE_IF} --role slave")

    def test_daemon_was_killed(self):
        for profile in (STANDARD, DEPLOYED):
            with self.subTest(profile=profile):
                self.pair(master=profile, slave=profile)
                self.slave.kill()
                self.slave.wait(WAIT_S)
                told = f"pid {self.slave.pid}, is gone" if profile == STANDARD else "is gone"
                self.assert_first("daemon", told, options=profile)
                self.end_all()

    def end_all(self):
        for child in (self.master, self.slave):
            child.kill()
            child.wait(WAIT_S)
        for name in (SLAVE_IF, f"{SLAVE_IF}.lock"):
            pathlib.Path(f"/dev/shm/{name}").unlink(missing_ok=True)

    def test_record_cannot_be_read(self):
        self.pair()
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(b"short")
        self.assert_first("daemon", "cannot be read", state="state not known")

    def test_nobody_answers(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", PDELAY_RESP, "--until-cleared")
        self.assert_first("peer-delay", "0 of 3 Pdelay_Req answered", state="synchronised")

    def test_transmit_stamps_are_missing(self):
        self.pair()
        self.fault(SLAVE_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "of 3 exchanges lacked a stamp", state="synchronised")

    def test_transmit_stamps_are_missing_as_deployed(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        self.fault(SLAVE_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "exchanges lacked a stamp", options=DEPLOYED,
                          state="synchronised")

    def test_transmit_stamps_of_a_master_are_missing(self):
        self.pair()
        self.fault(MASTER_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "Sync were stamped and followed up",
                          options=("--role", "master"), name=MASTER_IF, state="sending")

    def test_receive_stamps_are_missing(self):
        self.pair(slave=FIXED)
        self.fault(SLAVE_IF, "rx-stamp-lost")
        self.assert_first("receive-stamps", "0 of 2", "Sync were stamped by the card",
                          state="holdover")

    def test_daemon_hangs(self):
        self.pair(slave=FIXED)
        self.slave.send_signal(signal.SIGSTOP)
        self.timekeeper.sleep(1.0)
        self.assert_first("record", "0 Sync taken, 0 rejected", "hangs")
        self.slave.send_signal(signal.SIGCONT)

    def test_daemon_was_told_another_domain(self):
        self.pair(slave=(*FIXED, "--domain", "2"))
        self.assert_first("domain", "Sync of domain 0 from", "run with --domain 0")
        self.assert_first("domain", "domain 0 was asked for, but the daemon uses domain 2",
                          "give doctor --domain 2", options=("--domain", "0"))

    def test_master_was_told_to_send_nothing(self):
        for options, found in ((("--tx-mode", "0"), "--tx-mode 0"),
                               (("--autosar", "--status", "none"), "--autosar, and --status none")):
            with self.subTest(options=options):
                self.pair(master=options)
                self.assert_first("master", f"this master was told to send no Sync: {found}",
                                  name=MASTER_IF, state="not sending")
                self.end_all()

    def test_master_was_told_so_while_it_runs(self):
        for profile in (STANDARD, DEPLOYED):
            with self.subTest(profile=profile):
                self.pair(master=(*profile, "--autosar", "--control", "/dev/shm/control.sock"),
                          slave=profile)
                order = self.start("set", MASTER_IF, "--control", "/dev/shm/control.sock",
                                   "--status", "none")
                self.assertEqual(order.communicate(timeout=WAIT_S), ("status none\n", ""))
                self.timekeeper.sleep(1.0)
                self.assert_first("master", "given another one while it ran",
                                  f"tsyn set {MASTER_IF} --status global", name=MASTER_IF,
                                  state="not sending")
                self.end_all()


class LongCable(Doctoring):
    cards = simulated.CARDS.replace("cable_ns=500", "cable_ns=120000")

    def test_delay_is_out_of_limits(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        self.assert_first("link-delay", "every measured delay was refused", "49999 ns",
                          options=DEPLOYED, state="synchronised")


class FastClock(Doctoring):
    cards = simulated.CARDS.replace("rate_ppb=37000", "rate_ppb=300000")

    def test_rate_is_out_of_limits(self):
        for profile, state in ((DEPLOYED, "not synchronised"), (STANDARD, "synchronised")):
            with self.subTest(profile=profile):
                self.pair(master=profile, slave=(*profile, *FIXED))
                self.assert_first("rate", "the master runs -29", "more than 250",
                                  options=profile, state=state)
                for child in (self.master, self.slave):
                    child.kill()
                    child.wait(WAIT_S)


class PlainSwitch(Doctoring):
    """Three nodes on a bridge that knows nothing of time."""

    THIRD_IF = "tsx0"
    cards = f"{simulated.CARDS}; {THIRD_IF} phc=2 cable_ns=500"

    @classmethod
    def setUpClass(cls):
        ip("link", "add", "br0", "type", "bridge", "stp_state", "0", "mcast_snooping", "0",
           "group_fwd_mask", "0x4000")
        ip("link", "set", "br0", "addrgenmode", "none", "up")
        for name in (MASTER_IF, SLAVE_IF, cls.THIRD_IF):
            ip("link", "add", name, "type", "veth", "peer", "name", f"p-{name}")
            ip("link", "set", f"p-{name}", "master", "br0", "addrgenmode", "none", "up")
            ip("link", "set", name, "addrgenmode", "none", "up")

    @classmethod
    def tearDownClass(cls):
        for name in (MASTER_IF, SLAVE_IF, cls.THIRD_IF, "br0"):
            ip("link", "del", name)

    def test_a_delay_that_two_answer(self):
        self.daemon(self.THIRD_IF, "master", "--tx-mode", "0")
        self.pair()
        self.assert_first("peer-delay", "answered by 2: ", "time-aware")


if __name__ == "__main__":
    programs.main(__file__)
