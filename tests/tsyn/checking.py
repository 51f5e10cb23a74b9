#!/usr/bin/env python3
"""tsyn check as a user runs it.

Usage: checking.py BUILD_FOLDER [CASE...]
"""
import json
import pathlib
import struct
import subprocess

import programs
from network import BUILD, WAIT_S, Network


class Check(Network):
    def setUp(self):
        super().setUp()
        probe = self.start("check", "/dev/shm/none.pcap")
        _, errors = probe.communicate(timeout=WAIT_S)
        self.assertEqual(probe.returncode, 2)
        self.available = "no libpcap" not in errors
        self.errors = errors

    def test_build_without_libpcap_names_another(self):
        if self.available:
            self.skipTest("this build reads captures")
        self.assertEqual(self.errors.count("\n"), 1, self.errors)
        self.assertIn("build/x86_64/tsyn", self.errors)

    def test_wrong_use(self):
        self.assert_one_error(self.start("check"), 2, "file")
        self.assert_one_error(self.start("check", "x", "--data-id-list", "12"), 2, "32")

    def test_file_that_is_no_capture(self):
        if not self.available:
            self.skipTest("this build has no libpcap")
        pathlib.Path("/dev/shm/text.pcap").write_text("no capture at all, this is")
        self.assert_one_error(self.start("check", "/dev/shm/text.pcap"), 2, "text.pcap",
                              "pcap or pcapng")

    def test_file_that_is_not_there_is_named_once(self):
        if not self.available:
            self.skipTest("this build has no libpcap")
        self.assertEqual(self.errors, "tsyn: /dev/shm/none.pcap: cannot be read (No such file or "
                                      "directory); name a pcap or pcapng file\n")

    @staticmethod
    def write_syncs(path, sequence_ids):
        frames = []
        for sequence_id in sequence_ids:
            sync = bytearray(44)
            sync[0:4] = b"\x10\x02\x00\x2c"
            sync[30:32] = sequence_id.to_bytes(2, "big")
            frame = bytes.fromhex("0180c200000e001b21aabbcc88f7") + sync
            frames.append(struct.pack("<IIII", 1700000000, 5000, len(frame), len(frame)) + frame)
        header = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        pathlib.Path(path).write_bytes(header + b"".join(frames))

    def test_capture_without_ptp_frames_is_a_finding(self):
        if not self.available:
            self.skipTest("this build has no libpcap")
        self.write_syncs("/dev/shm/some.pcap", ())
        child = self.start("check", "/dev/shm/some.pcap")
        self.assertIn("PTP frames are 0, should be 1 at least", child.communicate(timeout=WAIT_S)[0])
        self.assertEqual(child.returncode, 1)
        self.write_syncs("/dev/shm/some.pcap", (1, 2))
        for least, status in (("2", 0), ("3", 1)):
            child = self.start("check", "/dev/shm/some.pcap", "--least-frames", least)
            child.communicate(timeout=WAIT_S)
            self.assertEqual(child.returncode, status)

    def test_output_that_cannot_be_written(self):
        if not self.available:
            self.skipTest("this build has no libpcap")
        self.write_syncs("/dev/shm/good.pcap", (1, 2))
        for words in ((), ("--json",)):
            with open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run([str(BUILD / "tsyn"), "check", "/dev/shm/good.pcap", *words],
                                      stdout=full, stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual((done.returncode, done.stderr),
                             (2, "tsyn: standard output cannot be written (No space left on "
                                 "device)\n"))

    def test_capture_with_a_gap(self):
        if not self.available:
            self.skipTest("this build has no libpcap")
        self.write_syncs("/dev/shm/gap.pcap", (1, 2, 5))
        child = self.start("check", "/dev/shm/gap.pcap", "--json")
        output, errors = child.communicate(timeout=WAIT_S)
        self.assertEqual((child.returncode, errors), (1, ""))
        finding, = json.loads(output)["findings"]
        self.assertEqual((finding["frame"], finding["time"], finding["kind"], finding["text"]),
                         (3, "1700000000.005000000", "gap", "follows 2: 2 missing (3 to 4)"))


if __name__ == "__main__":
    programs.main(__file__)
