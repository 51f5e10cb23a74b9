"""Statistics, picture and verdict of one run of the demo."""
import csv
import json
import math
import re
import subprocess
from collections import Counter

import bench

GOAL_P99_NS = 1000.0
GOAL_VALID_AFTER_SYNC_S = 0.5
GOAL_RSS_KIB = 8 * 1024
GOAL_LINK_DELAY_NS = 10
SETTLED_EXCHANGES = 20
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


def read_link_delays(log):
    """The published link delay after every accepted exchange, and the count of rejected ones."""
    text = log.read_text(errors="replace")
    delays = [int(number) for number in re.findall(r"Measured delay: (-?\d+)", text)]
    return delays, text.count("out of limits")


def link_delay_report(setup, measured):
    """Of deployed nodes each exchange, of others what they showed each second."""
    delays, rejected = read_link_delays(setup.log("slave"))
    if setup.profile != "deployed":
        delays = measured.link_delays
    settled = delays[SETTLED_EXCHANGES - 1] if len(delays) >= SETTLED_EXCHANGES else None
    return {"true": bench.CABLE_NS, "exchanges": len(delays), "rejected": rejected,
            f"after_{SETTLED_EXCHANGES}": settled,
            "error": None if settled is None else settled - bench.CABLE_NS,
            "last": delays[-1] if delays else None, "all": delays}


def check_capture(setup):
    """What 'tsyn check' says of the capture; a tool that fails itself ends the demo."""
    program = setup.check_build / "tsyn"
    done = subprocess.run([str(program), "check", str(setup.capture), "--json", "--data-id-list",
                           bench.DATA_ID_LIST], capture_output=True, text=True, check=False)
    if done.returncode not in (0, 1):
        raise bench.DemoError(f"'{program} check' failed: {done.stderr.strip()}")
    found = json.loads(done.stdout)
    return {"findings": len(found["findings"]), "crc": found["crc"],
            "first": found["findings"][0] if found["findings"] else None}


def subtlv_report(slave):
    """Follow_Ups that the slave took all sub-TLVs of, against the Sync messages it took."""
    received = slave.get("subtlv", {})
    return {"sent": slave["sync_accepted"], "received": received.get("follow_ups", 0),
            "valid": received.get("all_valid", 0), "user_data": received.get("user_data")}


def build(setup, measured):
    rows = read_samples(setup.samples)
    brackets = sorted(int(row["bracket_ns"]) for row in rows)
    slave = measured.slave
    return {
        "profile": setup.profile,
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
        "link_delay_ns": link_delay_report(setup, measured),
        "subtlv_valid": subtlv_report(slave),
        "check": check_capture(setup),
        "bracket_ns": {"p50": percentile(brackets, 0.50)},
        "frames": count_frames(setup.capture),
        "goals": {"error_p99_ns": GOAL_P99_NS, "rss_kib": GOAL_RSS_KIB,
                  "first_valid_after_sync_s": GOAL_VALID_AFTER_SYNC_S,
                  "link_delay_error_ns": GOAL_LINK_DELAY_NS},
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
    return missed + missed_protocol_goals(result)


def missed_protocol_goals(result):
    missed = []
    delay = result["link_delay_ns"]
    if delay["error"] is None:
        missed.append(f"only {delay['exchanges']} link delay exchanges, "
                      f"{SETTLED_EXCHANGES} are needed; give --duration more")
    elif abs(delay["error"]) > GOAL_LINK_DELAY_NS:
        missed.append(f"link delay {delay[f'after_{SETTLED_EXCHANGES}']} ns is not within "
                      f"{GOAL_LINK_DELAY_NS} ns of {delay['true']} ns")
    subtlv = result["subtlv_valid"]
    # The last Sync may be too young for its Follow_Up to have been looked at; a host of the standard
    # profile looks once a second.
    looked_at = subtlv["sent"] - 1 if result["profile"] == "deployed" else 1
    if subtlv["valid"] != subtlv["received"] or subtlv["received"] < looked_at:
        missed.append(f"sub-TLVs valid in {subtlv['valid']} of {subtlv['sent']} Follow_Ups")
    if result["check"]["findings"] != 0:
        missed.append(f"'tsyn check' has {result['check']['findings']} findings, first: "
                      f"{result['check']['first']}")
    return missed


def write(outdir, runs):
    (outdir / "report.json").write_text(
        json.dumps({setup.profile: result for setup, result in runs}, indent=2) + "\n")


COLOURS = {"deployed": "#3060a0", "standard": "#208040"}


def error_panel(runs):
    """Both errors over time; the wider one is drawn first."""
    points = []
    for setup, result in runs:
        errors = result["slave"]["error_ns"]
        points.append(f"'{setup.samples}' using ($4==1?$1:NaN):2 with points pt 7 ps 0.35 "
                      f"lc rgb '{COLOURS[setup.profile]}' title '{setup.profile}: "
                      f"p50 {errors['p50']}, p99 {errors['p99']}, max {errors['max']} ns'")
    return f"""
set size 0.5,0.92
set origin 0,0
set title 'error' font ',11'
set xlabel 'time since start of the slave (s)'
set ylabel 'error (ns)'
plot {", ".join(points)}
"""


def histogram_panel(runs, reach):
    boxes = [f"'{setup.samples}' using (bin*(floor(($4==1?$2:NaN)/bin)+0.5)):(1) smooth frequency "
             f"with steps lw 2 lc rgb '{COLOURS[setup.profile]}' title '{setup.profile}'"
             for setup, _ in runs]
    return f"""
bin = {reach} / 40.0
set size 0.25,0.92
set origin 0.5,0
set title 'histogram' font ',11'
set xrange [{-reach}:{reach}]
set yrange [0:*]
set xlabel 'error (ns)'
set ylabel 'samples per bin'
set xtics {reach / 2:g}
plot {", ".join(boxes)}
"""


def link_delay_panel(runs):
    blocks, lines = [], []
    longest = 1
    for setup, result in runs:
        delays = result["link_delay_ns"]["all"]
        longest = max(longest, len(delays))
        points = "\n".join(f"{number},{delay}" for number, delay in enumerate(delays, 1))
        blocks.append(f"${setup.profile} << EOD\n{points}\nEOD")
        lines.append(f"${setup.profile} using 1:2 with linespoints pt 7 ps 0.6 "
                     f"lc rgb '{COLOURS[setup.profile]}' title '{setup.profile}'")
    newline = "\n"
    return f"""
{newline.join(blocks)}
set size 0.25,0.92
set origin 0.75,0
set title 'link delay' font ',11'
set xrange [0:{longest + 1}]
set yrange [*:*]
set xtics 5
set xlabel 'exchange'
set ylabel 'ns'
plot {", ".join(lines)}, \
{bench.CABLE_NS} with lines dt 2 lw 1.5 lc rgb '#c03020' title 'true'
"""


def draw(outdir, runs):
    widest = max(result["slave"]["error_ns"]["p99"] for _, result in runs)
    reach = 50 * math.ceil(1.3 * max(widest, 50) / 50)
    counts = " and ".join(str(result["slave"]["error_ns"]["count"]) for _, result in runs)
    script = f"""
set terminal pngcairo size 1400,520 font 'DejaVu Sans,11' background '#ffffff'
set output '{outdir / "offset.png"}'
set datafile separator ','
set multiplot title 'Slave time minus true master time, {counts} samples, \
{runs[0][1]["abi"]}, slave clock +{bench.SLAVE_RATE_PPB / 1000:g} ppm, {bench.CABLE_NS} ns cable' \
font ',13'
set grid lc rgb '#dddddd'
set border 3
set tics nomirror out
set key top right vertical samplen 2
set termoption noenhanced
set yrange [{-reach}:{reach}]
{error_panel(runs)}
{histogram_panel(runs, reach)}
{link_delay_panel(runs)}
unset multiplot
"""
    done = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise bench.DemoError(f"gnuplot cannot draw {outdir / 'offset.png'}: "
                              f"{done.stderr.strip()}")


def summary(setup, result):
    slave = result["slave"]
    errors = slave["error_ns"]
    delay = result["link_delay_ns"]
    subtlv = result["subtlv_valid"]
    frames = "  ".join(f"{name} {count}" for name, count in result["frames"].items())
    return f"""
  Profile {setup.profile}: slave against the master's true clock ({result['abi']}, \
{result['duration_s']:.0f} s, seed {result['seed']})
    error        p50 {errors['p50']} ns   p99 {errors['p99']} ns   max {errors['max']} ns   \
rms {errors['rms']} ns   mean {errors['mean']:+} ns
                 {errors['count']} samples from the first real rate ratio on; \
wanted: p99 below {GOAL_P99_NS:.0f} ns
    first valid  {slave['first_valid_after_sync_s']} s after the first Sync, \
{slave['first_valid_s']} s after Start; wanted: up to {GOAL_VALID_AFTER_SYNC_S} s after Sync
    link delay   {delay[f"after_{SETTLED_EXCHANGES}"]} ns after {SETTLED_EXCHANGES} exchanges, \
{delay['last']} ns after {delay['exchanges']}, {delay['rejected']} rejected, \
true {delay['true']} ns; wanted: within {GOAL_LINK_DELAY_NS} ns
    sub-TLVs     valid in {subtlv['valid']} of {subtlv['received']} Follow_Ups ({subtlv['sent']} Sync), \
user data {subtlv['user_data']}; 'tsyn check': {result['check']['findings']} findings
    memory       {slave['rss_kib']} KiB resident; wanted: below {GOAL_RSS_KIB} KiB
    frames       {frames}"""
