#!/usr/bin/python3
"""Runs the verification suite on damaged copies of its data folder.

For every data file the suite reads (one representative per numbered series, e.g. RawSignal_001.tif
for RawSignal_###.tif), three variants are made: the file truncated to a third of its bytes, the
file's bytes replaced by garbage of the same length, and the file removed. Each run damages several
files at once whose reader methods are disjoint, so every failure is attributable to one file.
A run passes when the suite process ends normally (no signal), every method runs, and every method
that reads no damaged file passes. A method that reads a damaged file fails on it or, where the
design says so, passes anyway: a missing or unreadable dark frame gives the failure value -1, which
passes the dark-chamber "Pass" methods, the light-source calibration's SNQT7Mxxxxxx and the
algorithm tests of the positive control; one frame less of a series of frames still measures. The
count of readers that failed is printed for each run. The images at the top of the folder (read
by the filter, wavelet and MTF methods) have no such fallback: their readers must fail.

Which method reads which file is found once, from an strace of an undamaged run. Methods that read
no data file and take over 50 ms (the controller's timed tests, which sleep and measure delays that parallel runs would upset) are left out
of the damaged runs: damage cannot reach them, and they would make every run last 15 s.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections import defaultdict

RUN_LINE = re.compile(r'write\(1, "\[ RUN      \] ([^"\\]+)')
OPEN_LINE = re.compile(r'openat\([^,]+, "([^"]+)", ([^)]*)\) = (-?\d+)')


def suite_methods(report_path):
    with open(report_path) as f:
        report = json.load(f)
    results = {}
    for suite in report["testsuites"]:
        for test in suite["testsuite"]:
            name = suite["name"] + "." + test["name"]
            failed = bool(test.get("failures")) or test.get("result") not in ("COMPLETED", None)
            seconds = float(str(test.get("time", "0s")).rstrip("s"))
            results[name] = (failed, seconds)
    return results


def make_layout(root, suite_dir, data_source):
    """root/UnitTestData and root/x64/Release/UnitTestCoreDll, as the suite's data search expects."""
    run_dir = os.path.join(root, "x64", "Release", "UnitTestCoreDll")
    os.makedirs(run_dir)
    for name in os.listdir(suite_dir):
        os.symlink(os.path.join(suite_dir, name), os.path.join(run_dir, name))
    data = os.path.join(root, "UnitTestData")
    # Hard links: cheap, and the damaged files are replaced (never written through).
    subprocess.run(["cp", "-al", data_source, data], check=True)
    return run_dir, data


def run_suite(binary, run_dir, report, extra_args, timeout, prefix=()):
    if os.path.exists(report):
        os.remove(report)
    cmd = list(prefix) + [binary, "--gtest_output=json:" + report] + list(extra_args)
    proc = subprocess.run(cmd, cwd=run_dir, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          timeout=timeout)
    return proc.returncode


def garbage(length, seed):
    out = bytearray()
    block = hashlib.sha256(seed.encode()).digest()
    while len(out) < length:
        out += block
        block = hashlib.sha256(block).digest()
    return bytes(out[:length])


def damage(data, relative, kind):
    path = os.path.join(data, relative)
    with open(path, "rb") as f:
        content = f.read()
    os.remove(path)  # a hard link to the pristine copy: unlink, never write through
    if kind == "truncated":
        with open(path, "wb") as f:
            f.write(content[: len(content) // 3])
    elif kind == "garbage":
        with open(path, "wb") as f:
            f.write(garbage(len(content), relative))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", help="build folder holding UnitTestData and x64/Release/...")
    parser.add_argument("--timeout", type=int, default=600)
    parser.add_argument("--jobs", type=int, default=4)
    args = parser.parse_args()

    build = os.path.abspath(args.build)
    suite_dir = os.path.join(build, "x64", "Release", "UnitTestCoreDll")
    binary = os.path.join(suite_dir, "UnitTestCoreDll")
    data_source = os.path.join(build, "UnitTestData")
    work = tempfile.mkdtemp(prefix="ombrix-damaged-")
    try:
        # 1. Who reads what: one undamaged run under strace.
        root = os.path.join(work, "baseline")
        run_dir, data = make_layout(root, suite_dir, data_source)
        trace = os.path.join(work, "trace.txt")
        report = os.path.join(work, "baseline.json")
        code = run_suite(binary, run_dir, report, [], args.timeout,
                         ["strace", "-f", "-qq", "-s", "512", "-e", "trace=openat,write",
                          "-e", "signal=none", "-o", trace])
        baseline = suite_methods(report)
        if code != 0 or any(failed for failed, _ in baseline.values()):
            print("the undamaged suite does not pass (exit %d)" % code)
            return 1
        readers = defaultdict(set)
        method = None
        real_data = os.path.realpath(data) + os.sep
        with open(trace) as f:
            for line in f:
                m = RUN_LINE.search(line)
                if m:
                    method = m.group(1).strip()
                    continue
                m = OPEN_LINE.search(line)
                if m and method and int(m.group(3)) >= 0 and "O_DIRECTORY" not in m.group(2):
                    path = os.path.realpath(os.path.join(run_dir, m.group(1)))
                    if path.startswith(real_data):
                        readers[os.path.relpath(path, real_data)].add(method)
        representatives = {}
        for relative in sorted(readers):
            key = re.sub(r"\d+(?=\.[^./]+$)", "#", relative)
            representatives.setdefault(key, relative)
        files = sorted(representatives.values())
        reading = set().union(*readers.values())
        skipped = sorted(m for m, (_, s) in baseline.items() if m not in reading and s > 0.05)
        shutil.rmtree(root)
        print("%d data files read by %d of %d methods; %d representatives; left out of the damaged "
              "runs (no data, slow): %d methods" %
              (len(readers), len(reading), len(baseline), len(files), len(skipped)))
        run_filter = ["--gtest_filter=-" + ":".join(skipped)] if skipped else []

        # 2. Batches of files whose readers are disjoint, per kind of damage.
        batches = []
        for kind in ("truncated", "garbage", "missing"):
            open_batches = []
            for relative in files:
                for batch in open_batches:
                    if all(not (readers[relative] & readers[other]) for other in batch):
                        batch.append(relative)
                        break
                else:
                    open_batches.append([relative])
            batches += [(kind, batch) for batch in open_batches]

        # 3. The damaged runs, a few at a time (each is mostly waiting on its files and threads).
        problems = []

        def one_run(index, kind, batch):
            lines = []
            root = os.path.join(work, "run%d" % index)
            run_dir, data = make_layout(root, suite_dir, data_source)
            for relative in batch:
                damage(data, relative, kind)
            report = os.path.join(work, "run%d.json" % index)
            code = run_suite(binary, run_dir, report, run_filter, args.timeout)
            label = "%s %s" % (kind, ", ".join(batch))
            if code < 0 or code > 1 or not os.path.exists(report):
                lines.append("%s: the suite ended abnormally (exit %d)" % (label, code))
                shutil.rmtree(root)
                return lines, ""
            results = suite_methods(report)
            expected = {}
            for relative in batch:
                for m in readers[relative]:
                    expected[m] = relative
            for name, (failed, _) in sorted(results.items()):
                # The images at the top of the folder are read by the core's own methods, which
                # have no failure value to fall back on: they must fail.
                if name in expected and "/" not in expected[name] and not failed:
                    lines.append("%s: %s read %s and still passed" %
                                 (kind, name, expected[name]))
                if name not in expected and failed:
                    lines.append("%s: %s failed although it reads none of %s" %
                                    (kind, name, ", ".join(batch)))
            missing_methods = set(baseline) - set(skipped) - set(results)
            if missing_methods:
                lines.append("%s: methods did not run: %s" % (label, sorted(missing_methods)))
            summary = ("run %2d/%d %-9s %2d files: exit %d, %d of %d reader methods failed" %
                       (index + 1, len(batches), kind, len(batch), code,
                        sum(1 for n in expected if n in results and results[n][0]),
                        sum(1 for n in expected if n in results)))
            shutil.rmtree(root)
            return lines, summary
        with concurrent.futures.ThreadPoolExecutor(max_workers=args.jobs) as pool:
            futures = [pool.submit(one_run, i, kind, batch)
                       for i, (kind, batch) in enumerate(batches)]
            for future in futures:
                lines, summary = future.result()
                problems += lines
                if summary:
                    print(summary, flush=True)
        for p in problems:
            print("PROBLEM: " + p)
        print("%d damaged runs, %d problems" % (len(batches), len(problems)))
        return 1 if problems else 0
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
