"""Runs the tests and fails if they leave anything on the host, even where all of them pass.

Usage: leftovers.py COMMAND [ARGUMENT ...]

The command runs in IPC and process namespaces of its own, so that what is left in them is the
tests' alone. Files are looked for in a temporary folder of its own, and by the names that tests give
theirs in /tmp; network namespaces by their names.
"""
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time

INSIDE = "--inside"
OWN = ["unshare", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc"]


def named():
    return {path for pattern in ("/tmp/vorn-*", "/tmp/filecast-*", "/run/netns/*")
            for path in glob.glob(pattern)}


def reap():
    """What has lost its parent is a child of this first process."""
    try:
        while os.waitpid(-1, os.WNOHANG)[0] != 0:
            pass
    except ChildProcessError:
        pass


def processes():
    """The others in this process namespace."""
    reap()
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            if int(number) != os.getpid():
                with open("/proc/%s/cmdline" % number, encoding="utf-8", errors="replace") as line:
                    yield "process %s: %s" % (number, " ".join(line.read().split("\0")) or "zombie")
        except OSError:
            pass  # it has just ended


def objects():
    for kind in ("shm", "sem", "msg"):
        with open("/proc/sysvipc/" + kind, encoding="utf-8") as table:
            for row in table.read().splitlines()[1:]:
                yield "System V %s: key %s, id %s" % (kind, *row.split()[:2])


def run(command):
    """In the namespaces: the result of the command, and what it has left there."""
    result = subprocess.run(command, check=False).returncode
    for _ in range(20):  # one that is being killed may take a moment
        left = [*objects(), *processes()]
        if not left:
            break
        time.sleep(0.1)
    print(*("left on the host: " + what for what in left), sep="\n", end="\n" if left else "")
    return result or (1 if left else 0)


def main(command):
    if command[0] == INSIDE:
        return run(command[1:])
    before = named()
    folder = tempfile.mkdtemp(prefix="tests-")
    if subprocess.run([*OWN, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
        command = [*OWN, sys.executable, __file__, INSIDE, *command]
    else:
        print("no process namespace of our own: objects and processes that are left are not seen")
    result = subprocess.run(command, env={**os.environ, "TMPDIR": folder}, check=False).returncode
    left = [*sorted(os.listdir(folder)), *sorted(named() - before)]
    shutil.rmtree(folder, ignore_errors=True)
    print(*("left on the host: file " + what for what in left), sep="\n", end="\n" if left else "")
    return result or (1 if left else 0)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
