"""The library's floors, and what the text of a source shows of them.

Includes run downwards: a room sees the rooms of the floors below its own and itself, never another
room of its own floor. Every check returns findings as texts "file:line: what: what is allowed".
"""

import collections
import os
import re

# From the ground up; rooms of one line share a floor. A room that does not exist is no fault.
FLOORS = (
    ("base",),
    ("wire",),
    ("timebase", "platform"),
    ("autosar",),
    ("ptp",),
    ("profile",),
    ("api",),
    ("tools",),
)
FLOOR_OF = {room: floor for floor, rooms in enumerate(FLOORS) for room in rooms}
LIBRARY = [room for room in FLOOR_OF if room != "tools"]

# What a host includes: open to every room, and itself on top of nothing.
OPEN = "include"

# The configuration and run-time block of the running instance, which handlers look things up in.
SHARED = "api/InterfaceDataManager.h"
SHARED_ABOVE = "wire"

LINES_AT_MOST = 400

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
EXTERN = re.compile(r"\bextern\b")
VISIBILITY = re.compile(r"#\s*pragma\s+GCC\s+visibility\b|\b_Pragma\s*\(\s*\"GCC visibility\b")
# Comments, and texts that are no include: neither declares anything.
PROSE = re.compile(r'//[^\n]*|/\*.*?\*/|(?P<text>"(?:[^"\\\n]|\\.)*")', re.DOTALL)


def code_lines(text, keep_texts=False):
    """Lines without comments and, unless kept, without literal texts; as many as before."""
    def blank(match):
        if keep_texts and match.group("text"):
            return match.group()
        return "\n" * match.group().count("\n")
    return PROSE.sub(blank, text).split("\n")


def room_of(name):
    return name.split("/", 1)[0]


def includes(text):
    """Line number and name of each file of ours that a text includes."""
    for number, line in enumerate(code_lines(text, keep_texts=True), 1):
        found = INCLUDE.match(line)
        if found:
            yield number, os.path.normpath(found.group(1))


def target_of(includer, name, files):
    """The tree's name of an included file: as told from the root, or beside the includer."""
    beside = os.path.normpath(os.path.join(os.path.dirname(includer), name))
    return next((path for path in (name, beside, f"{OPEN}/{name}") if path in files), None)


def visible_rooms(room):
    if room == OPEN:
        return [OPEN]
    below = [other for other, floor in FLOOR_OF.items() if floor < FLOOR_OF[room]]
    return [OPEN, *below, room]


def sees_shared(room):
    return FLOOR_OF.get(room, -1) > FLOOR_OF[SHARED_ABOVE]


def upward_includes(files):
    """files: name in the tree -> text, of all rooms that have a floor and of include/."""
    findings = []
    for name, text in sorted(files.items()):
        room = room_of(name)
        for number, included in includes(text):
            target = target_of(name, included, files)
            if target is None:
                findings.append(f"{name}:{number}: includes {included}, which is in no room: "
                                f"only files of the rooms and of {OPEN}/ are")
                continue
            if target == SHARED and sees_shared(room):
                continue
            if room_of(target) not in visible_rooms(room):
                findings.append(f"{name}:{number}: includes {target}: {room}/ may include "
                                f"{', '.join(visible_rooms(room))}"
                                + (f" and {SHARED}" if sees_shared(room) else ""))
    return findings


def mutual_includes(files):
    """Folders that include each other, but for the shared block and a program's main.cpp, which
    stands beside what its commands share."""
    first = collections.OrderedDict()
    for name, text in sorted(files.items()):
        if os.path.basename(name) == "main.cpp":
            continue
        for number, included in includes(text):
            target = target_of(name, included, files)
            if target not in (None, SHARED):
                pair = (os.path.dirname(name), os.path.dirname(target))
                first.setdefault(pair, f"{name}:{number}")
    return [f"{place}: {one}/ includes {other}/, which includes {one}/ at {first[other, one]}: "
            "folders may include each other in one direction only"
            for (one, other), place in first.items() if one < other and (other, one) in first]


def externs(files):
    """Declarations by hand, which no include shows. files: the library's .cpp files."""
    return [f"{name}:{number}: extern in a source: declare it in a header, which the definition "
            "includes too; base/Exports.h has what makes a plain name"
            for name, text in sorted(files.items()) if name.endswith(".cpp")
            for number, line in enumerate(code_lines(text), 1) if EXTERN.search(line)]


def visibility_pragmas(files):
    return [f"{name}:{number}: visibility by pragma: only ZEB_EXPORT and ZEB_INTERNAL of "
            "base/Exports.h change it"
            for name, text in sorted(files.items())
            for number, line in enumerate(code_lines(text, keep_texts=True), 1)
            if VISIBILITY.search(line)]


def long_files(files):
    """Only files that people read line by line: sources, headers, scripts."""
    return [f"{name}:{LINES_AT_MOST + 1}: {lines} lines: {LINES_AT_MOST} at most"
            for name, lines in sorted((name, len(text.splitlines()))
                                      for name, text in files.items())
            if lines > LINES_AT_MOST]
