#!/usr/bin/python3
"""Runs a program as systemd would with the restrictions of a unit: as_unit.py UNIT PROGRAM [WORD...]

Those of system calls, with systemd's own lists of them. A property of the unit that is neither made here
nor known to restrict nothing is an error.
"""
import ctypes
import errno
import os
import socket
import subprocess
import sys

import seccomp

PR_SET_NO_NEW_PRIVS = 38
NAMESPACES = (0x10000000, 0x20000, 0x20000000, 0x40000000, 0x8000000, 0x4000000, 0x2000000)
SET_ID_BITS = (0o4000, 0o2000)
REAL_TIME = (1, 2, 6)  # SCHED_FIFO, SCHED_RR, SCHED_DEADLINE
NO_RESTRICTION = {"Type", "BusName", "ExecStart", "NotifyAccess", "SuccessExitStatus",
                  "TimeoutStopSec", "SystemCallArchitectures", "SystemCallErrorNumber"}


def calls(words):
    """The names of calls behind the words of a SystemCallFilter."""
    names = set()
    for word in words:
        if not word.startswith("@"):
            names.add(word)
            continue
        listed = subprocess.run(["systemd-analyze", "syscall-filter", word], check=True,
                                capture_output=True, text=True).stdout.split("\n")[1:]
        names |= calls(line.strip() for line in listed if line.strip()[:1] not in ("", "#"))
    return names


def bar(call_filter, name, *conditions, error=errno.EPERM):
    try:
        call_filter.add_rule(seccomp.ERRNO(error), name, *conditions)
    except (RuntimeError, ValueError):
        pass  # not of this machine's kind


def bar_bits(call_filter, name, argument, bits):
    for bit in bits:
        bar(call_filter, name, seccomp.Arg(argument, seccomp.MASKED_EQ, bit, bit))


def allow_only(names):
    call_filter = seccomp.SyscallFilter(seccomp.ERRNO(errno.EPERM))
    for name in names:
        try:
            call_filter.add_rule(seccomp.ALLOW, name)
        except (RuntimeError, ValueError):
            pass
    call_filter.load()


def restrict(properties):
    allowed, denied = set(), set()
    more = seccomp.SyscallFilter(seccomp.ALLOW)
    for key, value in properties:
        if key == "NoNewPrivileges":
            ctypes.CDLL(None).prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0)
        elif key == "LockPersonality":
            bar(more, "personality", seccomp.Arg(0, seccomp.NE, 0xffffffff))
        elif key == "RestrictAddressFamilies" and value == "AF_UNIX":
            bar(more, "socket", seccomp.Arg(0, seccomp.NE, socket.AF_UNIX),
                error=errno.EAFNOSUPPORT)
        elif key == "RestrictNamespaces":
            bar_bits(more, "clone", 0, NAMESPACES)
            bar_bits(more, "unshare", 0, NAMESPACES)
            bar(more, "clone3", error=errno.ENOSYS)
            bar(more, "setns")
        elif key == "RestrictRealtime":
            for policy in REAL_TIME:
                bar(more, "sched_setscheduler", seccomp.Arg(1, seccomp.EQ, policy))
        elif key == "RestrictSUIDSGID":
            for name, mode in (("chmod", 1), ("fchmod", 1), ("fchmodat", 2), ("mkdir", 1)):
                bar_bits(more, name, mode, SET_ID_BITS)
        elif key == "SystemCallFilter":
            if value.startswith("~"):
                denied |= calls(value[1:].split())
            else:
                allowed |= calls(value.split())
        elif key not in NO_RESTRICTION:
            sys.exit(f"as_unit: {key} is not known here")
    more.load()
    if allowed:
        allow_only(allowed - denied)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        service = file.read().split("[Service]\n")[1]
    restrict([line.split("=", 1) for line in service.splitlines() if line[:1] not in ("", "#")])
    os.execv(sys.argv[2], sys.argv[2:])


if __name__ == "__main__":
    main()
