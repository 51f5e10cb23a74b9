#!/usr/bin/env python3
"""What a reading of the published time costs in Python, ns a call as JSON, on a segment of its own.

Usage: bench/reader.py
"""
import json
import pathlib
import struct
import sys
import time
import timeit

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "python"))

import gptp_time  # noqa: E402

NAME = "tsb2"
CALLS = 20000
ONE = struct.pack("<QHxx", 1 << 63, 16383)


def median_ns(call):
    runs = sorted(timeit.repeat(call, number=CALLS, repeat=5, timer=time.process_time))
    return round(runs[2] / CALLS * 1e9, 1)


def main():
    path = pathlib.Path("/dev/shm") / NAME
    line = struct.pack("<qq12s12sQ", 0, 0, ONE, ONE, time.time_ns())
    quality = struct.pack("<IBBBBIIIIq32x", 0x71507467, 1, 1, 2, 0, 4, 100, 300, 0, 2**62)
    path.write_bytes(bytes(44) + line + bytes(104) + quality)
    try:
        with gptp_time.TimeReader(NAME) as reader:
            if reader.now().result != gptp_time.Result.OK:
                raise SystemExit(f"reader.py: {reader.now().result.text}")
            moment = time.time_ns()
            print(json.dumps({
                "reader_now": median_ns(reader.now),
                "reader_at": median_ns(lambda: reader.at(moment)),
                "reader_clock": median_ns(
                    lambda: time.clock_gettime_ns(time.CLOCK_REALTIME))}))
    finally:
        path.unlink()


if __name__ == "__main__":
    main()
