#!/bin/bash
# Concurrency: 24 runs of -a, -c and -d started at once on one simulated
# server. The lock serialises them; one that cannot get it within its ten
# attempts ends with 11. Checked: every run ends with 0 or 11; the final
# table holds the change of every run that ended with 0 and of no other (no
# lost update); the log holds a start and an end line of every run, the end
# lines telling the same outcomes as the statuses.
# Environment as for the scenario tests (SLOTAG, SLOTAG_SIM, SLOTAG_PRELOAD,
# TS_TOP, TS_OUTDIR).
set -euo pipefail
work=$TS_OUTDIR/reliability/concurrency
rm -rf "$work"
mkdir -p "$work"
export TS_ROOT=$work/root
. "$TS_TOP/ts/functions.sh"

per_mode=8
disks=(sdb sdc sdd sde sdf sdg sdh sdi)
{
    echo "adapter 0000:05:00.0"; echo "pm"
    echo "adapter 0000:06:00.0"; echo "pm"
    echo "host 3 0000:05:00.0"; echo "host 4 0000:06:00.0"
    for i in "${!disks[@]}"; do echo "disk ${disks[i]} host=$((3 + i % 2))"; done
} | sim_build
{
    echo "# one label per run that changes or deletes it"
    for i in $(seq 1 $per_mode); do
        echo "C$i,/dev/sdb 0000:05:00.0"
        echo "D$i,/dev/sdc 0000:06:00.0 # to go"
    done
} >"$TS_ROOT/etc/hba_addr.conf"

# The log exists, as after a server's first run: runs that find it missing
# all try its exclusive create, and those that lose end with status 2.
install -m 0640 /dev/null "$TS_ROOT/var/log/user.log"

# Every run is its own child of this shell, all started in one burst.
pids=() names=()
start() { sim_run -- "$@" >"$work/run-${#names[@]}.out" 2>&1 & pids+=($!); names+=("$*"); }
for i in $(seq 1 $per_mode); do
    start -a "/dev/${disks[i - 1]}"
    start -c "C$i" "N$i"
    start -d "D$i"
done
statuses=()
for p in "${pids[@]}"; do
    s=0; wait "$p" || s=$?
    statuses+=("$s")
done

table=$(<"$TS_ROOT/etc/hba_addr.conf")
has() { grep -q "^$1" <<<"$table"; }
failures=0 ok=0 busy=0 ok_add=0 ok_change=0 ok_delete=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
for r in "${!names[@]}"; do
    set -- ${names[r]}
    s=${statuses[r]}
    case $s in
        0) ok=$((ok + 1)) ;;
        11) busy=$((busy + 1)) ;;
        *) fail "slotag $*: status $s"; cat "$work/run-$r.out"; continue ;;
    esac
    case $1 in
        -a) if [ "$s" = 0 ]; then ok_add=$((ok_add + 1)); fi
            has "$2,$2 " && reflected=0 || reflected=11 ;;
        -c) if [ "$s" = 0 ]; then ok_change=$((ok_change + 1)); fi
            has "$3," && ! has "$2," && reflected=0 || reflected=11 ;;
        -d) if [ "$s" = 0 ]; then ok_delete=$((ok_delete + 1)); fi
            has "$2," && reflected=11 || reflected=0 ;;
    esac
    [ "$reflected" = "$s" ] || fail "slotag $*: ended with $s, but the table says otherwise"
done

# The log: per process, its start line and its end line.
log=$(normalize_log <"$TS_ROOT/var/log/user.log" 2>/dev/null || true)
raw=$(<"$TS_ROOT/var/log/user.log")
starts=$(grep -o 'slotag\[[0-9]*\]: INFO: <[0-9a-f.]*>start\.' <<<"$raw" | grep -o '\[[0-9]*\]' | sort)
ends=$(grep -o 'slotag\[[0-9]*\]: INFO: <[0-9a-f.]*>end(' <<<"$raw" | grep -o '\[[0-9]*\]' | sort)
[ "$(wc -l <<<"$starts")" -eq ${#names[@]} ] || fail "$(wc -l <<<"$starts") start lines for ${#names[@]} runs"
[ "$starts" = "$ends" ] || fail "the runs with a start line and those with an end line differ"
count() { grep -c "^INFO: $1$" <<<"$log" || true; }
[ "$(count 'end(1022).')" -eq "$ok_add" ] || fail "end lines of adds: $(count 'end(1022).'), runs: $ok_add"
[ "$(count 'end(103f).')" -eq "$ok_change" ] || fail "end lines of changes: $(count 'end(103f).'), runs: $ok_change"
[ "$(count 'end(1069).')" -eq "$ok_delete" ] || fail "end lines of deletes: $(count 'end(1069).'), runs: $ok_delete"
[ "$(count 'end(fd3).')" -eq "$busy" ] || fail "end lines of lock time-outs: $(count 'end(fd3).'), runs: $busy"

echo "concurrent runs: ${#names[@]} (adds, changes, deletes: $per_mode each); ended 0: $ok, ended 11: $busy; failures: $failures"
[ "$failures" -eq 0 ]
