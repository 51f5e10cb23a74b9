#!/usr/bin/env python3
"""tsyn doctor names what is wrong: one fault at a time, on virtual i210 cards.

Usage: doctor.py BUILD_FOLDER [CASE...]
"""
import json
import pathlib
import re
import signal
import subprocess
import time
import unittest

import network
import programs
import simulated
from network import BUILD, MASTER_IF, SLAVE_IF, WAIT_S, Network, ip
from simulated import Simulated

LIST = "101112131415161718191a1b1c1d1e1f"
SECURED = ("--autosar", "--time-tlv", "secured", "--status-tlv", "secured", "--user-data-tlv",
           "secured", "--crc-time-flags", "0x3F", "--data-id-list", LIST)
DEPLOYED = ("--profile", "deployed")
STANDARD = ("--profile", "standard")
FIXED = ("--propagation-delay", "500")
PDELAY_REQ, PDELAY_RESP, FOLLOW_UP = "2", "3", "8"
TX_OFF, TX_ON, RX_NONE, RX_PTP_V2_EVENT = "0", "1", "0", "12"


class Doctoring(Simulated):
    """A cable, its daemons, and what doctor says of them."""

    def daemon(self, name, role, *options):
        if "--profile" not in options:
            options += STANDARD
        return self.start("run", name, "--role", role, "--log", f"/dev/shm/{role}.log", *options)

    def pair(self, master=(), slave=(), settle=6.0):
        """A master, and a slave that has followed it for a while."""
        self.master = self.daemon(MASTER_IF, "master", *master)
        self.slave = self.daemon(SLAVE_IF, "slave", *slave)
        self.timekeeper.sleep(settle)

    def card(self, *words):
        """An order to the virtual cards."""
        subprocess.run([str(BUILD / "virtual_i210"), *words], check=True,
                       env=network.environment(self.cards))

    def fault(self, name, kind, *details):
        self.card("fault", name, kind, *(details or ("--until-cleared",)))

    def run_doctor(self, name, *options):
        child = self.start("doctor", name, *options)
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual(errors, "")
        return child.returncode, output

    def report(self, *options, name=SLAVE_IF):
        status, output = self.run_doctor(name, "--json", *options)
        report = json.loads(output)
        self.assertEqual(status, 0 if report["first_failed"] is None else 1, output)
        return report

    def assert_first(self, gate, *parts, options=(), name=SLAVE_IF):
        """Doctor names this gate first, with these parts in what it found or advises."""
        report = self.report(*options, name=name)
        self.assertEqual(report["first_failed"], gate, json.dumps(report["gates"], indent=1))
        failed = next(each for each in report["gates"] if each["gate"] == gate)
        text = f"{failed['found']} -> {failed['next']}"
        for part in parts:
            self.assertIn(part, text)
        self.assertEqual(report["summary"],
                         f"not synchronised, since: {gate}: {failed['found']}")

    def assert_healthy(self, *options, name=SLAVE_IF):
        report = self.report(*options, name=name)
        self.assertIsNone(report["first_failed"], json.dumps(report["gates"], indent=1))
        return {each["gate"]: each for each in report["gates"]}


class Healthy(Doctoring):
    def test_slave_of_the_standard_profile(self):
        self.pair()
        gates = self.assert_healthy()
        skipped = [name for name, gate in gates.items() if gate["result"] == "skip"]
        self.assertEqual(skipped, ["crc"])
        self.assertIn("quality synchronised", gates["record"]["found"])
        self.assertIn("measured, ", gates["link-delay"]["found"])

    def test_slave_as_deployed_with_a_fixed_delay(self):
        self.pair(master=DEPLOYED, slave=(*DEPLOYED, *FIXED), settle=8.0)
        gates = self.assert_healthy(*DEPLOYED)
        self.assertIn("its delay is fixed, 500 ns", gates["peer-delay"]["found"])
        self.assertEqual(gates["record"]["result"], "pass")

    def test_slave_as_deployed_that_measures(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED, settle=8.0)
        gates = self.assert_healthy(*DEPLOYED)
        self.assertIn("answered, by one", gates["peer-delay"]["found"])

    def test_master(self):
        self.pair()
        gates = self.assert_healthy("--role", "master", name=MASTER_IF)
        self.assertRegex(gates["peer-delay"]["found"], r"^(\d) of \1 Pdelay_Req answered")

    def test_secured_follow_ups(self):
        self.pair(master=SECURED)
        gates = self.assert_healthy("--data-id-list", LIST)
        self.assertRegex(gates["crc"]["found"], r"^all \d\d CRCs right$")

    def test_looking_sends_nothing_and_leaves_the_card_as_it_is(self):
        self.pair(slave=FIXED)
        before = self.interface_as_told()
        self.assert_healthy()
        shown = subprocess.run([str(BUILD / "virtual_i210"), "show"], check=True, text=True,
                               capture_output=True, env=network.environment(self.cards)).stdout
        of_slave = shown[shown.index(f"{SLAVE_IF} phc"):]
        self.assertIn("sent 0 PTP frames", of_slave)
        self.assertEqual(self.interface_as_told(), before)

    @staticmethod
    def interface_as_told():
        return subprocess.run(["ip", "-d", "link", "show", SLAVE_IF], check=True, text=True,
                              capture_output=True).stdout

    def test_text_ends_with_the_summary_and_has_no_colours_in_a_file(self):
        self.pair()
        status, output = self.run_doctor(SLAVE_IF)
        self.assertEqual(status, 0)
        self.assertRegex(output, r"(?m)^PASS  interface +tss0 has index")
        self.assertRegex(output.splitlines()[-1], r"^all is well: \d+ gates passed, 1 skipped$")
        self.assertNotIn("\033", output)


class CardFaults(Doctoring):
    def test_no_interface(self):
        self.assert_first("interface", "no interface nope0", name="nope0")

    def test_interface_is_down(self):
        ip("link", "set", SLAVE_IF, "down")
        self.addCleanup(ip, "link", "set", SLAVE_IF, "up")
        self.assert_first("carrier", f"ip link set {SLAVE_IF} up")

    def test_no_carrier(self):
        ip("link", "set", MASTER_IF, "down")
        self.addCleanup(ip, "link", "set", MASTER_IF, "up")
        self.assert_first("carrier", "no carrier")

    def test_no_hardware_clock(self):
        ip("link", "set", "lo", "up")
        self.assert_first("clock", "no PTP hardware clock", name="lo")

    def test_clock_has_gone(self):
        self.pair()
        self.card("phc", SLAVE_IF, "hidden")
        self.assert_first("clock", "no PTP hardware clock")

    def test_driver_does_not_answer(self):
        self.card("refuse", SLAVE_IF, "ethtool", "95")
        self.assert_first("clock", "cannot be read", "ethtool -T")

    def test_another_program_steers_the_clock(self):
        self.pair()
        # Of the daemon's kind by its name alone, which is what an integrator forgets to stop.
        script = pathlib.Path("/dev/shm/ptp4l")
        script.write_text("#!/bin/sh\nread forever\n")
        script.chmod(0o755)
        with subprocess.Popen([str(script), "-i", SLAVE_IF], stdin=subprocess.PIPE) as foreign:
            self.wait_until_named("ptp4l", foreign.pid)
            self.assert_first("steering", f"ptp4l (pid {foreign.pid})", f"kill {foreign.pid}")

    def wait_until_named(self, name, pid):
        give_up = time.monotonic() + WAIT_S
        while pathlib.Path(f"/proc/{pid}/comm").read_text() != name + "\n":
            self.assertLess(time.monotonic(), give_up)

    def test_two_daemons(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        self.daemon(SLAVE_IF, "slave", *DEPLOYED)
        self.timekeeper.sleep(4.0)
        self.assert_first("steering", "2 daemons write one record")

    def set_stamping(self, transmit, receive):
        child = self.start(SLAVE_IF, transmit, receive, program="stamping")
        self.assertEqual(child.wait(WAIT_S), 0)

    def test_transmit_stamping_is_switched_off(self):
        self.pair()
        self.set_stamping(TX_OFF, RX_PTP_V2_EVENT)
        self.assert_first("timestamping", "transmit off, receive filter ptpv2-event")

    def test_receive_stamping_is_switched_off(self):
        self.pair()
        self.set_stamping(TX_ON, RX_NONE)
        self.assert_first("timestamping", "transmit on, receive filter none")

    def test_card_drops_the_group_address(self):
        self.pair()
        ip("link", "set", SLAVE_IF, "promisc", "off")
        self.assert_first("reception", "01:80:c2:00:00:0e", "promisc on")


class WireFaults(Doctoring):
    def test_no_master(self):
        self.daemon(SLAVE_IF, "slave")
        self.timekeeper.sleep(2.0)
        self.assert_first("frames", "no frame", "but this node's own (")

    def test_master_has_gone(self):
        self.pair()
        self.master.kill()
        self.timekeeper.sleep(1.0)
        self.assert_first("frames", "no frame")

    def test_minor_version_is_for_the_standard_profile(self):
        self.pair(slave=DEPLOYED)
        self.fault(MASTER_IF, "corrupt", "--byte", "1", "--bit", "4", "--until-cleared")
        self.assert_first("version", "PTP version 2.1", "anyMinorVersion", options=DEPLOYED)

    def test_minor_version_is_none_of_its_faults_in_the_standard_profile(self):
        # A standard master would not know its frame again when the stamp comes.
        self.pair(master=DEPLOYED, slave=FIXED, settle=0.1)
        self.fault(MASTER_IF, "corrupt", "--byte", "1", "--bit", "4", "--until-cleared")
        self.timekeeper.sleep(6.0)
        gates = self.assert_healthy()
        self.assertEqual(gates["version"]["found"], "PTP version 2.1")

    def test_major_version(self):
        self.pair()
        self.fault(MASTER_IF, "corrupt", "--byte", "1", "--bit", "0", "--until-cleared")
        self.assert_first("version", "PTP version 3.0")

    def test_domain(self):
        self.pair(master=("--domain", "3"))
        self.assert_first("domain", "Sync of domain 3 from ", "run with --domain 3")

    def test_vlan(self):
        self.pair(master=("--vlan-id", "5"))
        self.assert_first("vlan", "Sync of VLAN 5 from", "run with --vlan-id 5")

    def test_no_vlan(self):
        self.pair(slave=("--vlan-id", "5"))
        self.assert_first("vlan", "Sync of no VLAN from", "--vlan-id -1", options=("--vlan-id", "5"))

    def test_transport_specific(self):
        self.pair()
        self.fault(MASTER_IF, "corrupt", "--byte", "0", "--bit", "4", "--until-cleared")
        self.assert_first("transport", "transportSpecific 0")

    def test_no_sync(self):
        self.pair(master=("--tx-mode", "0"))
        self.assert_first("master", "nobody sends Sync; heard: 3 Pdelay_Resp")

    def test_two_masters(self):
        self.pair()
        self.start(MASTER_IF, "--kind", "sync", "--rate", "8", "--for", "60", program="flood")
        self.assert_first("master", "2 masters: ", "0afffffe00000001-1")

    def test_slave_is_a_master(self):
        self.daemon(SLAVE_IF, "master")
        self.daemon(MASTER_IF, "master")
        self.timekeeper.sleep(2.0)
        self.assert_first("master", "this node itself sends Sync", "--role master")

    def test_master_beside_another(self):
        self.daemon(SLAVE_IF, "master")
        self.daemon(MASTER_IF, "master")
        self.timekeeper.sleep(2.0)
        self.assert_first("master", "this node is the master, and Sync comes from",
                          options=("--role", "master"))

    def test_follow_ups_are_missing(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", FOLLOW_UP, "--until-cleared")
        self.assert_first("follow-up", "0 of 2", "Sync have their Follow_Up")

    def test_sync_rate(self):
        self.pair(master=("--sync-interval", "500"))
        self.assert_first("sync-rate", "each 500", "--sync-interval")

    def test_sync_with_gaps(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", "0", "--count", "5")
        self.assert_first("sync-rate", "each 12", "lost on the way")


class CrcFaults(Doctoring):
    def test_no_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "wrong without a DataIDList", "--data-id-list")

    def test_another_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "wrong with this list", options=("--data-id-list", LIST[::-1]))

    def test_one_entry_of_the_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "sequenceId modulo 16 of 2", "compare these entries",
                          options=("--data-id-list", LIST.replace("12", "21"), "--listen", "5"))

    def test_damaged(self):
        self.pair(master=SECURED)
        self.fault(MASTER_IF, "corrupt", "--byte", "37", "--bit", "0", "--type", FOLLOW_UP,
                   "--count", "5")
        self.assert_first("crc", "damaged on the way", options=("--data-id-list", LIST))

    def test_malformed(self):
        self.pair(master=SECURED)
        self.fault(MASTER_IF, "corrupt", "--byte", "79", "--bit", "6", "--type", FOLLOW_UP,
                   "--until-cleared")
        self.assert_first("crc", "malformed TLV", options=("--data-id-list", LIST))


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
        self.master.kill()
        self.master.wait(WAIT_S)
        for name in (SLAVE_IF, f"{SLAVE_IF}.lock"):
            pathlib.Path(f"/dev/shm/{name}").unlink(missing_ok=True)

    def test_record_cannot_be_read(self):
        self.pair()
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").write_bytes(b"short")
        self.assert_first("daemon", "cannot be read")

    def test_nobody_answers(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", PDELAY_RESP, "--until-cleared")
        self.assert_first("peer-delay", "0 of 3 Pdelay_Req answered")

    def test_transmit_stamps_are_missing(self):
        self.pair()
        self.fault(SLAVE_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "of 3 exchanges lacked a stamp")

    def test_transmit_stamps_are_missing_as_deployed(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        self.fault(SLAVE_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "exchanges lacked a stamp", options=DEPLOYED)

    def test_transmit_stamps_of_a_master_are_missing(self):
        self.pair()
        self.fault(MASTER_IF, "stamp-lost")
        self.assert_first("transmit-stamps", "Sync were stamped and followed up",
                          options=("--role", "master"), name=MASTER_IF)

    def test_receive_stamps_are_missing(self):
        self.pair(slave=FIXED)
        self.fault(SLAVE_IF, "rx-stamp-lost")
        self.assert_first("receive-stamps", "0 of 2", "Sync were stamped by the card")

    def test_daemon_hangs(self):
        self.pair(slave=FIXED)
        self.slave.send_signal(signal.SIGSTOP)
        self.timekeeper.sleep(1.0)
        self.assert_first("record", "0 Sync taken, 0 rejected", "hangs")
        self.slave.send_signal(signal.SIGCONT)

    def test_daemon_was_told_another_domain(self):
        self.pair(slave=(*FIXED, "--domain", "2"))
        self.assert_first("record", "0 Sync taken", "another domain")


class LongCable(Doctoring):
    cards = simulated.CARDS.replace("cable_ns=500", "cable_ns=120000")

    def test_delay_is_out_of_limits(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        self.assert_first("link-delay", "every measured delay was refused", "49999 ns",
                          options=DEPLOYED)


class FastClock(Doctoring):
    cards = simulated.CARDS.replace("rate_ppb=37000", "rate_ppb=300000")

    def test_rate_is_out_of_limits(self):
        for profile in (DEPLOYED, STANDARD):
            with self.subTest(profile=profile):
                self.pair(master=profile, slave=(*profile, *FIXED))
                self.assert_first("rate", "the master runs -29", "more than 250",
                                  options=profile)
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


class Rights(Network):
    """In real time, since the program that takes the rights away is none of the run."""

    def first_failed(self, capability, *options):
        child = self.start("doctor", SLAVE_IF, "--json", "--listen", "0.1", *options,
                           wrapper=("setpriv", "--bounding-set", f"-{capability}"))
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 1)
        report = json.loads(output)
        return report["first_failed"], report["gates"]

    def test_without_raw_sockets_nothing_is_heard(self):
        gate, gates = self.first_failed("net_raw")
        self.assertEqual(gate, "capabilities")
        reasons = {each["gate"]: each["found"] for each in gates if each["result"] == "skip"}
        self.assertIn("no raw socket", reasons["frames"])
        self.assertIn("no raw socket", reasons["crc"])

    def test_without_administration_no_daemon_can_be_run(self):
        gate, gates = self.first_failed("net_admin")
        self.assertEqual(gate, "capabilities")
        self.assertIn("could not run one", gates[2]["found"])

    def test_an_ordinary_interface_has_no_clock(self):
        child = self.start("doctor", SLAVE_IF, "--listen", "0.1", cards=False)
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 1)
        self.assertRegex(output, r"\nnot synchronised, since: clock: .*no PTP hardware clock.*\n$")


class WrongUse(Network):
    def test_each_bad_option_gives_one_line_and_status_2(self):
        for words in (("--domain", "16"), ("--vlan-id", "4097"), ("--role", "king"),
                      ("--profile", "odd"), ("--listen", "0"), ("--listen", "nan"),
                      ("--sync-interval", "124"), ("--data-id-list", "12"), ("--nonsense",)):
            with self.subTest(words=words):
                self.assert_one_error(self.start("doctor", SLAVE_IF, *words), 2, words[0])

    def test_a_name_that_no_interface_can_have(self):
        self.assert_one_error(self.start("doctor", "a" * 16), 2, "1 to 15 characters")
        self.assert_one_error(self.start("doctor"), 2, "interface")


if __name__ == "__main__":
    programs.main(__file__)
