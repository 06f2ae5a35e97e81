"""See `scripts/mutate --help` and docs/testing.md."""

import argparse
import functools
import os
import random
import re
import shlex
import signal
import subprocess
import sys
import threading
import time
from collections import Counter
from typing import NamedTuple

import faults
import scratch

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EQUIVALENT_LIST = "tests/equivalent_faults.txt"

BUILD, TESTS, TIME, SURVIVED, LISTED, REDRAWN = (
    "by build", "by tests", "timed out", "survived", "listed", "redrawn")
COUNTED = (BUILD, TESTS, TIME, SURVIVED, LISTED)

HELP = f"""
Plants one fault at a time in a scratch copy of the sources, builds, runs the tests and prints the
faults that no test saw. The checkout is not touched, and the copy runs in namespaces of its own.
Faults are spread evenly over the folders of src/, or over those named. They are the same ones for
the same seed and sources. A fault that the compiler refuses does not count, and another is drawn.
Those listed in {EQUIVALENT_LIST}, which no caller can see, are not run.
"""
NOTES = """
columns of the totals:
  by build   a static assertion, or a test that no longer compiles
  by tests   a test failed, failed twice more on its own, and passes without the fault
  timed out  a test did not end in 5 times its time and 10 s more
  listed     counted as planted, known to be equivalent, not run
  redrawn    refused by the compiler, not counted

The exit code is 0 however many survive, and 1 when this could not work.
"""


class Verdict(NamedTuple):
    result: str
    by: str = ""


class Planted(NamedTuple):
    """A fault on its way: where it counts, what it changes, how it is planted."""
    file: str
    folder: str
    kind: str
    line: int
    was: tuple
    now: tuple
    plant: object  # called with the folder of the copy
    patch: str = ""  # the name of a file that it was read from

    def Text(self):
        return "\n".join([f"{self.file}:{self.line} ({self.kind})"] +
                         [f"- {line}" for line in self.was] + [f"+ {line}" for line in self.now])


class Draw:
    """Hands out faults, folder by folder, until enough of them have been judged."""

    def __init__(self, piles, count):
        self.piles = piles
        self.wanted = {folder: count // len(piles) + (i < count % len(piles))
                       for i, folder in enumerate(piles)}
        self.taken = dict.fromkeys(piles, 0)
        self.going = 0
        self.change = threading.Condition()

    def Next(self):
        """None: no more are needed. Which are drawn does not depend on who is quick: a fault is
        taken only when it is needed whatever becomes of those that are on their way."""
        with self.change:
            while True:
                open_ = [f for f in self.piles if self.taken[f] < self.wanted[f]]
                for folder in sorted(open_, key=lambda f: self.taken[f]):
                    fault = next(self.piles[folder], None)
                    if fault is not None:
                        self.taken[folder] += 1
                        self.going += 1
                        return fault
                    self.wanted[folder] = 0
                if self.going == 0:
                    return None
                self.change.wait()

    def Judged(self, fault, counts):
        with self.change:
            self.going -= 1
            self.taken[fault.folder] -= not counts
            self.change.notify_all()


def Main():
    options = OptionsRead()
    os.chdir(ROOT)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, Interrupt)
    copy = None
    try:
        listed = EquivalentsRead()
        draw = Draw(*(PatchesRead(options.patch) if options.patch else FaultsDrawn(options)))
        if options.list:
            for fault in draw.piles.values():
                print("\n\n".join(f.Text() for f in fault))
            return 0
        copy = scratch.Scratch(ROOT, options.scratch, options.jobs, options.quick)
        count = sum(draw.wanted.values())
        Say(f"seed {options.seed}, {count} faults, scratch copy in {copy.folder}")
        started = time.monotonic()
        copy.Prepare(options.without, Say)
        Say(f"ready after {time.monotonic() - started:.0f} s")
        started = time.monotonic()
        verdicts = FaultsTry(copy, draw, listed, options.jobs)
        Report(verdicts, options, time.monotonic() - started)
        return 0
    except (scratch.CannotWork, OSError, subprocess.CalledProcessError) as problem:
        Say(str(problem))
        return 1
    finally:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        if copy is not None:
            copy.Close()


def Interrupt(number, _frame):
    Say(f"ended by {signal.Signals(number).name}")
    raise SystemExit(128 + number)


def Say(text):
    print(f"scripts/mutate: {text}", file=sys.stderr, flush=True)


def OptionsRead():
    parser = argparse.ArgumentParser(
        prog="scripts/mutate", description=HELP, epilog=NOTES,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folders", nargs="*", metavar="FOLDER",
                        help="where to plant: a folder of src/ (net) or a path (examples/filecast)")
    parser.add_argument("--count", type=int, default=60, metavar="N", help="faults, 60 by default")
    parser.add_argument("--seed", type=int, metavar="S", help="repeats a run; else one is chosen")
    parser.add_argument("--jobs", type=int, default=2, metavar="N",
                        help="faults tried at the same time, 2 by default")
    parser.add_argument("--survivors", metavar="DIRECTORY",
                        help="also writes each survivor as a patch into this directory")
    parser.add_argument("--patch", nargs="+", metavar="FILE", default=[],
                        help="tries these patches (as git diff writes them) instead of drawing")
    parser.add_argument("--without", nargs="+", metavar="TEST", default=[],
                        help="leaves these tests out, which fail without any fault")
    parser.add_argument("--quick", action="store_true",
                        help="leaves out the programs, their tests and those that are scripts: what "
                        "only they see counts as a survivor")
    parser.add_argument("--list", action="store_true",
                        help="prints all faults that could be drawn, and tries none")
    parser.add_argument("--scratch", default="/var/tmp", metavar="DIRECTORY",
                        help="where the scratch copy is made, not below /tmp; /var/tmp by default")
    options = parser.parse_args()
    if options.count < 1 or options.jobs < 1:
        parser.error("--count and --jobs are at least 1")
    options.scratch = os.path.abspath(options.scratch)
    options.survivors = options.survivors and os.path.abspath(options.survivors)
    options.patch = [os.path.abspath(file) for file in options.patch]
    if options.seed is None:
        options.seed = random.randrange(1, 10000)
    return options


def SourcesOf(folder):
    listed = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard", "--", folder],
                            capture_output=True, text=True, check=True).stdout
    return sorted(f for f in listed.split("\0") if f.endswith((".h", ".cpp")) and os.path.isfile(f))


def TextOf(file):
    with open(file, encoding="utf-8") as stream:
        return stream.read()


def FaultsDrawn(options):
    folders = [f if os.path.isdir(f) else os.path.join("src", f) for f in options.folders] or \
        sorted({"/".join(f.split("/")[:2]) for f in SourcesOf("src")})
    piles = {}
    for folder in dict.fromkeys(os.path.normpath(f) for f in folders):
        texts = {file: TextOf(file) for file in SourcesOf(folder)}
        if not texts:
            raise scratch.CannotWork(f"no sources in {folder}")
        known = [TextOf(file) for file in SourcesOf("src")] + list(texts.values())
        families = faults.EnumeratorsOf(dict.fromkeys(known)) + faults.SYSTEM_OPTIONS
        found = [fault for file, text in texts.items()
                 for fault in faults.FaultsOf(file, text, families, options.seed)]
        drawn = faults.FaultsShuffled(found, f"{options.seed} {folder}")
        piles[folder] = map(functools.partial(PlantedOf, folder, texts), drawn)
    return piles, options.count


def PlantedOf(folder, texts, fault):
    text = texts[fault.file]

    def Plant(copy):
        with open(os.path.join(copy, fault.file), "w", encoding="utf-8") as stream:
            stream.write(fault.planted(text))
    return Planted(fault.file, folder, fault.kind, fault.line(text), *fault.change(text), Plant)


def PatchesRead(files):
    # Copies take minutes to build, so what does not fit the sources is refused before.
    refused = [file for file in files if subprocess.run(
        ["git", "apply", "--check", "--recount", file], capture_output=True, check=False).returncode]
    if refused:
        raise scratch.CannotWork("cannot be applied: " + " ".join(refused))
    return {"patches": (PatchRead(file) for file in files)}, len(files)


def PatchRead(file):
    text = TextOf(file)
    targets = re.findall(r"^\+\+\+ b/(\S+)", text, re.M)
    if not targets:
        raise scratch.CannotWork(f"{file} is no patch")
    # git counts upwards from the first line of the first hunk; the changed line comes later.
    first = int(re.search(r"^@@ -(\d+)", text, re.M)[1])
    body = text[text.index("\n", text.index("@@ ")) + 1:].splitlines()
    first += next((i for i, line in enumerate(body) if line[:1] in "+-"), 0)
    was, now = (tuple(line[1:].strip() for line in text.splitlines()
                      if line.startswith(sign) and not line.startswith(sign * 3)) for sign in "-+")

    def Plant(copy):
        variables = {**os.environ, "GIT_CEILING_DIRECTORIES": os.path.dirname(copy)}
        result = subprocess.run(["git", "apply", "--recount", file], cwd=copy, env=variables,
                                capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise scratch.CannotWork(f"{file} cannot be applied: {result.stderr}")
    name = os.path.splitext(os.path.basename(file))[0]
    return Planted(targets[0], "patches", "by hand", first, was, now, Plant, name)


def EquivalentsRead():
    """The listed faults as (file, old lines, new lines). An entry that fits nothing any more is
    reported: it would hide a fault of that look that comes back."""
    listed = set()
    for block in re.split(r"\n\s*\n", TextOf(EQUIVALENT_LIST)):
        lines = [line for line in block.splitlines() if line.strip() and not line.startswith("#")]
        if not lines:
            continue
        file = re.split(r"[:\s]", lines[0])[0]
        was, now = (tuple(line[1:].strip() for line in lines[1:] if line.startswith(sign))
                    for sign in "-+")
        there = os.path.isfile(file) and {line.strip() for line in TextOf(file).splitlines()}
        if not there or not set(was) <= there:
            Say(f"{EQUIVALENT_LIST}: no such line any more: {file}: {' '.join(was)}")
        if not [line for line in lines[1:] if line[0] not in "+-"]:
            raise scratch.CannotWork(f"{EQUIVALENT_LIST}: no reason given: {' '.join(lines)}")
        listed.add((file, was, now))
    return listed


def FaultsTry(copy, draw, listed, jobs):
    verdicts, problems, lock = [], [], threading.Lock()

    def Work(worker):
        try:
            while not problems and (fault := draw.Next()) is not None:
                if (fault.file, fault.was, fault.now) in listed:
                    verdict = Verdict(LISTED)
                else:
                    verdict = FaultTry(copy, worker, fault)
                with lock:
                    verdicts.append((fault, verdict))
                    ProgressPrint(fault, verdict)
                draw.Judged(fault, verdict.result != REDRAWN)
        except Exception as problem:  # whatever it is, the others must not wait for this one
            problems.append(problem)
            with draw.change:
                draw.piles, draw.going = {}, 0
                draw.change.notify_all()

    workers = [threading.Thread(target=Work, args=(i,), daemon=True) for i in range(jobs)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    if problems:
        raise problems[0]
    return verdicts


def ProgressPrint(fault, verdict):
    by = f" {verdict.by}" if verdict.by else ""
    print(f"{verdict.result}{by}: {fault.file}:{fault.line} {fault.patch or fault.kind}", flush=True)


def FaultTry(copy, worker, fault):
    try:
        fault.plant(copy.CopyOf(worker))
        return FaultJudge(copy, worker, fault)
    finally:
        if not copy.closed:
            copy.Restore(worker)


def FaultJudge(copy, worker, fault):
    made = copy.Make(worker, copy.Libraries())
    if made.code != 0:
        return RefusalJudge(made.output)
    chance = []
    for step in copy.StepsFor(fault.file):
        made = copy.Make(worker, [copy.TargetOf(step.program)] if step.program else [])
        if made.code != 0:
            failed = re.search(r"^FAILED: (?:\[[^]]*\] )?(\S+)", made.output, re.M)
            # What uses the faulty part and cannot be built any more has seen the fault.
            if failed and failed[1].split("/")[0] != fault.file.split("/")[0]:
                return Verdict(BUILD, failed[1])
            return RefusalJudge(made.output)
        while (run := copy.TestsRun(worker, step, chance)).failed is not None:
            if run.failed not in step.names or copy.IsTrusted(run.failed, Say):
                return Verdict(TESTS if run.in_time else TIME, run.failed)
            chance.append(run.failed)
        chance += run.chance
    return Verdict(SURVIVED, f"(failed by chance: {', '.join(chance)})" if chance else "")


def RefusalJudge(output):
    if "error: static assertion failed" in output:
        return Verdict(BUILD, "static assertion")
    return Verdict(REDRAWN)


def Report(verdicts, options, seconds):
    survivors = [fault for fault, verdict in verdicts if verdict.result == SURVIVED]
    print("\nSurvivors\n")
    print("\n\n".join(f.Text() for f in survivors) or "none")
    if options.survivors:
        PatchesWrite(survivors, options.survivors)
    for title, group in (("folder", lambda f: f.folder), ("kind", lambda f: f.kind)):
        TotalsPrint(title, [(group(fault), verdict.result) for fault, verdict in verdicts])
    results = Counter(verdict.result for _, verdict in verdicts)
    tried = max(1, sum(results[c] for c in COUNTED if c != LISTED))
    print(f"\nSurvived: {len(survivors)} of {tried} ({100 * len(survivors) / tried:.1f} %); "
          f"listed as equivalent: {results[LISTED]}; seed {options.seed}")
    print(f"{seconds:.0f} s, {seconds / tried:.1f} s for each fault with {options.jobs} at the same "
          "time")
    Say(f"repeat with scripts/mutate {shlex.join(Arguments(options))}")


def Arguments(options):
    if options.patch:
        return ["--patch", *options.patch]
    return ["--count", str(options.count), "--seed", str(options.seed), *options.folders]


def TotalsPrint(title, rows):
    names = sorted({name for name, _ in rows})
    width = max([len(title)] + [len(name) for name in names])
    print(f"\n{title:<{width}}  planted" + "".join(f"{c:>11}" for c in (*COUNTED, REDRAWN)))
    for name in names + ["all"]:
        results = Counter(result for row, result in rows if name in (row, "all"))
        planted = sum(results[c] for c in COUNTED)
        print(f"{name:<{width}}  {planted:>7}" +
              "".join(f"{results[c]:>11}" for c in (*COUNTED, REDRAWN)))


def PatchesWrite(survivors, folder):
    """As `git diff` would write them, so that --patch and `git apply` can read them."""
    os.makedirs(folder, exist_ok=True)
    for fault in survivors:
        name = f"{fault.file.replace('/', '_')}_{fault.line}_{fault.kind}"
        number = len([f for f in os.listdir(folder) if f.startswith(name)])
        with open(os.path.join(folder, f"{name}_{number}.patch"), "w", encoding="utf-8") as stream:
            stream.write(PatchOf(fault))


def PatchOf(fault):
    with scratch.tempfile.TemporaryDirectory() as folder:
        for side in "ab":
            target = os.path.join(folder, side, fault.file)
            os.makedirs(os.path.dirname(target))
            with open(target, "w", encoding="utf-8") as stream:
                stream.write(TextOf(fault.file))
        fault.plant(os.path.join(folder, "b"))
        return subprocess.run(["diff", "-u", f"a/{fault.file}", f"b/{fault.file}"], cwd=folder,
                              capture_output=True, text=True, check=False).stdout


if __name__ == "__main__":
    sys.exit(Main())
