#!/usr/bin/env python3
"""tsyn doctor names what is wrong with the card and its rights: one fault at a time.

Usage: doctor_card.py BUILD_FOLDER [CASE...]
"""
import json
import pathlib
import subprocess
import time

import network
import programs
from doctoring import (DEPLOYED, FIXED, LIST, RX_NONE, RX_PTP_V2_EVENT, SECURED, STANDARD, TX_OFF,
                       TX_ON, Doctoring)
from network import BUILD, MASTER_IF, SLAVE_IF, WAIT_S, Network, ip


class Healthy(Doctoring):
    def test_slave_of_the_standard_profile(self):
        self.pair()
        gates = self.assert_healthy()
        skipped = [name for name, gate in gates.items() if gate["result"] == "skip"]
        self.assertEqual(skipped, ["crc"])
        self.assertIn(" s old, synchronised, master ", gates["record"]["found"])
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

    def test_what_the_daemons_were_told_need_not_be_repeated(self):
        told = ("--domain", "3", "--vlan-id", "5", "--sync-interval", "250", "--data-id-list", LIST)
        for profile in (STANDARD, DEPLOYED):
            with self.subTest(profile=profile):
                self.pair(master=(*profile, *told, *SECURED[:-2]), slave=(*profile, *told),
                          settle=12.0)
                self.assert_healthy(name=MASTER_IF)
                gates = self.assert_healthy()
                self.assertEqual(gates["domain"]["found"], "domain 3")
                self.assertRegex(gates["crc"]["found"], r"^all \d\d CRCs right$")
                for child in (self.master, self.slave):
                    child.kill()
                    child.wait(WAIT_S)

    def test_secured_follow_ups(self):
        self.pair(master=SECURED)
        gates = self.assert_healthy("--data-id-list", LIST)
        self.assertRegex(gates["crc"]["found"], r"^all \d\d CRCs right$")

    def test_delay_that_was_measured_is_called_so(self):
        # One request comes each eight Sync, so that none is heard here.
        self.pair(master=("--sync-interval", "500"), slave=("--sync-interval", "500"), settle=16.0)
        gates = self.assert_healthy()
        self.assertRegex(gates["link-delay"]["found"], r"^measured, \d+ ns$")

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
        self.assertLess(max(map(len, output.splitlines())), 81)


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

    def test_no_hardware_clock_is_in_nobodys_hands(self):
        """Whatever hides its descriptors may run beside."""
        _, output = self.run_doctor("lo")
        self.assertRegex(output, r"\nPASS +steering +nobody has the clock\n")

    def test_clock_has_gone(self):
        self.pair()
        self.card("phc", SLAVE_IF, "hidden")
        self.assert_first("clock", "no PTP hardware clock", state="synchronised")

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
            self.assert_first("steering", f"ptp4l (pid {foreign.pid})", f"kill {foreign.pid}",
                              state="synchronised")

    def wait_until_named(self, name, pid):
        give_up = time.monotonic() + WAIT_S
        while pathlib.Path(f"/proc/{pid}/comm").read_text() != name + "\n":
            self.assertLess(time.monotonic(), give_up)

    def test_two_daemons(self):
        self.pair(master=DEPLOYED, slave=DEPLOYED)
        # A host that takes no lock, as deployed ones.
        self.start(SLAVE_IF, program="example_host")
        self.timekeeper.sleep(4.0)
        self.assert_first("steering", "2 daemons write one record", state="synchronised")

    def set_stamping(self, transmit, receive):
        child = self.start(SLAVE_IF, transmit, receive, program="stamping")
        self.assertEqual(child.wait(WAIT_S), 0)

    def test_transmit_stamping_is_switched_off(self):
        self.pair()
        self.set_stamping(TX_OFF, RX_PTP_V2_EVENT)
        self.assert_first("timestamping", "transmit off, receive filter ptpv2-event",
                          state="synchronised")

    def test_receive_stamping_is_switched_off(self):
        self.pair()
        self.set_stamping(TX_ON, RX_NONE)
        self.assert_first("timestamping", "transmit on, receive filter none", state="holdover")

    def test_card_drops_the_group_address(self):
        self.pair()
        ip("link", "set", SLAVE_IF, "promisc", "off")
        self.assert_first("reception", "01:80:c2:00:00:0e", "promisc on", state="synchronised")


class Rights(Network):
    """In real time, since the program that takes the rights away is none of the run."""

    def report(self, capability, *words):
        child = self.start("doctor", *words, "--json",
                           wrapper=("setpriv", "--bounding-set", f"-{capability}"))
        output, _ = child.communicate(timeout=WAIT_S)
        self.assertEqual(child.returncode, 1)
        return json.loads(output)

    def first_failed(self, capability):
        report = self.report(capability, SLAVE_IF, "--listen", "0.1")
        return report["first_failed"], report["gates"]

    def test_without_raw_sockets_the_record_is_read_all_the_same(self):
        master = self.run_json(MASTER_IF, "master", *STANDARD)
        self.wait_for_state(master, "sending")
        report = self.report("net_raw", MASTER_IF, "--listen", "0.5")
        record = report["gates"][-1]
        self.assertEqual((record["gate"], record["result"]), ("record", "pass"), record["found"])
        self.assertRegex(record["found"], r"^[3-9] Sync published in 0\.[5-9] s$")
        self.assertRegex(report["summary"], "^sending, yet capabilities failed: no CAP_NET_RAW")

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
