#!/usr/bin/env bash
# Records a capture of a small program, where perf may do so, and prints its summary; else that of the capture in the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '%s\n' "$*" >&2; }

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target brenvaldoris ThreadsModelPlugin workload >&2

program=build/release/bin/brenvaldoris
workload=build/release/bin/workload
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
capture=$folder/workload.data

# No -F and no -c: with one of them perf samples the tracepoints too, and most switches are lost without a word.
clock=(-e cpu-clock/period=250000/)
sched=(-e sched:sched_switch -e sched:sched_wakeup -e sched:sched_wakeup_new -e sched:sched_process_exit)

# A recording that perf ends with success can still be empty where the kernel gives it nothing.
record() {
    rm -f "$capture"
    perf record -q -g -o "$capture" "$@" -- "$workload" >/dev/null 2>"$folder/perf.log" </dev/null && [ -s "$capture" ]
}

if ! command -v perf >/dev/null; then
    say "perf isn't installed."
    capture=
elif [ "$(id -u)" != 0 ] && [ "$(cat /proc/sys/kernel/perf_event_paranoid 2>/dev/null || echo 3)" -gt -1 ]; then
    say "Recording the whole machine needs root."
    capture=
elif record -a -m 16M "${clock[@]}" "${sched[@]}"; then
    say "Recorded the whole machine while $workload ran."
elif record --switch-events "${clock[@]}"; then
    say "The whole machine can't be recorded here; recorded $workload alone."
else
    say "perf can't record here: $(tail -n 1 "$folder/perf.log")"
    capture=
fi

if [ -z "$capture" ]; then
    capture=Tests/Data/small.perf.data
    say "Using the capture of the tests, $capture."
fi
"$program" summarize "$capture"
