"""Counts on the wire that a flooded pair of the standard profile loses nothing of each other.

Usage: flooded.py SIMULATE SCENARIO

Of the card's capture: each Sync of the master is accepted by the slave, each Pdelay_Req of the slave
has one Pdelay_Resp and one Pdelay_Resp_Follow_Up within 10 ms, and strangers get few answers.
"""

import collections
import json
import pathlib
import struct
import subprocess
import sys
import tempfile

SYNC, PDELAY_REQ, PDELAY_RESP, PDELAY_RESP_FOLLOW_UP = 0, 2, 3, 10
ETHERNET_HEADER = 14
STRANGERS = bytes.fromhex("0AFFFFFE")
FLOODED_FRAMES = 4000
MOST_ANSWERS_A_FLOOD = 100
LATEST_ANSWER_NS = 10_000_000

Message = collections.namedtuple("Message", "ns type source sequence requester")


def messages(capture):
    """Every PTP message of a pcapng file, in the order of sending."""
    data = capture.read_bytes()
    offset = 0
    while offset < len(data):
        kind, length = struct.unpack_from("<II", data, offset)
        if kind == 6:
            ptp = data[offset + 28 + ETHERNET_HEADER:]
            high, low = struct.unpack_from("<II", data, offset + 12)
            yield Message(high << 32 | low, ptp[0] & 0xF, ptp[20:28], ptp[30:32], ptp[44:52])
        offset += length


def lost(found, accepted):
    """What is wrong, a line each."""
    answers = collections.Counter((each.type, each.sequence, each.requester) for each in found
                                  if each.type in (PDELAY_RESP, PDELAY_RESP_FOLLOW_UP))
    syncs = sum(each.type == SYNC and not each.source.startswith(STRANGERS) for each in found)
    if syncs < 90 or accepted != syncs:
        yield f"of {syncs} Sync of the master {accepted} were accepted"
    # Before its first Sync the master is not there to answer.
    begin = next(i for i, each in enumerate(found) if each.type == SYNC)
    requests = [each for each in found[begin:]
                if each.type == PDELAY_REQ and not each.source.startswith(STRANGERS)]
    if len(requests) < 8:
        yield f"only {len(requests)} Pdelay_Req were sent"
    for request in requests:
        for answer in (PDELAY_RESP, PDELAY_RESP_FOLLOW_UP):
            times = answers[answer, request.sequence, request.source]
            if times != 1:
                yield f"Pdelay_Req {request.sequence.hex()} has {times} answers of type {answer}"


def late(found):
    """The same of answers to anybody."""
    asked = {}
    for each in found:
        if each.type == PDELAY_REQ:
            asked[each.source, each.sequence] = each.ns
        elif each.type == PDELAY_RESP and (each.requester, each.sequence) in asked:
            took = each.ns - asked[each.requester, each.sequence]
            if took > LATEST_ANSWER_NS:
                yield f"Pdelay_Req {each.sequence.hex()} was answered {took} ns later"


def unbounded(found):
    """The same of what strangers get."""
    for kind, floods in ((SYNC, 1), (PDELAY_REQ, 2), (PDELAY_RESP, 1)):
        sent = sum(each.type == kind and each.source.startswith(STRANGERS) for each in found)
        if sent != floods * FLOODED_FRAMES:
            yield f"{sent} frames of type {kind} were no flood"
    answered = collections.Counter(
        each.source for each in found
        if each.type == PDELAY_RESP and each.requester.startswith(STRANGERS) and
        not each.source.startswith(STRANGERS))
    for node, answers in answered.items():
        if answers > 2 * MOST_ANSWERS_A_FLOOD:
            yield f"{node.hex()} gave {answers} answers to strangers"


def main():
    simulate, scenario = sys.argv[1:3]
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([simulate, scenario, "--no-picture", "--out", folder], check=True,
                       stdout=subprocess.DEVNULL)
        results = next(pathlib.Path(folder).glob("*/seed-*"))
        found = list(messages(results / "capture.pcapng"))
        end = json.loads((results / "slave.json").read_text().splitlines()[-1])
    wrong = [*lost(found, end["sync_accepted"]), *late(found), *unbounded(found)]
    for line in wrong:
        print(f"{scenario}: {line}", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
