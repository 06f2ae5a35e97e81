"""A scratch copy of the sources in which faults are planted, built and tested.

Under one folder lie `tree`, the sound copy with its build, and `0`, `1` ..., a copy of it for each
worker and one in which nothing is planted. Every command runs in a mount namespace where its copy
stands in place of `tree`, so that one build serves all of them. After a fault the worker's copy gets
back what differs from `tree`, times included: nothing has to be built again.

A faulty library can write anywhere, send anything and never end. So commands also have their own
process, network and IPC namespaces, a file system that can only be read outside the copy and an
empty /tmp, limits on memory and file size, and a time after which all of their processes end."""

import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from typing import NamedTuple

# The shell stays the first process of its namespace: that one is not ended by every signal.
SPACES = ["unshare", "--mount", "--ipc", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
ENTER = """
mount --bind "$1" "$2" && mount -t tmpfs -o size=1g none /tmp && mount -o remount,bind,ro / &&
  ip link set lo up || exit 125
ulimit -c 0; ulimit -f 524288; ulimit -d 4194304
export HOME=/tmp TMPDIR=/tmp CCACHE_DISABLE=1
cd "$3"; shift 3; "$@"; exit $? """
CANNOT_ENTER = 125

BUILD_SECONDS = 900
OUTPUT_LIMIT = 8 << 20
SLOW_MILLISECONDS = 400
UNKNOWN_MILLISECONDS = 200000
TRIES = 2


class CannotWork(Exception):
    pass


class Outcome(NamedTuple):
    code: int  # None: not ended in time
    output: str


class Test(NamedTuple):
    name: str
    program: str  # the file that holds it, or "" when only ctest can run it
    folders: tuple  # the folders below tests/ in which its suite is written
    milliseconds: int


class Step(NamedTuple):
    """Tests that one command runs."""
    program: str
    names: tuple
    milliseconds: int


class TestsResult(NamedTuple):
    failed: str  # the test, or None
    in_time: bool
    chance: list  # tests that failed once and not again
    output: str


def HasOwnBuild(test):
    """Whether a test, as ctest lists it, builds a library of its own, which takes a minute and shows
    what others show."""
    return any(entry["name"] == "LABELS" and "own_build" in entry["value"]
               for entry in test.get("properties", []))


class Scratch:
    def __init__(self, root, folder, workers, quick):
        self.root, self.workers, self.quick = root, workers, quick
        self.folder = tempfile.mkdtemp(prefix="mutate-", dir=folder)
        self.tree = os.path.join(self.folder, "tree")
        self.build = os.path.join(self.tree, "build", "dev")
        self.running, self.lock, self.closed = set(), threading.Lock(), False
        self.sound_lock = threading.Lock()
        self.sound = workers  # a copy in which nothing is planted, for tests that fail by chance
        self.tests = []
        self.spaces = SPACES

    def Close(self):
        """Ends what runs and removes everything. Harmless when repeated."""
        with self.lock:
            self.closed = True
            processes = list(self.running)
        for process in processes:
            ProcessEnd(process)
        # The processes of a namespace end a moment after the command that made it.
        for _ in range(50):
            shutil.rmtree(self.folder, ignore_errors=True)
            if not os.path.exists(self.folder):
                return
            time.sleep(0.1)

    def Prepare(self, left_out, say):
        self._SpacesTry()
        self._SourcesCopy()
        say("building the sound copy")
        self._Configure()
        self._Build()
        for copy in range(self.workers + 1):
            subprocess.run(["cp", "-a", self.tree, self.CopyOf(copy)], check=True)
        say("running its tests")
        self._Measure(left_out, say)

    def CopyOf(self, worker):
        return os.path.join(self.folder, str(worker))

    def _SpacesTry(self):
        for copy in (self.tree, self.CopyOf(0)):
            os.mkdir(copy)
        for spaces in (SPACES, ["unshare", "--map-root-user", *SPACES[1:]]):
            self.spaces = spaces
            if self.Run(0, ["true"], 30, self.tree).code == 0:
                os.rmdir(self.CopyOf(0))
                return
        raise CannotWork("no namespaces may be made here, and a fault must not run without")

    def _SourcesCopy(self):
        listed = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard"], cwd=self.root,
                                capture_output=True, text=True, check=True).stdout
        for file in listed.split("\0"):
            source = os.path.join(self.root, file)
            if file and os.path.isfile(source):
                target = os.path.join(self.tree, file)
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy2(source, target)

    def _Configure(self):
        """The dev build, without what makes it slow: debug information, programs linked again for a
        changed shared library, and tests that are asked for their names whenever they are built. A
        compiler cache, where there is one, helps with the sound copy and stays away from faults."""
        # Quick linkers do not see that one shared library needs another, so all are kept.
        linker = next((f"-fuse-ld={name} -Wl,--no-as-needed" for name in ("mold", "lld", "gold")
                       if shutil.which(f"ld.{name}")), "")
        cache = shutil.which("ccache") or ""
        result = self._Plain(["cmake", "--preset", "dev", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
                              "-DVORN_BUILD_BENCH=OFF",
                              "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=OFF",
                              f"-DVORN_BUILD_EXAMPLES={'OFF' if self.quick else 'ON'}",
                              f"-DCMAKE_CXX_COMPILER_LAUNCHER={cache}",
                              f"-DCMAKE_EXE_LINKER_FLAGS={linker}",
                              f"-DCMAKE_SHARED_LINKER_FLAGS={linker}",
                              "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                              "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"])
        if result.code != 0:
            raise CannotWork(f"cmake failed:\n{result.output}")

    def _Build(self):
        result = self._Plain(["ninja", "-C", self.build, "-j", str(os.cpu_count())])
        if result.code != 0:
            raise CannotWork(f"the sources do not build:\n{result.output[-5000:]}")

    def _Plain(self, command):
        """Runs what holds no fault, outside of the namespaces."""
        paths = {"CCACHE_BASEDIR": self.tree, "CCACHE_NOHASHDIR": "1"}
        return self._Ended(command, 4 * BUILD_SECONDS, self.tree, paths)

    def Run(self, worker, command, seconds, folder):
        """Runs `command` in namespaces of its own, on the worker's copy."""
        enter = [*self.spaces, "sh", "-c", ENTER, "sh", self.CopyOf(worker), self.tree, folder]
        return self._Ended([*enter, *command], seconds, "/")

    def _Ended(self, command, seconds, folder, variables=()):
        with tempfile.TemporaryFile(dir=self.folder) as output:
            with self.lock:
                if self.closed:
                    raise CannotWork("ended")
                process = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL,
                                           stdout=output, stderr=subprocess.STDOUT,
                                           env={**os.environ, **dict(variables)},
                                           start_new_session=True)
                self.running.add(process)
            try:
                code = process.wait(seconds)
            except subprocess.TimeoutExpired:
                code = None
            finally:
                ProcessEnd(process)
                with self.lock:
                    self.running.discard(process)
            if self.closed:
                raise CannotWork("ended")
            output.seek(max(0, output.seek(0, os.SEEK_END) - OUTPUT_LIMIT))
            return Outcome(code, output.read().decode(errors="replace"))

    def _Measure(self, left_out, say):
        """Lists the tests, and runs each but those left out once for its time. All must pass."""
        listed = self._Plain(["ctest", "--test-dir", self.build, "--show-only=json-v1"])
        tests = json.loads(listed.output[listed.output.index("{"):])["tests"]
        folders = self._SuiteFolders()
        for test in [test for test in tests
                     if test["name"] not in left_out and not HasOwnBuild(test)]:
            name, command = test["name"], test.get("command", [""])
            in_program = any(part.startswith("--gtest_filter=") for part in command)
            if self.quick and not in_program:
                continue
            suites = name.split(".")[0].split("/")
            near = set().union(*(folders.get(suite, ()) for suite in suites))
            self.tests.append(Test(name, command[0] if in_program else "", tuple(near), 0))
        for step in self._StepsOf(self.tests):
            result = self.TestsRun(self.sound,
                                   step._replace(milliseconds=UNKNOWN_MILLISECONDS))
            if result.failed is not None:
                raise CannotWork(f"{result.failed} fails without any fault; --without leaves it "
                                 f"out:\n{result.output[-5000:]}")
            self._ResultsTake(result, say)

    def _ResultsTake(self, result, say):
        output = result.output
        skipped = set(re.findall(r"^\[  SKIPPED \] (\S+) \(", output, re.M)) | \
            set(re.findall(r"(\S+) \.*\*\*\*Skipped", output))
        if skipped:
            say("tests that skip here and catch nothing: " + ", ".join(sorted(skipped)))
        times = dict(re.findall(r"\[       OK \] (\S+).*\((\d+) ms\)", output))
        times |= {name: float(seconds) * 1000 for name, seconds in re.findall(
            r"Test +#\d+: (\S+) .*?Passed +([\d.]+) sec", output)}
        self.tests = [test._replace(milliseconds=int(times.get(test.name, test.milliseconds)))
                      for test in self.tests]
        self._Distrust(result.chance, say)

    def _Distrust(self, names, say):
        if names:
            say("tests that fail by chance and are left out: " + ", ".join(names))
            self.tests = [test for test in self.tests if test.name not in names]

    def IsTrusted(self, name, say):
        """Whether the test passes as often without a fault as it just failed with one. It is left
        out from now on if not."""
        named = [test for test in self.tests if test.name == name]
        with self.sound_lock:
            for test in named * (1 + TRIES):
                step = Step(test.program, (name,), test.milliseconds)
                if self._TestsOnce(self.sound, step).code != 0:
                    self._Distrust([name], say)
                    return False
        return bool(named)

    def _SuiteFolders(self):
        folders = {}
        for path, _, files in os.walk(os.path.join(self.tree, "tests")):
            for file in files:
                if file.endswith((".cpp", ".h")):
                    with open(os.path.join(path, file), encoding="utf-8") as text:
                        for suite in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+)", text.read(), re.M):
                            folders.setdefault(suite, set()).add(os.path.basename(path))
        return folders

    def StepsFor(self, file):
        """The tests in the order in which they are most likely to see a fault in `file`: those of
        the folder of the same name, quick ones first, then the others, at last those that are no
        program of GoogleTest."""
        near = set(os.path.dirname(file).split("/"))
        return self._StepsOf(self.tests, lambda t: (
            not t.program, not near & set(t.folders), t.milliseconds > SLOW_MILLISECONDS))

    def _StepsOf(self, tests, rank=lambda t: not t.program):
        groups = {}
        for test in tests:
            groups.setdefault((rank(test), test.program), []).append(test)
        cost = {key: sum(t.milliseconds for t in group) for key, group in groups.items()}
        return [Step(key[1], tuple(t.name for t in groups[key]), cost[key])
                for key in sorted(groups, key=lambda k: (k[0], cost[k], k[1]))]

    def _CommandOf(self, step):
        if step.program:
            return [step.program, "--gtest_fail_fast", "--gtest_filter=" + ":".join(step.names)]
        chosen = "|".join(re.escape(name) for name in step.names)
        return ["ctest", "--test-dir", self.build, "--stop-on-failure", "--output-on-failure",
                "-R", f"^({chosen})$"]

    def _FolderOf(self, step):
        return os.path.dirname(step.program) if step.program else self.build

    def TestsRun(self, worker, step, distrusted=()):
        """Stops at the first failure. A failure counts when it happens again each time that the
        test runs alone, which is how the suite runs it."""
        step = StepWithout(step, distrusted)
        chance, output = [], ""
        while step.names:
            outcome = self._TestsOnce(worker, step)
            output = outcome.output
            if outcome.code == 0:
                break
            name = FailureOf(step, outcome.output)
            alone = self._Alone(step, name)
            again = self._TestsAgain(worker, alone)
            if again is not None:
                failed = name or os.path.basename(step.program)
                return TestsResult(failed, again.code is not None, chance, again.output)
            chance += alone.names
            step = StepWithout(step, alone.names)
        return TestsResult(None, True, chance, output)

    def _Alone(self, step, name):
        times = [test.milliseconds for test in self.tests if test.name == name]
        if name not in step.names or not times:
            return step
        return step._replace(names=(name,), milliseconds=times[0] or step.milliseconds)

    def _TestsOnce(self, worker, step):
        seconds = 10 + 5 * step.milliseconds / 1000
        outcome = self.Run(worker, self._CommandOf(step), seconds, self._FolderOf(step))
        if outcome.code == CANNOT_ENTER:
            raise CannotWork(f"no namespaces for a test: {outcome.output}")
        return outcome

    def _TestsAgain(self, worker, step):
        for _ in range(TRIES):
            outcome = self._TestsOnce(worker, step)
            if outcome.code is None:
                break
            if outcome.code == 0:
                return None
        return outcome

    def Libraries(self):
        return sorted(file for file in os.listdir(self.build) if file.endswith(".so"))

    def Make(self, worker, targets):
        jobs = max(1, os.cpu_count() // self.workers)
        command = ["ninja", "-C", self.build, "-j", str(jobs), *targets]
        return self.Run(worker, command, BUILD_SECONDS, self.tree)

    def TargetOf(self, program):
        return os.path.relpath(program, self.build)

    def Restore(self, worker):
        """Makes the worker's copy equal to the sound one, times of files included."""
        copy = self.CopyOf(worker)
        for path, folders, files in os.walk(copy):
            sound = os.path.join(self.tree, os.path.relpath(path, copy))
            for name in [f for f in folders if not os.path.isdir(os.path.join(sound, f))]:
                folders.remove(name)
                shutil.rmtree(os.path.join(path, name))
            for name in files:
                if not os.path.lexists(os.path.join(sound, name)):
                    os.unlink(os.path.join(path, name))
        for path, _, files in os.walk(self.tree):
            ours = os.path.join(copy, os.path.relpath(path, self.tree))
            os.makedirs(ours, exist_ok=True)
            for name in files:
                sound, mine = os.path.join(path, name), os.path.join(ours, name)
                if not os.path.lexists(mine) or MarkOf(sound) != MarkOf(mine):
                    if os.path.lexists(mine):
                        os.unlink(mine)
                    shutil.copy2(sound, mine, follow_symlinks=False)


def ProcessEnd(process):
    """Ends the process and its group; those of its namespace end with it."""
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def MarkOf(file):
    status = os.lstat(file)
    return status.st_size, status.st_mtime_ns


def StepWithout(step, names):
    return step._replace(names=tuple(name for name in step.names if name not in names))


def FailureOf(step, output):
    """The name of the test that failed, or in which the program ended."""
    if step.program:
        failed = re.findall(r"\[  FAILED  \] ([^\s,]+)", output) or \
            re.findall(r"\[ RUN      \] (\S+)", output)[-1:]
    else:
        failed = re.findall(r"^\s+\d+ - (\S+) \(", output, re.M)
    return failed[0] if failed else (step.names[0] if len(step.names) == 1 else "")
