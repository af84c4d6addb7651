#!/usr/bin/env bash
# Shows the recorded session in Samples: what its threads did, a pass that builds its timeline, and what it then holds. With
# --record, the same of a session that is recorded and imported here and now.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '%s\n' "$*" >&2; }

case "${1:-}" in
"" | --record) ;;
*)
    say "usage: scripts/demo.sh [--record]"
    exit 2
    ;;
esac

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target brenvaldoris ThreadsModelPlugin workload >&2

program=build/release/bin/brenvaldoris
workload=build/release/bin/workload
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# No -F and no -c: with one of them perf samples the tracepoints too, and most switches are lost without a word.
record() {
    perf record -q -g -o "$folder/workload.data" "$@" -- "$workload" >/dev/null 2>"$folder/perf.log" </dev/null &&
        [ -s "$folder/workload.data" ]
}

if [ "${1:-}" = --record ]; then
    clock=(-e cpu-clock/period=250000/)
    sched=(-e sched:sched_switch -e sched:sched_wakeup -e sched:sched_wakeup_new -e sched:sched_process_exit)
    if ! command -v perf >/dev/null; then
        say "perf isn't installed."
        exit 1
    elif record -a -m 16M "${clock[@]}" "${sched[@]}"; then
        say "Recorded the whole machine while $workload ran."
    elif record --switch-events "${clock[@]}"; then
        say "The whole machine can't be recorded here; recorded $workload alone."
    else
        say "perf can't record here: $(tail -n 1 "$folder/perf.log")"
        exit 1
    fi
    "$program" import "$folder/workload.data"
else
    # A copy, since a pass writes to the folder.
    cp -r Samples/workload "$folder/workload"
fi
echo
"$program" summarize "$folder/workload"
echo
"$program" process --rebuild "$folder/workload"
"$program" info "$folder/workload"
