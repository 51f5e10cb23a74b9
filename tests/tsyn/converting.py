#!/usr/bin/env python3
"""tsyn convert, by records of the test's own and by those of daemons.

Usage: converting.py BUILD_FOLDER [CASE...]
"""
import pathlib
import struct
import subprocess

import programs
from network import BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, Network
from simulated import EPOCH_S, Simulated


class Convert(Network):
    """A slave's record whose clocks run alike: grandmaster time is system time less 1.000000007 s."""

    SYSTEM_NS = 1_700_000_001_000_000_007
    RECORD = pathlib.Path("/dev/shm/record")

    def setUp(self):
        super().setUp()
        record = bytearray(260)
        one = struct.pack("<QH", 1 << 63, 16383)
        struct.pack_into("<qq", record, 24 + 20, 1_000_000_007, 0)
        record[24 + 36:24 + 46] = record[24 + 48:24 + 58] = one
        struct.pack_into("<QQ", record, 24 + 60, self.SYSTEM_NS, self.SYSTEM_NS - 1_000_000_007)
        self.RECORD.write_bytes(record)

    def convert(self, *words, **more):
        done = subprocess.run([str(BUILD / "tsyn"), "convert", *words], capture_output=True,
                              text=True, timeout=WAIT_S, check=False, **more)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_all_ways_to_write_a_time_are_exact(self):
        for text in ("1700000001000000007", "1700000001.000000007", "2023-11-14T22:13:21.000000007Z",
                     "2023-11-14 22:13:21.000000007", "2023-11-14T22:13:58.000000007TAI",
                     "1700000001000000007ns"):
            with self.subTest(text=text):
                self.assertEqual(self.convert("--record", str(self.RECORD), text),
                                 "1700000000000000000 2023-11-14T22:13:20.000000000Z\n")

    def test_reads_lines_of_an_interface_and_comes_back(self):
        self.RECORD.rename("/dev/shm/eth9")
        there = self.convert("eth9", "--stale", input="1700000001.000000007\n1700000002.0\n")
        self.assertEqual(there.splitlines()[1].split()[0], "1700000000999999993")
        back = self.convert("eth9", "--stale", "--to-system",
                            *(line.split()[0] for line in there.splitlines()))
        self.assertEqual([line.split()[0] for line in back.splitlines()],
                         ["1700000001000000007", "1700000002000000000"])

    def test_dates_follow_the_scale_of_the_grandmaster(self):
        self.assertEqual(self.convert("--record", str(self.RECORD), "--grandmaster-tai",
                                      "1700000001000000007"),
                         "1700000000000000000 2023-11-14T22:12:43.000000000Z\n")
        self.assertEqual(self.convert("--record", str(self.RECORD), "--grandmaster-tai", "--tai",
                                      "1700000001000000007"),
                         "1700000000000000000 2023-11-14T22:13:20.000000000TAI\n")
        self.assertEqual(self.convert("--record", str(self.RECORD), "--grandmaster-tai",
                                      "--to-system", "2023-11-14T22:12:43Z").split()[0],
                         str(self.SYSTEM_NS))

    def test_leap_days_and_late_years(self):
        shifted = self.convert("--record", str(self.RECORD), "2024-02-29T00:00:01.000000007Z",
                               "2100-03-01T00:00:00Z")
        self.assertEqual([line.split()[1] for line in shifted.splitlines()],
                         ["2024-02-29T00:00:00.000000000Z", "2100-02-28T23:59:58.999999993Z"])

    def test_a_number_that_may_count_something_else_needs_its_unit(self):
        for seconds in ("1700000001", "1700000001000", "1700000001000000", "9223372036854775807"):
            with self.subTest(text=seconds):
                child = self.start("convert", "--record", str(self.RECORD), seconds, cards=False)
                self.assert_one_error(child, 2, f"'{seconds}' would be ns", "2023-11-14T22:13:21",
                                      f"seconds as {seconds}s or {seconds}.0, or {seconds}ns")
        for text in ("1700000001s", "1700000001.0"):
            self.assertEqual(self.convert("--record", str(self.RECORD), text).split()[0],
                             "1699999999999999993")
        self.assertEqual(self.convert("--record", str(self.RECORD), "1700000001ns"),
                         "699999994 1970-01-01T00:00:00.699999994Z\n")
        half_a_year_on = self.SYSTEM_NS + 180 * 86400 * 10**9
        self.assertEqual(self.convert("--record", str(self.RECORD), str(half_a_year_on)).split()[0],
                         str(half_a_year_on - 1_000_000_007))

    def test_a_number_of_the_grandmaster_is_judged_by_the_grandmasters_clock(self):
        """One that counts from its own start, 100 s ago."""
        record = bytearray(self.RECORD.read_bytes())
        struct.pack_into("<q", record, 24 + 20, self.SYSTEM_NS - 100 * 10**9)
        self.RECORD.write_bytes(record)
        self.assertEqual(self.convert("--record", str(self.RECORD), "--to-system", "100000000000"),
                         f"{self.SYSTEM_NS} 2023-11-14T22:13:21.000000007Z\n")
        child = self.start("convert", "--record", str(self.RECORD), "--to-system",
                           str(self.SYSTEM_NS), cards=False)
        self.assert_one_error(child, 2, "over a year from the record's 1970-01-01T00:01:40")

    def tell_bound(self, state=2):
        """The record as of a standard daemon: 100 ns and 2 ns more each second, for a minute."""
        record = bytearray(self.RECORD.read_bytes())
        struct.pack_into("<IBBBBIIIIq", record, 24 + 172, 0x71507467, 1, 1, state, 0, 2, 100, 2, 1,
                         self.SYSTEM_NS + 60 * 10**9)
        self.RECORD.write_bytes(record)

    def bounds(self, *words):
        lines = self.convert("--record", str(self.RECORD), *words).splitlines()
        return [line.split(maxsplit=2)[2] for line in lines]

    def test_tells_the_bound_of_each_time_as_readers_have_it(self):
        self.tell_bound()
        moments = [str(self.SYSTEM_NS + seconds * 10**9) for seconds in (0, 50, -50)]
        self.assertEqual(self.bounds(*moments), ["+/- 100 ns", "+/- 200 ns", "+/- 200 ns"])
        there = [str(int(moment) - 1_000_000_007) for moment in moments]
        self.assertEqual(self.bounds("--to-system", *there),
                         ["+/- 100 ns", "+/- 200 ns", "+/- 200 ns"])

    def test_a_time_whose_bound_is_void_is_refused_unless_that_is_insisted_on(self):
        self.tell_bound()
        late = str(self.SYSTEM_NS + 61 * 10**9)
        child = self.start("convert", "--record", str(self.RECORD), late, cards=False)
        self.assert_one_error(child, 1, f"--record {self.RECORD}: ", f"'{late}' is void after "
                              "2023-11-14T22:14:21.000000007Z", "--stale")
        self.assertEqual(self.bounds("--stale", late, str(self.SYSTEM_NS)),
                         ["void", "+/- 100 ns"])
        self.tell_bound(state=1)
        child = self.start("convert", "--record", str(self.RECORD), str(self.SYSTEM_NS),
                           cards=False)
        self.assert_one_error(child, 1, "void, since the state is 'acquiring'", "--stale")

    def test_output_that_cannot_be_written(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            for words in (("convert", "--record", str(self.RECORD), str(self.SYSTEM_NS)),
                          ("--help",)):
                done = subprocess.run([str(BUILD / "tsyn"), *words], stdout=full,
                                      stderr=subprocess.PIPE, text=True, check=False)
                self.assertEqual((done.returncode, done.stderr),
                                 (1, "tsyn: standard output cannot be written (No space left on "
                                     "device)\n"))

    def test_mistakes(self):
        for words, status, part in (
                (("--record", str(self.RECORD), "tomorrow"), 2, "'tomorrow' is no time"),
                (("--record", str(self.RECORD), "2023-02-29T00:00:00Z"), 2, "is no time"),
                (("--record", "/nowhere", "1"), 1, "No such file"),
                (("--record", "/dev/null", "1"), 1, "has 0 bytes"),
                (("--record", "/tmp", "1"), 1, "--record /tmp: cannot be read (Is a directory)"),
                (("--record", "/dev/zero", "1"), 1, "has more than 260 bytes"),
                (("eth9", "1"), 1, "no time record /dev/shm/eth9"), ((), 2, "interface is required")):
            with self.subTest(words=words):
                self.assert_one_error(self.start("convert", *words, cards=False), status, part)
        self.RECORD.write_bytes(bytes(260))
        self.assert_one_error(self.start("convert", "--record", str(self.RECORD), "5", cards=False),
                              1, f"tsyn: --record {self.RECORD}: holds no time yet")


class StaleRecord(Simulated):
    """What a record of the present tells no more, for whoever does not insist."""

    def convert(self, *words):
        moment = str(EPOCH_S * 10**9 + round(self.now() * 1e9))
        child = self.start("convert", SLAVE_IF, moment, *words)
        output, errors = child.communicate()
        return child.returncode, output != "", errors

    def assert_refused(self, why):
        code, has_output, errors = self.convert()
        self.assertEqual((code, has_output, errors.count("\n")), (1, False, 1), errors)
        for part in (f"tsyn: {SLAVE_IF}: ", why, "--stale"):
            self.assertIn(part, errors)
        self.assertEqual(self.convert("--stale"), (0, True, ""))

    def pair(self, profile):
        master = self.run_json(MASTER_IF, "master", "--profile", profile)
        slave = self.run_json(SLAVE_IF, "slave", "--profile", profile,
                              "--propagation-delay", str(CABLE_NS))
        self.wait_for_state(slave, "synchronised")
        self.assertEqual(self.convert(), (0, True, ""))
        return master, slave

    def test_of_a_standard_slave_whose_bound_is_void_and_that_ended(self):
        master, slave = self.pair("standard")
        self.end(master)
        self.timekeeper.sleep(5)
        self.assertEqual(self.convert(), (0, True, ""))
        self.timekeeper.sleep(60)
        self.assert_refused("bound is void")
        slave.kill()
        slave.wait(WAIT_S)
        self.assert_refused("has ended")

    def test_of_a_deployed_slave_that_has_ended(self):
        _, slave = self.pair("deployed")
        slave.kill()
        slave.wait(WAIT_S)
        self.assert_refused("has ended")

    def test_of_a_deployed_slave_that_has_long_heard_nothing(self):
        master, _ = self.pair("deployed")
        self.end(master)
        self.timekeeper.sleep(62)
        self.assert_refused("no Sync for 6")


if __name__ == "__main__":
    programs.main(__file__)
