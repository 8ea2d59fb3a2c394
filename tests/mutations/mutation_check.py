#!/usr/bin/python3
"""Mutation check: applies the mutations of mutations.txt one at a time to a scratch copy of the
source, rebuilds only the targets the mutated file affects, runs the tests that guard it, restores
the file, and prints a table of killed and surviving mutations with the score.

A mutation is killed when its build succeeds and at least one of the guarding tests fails (or the
run exceeds the time limit). A mutation that does not build, or whose original text is not found
exactly once, is an error of the list: it is reported and makes the check fail like a survivor.

Usage: mutation_check.py [--source DIR] [--scratch DIR] [--sample] [--seed-build DIR] [--only N,..]
  --sample      run only the lines marked with a leading '*' (the fixed sample CI runs)
  --seed-build  an already built build folder of the same sources: it is copied beside the
                scratch source with its paths moved along, so that only what a mutation touches
                is rebuilt (without it the scratch copy is built once from nothing)
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_SOURCE = os.path.dirname(os.path.dirname(HERE))
SEPARATOR = " ||| "
TEST_TIMEOUT = 600

# Which test executable and which of its tests guard the files under a folder (first match wins).
# Binaries are given relative to the build folder.
GUARDS = [
    ("core/controller/", "portable_tests", "tests/portable_tests", "VariableController*:VerdictTable*"),
    ("core/mtf/", "core_tests", "tests/core_tests",
     # The accuracy sweeps and the interval coverage take a minute and guard nothing on the list.
     "TargetDetection*:Mtf*:ContourFeatures*:EdgeProfile*:MinAreaRect*"
     "-MtfAccuracy*:MtfUncertainty*:*Coverage*"),
    ("core/filters/", "core_tests", "tests/core_tests", "FilterCosmicRay*:SquareRadius*:RadiusAndPath*:MedianFunction16U*"),
    ("scenarios/", "core_tests", "tests/core_tests", "PluginScenarios*"),
    ("plugin/IOmbrixProcessing.h", "core_tests", "tests/core_tests", "ProcessingInterface*:PluginScenarios*"),
    ("core/stack/", "core_tests", "tests/core_tests", "TemporalNoise*"),
    ("tools/ombrix/report/", "tool_report_tests", "tools/ombrix/tests/report/tool_report_tests",
     "Plots*:Report*:OrderStatistics*"),
    ("tools/ombrix/", "tool_tests", "tools/ombrix/tests/tool_tests", "*FrameReader*:ToolSha256*"),
    # The suite's console lines are checked by ctest tests that run the suite itself.
    ("suite/VecCallback/Processing.cpp", "UnitTestCoreDll", "ctest", "ConsoleLine"),
]

SKIP_DIRS = {".git", "build", "__pycache__"}


def parse_list(path):
    mutations = []
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            sampled = line.startswith("* ")
            if sampled:
                line = line[2:]
            fields = re.split(r"\s*\|\|\|\s*", line)
            if len(fields) != 4:
                sys.exit(f"{path}:{number}: expected 4 fields separated by '{SEPARATOR.strip()}'")
            file, original, replacement, breaks = (x.strip() for x in fields)
            original = original.replace("\\n", "\n")
            replacement = replacement.replace("\\n", "\n")
            if original == replacement:
                sys.exit(f"{path}:{number}: replacement equals the original")
            mutations.append({"line": number, "file": file, "original": original,
                              "replacement": replacement, "breaks": breaks, "sample": sampled})
    return mutations


def guard_of(file):
    for prefix, target, binary, tests in GUARDS:
        if file.startswith(prefix):
            return target, binary, tests
    sys.exit(f"no guarding tests known for {file}: add its folder to GUARDS")


def copy_tree(source, destination):
    """Copies the project's files (not build folders) keeping their times; unchanged files are left
    alone so that a second run rebuilds nothing that did not change."""
    for root, dirs, files in os.walk(source):
        rel = os.path.relpath(root, source)
        dirs[:] = [d for d in dirs
                   if d not in SKIP_DIRS and not d.startswith("build")
                   and os.path.join(root, d) != os.path.abspath(destination)]
        os.makedirs(os.path.join(destination, rel), exist_ok=True)
        for name in files:
            src = os.path.join(root, name)
            dst = os.path.join(destination, rel, name)
            if not os.path.exists(dst):
                shutil.copy2(src, dst)  # the source's time, so a seeded build stays up to date
                continue
            with open(src, "rb") as a, open(dst, "rb") as b:
                if a.read() == b.read():
                    continue
            # Changed since the last run (or left mutated by an interrupted one): a fresh time,
            # so that the build sees it.
            shutil.copyfile(src, dst)


def relocate_build(seed, build, old_source, new_source):
    """Copies a built folder and moves the source and build paths written in its text files."""
    seed = os.path.abspath(seed)
    scratch = os.path.dirname(os.path.abspath(build))
    # The scratch folder may lie inside the seed (build/mutation): it is not copied into itself,
    # nor are other scratch folders beside it.
    def ignored(folder, names):
        return [n for n in names if os.path.join(folder, n) == scratch or
                (folder == seed and n.startswith("mutation"))]

    shutil.copytree(seed, build, symlinks=True, ignore=ignored)
    # One pass, the longer path first, since the build folder may lie inside the source.
    moves = {seed.encode(): os.path.abspath(build).encode(),
             os.path.abspath(old_source).encode(): os.path.abspath(new_source).encode()}
    pattern = re.compile(b"|".join(re.escape(k) for k in sorted(moves, key=len, reverse=True)))
    for root, _, files in os.walk(build):
        for name in files:
            path = os.path.join(root, name)
            if os.path.islink(path):
                continue
            with open(path, "rb") as f:
                data = f.read()
            if b"\0" in data[:8192]:
                continue
            changed = pattern.sub(lambda match: moves[match.group(0)], data)
            if changed != data:
                stat = os.stat(path)
                with open(path, "wb") as f:
                    f.write(changed)
                os.utime(path, ns=(stat.st_atime_ns, stat.st_mtime_ns))


def run_guard(build, binary, tests):
    """Runs the guarding tests; returns (exit code or None on time-out, output)."""
    if binary == "ctest":
        return run(["ctest", "--test-dir", build, "-R", tests, "--output-on-failure"],
                   timeout=TEST_TIMEOUT)
    path = os.path.join(build, binary)
    # The first failure decides: the rest of the run would only cost time.
    return run([path, f"--gtest_filter={tests}", "--gtest_fail_fast"], cwd=os.path.dirname(path),
               timeout=TEST_TIMEOUT)


def run(cmd, cwd=None, timeout=None):
    try:
        done = subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=timeout)
        return done.returncode, done.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired as expired:
        out = expired.stdout.decode(errors="replace") if expired.stdout else ""
        return None, out


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", default=DEFAULT_SOURCE)
    parser.add_argument("--scratch", default=os.path.join(DEFAULT_SOURCE, "build-mutation"))
    parser.add_argument("--list", default=os.path.join(HERE, "mutations.txt"))
    parser.add_argument("--sample", action="store_true")
    parser.add_argument("--seed-build")
    parser.add_argument("--only", help="comma-separated line numbers of mutations.txt")
    parser.add_argument("--check-list", action="store_true",
                        help="only check that every original text occurs once in the source")
    parser.add_argument("--jobs", default=str(os.cpu_count() or 2))
    args = parser.parse_args()

    args.source = os.path.abspath(args.source)
    args.scratch = os.path.abspath(args.scratch)
    mutations = parse_list(args.list)
    if len(mutations) < 60 and not (args.sample or args.only):
        print(f"warning: the list holds {len(mutations)} mutations")
    if args.sample:
        mutations = [m for m in mutations if m["sample"]]
    if args.check_list:
        bad = 0
        for m in mutations:
            with open(os.path.join(args.source, m["file"]), encoding="utf-8") as f:
                count = f.read().count(m["original"])
            if count != 1:
                bad += 1
                print(f"line {m['line']}: original text found {count} times in {m['file']}")
        print(f"{len(mutations)} mutations, {sum(m['sample'] for m in mutations)} in the sample, "
              f"{bad} not applicable")
        return 1 if bad else 0
    if args.only:
        wanted = {int(x) for x in args.only.split(",")}
        mutations = [m for m in mutations if m["line"] in wanted]

    started = time.monotonic()
    source = os.path.join(args.scratch, "src")
    build = os.path.join(args.scratch, "build")
    os.makedirs(args.scratch, exist_ok=True)
    copy_tree(args.source, source)
    if args.seed_build and not os.path.exists(build):
        relocate_build(args.seed_build, build, args.source, source)
    code, out = run(["cmake", "-S", source, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                     "-DOMBRIX_BUILD_BENCHMARKS=OFF"])
    if code != 0:
        sys.exit("configure failed:\n" + out)

    # The unmutated build must pass the guarding tests, or nothing can be concluded.
    baseline = {}
    for m in mutations:
        baseline.setdefault(guard_of(m["file"]), None)
    for (target, binary, tests) in baseline:
        code, out = run(["cmake", "--build", build, "--target", target, "-j", args.jobs])
        if code != 0:
            sys.exit(f"the unmutated {target} does not build:\n{out[-4000:]}")
        code, out = run_guard(build, binary, tests)
        if code != 0:
            sys.exit(f"the unmutated {binary} fails {tests}:\n{out[-4000:]}")
    print(f"scratch copy built and guarding tests pass ({time.monotonic() - started:.0f} s)",
          flush=True)

    rows = []
    for m in mutations:
        t0 = time.monotonic()
        path = os.path.join(source, m["file"])
        with open(path, encoding="utf-8") as f:
            text = f.read()
        count = text.count(m["original"])
        if count != 1:
            rows.append((m, "ERROR", f"original text found {count} times", 0.0))
            continue
        target, binary, tests = guard_of(m["file"])
        try:
            with open(path, "w", encoding="utf-8") as f:
                f.write(text.replace(m["original"], m["replacement"]))
            code, out = run(["cmake", "--build", build, "--target", target, "-j", args.jobs])
            if code != 0:
                status, note = "ERROR", "does not build"
            else:
                code, out = run_guard(build, binary, tests)
                if code is None:
                    status, note = "killed", "time limit"
                elif code != 0:
                    failed = [l.split("]", 1)[1].strip().split(" ")[0]
                              for l in out.splitlines() if l.startswith("[  FAILED  ]")
                              and "listed below" not in l and "," not in l]
                    failed += [l.split(" - ", 1)[1].split(" ")[0] for l in out.splitlines()
                               if l.strip()[:1].isdigit() and " - " in l and "(Failed)" in l]
                    status, note = "killed", ", ".join(sorted(set(failed))[:3]) or f"exit {code}"
                else:
                    status, note = "SURVIVED", ""
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
        rows.append((m, status, note, time.monotonic() - t0))
        print(f"{status:8} line {m['line']:3} {m['file']}: {m['breaks']} ({rows[-1][3]:.0f} s)",
              flush=True)

    # Leave the scratch build matching the unmutated source.
    for (target, _, _) in baseline:
        run(["cmake", "--build", build, "--target", target, "-j", args.jobs])

    print()
    print(f"{'status':8}  {'line':>4}  {'file':34}  what it breaks / killed by")
    for m, status, note, _ in rows:
        print(f"{status:8}  {m['line']:4}  {m['file']:34}  {m['breaks']}" +
              (f"  [{note}]" if note else ""))
    killed = sum(1 for _, s, _, _ in rows if s == "killed")
    total = len(rows)
    score = 100.0 * killed / total if total else 0.0
    print(f"\nmutation score: {killed} / {total} killed ({score:.1f} %), "
          f"{time.monotonic() - started:.0f} s")
    return 0 if killed == total else 1


if __name__ == "__main__":
    sys.exit(main())
