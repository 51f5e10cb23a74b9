#!/usr/bin/env python3
"""tsyn record and tsyn plot as a user runs them, on a simulated pair.

Usage: recording.py BUILD_FOLDER [CASE...]
"""
import csv
import mmap
import os
import pathlib
import re
import signal
import subprocess

from browser import Browser
from network import BUILD, CABLE_NS, MASTER_IF, SLAVE_IF, WAIT_S, Network, environment
from programs import main
from simulated import CARDS, Simulated

RECORDING = pathlib.Path("/dev/shm/slave.csv")
SAMPLES = pathlib.Path("/dev/shm/samples.csv")
HEAD = ('# tsyn record 1 {"interface":"eth1","start":"2026-01-01T00:00:00Z"}\n'
        "system_ns,state,local_ns,offset_ns\n")
STANDARD = ("--profile", "standard")


def tsyn(*words, **options):
    """Of what needs no card."""
    return subprocess.run([str(BUILD / "tsyn"), *map(str, words)], capture_output=True, text=True,
                          check=False, timeout=WAIT_S, env=environment(), **options)


def samples_of(path):
    lines = [line for line in path.read_text().splitlines() if not line.startswith("#")]
    return list(csv.DictReader(lines))


def marks_of(path, kind):
    return [line for line in path.read_text().splitlines() if line.startswith(f"# {kind} ")]


class Recorded(Simulated):
    # As long in one direction as in the other.
    cards = CARDS.replace("phc=0", f"phc=0 cable_ns={CABLE_NS}").replace(
        "phc=1", "phc=1 jitter_ns=20")

    def start_pair(self):
        self.master = self.run_json(MASTER_IF, "master", *STANDARD)
        self.start_slave()

    def start_slave(self):
        self.slave = self.run_json(SLAVE_IF, "slave", *STANDARD, "--truth", MASTER_IF,
                                   "--samples", str(SAMPLES), "--sample-rate", "20")
        self.wait_for_quality("synchronised")

    def wait_for_quality(self, state):
        self.wait_for(self.slave, lambda line: line.get("quality", {}).get("state") == state)

    def record(self, *words):
        recorder = self.start("record", SLAVE_IF, "-o", str(RECORDING), *words)
        while not RECORDING.exists():
            self.timekeeper.sleep(0.05)
        return recorder

    def end_recorder(self, recorder, number=signal.SIGTERM, said=""):
        recorder.send_signal(number)
        output, errors = recorder.communicate(timeout=WAIT_S)
        self.assertEqual((recorder.returncode, errors), (0, said))
        return output


class Recording(Recorded):
    def test_a_silent_master_and_a_restart_show_in_the_samples(self):
        self.start_pair()
        recorder = self.record()
        self.timekeeper.sleep(10)
        self.end(self.master)
        self.wait_for_quality("holdover")
        self.master = self.run_json(MASTER_IF, "master", *STANDARD)
        self.timekeeper.sleep(5)
        self.end(self.slave)
        self.start_slave()
        self.timekeeper.sleep(5)
        output = self.end_recorder(recorder)
        samples = samples_of(RECORDING)
        states = [sample["state"] for sample in samples]
        self.assertLess(states.index("synchronised"), states.index("holdover"))
        self.assertEqual(states[-1], "synchronised")
        self.assertEqual(len(marks_of(RECORDING, "restart")), 1)
        self.assertRegex(output, rf"^{len(samples)} samples in .*; 1 restarts, ")
        self.assertIn(f" {len(samples)} samples", marks_of(RECORDING, "end")[0])
        self.check_first_seconds(samples)

    def check_first_seconds(self, samples):
        """One sample with each Sync, of which there are eight a second."""
        begin = int(samples[0]["system_ns"])
        first = [each for each in samples if int(each["system_ns"]) < begin + 8_000_000_000]
        self.assertAlmostEqual(len(first), 64, delta=3)
        for one, other in zip(first[1:], first[2:]):
            self.assertEqual(int(other["sequence_id"]) - int(one["sequence_id"]), 1)
            self.assertLess(int(other["age_ns"]), 40_000_000)
            self.assertAlmostEqual(float(other["rate_ppb"]), -37000, delta=300)
            self.assertLess(abs(int(other["time_ns"]) - int(other["system_ns"])), 4e12)

    def test_an_even_rate_and_both_signals(self):
        self.start_pair()
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(signal=number):
                recorder = self.record("--rate", "10/s", "--force")
                self.timekeeper.sleep(3)
                self.end_recorder(recorder, number)
                self.assertAlmostEqual(len(samples_of(RECORDING)), 31, delta=2)

    def test_files_rotate_and_join_again(self):
        self.start_pair()
        recorder = self.record("--rate", "50/s", "--max-size", "8k", "--keep", "2",
                               "--duration", "8")
        recorder.communicate(timeout=WAIT_S)
        parts = [pathlib.Path(f"{RECORDING}{end}") for end in (".2", ".1", "")]
        for part in parts:
            self.assertLessEqual(part.stat().st_size, 8000)
            self.assertTrue(part.read_text().startswith("# tsyn record 1 {"))
        self.assertFalse(pathlib.Path(f"{RECORDING}.3").exists())
        times = [int(each["system_ns"]) for part in parts for each in samples_of(part)]
        apart = [later - earlier for earlier, later in zip(times, times[1:])]
        self.assertLess(max(apart), 40_000_000)
        self.assertGreater(min(apart), 10_000_000)
        done = tsyn("plot", RECORDING, *reversed(parts[:2]), "-o", "/dev/shm/report.html")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_a_segment_that_goes_and_comes_is_a_gap(self):
        self.start_pair()
        recorder = self.record()
        self.timekeeper.sleep(2)
        self.end(self.slave)
        pathlib.Path(f"/dev/shm/{SLAVE_IF}").unlink()
        self.timekeeper.sleep(4)
        self.start_slave()
        self.timekeeper.sleep(3)
        self.assertIn("1 restarts, 1 gaps (longest ", self.end_recorder(recorder))
        gap, = marks_of(RECORDING, "gap")
        self.assertGreater(float(gap.split()[3]), 3.0)
        self.assertIn(f"{SLAVE_IF}: no time record /dev/shm/{SLAVE_IF}", gap)

    def test_a_daemon_that_has_ended_before(self):
        for profile in ("deployed", "standard"):
            with self.subTest(profile=profile):
                master = self.run_json(MASTER_IF, "master", "--profile", profile)
                self.wait_for_state(master, "sending")
                master.kill()
                master.wait(WAIT_S)
                who = ("no process writes this record" if profile == "deployed" else
                       f"owner {master.pid} has ended")
                recorder = self.start("record", MASTER_IF, "-o", str(RECORDING))
                self.assert_one_error(recorder, 1, f"{MASTER_IF}: {who}; --wait waits")
                self.assertFalse(RECORDING.exists())
                recorder = self.start("record", MASTER_IF, "-o", str(RECORDING), "--wait",
                                      "--force")
                self.timekeeper.sleep(3)
                self.end_recorder(recorder, said=f"tsyn: {MASTER_IF}: {who}; its last record is "
                                                 "sampled until a daemon runs\n")
                self.assertNotIn("sending", [each["state"] for each in samples_of(RECORDING)])
                self.assertEqual(len(marks_of(RECORDING, "ended")), 1)
                RECORDING.unlink()

    def test_a_daemon_that_ends_meanwhile(self):
        self.start_pair()
        recorder = self.record()
        self.timekeeper.sleep(1)
        self.slave.kill()
        self.timekeeper.sleep(5)
        self.end_recorder(recorder, said=f"tsyn: {SLAVE_IF}: owner {self.slave.pid} has ended; "
                                         "its last record is sampled until a daemon runs\n")

    def test_waits_for_a_daemon_when_asked(self):
        recorder = self.record("--wait")
        self.start_pair()
        self.timekeeper.sleep(3)
        self.end_recorder(recorder)
        self.assertGreater(len(samples_of(RECORDING)), 16)


class Page(Recorded):
    """The report in a browser. Its pictures stay in the build folder."""

    def setUp(self):
        super().setUp()
        self.start_pair()
        recorder = self.record()
        self.timekeeper.sleep(30)
        self.end(self.master)
        self.timekeeper.sleep(8)
        self.master = self.run_json(MASTER_IF, "master", *STANDARD)
        self.timekeeper.sleep(40)
        self.end_recorder(recorder)
        self.end(self.slave)
        self.report = pathlib.Path("/dev/shm/report.html")

    def open_report(self, *files):
        done = tsyn("plot", *files, "-o", self.report)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.browser = Browser(1400, 1000)
        self.addCleanup(self.browser.end)
        self.browser.open(f"file://{self.report}")

    def canvas(self, chart):
        """Left, top, width and height of what a diagram shows, without its scales."""
        left, top, width, height = self.browser.evaluate(
            f"(() => {{ const canvas = document.querySelector('#chart-{chart} canvas');"
            "canvas.scrollIntoView({block: 'center'}); const box = canvas.getBoundingClientRect();"
            "return [box.left, box.top, box.width, box.height]; })()")
        return left + 74, top, width - 88, height

    def output(self, chart):
        return self.browser.evaluate(
            f"document.querySelector('#chart-{chart} output').textContent")

    def read(self, chart, part):
        """What is told with the mouse so far along a diagram."""
        left, top, width, height = self.canvas(chart)
        self.browser.mouse("mouseMoved", left + part * width, top + height / 2)
        return self.output(chart)

    def seconds(self, text):
        return float(re.search(r"\((-?[\d.]+) s\)", text).group(1))

    def test_hovering_zooming_keys_and_toggles_tell_true_values(self):
        self.open_report(RECORDING)
        samples = samples_of(RECORDING)
        begin = int(samples[0]["system_ns"])
        span = (int(samples[-1]["system_ns"]) - begin) / 1e9
        told = self.read("delay", 0.25)
        self.assertAlmostEqual(self.seconds(told), span / 4, delta=0.2)
        nearest = min(samples, key=lambda each: abs(
            int(each["system_ns"]) - begin - 1e9 * self.seconds(told)))
        self.assertIn(f"delay {nearest['delay_ns']} ns", told)
        self.assertIn("synchronised", self.read("correction", 0.25))
        self.assertIn("holdover", self.read("correction", 34 / span))
        left, top, width, height = self.canvas("delay")
        self.browser.drag(left + 0.5 * width, left + 0.6 * width, top + height / 2)
        self.assertAlmostEqual(self.seconds(self.read("delay", 0.0)), span * 0.5, delta=0.2)
        self.read("rate", 0.5)
        self.browser.evaluate("document.querySelector('#chart-rate canvas').focus()")
        times = [round((int(each["system_ns"]) - begin) / 1e9, 3) for each in samples]
        self.browser.key("ArrowRight")
        first = times.index(self.seconds(self.output("rate")))
        self.browser.key("ArrowRight")
        self.assertEqual(self.seconds(self.output("rate")), times[first + 1])
        self.browser.key("Escape")
        self.assertAlmostEqual(self.seconds(self.read("delay", 1.0)), span, delta=0.2)
        self.assertIn("PHC / system", self.read("rate", 0.5))
        self.browser.evaluate("document.querySelectorAll('#chart-rate button')[1].click()")
        self.assertNotIn("PHC / system", self.read("rate", 0.5))
        self.assertRegex(self.read("allan", 0.0), r"τ 0\.125 s: \d\.\d+e-\d+ \(\d+ differences")
        self.assertNotIn("://", self.report.read_text().replace("http://www.w3.org", ""))

    def test_pictures_by_day_and_night(self):
        self.open_report(RECORDING, SAMPLES)
        self.assertRegex(self.read("error", 0.2), r"true error -?[\d.]+ ns")
        self.browser.evaluate("window.scrollTo(0, 0)")
        for name, is_dark in (("report.png", False), ("report-dark.png", True)):
            self.browser.dark(is_dark)
            self.browser.screenshot(BUILD / name)
            self.assertGreater((BUILD / name).stat().st_size, 20_000)
        done = tsyn("plot", RECORDING, SAMPLES, "-o", "/dev/shm/gnuplot.png")
        self.assertEqual((done.returncode, done.stderr), (0, ""))


class BadUse(Network):
    def check(self, done, *parts):
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual((done.stdout, done.stderr.count("\n")), ("", 1), done.stderr)
        self.assertTrue(done.stderr.startswith("tsyn: "), done.stderr)
        for part in parts:
            self.assertIn(part, done.stderr)

    def publish(self):
        """A record that a daemon has, which is this process."""
        with open(f"/dev/shm/{SLAVE_IF}", "w+b") as file:
            file.write(bytes(260))
            file.flush()
            segment = mmap.mmap(file.fileno(), 260)
        self.addCleanup(segment.close)

    def test_record_without_a_daemon(self):
        self.check(tsyn("record", "nope0", "-o", RECORDING), "/dev/shm/nope0", "--wait")
        self.assertFalse(RECORDING.exists())

    def test_record_options_out_of_range(self):
        for words in (("--rate", "0"), ("--rate", "2/m"), ("--max-size", "1"),
                      ("--max-size", "big"), ("--keep", "-1"), ("--duration", "nan")):
            with self.subTest(words=words):
                done = tsyn("record", SLAVE_IF, "-o", RECORDING, *words)
                self.check(done, words[0])
                self.assertEqual(done.returncode, 2)

    def test_record_replaces_nothing_unasked(self):
        self.publish()
        for name in (RECORDING, pathlib.Path(f"{RECORDING}.2")):
            name.write_text("precious")
            self.check(tsyn("record", SLAVE_IF, "-o", RECORDING, "--duration", "0.1"), str(name),
                       "--force")
            self.assertEqual(name.read_text(), "precious")
            name.unlink()

    def test_record_tells_of_a_full_disk_and_leaves_whole_lines(self):
        self.publish()
        folder = pathlib.Path("/dev/shm/small")
        folder.mkdir()
        self.addCleanup(folder.rmdir)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8k", "tmpfs", str(folder)], check=True)
        self.addCleanup(subprocess.run, ["umount", str(folder)], check=True)
        file = folder / "slave.csv"
        done = tsyn("record", SLAVE_IF, "-o", file, "--rate", "1000/s")
        self.check(done, str(file), "No space left on device")
        self.assertTrue(file.read_text().endswith("\n"))
        self.assertGreater(len(samples_of(file)), 20)

    def test_record_tells_of_an_output_that_is_closed(self):
        self.publish()
        reader, writer = os.pipe()
        os.close(reader)
        with os.fdopen(writer, "w") as closed:
            done = subprocess.run([str(BUILD / "tsyn"), "record", SLAVE_IF, "-o", "-"],
                                  stdout=closed, stderr=subprocess.PIPE, text=True, check=False,
                                  timeout=WAIT_S, env=environment())
        self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1), done.stderr)
        self.assertIn("Broken pipe", done.stderr)

    def test_plot_refuses_what_is_no_recording(self):
        output = pathlib.Path("/dev/shm/report.html")
        for text, part in (("", "is empty"), ("a,b\n1,2\n", "neither"), (HEAD, "no samples"),
                           (HEAD[:-10], "head is damaged"),
                           (HEAD.replace("offset_ns", "x"), "head is damaged")):
            with self.subTest(text=text):
                RECORDING.write_text(text)
                self.check(tsyn("plot", RECORDING, "-o", output), str(RECORDING), part)
                self.assertEqual(list(pathlib.Path("/dev/shm").glob("report*")), [])
        self.check(tsyn("plot", "/dev/shm/none", "-o", output), "No such file")
        self.check(tsyn("plot", "/dev/shm", "-o", output), "Is a directory")

    def test_plot_uses_what_stands_before_a_cut(self):
        RECORDING.write_text(HEAD + "1000,synchronised,1000,5\nrubbish\n"
                             "2000,synchronised,2000,6\n3000,synchro")
        done = tsyn("plot", RECORDING, "-o", "/dev/shm/report.html")
        self.assertEqual(done.returncode, 0)
        cut, left_out = done.stderr.splitlines()
        self.assertIn("its last line is cut; the 2 samples before it are used", cut)
        self.assertIn("1 lines that are no samples are left out, the first is line 4", left_out)

    def test_plot_output_that_cannot_be_written(self):
        RECORDING.write_text(HEAD + "1000,synchronised,1000,5\n")
        report = pathlib.Path("/dev/shm/report.html")
        report.write_text("precious")
        self.check(tsyn("plot", RECORDING, "-o", report), "exists already", "--force")
        self.assertEqual(report.read_text(), "precious")
        self.check(tsyn("plot", RECORDING, "-o", "/nowhere/report.html"), "No such file")
        refused = tsyn("plot", RECORDING, "-o", "/dev/shm/report.pdf")
        self.check(refused, "--output: ", ".html or .png, not '/dev/shm/report.pdf'")
        self.assertEqual(refused.returncode, 2)
        self.assertEqual(tsyn("plot", RECORDING, "-o", report, "--force").returncode, 0)
        self.assertIn("</html>", report.read_text())

    def test_a_picture_needs_gnuplot(self):
        RECORDING.write_text(HEAD + "1000,synchronised,1000,5\n")
        done = subprocess.run([str(BUILD / "tsyn"), "plot", str(RECORDING), "-o",
                               "/dev/shm/report.png"], capture_output=True, text=True, check=False,
                              env={**environment(), "PATH": "/nowhere"})
        self.check(done, "gnuplot-nox", ".html")
        self.assertEqual(list(pathlib.Path("/dev/shm").glob("report*")), [])


if __name__ == "__main__":
    main(__file__)
