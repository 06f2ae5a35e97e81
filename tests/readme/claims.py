#!/usr/bin/env python3
"""Compares what the README claims of the libraries with the libraries that were built.

Usage: claims.py SOURCES LIBVORNUTILS LIBVORNPLATFORM

Each claim is quoted from the page: a sentence that is changed or gone fails as well as one that is false.
What needs a program to show it is in the page's own programs and in the tests of the units.
"""
import pathlib
import re
import subprocess
import sys

SOURCES, UTILS, PLATFORM = (pathlib.Path(argument) for argument in sys.argv[1:4])
# Of the system's libraries: what starts a thread or process, throws, or ends the process. That of a
# hardened build ends it when memory is damaged already, and is meant to.
STARTS = {"pthread_create", "thrd_create", "fork", "vfork", "clone", "posix_spawn", "system", "popen"}
THROWS = {"__cxa_throw", "__cxa_rethrow", "__cxa_allocate_exception"}
ENDS = {"exit", "_exit", "_Exit", "quick_exit", "abort", "kill", "raise", "__assert_fail"}
SYSTEM = re.compile(r"lib(stdc\+\+|c\+\+|c\+\+abi|gcc_s|m|c|pthread)\.so|ld-linux|ld64|ld-musl")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def undefined(library):
    return {line.split()[-1].split("@")[0] for line in output_of("nm", "-D", "--undefined-only", library).splitlines()}


def needed(library):
    return re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-d", library))


def header(name, text):
    return text in (SOURCES / "src" / name).read_text(encoding="utf-8")


def source_has(name, text):
    return re.search(text, (SOURCES / name).read_text(encoding="utf-8")) is not None


def terminations():
    """Calls of std::terminate that the sources make. One compiler makes a helper with such a call, for
    an exception that leaves a destructor; the other leaves that to the unwinder."""
    made_by_compiler = "__clang_call_terminate" in output_of("nm", UTILS)
    return set() if made_by_compiler else {"_ZSt9terminatev"}


def layer_calls():
    """The operations of the lower layer that the library calls: none of the system's is among them."""
    return {name for name in undefined(UTILS) if re.match(r"_Z(N|TI|TV)?\d*(Kel|VornCDR|\d+(HT|Deque))", name)}


CLAIMS = [
    ("It starts no thread, throws nothing and never ends the process.",
     lambda: not undefined(UTILS) & (STARTS | THROWS | ENDS | terminations())),
    ("`libvornutils.so` calls the lower layer only through the headers in `src/platform`, and names no library "
     "to get it from.",
     lambda: layer_calls() and all(SYSTEM.match(name) for name in needed(UTILS))),
    ("Link `libvornplatform.so` next to it",
     lambda: all(SYSTEM.match(name) for name in needed(PLATFORM))
     and layer_calls() <= {line.split()[-1].split("@")[0] for line in
                           output_of("nm", "-D", "--defined-only", PLATFORM).splitlines()}),
    ("At most 32 interfaces are seen.", lambda: header("net/VORNNICProperties.h", "VORN_NIC_CAPACITY = 32;")),
    ("Windows hold 256 sequence numbers", lambda: header("reliability/VORNBitmap.h", "CAPACITY = 256;")),
    ("an endpoint on a descriptor of 1024 or above refuses to wait",
     lambda: source_has("src/net/VORNDGram.cpp", "FD_SETSIZE")),
    ("The clock of `libvornplatform.so` [wraps](docs/architecture.md#the-seam) next in February 2036",
     lambda: source_has("src/platform/linux/KelNtpTime.cpp", r"ROLLOVER_SECONDS = .*\{1\} << 30;")
     and 2036 <= wrap_year() < 2036 + 2 / 12),
    ("corrected readings stay positive for 34 years of one process", lambda: 34 <= 2 ** 30 / 31556952 < 35),
]


def wrap_year():
    """The years since 1900 are 365.2425 days long; 2^32 seconds are a multiple of 2^30."""
    return 1900 + 2 ** 32 / 31556952


def main():
    page = " ".join((SOURCES / "README.md").read_text(encoding="utf-8").split())
    faults = 0
    for claim, check in CLAIMS:
        if claim not in page:
            print("README.md does not say any more:", claim)
            faults += 1
        elif not check():
            print("README.md says what is not so:", claim)
            faults += 1
    print("%d claims, %d faults" % (len(CLAIMS), faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
