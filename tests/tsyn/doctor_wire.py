#!/usr/bin/env python3
"""tsyn doctor names what is wrong on the wire: one fault at a time.

Usage: doctor_wire.py BUILD_FOLDER [CASE...]
"""
import programs
from doctoring import DEPLOYED, FIXED, FOLLOW_UP, LIST, SECURED, STANDARD, Doctoring
from network import MASTER_IF, SLAVE_IF, WAIT_S


class WireFaults(Doctoring):
    def test_no_master(self):
        self.daemon(SLAVE_IF, "slave")
        self.timekeeper.sleep(2.0)
        self.assert_first("frames", "no frame", "but this node's own (")

    def test_master_has_gone(self):
        self.pair()
        self.master.kill()
        self.timekeeper.sleep(1.0)
        self.assert_first("frames", "no frame", state="holdover")

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
        self.assert_first("version", "PTP version 3.0", state="holdover")

    def test_domain(self):
        self.pair(master=("--domain", "3"))
        self.assert_first("domain", "Sync of domain 3 from ", "run with --domain 3")

    def test_domain_that_only_who_looks_has(self):
        for profile in (STANDARD, DEPLOYED):
            with self.subTest(profile=profile):
                self.pair(master=profile, slave=(*profile, *FIXED), settle=8.0)
                for name, state in ((MASTER_IF, "sending"), (SLAVE_IF, "synchronised")):
                    self.assert_first(
                        "domain", "domain 3 was asked for, but the daemon uses domain 0",
                        "give doctor --domain 0", options=("--domain", "3"), name=name,
                        state=state)
                for child in (self.master, self.slave):
                    child.kill()
                    child.wait(WAIT_S)

    def test_vlan(self):
        self.pair(master=("--vlan-id", "5"))
        self.assert_first("vlan", "Sync of VLAN 5 from", "run with --vlan-id 5")

    def test_no_vlan(self):
        self.pair(slave=("--vlan-id", "5"))
        self.assert_first("vlan", "Sync of no VLAN from", "--vlan-id -1", options=("--vlan-id", "5"))

    def test_transport_specific(self):
        self.pair()
        self.fault(MASTER_IF, "corrupt", "--byte", "0", "--bit", "4", "--until-cleared")
        self.assert_first("transport", "transportSpecific 0", state="holdover")

    def test_no_sync(self):
        self.pair(master=("--tx-mode", "0"))
        self.assert_first("master", "nobody sends Sync; heard: 3 Pdelay_Resp")

    def test_two_masters(self):
        self.pair()
        self.start(MASTER_IF, "--kind", "sync", "--rate", "8", "--for", "60", program="flood")
        self.assert_first("master", "2 masters: ", "0afffffe00000001-1", state="synchronised")

    def test_slave_is_a_master(self):
        self.daemon(SLAVE_IF, "master")
        self.daemon(MASTER_IF, "master")
        self.timekeeper.sleep(2.0)
        self.assert_first("master", "this daemon is a master", "--role master",
                          options=("--role", "slave"), state="sending")
        self.assert_first("master", "this node is the master, and Sync comes from", state="sending")

    def test_master_beside_another(self):
        self.daemon(SLAVE_IF, "master")
        self.daemon(MASTER_IF, "master")
        self.timekeeper.sleep(2.0)
        self.assert_first("master", "this node is the master, and Sync comes from",
                          options=("--role", "master"), state="sending")

    def test_follow_ups_are_missing(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", FOLLOW_UP, "--until-cleared")
        self.assert_first("follow-up", "0 of 2", "Sync have their Follow_Up", state="holdover")

    def test_sync_rate(self):
        self.pair(master=("--sync-interval", "500"))
        self.assert_first("sync-rate", "each 500", "--sync-interval", state="synchronised")

    def test_sync_with_gaps(self):
        self.pair()
        self.fault(MASTER_IF, "drop", "--type", "0", "--count", "5")
        self.assert_first("sync-rate", "each 12", "lost on the way", state="synchronised")


class CrcFaults(Doctoring):
    def test_no_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "wrong without a DataIDList", "--data-id-list",
                          state="synchronised")

    def test_another_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "wrong with this list", options=("--data-id-list", LIST[::-1]),
                          state="synchronised")

    def test_one_entry_of_the_list(self):
        self.pair(master=SECURED)
        self.assert_first("crc", "sequenceId modulo 16 of 2", "compare these entries",
                          options=("--data-id-list", LIST.replace("12", "21"), "--listen", "5"),
                          state="synchronised")

    def test_damaged(self):
        self.pair(master=SECURED)
        self.fault(MASTER_IF, "corrupt", "--byte", "37", "--bit", "0", "--type", FOLLOW_UP,
                   "--count", "5")
        self.assert_first("crc", "damaged on the way", options=("--data-id-list", LIST),
                          state="synchronised")

    def test_malformed(self):
        self.pair(master=SECURED)
        self.fault(MASTER_IF, "corrupt", "--byte", "79", "--bit", "6", "--type", FOLLOW_UP,
                   "--until-cleared")
        self.assert_first("crc", "malformed TLV", options=("--data-id-list", LIST),
                          state="holdover")


if __name__ == "__main__":
    programs.main(__file__)
