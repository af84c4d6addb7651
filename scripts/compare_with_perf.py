#!/usr/bin/env python3
"""Compares `brenvaldoris summarize` with perf's own tools on captures.

Per thread: the number of samples with `perf script`, and the time executing with `perf sched timehist --summary`, for threads that
ran more than 10 ms by either. Ends with 1 if a thread differs in samples, or by more than 1% in time.

    scripts/compare_with_perf.py PROGRAM CAPTURE...
"""
import collections
import json
import re
import subprocess
import sys

LEAST_COMPARED_MS = 10.0
MOST_DIFFERENCE = 0.01
IDLE_THREADS = (0,)
NO_THREAD = -1


def read_lines(command):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, errors="replace", check=False)
    return result.stdout.splitlines()


def perf_samples(capture):
    """Samples of clock and cycles events by thread ID."""
    counts = collections.Counter()
    for line in read_lines(["perf", "script", "-i", capture, "-F", "tid,event", "-G"]):
        match = re.match(r"\s*(-?\d+)\s+(\S+?):?\s*$", line)
        if match and re.match(r"(cpu-clock|task-clock|cycles|cpu-cycles)", match[2]):
            counts[int(match[1])] += 1
    return counts


def perf_run_times(capture):
    """Milliseconds that each thread ran, by thread ID."""
    times = collections.Counter()
    for line in read_lines(["perf", "sched", "timehist", "-i", capture, "--summary"]):
        # Columns: comm[tid/pid] or comm[tid], parent, switches in, run time, shortest, average, longest, standard deviation, migrations
        match = re.match(r"\s*.*\[(\d+)(?:/\d+)?\]\s+(-?\d+)\s+(\d+)\s+(\d+\.\d+)\s", line)
        if match:
            times[int(match[1])] += float(match[4])
    return times


def compare(program, capture):
    summary = json.loads("\n".join(read_lines([program, "summarize", "--json", capture])))
    samples = collections.Counter()
    run_times = collections.Counter()
    names = {}
    for thread in summary["threads"]:
        samples[thread["thread"]] += thread["samples"]
        run_times[thread["thread"]] += thread["executing_ms"]
        names[thread["thread"]] = thread["name"]

    faults = 0
    expected_samples = perf_samples(capture)
    for thread in sorted(set(samples) | set(expected_samples)):
        if thread in IDLE_THREADS or thread == NO_THREAD:
            continue
        if samples[thread] != expected_samples[thread]:
            faults += 1
            print(f"  thread {thread} {names.get(thread)}: {samples[thread]} samples, perf script shows {expected_samples[thread]}")

    compared = 0
    greatest = 0.0
    for thread, expected in sorted(perf_run_times(capture).items()):
        if thread in IDLE_THREADS or max(expected, run_times[thread]) <= LEAST_COMPARED_MS:
            continue
        compared += 1
        difference = abs(run_times[thread] - expected) / max(expected, run_times[thread])
        greatest = max(greatest, difference)
        if difference > MOST_DIFFERENCE:
            faults += 1
            print(f"  thread {thread} {names.get(thread)}: executing {run_times[thread]:.3f} ms, "
                  f"perf sched timehist shows {expected:.3f} ms ({100 * difference:.2f}%)")
    print(f"{capture}: {sum(samples.values())} samples of {len(samples)} threads; {compared} threads above "
          f"{LEAST_COMPARED_MS:.0f} ms, greatest difference {100 * greatest:.2f}%; {faults} faults")
    return faults


def main():
    program, *captures = sys.argv[1:]
    return 1 if sum(compare(program, capture) for capture in captures) else 0


if __name__ == "__main__":
    sys.exit(main())
