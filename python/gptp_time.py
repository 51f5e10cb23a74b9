"""Reads the time that a daemon publishes for an interface: what gPtpTimeReader.h is for C.

    reader = gptp_time.TimeReader("eth1")
    reading = reader.now()
    if reading.result == gptp_time.Result.OK:
        print(reading.earliest_ns, reading.latest_ns)
    else:
        print(reading.result.text)

Python 3.9 or newer on x86 and nothing else. A reader serves one thread at a time.
"""
import enum
import math
import mmap
import os
import stat
import struct
import time
from typing import NamedTuple

NO_TIME = -2**63
NO_EARLIEST = -2**63
NO_LATEST = 2**63 - 1

SEGMENT_SIZE = 260
_RECORD = 24
_QUALITY = _RECORD + 172
_SEQUENCE_WORD = (_QUALITY + 8) // 4
_MAGIC = 0x71507467
_LAYOUT = 1
_TRIES = 1000
_LOOK_EVERY_NS = 1_000_000_000
_AHEAD_NS = 1_000_000
# masterOffset, systemOffset, the rates' mantissas and exponents, localTime
_LINE = struct.Struct("<qqQHxxQHxxQ")
_LINE_AT = _RECORD + 20
# magic, layout, state, bound, its growth, owner, voidAfterNs, stepCount
_TOLD = struct.Struct("<IBxBxxxxxIIIq8xxxH")
_LINE_BYTES = slice(_LINE_AT, _LINE_AT + _LINE.size)
_TOLD_BYTES = slice(_QUALITY, _QUALITY + _TOLD.size)


class State(enum.IntEnum):
    """As enum TSynTimeState; UNTOLD of a daemon that tells none."""
    NO_MASTER = 0
    ACQUIRING = 1
    SYNCHRONISED = 2
    HOLDOVER = 3
    LOST = 4
    UNTOLD = 255

    @classmethod
    def _missing_(cls, value):
        """A later daemon's state, or a damaged one, is a number without a name."""
        state = int.__new__(cls, value)
        state._name_ = f"UNKNOWN_{value}"
        state._value_ = value
        return state


STATE_UNTOLD = State.UNTOLD


class Result(enum.IntEnum):
    """As enum gPtpReadResult."""
    OK = 0
    BAD_NAME = 1
    NO_SEGMENT = 2
    NOT_READABLE = 3
    FOREIGN = 4
    NO_TIME = 5
    TORN = 6
    NO_QUALITY = 7
    ACQUIRING = 8
    STALE = 9
    VOID = 10
    TOO_WIDE = 11
    OWNER_GONE = 12

    @property
    def text(self):
        return _TEXTS[self]


_TEXTS = (
    "the time is known within its bound",
    "no name of an interface",
    "no segment: no daemon has run on this interface",
    "the segment is not readable",
    "the segment is not a daemon's, or of an unknown layout",
    "the daemon knows no time yet",
    "the record kept changing",
    "a daemon that tells no bound",
    "the daemon does not know its master's time well enough yet",
    "the time is stale",
    "the bound is void",
    "the bound is wider than the limit",
    "the daemon's process has ended",
)


class Reading(NamedTuple):
    """A moment, ns: on the grandmaster's clock, or on the system's where system_at gave it."""
    result: Result
    earliest_ns: int = NO_EARLIEST
    latest_ns: int = NO_LATEST
    time_ns: int = NO_TIME
    system_ns: int = 0
    state: State = State.UNTOLD
    step_count: int = 0

    def is_certainly_before(self, other):
        return self.latest_ns < other.earliest_ns

    def is_certainly_after(self, other):
        return self.earliest_ns > other.latest_ns


def _rounded(numerator, denominator):
    """A quotient as 80-bit arithmetic has it: (m, e) for m * 2**e, m of at most 64 bits, to the
    nearest and to even."""
    size = abs(numerator)
    shift = size.bit_length() - denominator.bit_length() - 64
    scaled, divisor = (size, denominator << shift) if shift > 0 else (size << -shift, denominator)
    if scaled >= divisor << 64:
        shift += 1
        divisor <<= 1
    mantissa, rest = divmod(scaled, divisor)
    if 2 * rest > divisor or (2 * rest == divisor and mantissa & 1):
        mantissa += 1
    return (mantissa if numerator >= 0 else -mantissa), shift


def _product(a, b):
    mantissa, exponent = _rounded(a[0] * b[0], 1)
    return mantissa, exponent + a[1] + b[1]


def _sum(a, b):
    least = min(a[1], b[1])
    mantissa, exponent = _rounded((a[0] << (a[1] - least)) + (b[0] << (b[1] - least)), 1)
    return mantissa, exponent + least


def _quotient(a, b):
    sign = -1 if b[0] < 0 else 1
    mantissa, exponent = _rounded(sign * a[0], abs(b[0]))
    return mantissa, exponent + a[1] - b[1]


def _whole(value):
    """To the nearest integer, halves away from 0, by the same two steps as in C."""
    mantissa, exponent = _sum(value, (-1 if value[0] < 0 else 1, -1))
    size = abs(mantissa)
    size = size << exponent if exponent >= 0 else size >> -exponent
    return size if mantissa >= 0 else -size


def _signed(value):
    return (value + 2**63) % 2**64 - 2**63


def _gain(line):
    """Master over system rate less 1; None for what is no rate of clocks."""
    factors = []
    for mantissa, exponent in (line[2:4], line[4:6]):
        if exponent & 0x7FFF == 0x7FFF or not mantissa >> 63:
            return None
        sign = -1 if exponent >> 15 else 1
        factors.append((sign * mantissa, (exponent & 0x7FFF) - 16383 - 63))
    size = sum(mantissa.bit_length() + exponent for mantissa, exponent in factors)
    if not -4 < size < 4:
        return None
    gain = _sum(_product(*factors), (-1, 0))
    return gain if -0.5 < math.ldexp(*gain) < 0.5 else None


class TimeReader:
    """A reader that could not be opened may be used all the same: each reading tries again."""

    def __init__(self, interface, max_age_ns=60_000_000_000, max_width_ns=0):
        self.max_age_ns = max_age_ns
        self.max_width_ns = max_width_ns
        self._interface = interface
        self._path = f"/dev/shm/{interface}"
        self._map = self._words = self._identity = None
        self._looked_at_ns = self._now()
        self._known_sequence = 0
        self._rates = self._gain = None
        self.opened = self._look()

    def close(self):
        if self._map is not None:
            self._words.release()
            self._map.close()
        self._map = self._words = self._identity = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @staticmethod
    def _now():
        return time.clock_gettime_ns(time.CLOCK_REALTIME)

    def _look(self):
        """Maps the segment that bears the name now; one at hand stays until it has a successor."""
        name = self._interface
        if not 0 < len(name.encode()) < 16 or "/" in name or "\0" in name:
            return Result.BAD_NAME
        try:
            if self._map is not None:
                found = os.stat(self._path)
                if (found.st_dev, found.st_ino) == self._identity:
                    return Result.OK
            file = os.open(self._path,
                           os.O_RDONLY | os.O_CLOEXEC | os.O_NOFOLLOW | os.O_NONBLOCK)
        except FileNotFoundError:
            return Result.NO_SEGMENT
        except OSError:
            return Result.FOREIGN if os.path.islink(self._path) else Result.NOT_READABLE
        try:
            return self._take_file(file)
        except OSError:
            return Result.NOT_READABLE
        finally:
            os.close(file)

    def _take_file(self, file):
        found = os.fstat(file)
        if not stat.S_ISREG(found.st_mode) or found.st_size != SEGMENT_SIZE:
            return Result.FOREIGN
        mapped = mmap.mmap(file, SEGMENT_SIZE, prot=mmap.PROT_READ)
        self.close()
        self._map = mapped
        self._identity = (found.st_dev, found.st_ino)
        # A word is fetched at once by native access alone; struct's little-endian goes by bytes.
        self._words = memoryview(mapped).cast("I")
        self._known_sequence = self._words[_SEQUENCE_WORD]
        return Result.OK

    def _copy(self, reads_clock):
        """Result, line, what is told, and the clock, read meanwhile where asked for."""
        words, mapped = self._words, self._map
        now = None
        for _ in range(_TRIES):
            before = words[_SEQUENCE_WORD]
            line = mapped[_LINE_BYTES]
            told = mapped[_TOLD_BYTES]
            if reads_clock:
                now = self._now()
            if before % 2 or words[_SEQUENCE_WORD] != before:
                continue
            quality = _TOLD.unpack(told)
            if quality[0] or before:
                known = quality[0] == _MAGIC and quality[1] == _LAYOUT
                return Result.OK if known else Result.FOREIGN, line, quality, now
            if mapped[_LINE_BYTES] == line and mapped[_TOLD_BYTES] == told:
                return Result.NO_QUALITY, line, quality, now
        return Result.TORN, None, None, now

    def _take(self, system_ns, reads_clock):
        if self._map is None:
            looked = self._look()
            if looked != Result.OK:
                return looked, None, None, system_ns
        taken = self._copy(reads_clock)
        moment = taken[3] if reads_clock else system_ns
        if abs(moment - self._looked_at_ns) > _LOOK_EVERY_NS:
            now = self._now()
            if abs(now - self._looked_at_ns) > _LOOK_EVERY_NS:
                self._looked_at_ns = now
                identity = self._identity
                self._look()
                if identity != self._identity:
                    taken = self._copy(reads_clock)
        return taken[0], taken[1], taken[2], taken[3] if reads_clock else system_ns

    def _follow_rates(self, line):
        if self._rates != line[2:6]:
            self._rates = line[2:6]
            self._gain = _gain(line)
        return self._gain

    @staticmethod
    def _to_master(line, gain, system_ns):
        elapsed = _signed(system_ns - line[6] - line[1])
        return _signed(line[6] - line[0] + elapsed + _whole(_product((elapsed, 0), gain)))

    @staticmethod
    def _to_system(line, gain, master_ns):
        elapsed = _signed(master_ns - line[6] + line[0])
        share = _quotient(_product((elapsed, 0), gain), _sum((1, 0), gain))
        return _signed(line[6] + line[1] + elapsed - _whole(share))

    def _judge(self, taken, line, told, time_ns, system_ns, is_now):
        state, steps, half = State.UNTOLD, 0, None
        age = _signed(system_ns - line[6] - line[1])
        if taken == Result.OK:
            bound, growth, void_after, steps = told[3], told[4], told[6], told[7]
            state = State(told[2])
            if state in (State.SYNCHRONISED, State.HOLDOVER) and system_ns > void_after:
                state = State.LOST
            known = (State.ACQUIRING, State.SYNCHRONISED, State.HOLDOVER)
            if state in known and bound != 0xFFFFFFFF:
                half = bound - (-abs(age) * growth) // 1_000_000_000
        if time_ns is None:
            return Reading(Result.NO_TIME, system_ns=system_ns, state=state, step_count=steps)
        earliest, latest = NO_EARLIEST, NO_LATEST
        if half is not None:
            earliest, latest = time_ns - half, time_ns + half
        stale = 0 < self.max_age_ns < age or (is_now and age < -_AHEAD_NS)
        wide = half is not None and 0 < self.max_width_ns < 2 * half
        result = (Result.STALE if stale and state == State.UNTOLD else
                  Result.NO_QUALITY if state == State.UNTOLD else
                  Result.ACQUIRING if state == State.ACQUIRING else
                  Result.FOREIGN if state > State.LOST else
                  Result.VOID if half is None else
                  Result.STALE if stale else Result.TOO_WIDE if wide else Result.OK)
        return Reading(result, earliest, latest, time_ns, system_ns, state, steps)

    def _moment(self, system_ns, is_now):
        taken, line, told, system_ns = self._take(system_ns, is_now)
        if taken not in (Result.OK, Result.NO_QUALITY):
            return Reading(taken, system_ns=system_ns)
        line = _LINE.unpack(line)
        gain = self._follow_rates(line)
        time_ns = self._to_master(line, gain, system_ns) if gain else None
        return self._judge(taken, line, told, time_ns, system_ns, is_now)

    def now(self):
        """Grandmaster time now."""
        return self._moment(self._looked_at_ns, True)

    def at(self, system_ns):
        """Grandmaster time at a CLOCK_REALTIME reading, such as a file's or a packet's."""
        return self._moment(system_ns, False)

    def system_at(self, master_ns):
        """CLOCK_REALTIME at a grandmaster time; all times of the reading are the system clock's."""
        taken, line, told, now = self._take(self._looked_at_ns, True)
        if taken not in (Result.OK, Result.NO_QUALITY):
            return Reading(taken, system_ns=now)
        line = _LINE.unpack(line)
        gain = self._follow_rates(line)
        if not gain:
            return self._judge(taken, line, told, None, now, False)
        system_ns = self._to_system(line, gain, master_ns)
        reading = self._judge(taken, line, told, master_ns, system_ns, False)
        if reading.earliest_ns != NO_EARLIEST:
            reading = reading._replace(
                earliest_ns=self._to_system(line, gain, reading.earliest_ns),
                latest_ns=self._to_system(line, gain, reading.latest_ns))
        return reading._replace(time_ns=system_ns)

    def owner(self):
        """Whether the daemon lives; what that is seen by, gPtpReaderOwner in C tells."""
        taken, _, told, _ = self._take(self._looked_at_ns, True)
        if taken not in (Result.OK, Result.TORN):
            return taken
        sequence = self._words[_SEQUENCE_WORD]
        if sequence != self._known_sequence:
            self._known_sequence = sequence
            return Result.OK
        held = self._lock_is_held()
        if held is not None:
            return Result.OK if held else Result.OWNER_GONE
        owner = told[5] if told else _TOLD.unpack(self._map[_TOLD_BYTES])[5]
        try:
            os.kill(owner, 0)
        except ProcessLookupError:
            return Result.OWNER_GONE
        except OSError:
            pass
        return Result.OK

    def _lock_is_held(self):
        try:
            found = os.stat(self._path + ".lock")
            with open("/proc/locks", encoding="ascii") as locks:
                wanted = (f" {os.major(found.st_dev):02x}:{os.minor(found.st_dev):02x}:"
                          f"{found.st_ino} ")
                return any(" FLOCK " in line and wanted in line for line in locks)
        except OSError:
            return None
