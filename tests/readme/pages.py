#!/usr/bin/env python3
"""Runs the command lines of a page as they are printed, and compares what they print.

Usage: pages.py PAGE --sources DIR [--build DIR] [--programs FILE ...]

PAGE is a Markdown page or a man page. Everything runs in namespaces of its own (users, network, IPC,
processes, host name), in an empty folder, with the named programs on PATH. Without such namespaces the
test says so and ends with 77.

In a Markdown page
- a block marked `sh` is run. Where lines begin with "$ ", these are the commands, and the lines after
  one are what it prints: "..." stands for any text, alone in a line for any lines, and a run of blanks
  for any other. Otherwise each line is a command;
- a block with a file's name, "```cpp ticks.cpp", is that file. If it is there already, the block is a
  part of it;
- a command in the text, `like this`, that no block has run is run in the end, beside the queue of
  a logger and a host list. A program of ours must know what is asked for; others must succeed.

In a man page the lines of EXAMPLES that are set in bold are commands.

Comments of the page prepare and describe: <!-- run: COMMAND -->, in a man page .\" run: COMMAND
- run: COMMAND         runs it; it must succeed. scenes.sh has functions for it
- fresh                goes on in new namespaces and a new folder
- exit: N ...          exit codes of the commands of the next block, otherwise 0
- numbers vary         in the next block, decimal numbers stand for others
- stop after: SECONDS  interrupts each command of the next block
- said                 the next block, of no commands, has lines that the last command printed

Commands that cannot run in a test stand in not_run.txt with the reason, and are told as skipped.
"""
import argparse
import os
import pathlib
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
OWN = ["--uts", "--ipc", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]
OURS = ("vorndiag", "logger", "sensor", "filecast", "minimal")
OTHERS = ("apt", "apt-get", "cmake", "ctest", "git", "ip", "ipcrm", "ipcs", "kill", "ls", "man", "nm", "ps",
          "ss", "sysctl", "systemctl", "systemd-analyze", "ulimit", "unshare")
COMMAND_LIMIT = 10  # seconds; a page may ask for more with --limit
INLINE_LIMIT = 0.8


class Step:
    """A command, with what it must print; or a file, or lines that must have been printed."""

    def __init__(self, line, kind, text, expected="", code=0, loose=False, stop=None, name=None):
        self.line, self.kind, self.text, self.expected = line, kind, text, expected
        self.code, self.loose, self.stop, self.name = code, loose, stop, name


def comments_of(text):
    """The orders in a comment: name and argument of each."""
    for order in text.split("\n"):
        name, _, argument = order.strip().partition(":")
        if name.strip() in ("run", "fresh", "exit", "numbers vary", "stop after", "said"):
            yield name.strip(), argument.strip()
        elif order.strip():
            raise SystemExit("unknown order in a comment: " + order)


def block_steps(start, lines, orders):
    """The commands of an sh block."""
    codes = [int(code) for code in orders.get("exit", "").split()]
    session = any(line.startswith("$ ") for line in lines)
    steps = []
    for number, line in enumerate(lines, start + 1):
        if session and not line.startswith("$ "):
            if not steps:
                raise SystemExit("line %d: text before the first command" % number)
            steps[-1].expected += line + "\n"
        elif line.strip() and not line.startswith("#"):
            if steps and not session and steps[-1].text.endswith("\\"):
                steps[-1].text = steps[-1].text[:-1] + line
            else:
                steps.append(Step(number, "command", line[2:] if session else line,
                                  loose="numbers vary" in orders,
                                  stop=float(orders["stop after"]) if "stop after" in orders else None))
    for step, code in zip(steps, codes):
        step.code = code
    return steps


def fence_steps(number, words, lines, orders):
    if "said" in orders:
        return [Step(number, "said", "\n".join(lines), loose="numbers vary" in orders)]
    if words[:1] == ["sh"]:
        return block_steps(number, lines, orders)
    if len(words) == 2 and "." in words[1]:
        return [Step(number, "file", "\n".join(lines) + "\n", name=words[1])]
    return []


def is_command(span):
    words = span.split()
    return words[0].startswith("scripts/") or (len(words) > 1 and words[0] in OURS + OTHERS)


def markdown_steps(text):
    """What a page has to be run, and the commands in its text with their lines."""
    steps, inline, orders, lines = [], [], {}, text.split("\n")
    at = 0
    while at < len(lines):
        line = lines[at]
        if line.startswith("<!--"):
            end = next(i for i in range(at, len(lines)) if "-->" in lines[i])
            comment = "\n".join(lines[at:end + 1])
            for name, argument in comments_of(comment.removeprefix("<!--").removesuffix("-->")):
                if name in ("run", "fresh"):
                    steps.append(Step(at + 1, name, argument))
                else:
                    orders[name] = argument
            at = end
        elif line.startswith("```"):
            end = next(i for i in range(at + 1, len(lines)) if lines[i].startswith("```"))
            words, body = line[3:].split(), lines[at + 1:end]
            if words[:1] != ["sh"] and any(row.startswith("$ ") for row in body):
                raise SystemExit("line %d: a command outside a block marked sh" % (at + 1))
            steps += fence_steps(at + 1, words, body, orders)
            orders, at = {}, end
        elif line.startswith("    ") and not line.startswith("     ") and "$ " in line[:6]:
            raise SystemExit("line %d: a command outside a block marked sh" % (at + 1))
        else:
            inline += [(at + 1, span) for span in re.findall(r"`([^`]+)`", line) if is_command(span)]
        at += 1
    return steps, inline


def man_steps(text):
    """The examples of a man page."""
    steps, orders = [], {}
    for number, line in enumerate(text.split("\n"), 1):
        if line.startswith('.\\" '):
            for name, argument in comments_of(line[4:]):
                if name in ("run", "fresh"):
                    steps.append(Step(number, name, argument))
                else:
                    orders[name] = argument
        elif line.startswith(".SH"):
            section = line[3:].strip()
        elif line.startswith(".B ") and section == "EXAMPLES":
            steps += block_steps(number - 1, [line[3:].replace("\\-", "-")], orders)
            orders = {}
    return steps, []


def page_read(page):
    text = page.read_text(encoding="utf-8")
    return markdown_steps(text) if page.suffix == ".md" else man_steps(text)


def pattern_of(expected, loose):
    """What is printed must match this whole."""
    parts = []
    for line in filter(str.strip, expected.split("\n")):
        if line.strip() == "...":
            parts.append(r"(?:[^\n]*\n)*?")
            continue
        row = r"\s+".join(re.escape(word).replace(r"\.\.\.", ".*") for word in line.split())
        if loose:
            row = re.sub(r"(?<![0-9A-Za-z])\d+(?!x)", r"\\d+", row)
        parts.append(r"\s*" + row + r"\s*\n")
    return "".join(parts)


def printed_match(step, printed):
    if not step.expected.strip():
        return True
    rows = "".join(row + "\n" for row in printed.split("\n") if row.strip())
    return re.fullmatch(pattern_of(step.expected, step.loose), rows) is not None


class Session:
    """A shell in namespaces of its own, which is given one command after the other."""

    def __init__(self, unshare, environment, programs):
        self.folder = tempfile.mkdtemp(prefix="page-")
        os.mkdir(self.folder + "/programs")
        os.mkdir(self.folder + "/work")
        for program in programs:
            os.symlink(os.path.abspath(program), "%s/programs/%s" % (self.folder, os.path.basename(program)))
        self.output = self.folder + "/output"
        path = "%s/programs:%s" % (self.folder, os.environ["PATH"])
        self.shell = subprocess.Popen(
            [*unshare, "bash", "--noprofile", "--norc", "-s"], cwd=self.folder + "/work", text=True,
            env={**os.environ, **environment, "PATH": path, "FOLDER": self.folder, "LC_ALL": "C.UTF-8"},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.run(". %s/scenes.sh" % HERE, COMMAND_LIMIT)

    def run(self, command, limit):
        """The exit code, None if it does not end in time, and what was printed."""
        self.shell.stdin.write("{ %s\n} </dev/null >%s 2>&1\necho $?\n" % (command, self.output))
        self.shell.stdin.flush()
        ready, _, _ = select.select([self.shell.stdout], [], [], limit)
        code = self.shell.stdout.readline().strip() if ready else ""
        with open(self.output, encoding="utf-8", errors="replace") as printed:
            return (int(code) if code else None), printed.read()

    def close(self):
        self.shell.kill()  # and with it all that is left in its process namespace
        self.shell.wait()
        for _ in range(20):  # what is being killed may still write
            shutil.rmtree(self.folder, ignore_errors=True)
            if not os.path.exists(self.folder):
                break
            time.sleep(0.1)


def unshare_find():
    """How namespaces are made here; None where they are not."""
    for way in (["unshare", *OWN], ["unshare", "--map-root-user", *OWN]):
        if subprocess.run([*way, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
            return way
    return None


def not_run_read():
    """The commands that are not run, with the reason."""
    with open(HERE / "not_run.txt", encoding="utf-8") as text:
        rows = [row.rstrip("\n").rsplit("  # ", 1) for row in text if row.strip() and not row.startswith("#")]
    return {command.strip(): reason for command, reason in rows}


class Runner:
    def __init__(self, options, unshare):
        self.options, self.unshare = options, unshare
        self.environment = {"SOURCES": str(options.sources.resolve()), "BUILD": str(options.build.resolve())}
        self.not_run = not_run_read()
        self.faults, self.count, self.ran, self.printed = 0, 0, set(), ""
        self.session = self.session_begin()

    def session_begin(self):
        return Session(self.unshare, self.environment, self.options.programs)

    def fault(self, line, what, printed=""):
        self.faults += 1
        print("%s:%d: %s" % (self.options.page.name, line, what))
        print(*("  | " + row for row in printed.split("\n") if row.strip()), sep="\n")

    def skipped(self, line, command):
        reason = self.not_run.get(command)
        if reason:
            print("skipped: %s:%d: %s: %s" % (self.options.page.name, line, command, reason))
        return reason is not None

    def command(self, step):
        """Runs a command of a block, or one that prepares (kind "run")."""
        if step.kind == "command":
            self.ran.add(step.text)
            if self.skipped(step.line, step.text):
                return
            self.count += 1
        text = step.text
        if step.stop is not None:
            text = "timeout -s INT --preserve-status %g %s" % (step.stop, text)
        code, self.printed = self.session.run(text, self.options.limit)
        if code is None:
            self.fault(step.line, "`%s` did not end in time" % step.text, self.printed)
            self.session.close()
            self.session = self.session_begin()
        elif code != step.code:
            self.fault(step.line, "`%s` ended with %d, not %d" % (step.text, code, step.code), self.printed)
        elif not printed_match(step, self.printed):
            self.fault(step.line, "`%s` printed something else" % step.text, self.printed)

    def file(self, step):
        file = pathlib.Path(self.session.run("pwd", COMMAND_LIMIT)[1].strip()) / step.name
        if not file.exists():
            file.write_text(step.text, encoding="utf-8")
        elif step.text not in file.read_text(encoding="utf-8"):
            self.fault(step.line, "the block is no part of " + step.name)

    def step(self, step):
        if step.kind == "fresh":
            self.session.close()
            self.session = self.session_begin()
        elif step.kind == "file":
            self.file(step)
        elif step.kind == "said":
            for row in step.text.split("\n"):
                if re.search("^" + pattern_of(row, step.loose), self.printed, re.M) is None:
                    self.fault(step.line, "not said: " + row, self.printed)
        else:
            self.command(step)

    def inline(self, line, command):
        """A command in the text. Those that do not end are interrupted."""
        if command in self.ran or self.skipped(line, command):
            return
        self.ran.add(command)
        self.count += 1
        self.command(Step(line, "run", "inline_scene"))
        ours = command.split()[0] in OURS
        text = "timeout -s INT --preserve-status %g %s" % (INLINE_LIMIT, command) if ours else command
        code, printed = self.session.run(text, COMMAND_LIMIT)
        if code == 127 and command.split()[0] in OTHERS:
            print("skipped: %s:%d: %s: it is not installed here" % (self.options.page.name, line, command))
        elif code is None or code not in ((0, 1, 3, 4, 130) if ours else (0,)):
            self.fault(line, "`%s` ended with %s" % (command, code), printed)

    def page(self):
        steps, inline = page_read(self.options.page)
        for step in steps:
            self.step(step)
        if inline:
            self.step(Step(0, "fresh", ""))
        for line, command in inline:
            self.inline(line, command)
        self.session.close()


def stale_check(sources):
    """Entries of not_run.txt that no page has."""
    printed = set()
    for page in [sources / "README.md", *sources.glob("docs/*.md"), *sources.glob("docs/man/*.1")]:
        if page.suffix != ".md" or "```sh" in page.read_text(encoding="utf-8"):
            steps, inline = page_read(page)
            printed |= {step.text for step in steps} | {command for _, command in inline}
    return ["not_run.txt: no page has `%s`" % command for command in not_run_read() if command not in printed]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("--sources", type=pathlib.Path, required=True)
    parser.add_argument("--build", type=pathlib.Path, default="")
    parser.add_argument("--limit", type=float, default=COMMAND_LIMIT, help="seconds for one command")
    parser.add_argument("--programs", nargs="*", default=[])
    options = parser.parse_args()
    unshare = unshare_find()
    if unshare is None:
        print("skipped: no namespaces of its own")
        return 77
    begin = time.monotonic()
    runner = Runner(options, unshare)
    try:
        runner.page()
    finally:
        runner.session.close()
    faults = stale_check(options.sources)
    print(*faults, sep="\n", end="\n" if faults else "")
    print("%s: %d commands run in %.0f s, %d faults" % (
        options.page.name, runner.count, time.monotonic() - begin, runner.faults + len(faults)))
    if runner.count == 0:
        print("no command was found")
    return 1 if runner.faults or faults or runner.count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
