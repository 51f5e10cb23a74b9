"""What a pair without a profile sends, says and publishes, against what deployed nodes do.

Usage: deployed.py SIMULATE SCENARIO DIGESTS [--write]

DIGESTS holds "sha256  file" lines of an earlier run of the same scenario and seed. --write makes
them anew, which is right only after a deliberate change of deployed behaviour or of what simulated
time costs; the log of the change says which.
"""

import hashlib
import pathlib
import re
import subprocess
import sys
import tempfile

SEED = 1
FILES = ("capture.pcapng", "master.json", "master.log", "slave.csv", "slave.json", "slave.log")

# What changes with the sources and the build, not with behaviour.
SOURCE_LINE = re.compile(rb"<([\w./]+)/\d+->")
BUILD_DATE = re.compile(rb"created on [\d.]+ at [\d:]+,")
LINE_IN_TEXT = re.compile(rb"SlaveThread\(\d+\): ")


def digest(path):
    data = path.read_bytes()
    if path.suffix == ".log":
        data = BUILD_DATE.sub(b"created,", SOURCE_LINE.sub(rb"<\1->", data))
        data = LINE_IN_TEXT.sub(b"SlaveThread(): ", data)
    return hashlib.sha256(data).hexdigest()


def run(simulate, scenario):
    """File name -> digest of one run's results."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([simulate, scenario, "--seeds", f"{SEED}..{SEED}", "--out", folder],
                       check=True, stdout=subprocess.DEVNULL)
        results = next(pathlib.Path(folder).glob("*/seed-*"))
        return {name: digest(results / name) for name in FILES}


def main():
    simulate, scenario, digests = sys.argv[1:4]
    found = run(simulate, scenario)
    lines = "".join(f"{value}  {name}\n" for name, value in found.items())
    if sys.argv[4:] == ["--write"]:
        pathlib.Path(digests).write_text(lines, encoding="ascii")
        return 0
    wanted = dict(reversed(line.split()) for line in open(digests, encoding="ascii"))
    changed = [name for name in FILES if found[name] != wanted.get(name)]
    for name in changed:
        print(f"{name} differs from that of deployed nodes: {scenario}, seed {SEED}; "
              f"run it with {simulate} at the last commit that passed and compare", file=sys.stderr)
    return 1 if changed else 0


if __name__ == "__main__":
    sys.exit(main())
