"""confined.py CALLS COMMAND...: runs the command with these system calls (a file of names) and no others.

Like systemd's SystemCallFilter= with SystemCallErrorNumber=EPERM: all others fail with EPERM.
"""

import ctypes
import errno
import os
import pathlib
import sys

FAIL = 0x0005_0000 | errno.EPERM
ALLOW = 0x7FFF_0000


def confine(names):
    seccomp = ctypes.CDLL("libseccomp.so.2", use_errno=True)
    seccomp.seccomp_init.restype = ctypes.c_void_p
    rules = ctypes.c_void_p(seccomp.seccomp_init(FAIL))
    for name in names:
        number = seccomp.seccomp_syscall_resolve_name(name.encode())
        # A negative number stands for a system call that this processor does not have.
        if number >= 0 and seccomp.seccomp_rule_add(rules, ALLOW, number, 0) != 0:
            sys.exit(f"confined.py: no rule can be made for {name}")
    if seccomp.seccomp_load(rules) != 0:
        sys.exit("confined.py: the kernel refuses the filter")


if __name__ == "__main__":
    confine(pathlib.Path(sys.argv[1]).read_text().split())
    os.execvp(sys.argv[2], sys.argv[2:])
