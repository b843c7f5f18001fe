#!/usr/bin/env python3
"""A mutation sample of src/: how many small faults does the suite catch?

Draws N mutants with a fixed seed, a source file chosen in proportion to its
lines and then a line in it; applies each alone, rebuilds incrementally and
runs ctest with --stop-on-failure. A mutant that does not build is drawn again
(the failed draw still consumes the generator, so one seed on one tree always
gives the same mutants). The same seed on an unchanged src/ therefore tests
the same faults against another suite: that is how two suites are compared.

Prints one line per mutant, every survivor again at the end, then
"summary: killed=K total=N".
"""
import glob
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.environ.get("BUILD_DIR", "build")
# A mutant that hangs a test is caught by the time-out: that counts as killed.
TEST_TIMEOUT = os.environ.get("MUTANT_TEST_TIMEOUT", "240")
# Test binaries mostly wait on servers and displays, so several at once
# shorten a run even on two cores.
JOBS = os.environ.get("MUTANT_JOBS", "3")

COMPARISON_SWAPS = [(" == ", " != "), (" != ", " == "), (" <= ", " > "),
                    (" >= ", " < "), (" < ", " >= "), (" > ", " <= "),
                    (" && ", " || "), (" || ", " && ")]


def code_lines(path):
    """Indexes of lines that hold code (not blank, not comment, not a
    preprocessor line)."""
    out, in_block = [], False
    with open(path, encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    for i, line in enumerate(lines):
        s = line.strip()
        if in_block:
            if "*/" in s:
                in_block = False
            continue
        if s.startswith("/*"):
            in_block = "*/" not in s
            continue
        if not s or s.startswith("//") or s.startswith("#"):
            continue
        out.append(i)
    return lines, out


def strip_literals(line):
    """The line with string and char literals blanked, so operators inside
    texts are not mutated."""
    return re.sub(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'',
                  lambda m: " " * len(m.group(0)), line)


def matching_paren(text, open_at):
    depth = 0
    for i in range(open_at, len(text)):
        if text[i] == "(":
            depth += 1
        elif text[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def candidates(line):
    """Every mutant of one line, as (description, new line)."""
    bare = strip_literals(line)
    code = bare.split("//")[0]
    out = []
    for old, new in COMPARISON_SWAPS:
        for m in re.finditer(re.escape(old), code):
            # "a < b" in a template argument list is not a comparison.
            if old.strip() in "<>" and re.search(r"\w<|>\w", code):
                continue
            at = m.start()
            out.append((f"'{old.strip()}' -> '{new.strip()}'",
                        line[:at] + new + line[at + len(old):]))
    for m in re.finditer(r" ([+-]) 1\b", code):
        out.append((f"'{m.group(0).strip()}' dropped",
                    line[:m.start()] + line[m.end():]))
    for m in re.finditer(r"\b(if|while) \(", code):
        open_at = m.end() - 1
        close = matching_paren(code, open_at)
        if close > 0:
            out.append((f"{m.group(1)} condition negated",
                        line[:open_at] + "(!" + line[open_at:close + 1] + ")"
                        + line[close + 1:]))
    for m in re.finditer(r"(?<![\w.])(\d+)(?![\w.])", code):
        value = int(m.group(1))
        new = 1 if value == 0 else (0 if value == 1 else value + 1)
        out.append((f"constant {value} -> {new}",
                    line[:m.start()] + str(new) + line[m.end():]))
        out.append((f"'+ 1' added to {value}",
                    line[:m.end()] + " + 1" + line[m.end():]))
    for word, other in (("true", "false"), ("false", "true")):
        for m in re.finditer(rf"\b{word}\b", code):
            out.append((f"{word} -> {other}",
                        line[:m.start()] + other + line[m.end():]))
    s = code.strip()
    # A call, an assignment or a one-line if: a declaration would only fail
    # to build and cost a draw.
    if s.endswith(";") and s.count(";") == 1 and \
            re.match(r"[\w:.\->\[\]*]+\s*(\(|=[^=]|\+=|-=|\+\+|--)", s) and \
            not s.startswith("return"):
        indent = line[:len(line) - len(line.lstrip())]
        out.append(("statement removed", indent + ";"))
    return out


def sources():
    files = []
    for d, _, names in os.walk(os.path.join(ROOT, "src")):
        for n in sorted(names):
            if n.endswith((".cpp", ".h")):
                files.append(os.path.join(d, n))
    return sorted(files)


# A mutant can make a test write without end (a buffer never flushed): no
# file of the suite may outgrow this (the largest a test makes is a sparse
# 5 GB one), so such a test fails instead of filling the disk.
FILE_LIMIT = 8 << 30


def limit_files():
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))


def run(cmd, timeout=None, limited=False):
    return subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=timeout,
                          preexec_fn=limit_files if limited else None)


def build():
    # A full disk fails every build: that must stop the run, not pass for
    # mutants that do not build (which would change the draws).
    if shutil.disk_usage(ROOT).free < 4 * FILE_LIMIT or shutil.disk_usage("/tmp").free < 4 * FILE_LIMIT:
        sys.exit("mutants: less than 4 GiB free on disk")
    return run(["cmake", "--build", BUILD, "-j2"]).returncode == 0


def scratch():
    return set(glob.glob("/tmp/ftpzn-*"))


def first_failure(output):
    m = re.search(r"\d+ - (\S+) \(", output)
    return m.group(1) if m else "?"


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 40
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    rng = random.Random(seed)
    files = sources()
    weights, parsed = [], {}
    for f in files:
        parsed[f] = code_lines(f)
        weights.append(len(parsed[f][1]))
    if not build():
        sys.exit("mutants: the unmutated tree does not build")
    started = time.time()
    killed, survivors, tried = 0, [], 0
    draws = 0
    while tried < count:
        draws += 1
        if draws > count * 50:
            sys.exit("mutants: too many draws that do not build")
        path = rng.choices(files, weights)[0]
        lines, code = parsed[path]
        index = rng.choice(code)
        options = candidates(lines[index])
        if not options:
            continue
        what, new_line = rng.choice(options)
        rel = os.path.relpath(path, ROOT)
        label = f"{rel}:{index + 1}: {what}"
        mutated = list(lines)
        mutated[index] = new_line
        original = "\n".join(lines)
        leftovers = scratch()
        try:
            with open(path, "w", encoding="utf-8") as f:
                f.write("\n".join(mutated))
            if not build():
                print(f"  (does not build, drawn again) {label}", flush=True)
                continue
            tried += 1
            t0 = time.time()
            try:
                result = run(["ctest", "--test-dir", BUILD, "--stop-on-failure",
                              "-j", JOBS, "--timeout", TEST_TIMEOUT],
                             timeout=int(TEST_TIMEOUT) * 20, limited=True)
                caught, by = result.returncode != 0, first_failure(result.stdout)
                if caught and by != "?":
                    # A busy machine can fail a timing-bound test once; the
                    # mutant counts as caught only if that test fails again.
                    again = run(["ctest", "--test-dir", BUILD, "-R", f"^{by}$",
                                 "--timeout", TEST_TIMEOUT], limited=True)
                    caught = again.returncode != 0
                    if not caught:
                        rest = run(["ctest", "--test-dir", BUILD, "--stop-on-failure",
                                    "-j", JOBS, "-E", f"^{by}$", "--timeout", TEST_TIMEOUT],
                               limited=True)
                        caught, by = rest.returncode != 0, first_failure(rest.stdout)
            except subprocess.TimeoutExpired:
                caught, by = True, "suite time-out"
            took = time.time() - t0
            if caught:
                killed += 1
                print(f"{tried:3} killed   {label}  [{by}, {took:.0f} s]", flush=True)
            else:
                survivors.append(f"{label}\n      {new_line.strip()}")
                print(f"{tried:3} SURVIVED {label}  [{took:.0f} s]", flush=True)
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
            # A test that failed or ran out of time leaves its scratch folders
            # (up to the file limit each); they go with its mutant.
            for p in scratch() - leftovers:
                shutil.rmtree(p, ignore_errors=True) if os.path.isdir(p) else os.remove(p)
    build()
    print()
    for s in survivors:
        print("survived: " + s)
    minutes = (time.time() - started) / 60
    print(f"took {minutes:.0f} min for {count} mutants (seed {seed})")
    print(f"summary: killed={killed} total={count}")


if __name__ == "__main__":
    main()
