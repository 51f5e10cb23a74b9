#!/usr/bin/env python3
"""The Wireshark dissector of the AUTOSAR sub-TLVs, as tshark shows it.

Usage: wireshark.py [CASE...]
"""
import json
import os
import pathlib
import struct
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "tools/wireshark/autosar_tsync.lua"
DATA_ID_LIST = "101112131415161718191a1b1c1d1e1f"
ETHERNET = bytes.fromhex("0180c200000e001b21aabbcc")
SUB_TLVS = 86
BAD, GOOD, UNVERIFIED = "0", "1", "2"


def follow_up(mask):
    """The Follow_Up of that mask, all header fields under its time CRCs."""
    groups = json.loads((ROOT / "tests/data/vectors.json").read_text())["groups"]
    vectors = next(group["vectors"] for group in groups if group["group"] == "follow_up")
    return next(bytearray.fromhex(vector["message"]) for vector in vectors
                if vector["mask"] == mask and vector["CrcTimeFlags"] == 0x3F)


def with_ofs(crc):
    """A Follow_Up with an OFS Secured sub-TLV of zeros; with the DataID 0x13 its CRC is 0xa4."""
    message = follow_up(1)[:SUB_TLVS] + bytes([0x44, 17]) + bytes(16) + bytes([crc])
    message[2:4] = len(message).to_bytes(2, "big")
    message[78:80] = (len(message) - 80).to_bytes(2, "big")
    return message


class Dissector(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def tshark(self, messages, *options, tag=b"", data_id_list=DATA_ID_LIST):
        """What it prints of a capture of these messages; a start takes half a second."""
        capture = self.folder / "capture.pcap"
        data = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        for message in messages:
            frame = ETHERNET + tag + b"\x88\xf7" + bytes(message)
            data += struct.pack("<IIII", 1700000000, 0, len(frame), len(frame)) + frame
        capture.write_bytes(data)
        done = subprocess.run(
            ["tshark", "-X", f"lua_script:{SCRIPT}", "-r", str(capture),
             "-o", f"autosar_tsync.data_id_list:{data_id_list}", *options],
            env={**os.environ, "WIRESHARK_CONFIG_DIR": str(self.folder)},
            capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotIn("Lua", done.stderr)
        self.told = [line for line in done.stderr.splitlines() if "data_id_list" in line]
        return done.stdout

    def rows(self, messages, *names, **options):
        """Of each message the values of the fields, one list for each."""
        words = [word for name in names for word in ("-e", name)]
        lines = self.tshark(messages, "-T", "fields", *words, **options).splitlines()
        self.assertEqual(len(lines), len(messages))
        return [[value.split(",") if value else [] for value in line.split("\t")]
                for line in lines]

    def fields(self, message, *names, **options):
        row, = self.rows([message], *names, **options)
        return row

    def test_shows_every_field_of_all_five(self):
        names = ["type", "crc_time_flags", "crc_time_0", "crc_time_1", "status", "crc_status",
                 "user_data.length", "user_data", "crc_user_data", "reserved", "data_id"]
        shown = self.fields(follow_up(0x1F), *[f"autosar_tsync.{name}" for name in names])
        self.assertEqual(shown, [
            ["0x28", "0x50", "0x51", "0x60", "0x61"], ["0x3f"], ["0x8a"], ["0x13"],
            ["0x01", "0x0c"], ["0x71"], ["2", "2"], ["1122", "1122"], ["0xd7"],
            ["0x00", "0x00"], ["0x13"]])

    def test_right_crcs(self):
        states, experts = self.fields(follow_up(0x0B), "autosar_tsync.crc.status",
                                      "_ws.expert.message")
        self.assertEqual(states, [GOOD] * 4)
        self.assertEqual(experts.count("CRC right"), 4)
        self.assertEqual(self.told, [])

    def test_each_wrong_crc_is_told(self):
        told = {89: [BAD, GOOD, GOOD, GOOD], 90: [GOOD, BAD, GOOD, GOOD],
                93: [GOOD, GOOD, BAD, GOOD], 98: [GOOD, GOOD, GOOD, BAD],
                9: [GOOD, BAD, GOOD, GOOD], 34: [BAD, GOOD, GOOD, GOOD]}
        messages = [follow_up(0x0B) for _ in told]
        for message, at in zip(messages, told):
            message[at] ^= 0x10
        rows = self.rows(messages, "autosar_tsync.crc.status")
        self.assertEqual({at: states for at, (states,) in zip(told, rows)}, told)

    def test_wrong_crc_is_an_expert_error_with_the_right_value(self):
        message = follow_up(0x0B)
        message[90] = 0
        text = self.tshark([message], "-V")
        self.assertIn("Expert Info (Error/Checksum): CRC is 0x00, should be 0xfd", text)

    def test_another_data_id_list_fails_every_crc(self):
        states = self.fields(follow_up(0x0B), "autosar_tsync.crc.status", data_id_list="00" * 16)
        self.assertEqual(states, [[BAD] * 4])

    def test_list_that_is_none_checks_nothing_and_says_so(self):
        states, experts = self.fields(follow_up(0x0B), "autosar_tsync.crc.status",
                                      "_ws.expert.message", data_id_list="xyz")
        self.assertEqual(states, [UNVERIFIED] * 4)
        self.assertTrue(any("32 hexadecimal digits" in text for text in experts))
        self.assertEqual(len(self.told), 1)
        self.assertIn("autosar_tsync.data_id_list: 'xyz' is no DataIDList", self.told[0])

    def test_ofs(self):
        rows = self.rows([with_ofs(0xa4), with_ofs(0x00)], "autosar_tsync.type",
                         "autosar_tsync.ofs.seconds", "autosar_tsync.crc.status")
        self.assertEqual(rows, [[["0x44"], ["0"], [GOOD]], [["0x44"], ["0"], [BAD]]])

    def test_behind_a_vlan_tag(self):
        states = self.fields(follow_up(0x0B), "autosar_tsync.crc.status",
                             tag=bytes.fromhex("81002005"))
        self.assertEqual(states, [[GOOD] * 4])

    def test_cut_and_unknown_sub_tlvs(self):
        unknown = follow_up(0x01)
        unknown[SUB_TLVS] = 0x7F
        longer = follow_up(0x01)
        longer[SUB_TLVS + 1] = 200
        rows = self.rows([unknown, longer, follow_up(0x0B)[:95]], "_ws.expert.message")
        for (experts,), said in zip(rows, ("Unknown sub-TLV type", "the TLV leaves 3",
                                           "messageLength leaves 15")):
            self.assertIn(said, ",".join(experts))

    def test_other_messages_are_left_alone(self):
        sync = follow_up(0)[:44]
        sync[0], sync[3] = 0x10, 44
        self.assertEqual(self.tshark([follow_up(0), sync], "-Y", "autosar_tsync"), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
