#!/usr/bin/env python3
"""Runs a program with the system calls that a unit leaves it, as systemd would.

Usage: confined.py UNIT PROGRAM [WORD...]

Debian's python3 runs it, which has libseccomp.
"""
import errno
import os
import subprocess
import sys

import seccomp

# What systemd allows with any list of what is allowed.
ALWAYS = "@default"


def calls_of(word):
    """The names that a word of a list stands for."""
    if not word.startswith("@"):
        return {word}
    told = subprocess.run(["systemd-analyze", "syscall-filter", word], capture_output=True,
                          text=True, check=True).stdout
    names = {line.strip() for line in told.splitlines()
             if line.startswith("    ") and not line.strip().startswith("#")}
    return set().union(*map(calls_of, names))


def values(unit, key):
    with open(unit, encoding="utf-8") as file:
        return [line.partition("=")[2].strip() for line in file if line.startswith(key + "=")]


def allowed(unit):
    names = calls_of(ALWAYS)
    for value in values(unit, "SystemCallFilter"):
        meant = set().union(*map(calls_of, value.lstrip("~").split()))
        names = names - meant if value.startswith("~") else names | meant
    return names


def confine(unit):
    refusal = getattr(errno, values(unit, "SystemCallErrorNumber")[-1])
    calls = seccomp.SyscallFilter(defaction=seccomp.ERRNO(refusal))
    for name in allowed(unit):
        if seccomp.resolve_syscall(seccomp.Arch(), name) >= 0:
            calls.add_rule(seccomp.ALLOW, name)
    calls.load()


if __name__ == "__main__":
    confine(sys.argv[1])
    os.execvp(sys.argv[2], sys.argv[2:])
