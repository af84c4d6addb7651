#!/usr/bin/env python3
"""Compares `brenvaldoris summarize` with perf's own tools on captures.

Per thread: the number of samples with `perf script`, and the time executing with `perf sched timehist --summary`, for threads that
ran more than 10 ms by either. Where the kernel's tracepoint missed the switch that brought a thread in, timehist counts the thread as
running since its processor's last switch, even if it was still asleep then or didn't exist yet. A thread that differs from timehist by
more than 1% is therefore held against a second figure, worked out from the events that `perf script` prints: there a thread runs
since the processor's last switch, its own last event, its last wake-up, or one sample interval before a clock saw it, whichever is
later. Such threads are listed as explained.
Ends with 1 if a thread differs in samples, or by more than 1% from both figures.

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


SAMPLE_INTERVAL = 0.00025  # seconds, of the captures as they are recorded


def replayed_run_times(capture):
    """As perf_run_times, from the scheduler's events, without the time in which a thread can't have run."""
    times = collections.Counter()
    last_switch = {}  # by processor
    last_seen = {}  # by thread: its own last event, or its last wake-up
    switched_in = {}  # by thread that runs
    time = 0.0
    for line in read_lines(["perf", "script", "-i", capture, "--ns", "-G", "-F", "tid,cpu,time,event,trace"]):
        match = re.match(r"\s*(-?\d+)\s+\[(\d+)\]\s+([\d.]+):\s+(\S+?):?\s(.*)", line)
        if not match:
            continue
        own, cpu, time, event, text = int(match[1]), int(match[2]), float(match[3]), match[4], match[5]
        if "sched_switch" in event:
            fields = re.match(r".*prev_pid=(\d+) .*next_pid=(\d+)", text)
            previous, following = int(fields[1]), int(fields[2])
            if previous in last_seen or previous in switched_in:
                start = switched_in.pop(previous, None)
                if start is None:
                    start = max(last_seen.get(previous, 0), last_switch.get(cpu, 0))
                times[previous] += (time - start) * 1000
            last_seen[previous] = time
            last_switch[cpu] = time
            switched_in[following] = time
            continue
        if re.search("sched_wak", event):
            woken = int(re.search(r"\bpid=(\d+)", text)[1])
            if woken not in switched_in:
                last_seen[woken] = time
        if own > 0 and own not in switched_in:
            # A clock samples a thread that runs once per interval, so it can't have run for longer unseen.
            unseen = time - SAMPLE_INTERVAL if event.startswith(("cpu-clock", "task-clock")) else 0
            switched_in[own] = max(last_seen.get(own, 0), last_switch.get(cpu, 0), unseen) if own in last_seen else time
    for thread, start in switched_in.items():
        times[thread] += (time - start) * 1000
    return times


def differs(value, expected):
    return abs(value - expected) > MOST_DIFFERENCE * max(value, expected)


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
    replayed = None
    for thread, expected in sorted(perf_run_times(capture).items()):
        if thread in IDLE_THREADS or max(expected, run_times[thread]) <= LEAST_COMPARED_MS:
            continue
        compared += 1
        if not differs(run_times[thread], expected):
            continue
        if replayed is None:
            replayed = replayed_run_times(capture)
        is_explained = not differs(run_times[thread], replayed[thread])
        faults += 0 if is_explained else 1
        print(f"  thread {thread} {names.get(thread)}: executing {run_times[thread]:.3f} ms, perf sched timehist shows {expected:.3f} ms, "
              f"the events {replayed[thread]:.3f} ms ({'explained' if is_explained else 'NOT explained'})")
    print(f"{capture}: {sum(samples.values())} samples of {len(samples)} threads; {compared} threads above "
          f"{LEAST_COMPARED_MS:.0f} ms; {faults} faults")
    return faults


def main():
    program, *captures = sys.argv[1:]
    return 1 if sum(compare(program, capture) for capture in captures) else 0


if __name__ == "__main__":
    sys.exit(main())
