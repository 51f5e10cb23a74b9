"""Statistics, picture and verdict of one run of the demo."""
import csv
import json
import math
import subprocess
from collections import Counter

import bench

GOAL_P99_NS = 1000.0
GOAL_VALID_AFTER_SYNC_S = 0.5
GOAL_RSS_KIB = 8 * 1024
FRAME_TYPES = {0: "Sync", 2: "Pdelay_Req", 3: "Pdelay_Resp", 8: "Follow_Up",
               10: "Pdelay_Resp_Follow_Up", 11: "Announce"}


def percentile(ordered, fraction):
    """Nearest rank: the smallest value that at least this part of the values does not exceed."""
    return ordered[max(0, math.ceil(fraction * len(ordered)) - 1)]


def read_samples(path):
    """Samples from the first real rate ratio on."""
    with path.open(newline="") as file:
        rows = [row for row in csv.DictReader(file) if row["valid"] == "1"]
    if not rows:
        raise bench.DemoError("the slave never became synchronised; see slave.log")
    return rows


def error_statistics(rows):
    signed = [int(row["error_ns"]) for row in rows]
    size = sorted(abs(value) for value in signed)
    return {"p50": percentile(size, 0.50), "p99": percentile(size, 0.99), "max": size[-1],
            "rms": round(math.sqrt(sum(value * value for value in size) / len(size)), 1),
            "mean": round(sum(signed) / len(signed), 1), "count": len(size)}


def count_frames(capture):
    done = subprocess.run(["tshark", "-r", str(capture), "-T", "fields", "-e",
                           "ptp.v2.messagetype"], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise bench.DemoError(f"tshark cannot read {capture}: {done.stderr.strip()}")
    counts = Counter()
    for line in done.stdout.splitlines():
        counts[FRAME_TYPES.get(int(line, 0), "other") if line else "other"] += 1
    return dict(sorted(counts.items()))


def build(setup, measured):
    rows = read_samples(setup.samples)
    brackets = sorted(int(row["bracket_ns"]) for row in rows)
    slave = measured.slave
    return {
        "abi": slave["abi"],
        "duration_s": round(slave["duration_s"], 3),
        "seed": setup.seed,
        "slave": {
            "error_ns": error_statistics(rows),
            "error_note": "daemon time minus the master's true PHC time; p50, p99, max and rms of "
                          "its absolute value; samples from the first real rate ratio on",
            "first_valid_s": round(slave["first_valid_s"], 3),
            "first_valid_after_sync_s": round(slave["first_valid_after_sync_s"], 3),
            "rss_kib": slave["rss_kib"],
            "state": slave["state"],
        },
        "master": {"rss_kib": measured.master["rss_kib"]},
        "link_delay_ns": {"configured": bench.CABLE_NS, "true": bench.CABLE_NS},
        "bracket_ns": {"p50": percentile(brackets, 0.50)},
        "frames": count_frames(setup.capture),
        "goals": {"error_p99_ns": GOAL_P99_NS, "rss_kib": GOAL_RSS_KIB,
                  "first_valid_after_sync_s": GOAL_VALID_AFTER_SYNC_S},
    }


def missed_goals(result):
    slave = result["slave"]
    missed = []
    if slave["error_ns"]["p99"] >= GOAL_P99_NS:
        missed.append(f"error p99 {slave['error_ns']['p99']} ns is not below {GOAL_P99_NS:.0f} ns")
    if slave["first_valid_after_sync_s"] > GOAL_VALID_AFTER_SYNC_S:
        missed.append(f"first valid time {slave['first_valid_after_sync_s']:.3f} s after the first "
                      f"Sync is later than {GOAL_VALID_AFTER_SYNC_S} s")
    if not 0 < slave["rss_kib"] < GOAL_RSS_KIB:
        missed.append(f"slave memory {slave['rss_kib']} KiB is not below {GOAL_RSS_KIB} KiB")
    if slave["state"] != "synchronised":
        missed.append(f"the slave ended '{slave['state']}', not 'synchronised'")
    return missed


def write(outdir, result):
    (outdir / "report.json").write_text(json.dumps(result, indent=2) + "\n")


def draw(setup, result):
    errors = result["slave"]["error_ns"]
    p99 = errors["p99"]
    reach = 50 * math.ceil(1.3 * max(p99, 50) / 50)
    script = f"""
set terminal pngcairo size 1200,520 font 'DejaVu Sans,11' background '#ffffff'
set output '{setup.outdir / "offset.png"}'
set datafile separator ','
set multiplot layout 1,2 title 'Slave time minus true master time, {errors["count"]} samples, \
{result["abi"]}, slave clock +{bench.SLAVE_RATE_PPB / 1000:g} ppm, {bench.CABLE_NS} ns cable' \
font ',13'
set grid lc rgb '#dddddd'
set border 3
set tics nomirror out
set yrange [{-reach}:{reach}]
set xlabel 'time since start of the slave (s)'
set ylabel 'error (ns)'
set key top right horizontal samplen 2
set size 0.66,0.92
set origin 0,0
plot '{setup.samples}' using ($4==1?$1:NaN):2 with points pt 7 ps 0.35 lc rgb '#3060a0' \
title 'error', \
{p99} with lines dt 2 lw 1.5 lc rgb '#c03020' title '±p99 = {p99} ns', \
{-p99} with lines dt 2 lw 1.5 lc rgb '#c03020' notitle
bin = {reach} / 40.0
set size 0.34,0.92
set origin 0.66,0
set title 'size: p50 {errors["p50"]}, p99 {p99}, max {errors["max"]} ns' font ',11'
set xrange [{-reach}:{reach}]
set yrange [0:*]
set xlabel 'error (ns)'
set ylabel 'samples per bin'
set style fill solid 0.8
set boxwidth bin
set xtics 200
set arrow from {p99}, graph 0 to {p99}, graph 1 nohead dt 2 lw 1.5 lc rgb '#c03020'
set arrow from {-p99}, graph 0 to {-p99}, graph 1 nohead dt 2 lw 1.5 lc rgb '#c03020'
plot '{setup.samples}' using (bin*(floor(($4==1?$2:NaN)/bin)+0.5)):(1) smooth frequency \
with boxes lc rgb '#3060a0' notitle
unset multiplot
"""
    done = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise bench.DemoError(f"gnuplot cannot draw {setup.outdir / 'offset.png'}: "
                              f"{done.stderr.strip()}")


def summary(setup, result):
    slave = result["slave"]
    errors = slave["error_ns"]
    frames = "  ".join(f"{name} {count}" for name, count in result["frames"].items())
    return f"""
  Slave against the master's true clock ({result['abi']}, {result['duration_s']:.0f} s, \
seed {result['seed']})
    error        p50 {errors['p50']} ns   p99 {errors['p99']} ns   max {errors['max']} ns   \
rms {errors['rms']} ns   mean {errors['mean']:+} ns
                 {errors['count']} samples from the first real rate ratio on; \
wanted: p99 below {GOAL_P99_NS:.0f} ns
    first valid  {slave['first_valid_after_sync_s']} s after the first Sync, \
{slave['first_valid_s']} s after Start; wanted: up to {GOAL_VALID_AFTER_SYNC_S} s after Sync
    link delay   configured {result['link_delay_ns']['configured']} ns, \
true {result['link_delay_ns']['true']} ns
    memory       {slave['rss_kib']} KiB resident; wanted: below {GOAL_RSS_KIB} KiB
    frames       {frames}
    files        {setup.outdir}: report.json offset.png samples.csv capture.pcapng"""
