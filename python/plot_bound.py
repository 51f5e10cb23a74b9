#!/usr/bin/env python3
"""Draws how far the grandmaster's time is from the system's, and between which bounds.

Usage: plot_bound.py INTERFACE [--seconds 60] [--rate 20] [--output bound.png] [--samples FILE.csv]

Reads live from the daemon of INTERFACE; needs gnuplot. With --samples the readings are kept too;
without gnuplot they are all there is.
"""
import argparse
import csv
import shutil
import subprocess
import sys
import time

import gptp_time

PLOT = """
set terminal pngcairo size 1000,500
set output '{output}'
set datafile separator ','
set xlabel 'seconds'
set ylabel 'grandmaster less system time, ns from {middle}'
plot '-' using 1:3:4 with filledcurves fillstyle transparent solid 0.3 title 'bound', \
     '-' using 1:2 with lines title 'time'
"""


def collect(reader, seconds, rate):
    """Rows of seconds, time, earliest, latest, the latter three less system time."""
    rows = []
    start = time.monotonic()
    last = None
    while (now := time.monotonic() - start) < seconds:
        reading = reader.now()
        if reading.result != last:
            print(f"{now:8.3f} s  {reading.result.text}", file=sys.stderr)
            last = reading.result
        if reading.result == gptp_time.Result.OK:
            rows.append((round(now, 4), *(value - reading.system_ns for value in (
                reading.time_ns, reading.earliest_ns, reading.latest_ns))))
        time.sleep(1 / rate)
    return rows


def draw(rows, output):
    middle = rows[len(rows) // 2][1]
    block = "".join(f"{row[0]},{row[1] - middle},{row[2] - middle},{row[3] - middle}\n"
                    for row in rows) + "e\n"
    subprocess.run(["gnuplot"], input=PLOT.format(output=output, middle=middle) + 2 * block,
                   text=True, check=True)


def main():
    parser = argparse.ArgumentParser(description="Draw the published time and its bound.")
    parser.add_argument("interface")
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--rate", type=float, default=20, help="readings a second")
    parser.add_argument("--output", default="bound.png")
    parser.add_argument("--samples", help="CSV file for the readings")
    arguments = parser.parse_args()
    with gptp_time.TimeReader(arguments.interface) as reader:
        rows = collect(reader, arguments.seconds, arguments.rate)
    if not rows:
        print(f"plot_bound: {arguments.interface}: no bounded time in {arguments.seconds} s; "
              "the lines above say why", file=sys.stderr)
        return 1
    if arguments.samples:
        with open(arguments.samples, "w", newline="", encoding="ascii") as file:
            csv.writer(file).writerows([("t_s", "time_ns", "earliest_ns", "latest_ns"), *rows])
    if shutil.which("gnuplot") is None:
        print("plot_bound: gnuplot is not installed; --samples keeps the readings",
              file=sys.stderr)
        return 0 if arguments.samples else 1
    draw(rows, arguments.output)
    return 0


if __name__ == "__main__":
    sys.exit(main())
