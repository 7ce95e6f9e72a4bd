#!/bin/bash
# Crash consistency: the tool is killed (SIGKILL, by strace's fault
# injection) on entry to each system call of a delete, a change and an add
# in turn, every system call of a reference run being one kill point. The
# calls of the simulator's preloaded library are the tool process's own
# calls too and are counted like the others: a kill there is a kill between
# two of the tool's own calls. After each kill the table and the generations
# are checked (see functions.sh).
# Environment as for the scenario tests (SLOTAG, SLOTAG_SIM, SLOTAG_PRELOAD,
# TS_TOP, TS_OUTDIR).
set -euo pipefail
work=$TS_OUTDIR/reliability/crash
rm -rf "$work"
mkdir -p "$work"
TABLE=$(printf '# rack 4\nA,/dev/sdb 0000:05:00.0 #first\nB,/dev/sdc 0000:06:00.0\n.')
TABLE=${TABLE%.}
. "$(dirname "$0")/functions.sh"

total=0
# scenario WHAT ARGS: a reference run, then one kill at each of its calls.
scenario() {
    local what=$1; shift
    local trace=$work/trace
    reference "$trace" "$@"
    [ "$new" != "$old" ] || { echo "the reference run of $what did not change the table"; exit 1; }
    local all; all=$(points "$trace")
    local calls; calls=$(wc -l <<<"$all")
    # The kill points inside the two rotations: the log's (the first
    # record finds the log past its limit) and the table's up to the rename.
    local windows; windows=$(grep '^[a-z_0-9]*(' "$trace" | tail -n +2 | awk '
        /^unlink\(".*\/user\.log\.4"/ { log_on = 1 }
        log_on { log_n++ } /^unlink\(".*\/user\.log"\)/ { log_on = 0 }
        /^unlink\(".*\/hba_addr\.conf\.10"/ { table_on = 1 }
        table_on { table_n++ } /^rename\(/ { table_on = 0 }
        END { print log_n + 0, table_n + 0 }')
    local killed=0 k=0 point status
    # A point that a run does not reach (see reference) is tried again.
    local attempt
    for point in $all; do
        k=$((k + 1))
        for attempt in 1 2 3 4 5; do
            restore
            status=0
            traced /dev/null "--inject=${point%%:*}:signal=KILL:when=${point##*:}" "$@" || status=$?
            check "$what, kill $k"
            [ "$status" -ne 137 ] || break
        done
        if [ "$status" -eq 137 ]; then
            killed=$((killed + 1))
        else
            echo "$what: kill $k ($point) did not kill the run in $attempt tries (status $status)"
        fi
    done
    [ "$killed" -eq "$calls" ] || fail "$what: only $killed of $calls runs were killed"
    [ "${windows% *}" -gt 0 ] && [ "${windows#* }" -gt 0 ] ||
        fail "$what: the reference run shows no log rotation or no table rotation"
    echo "$what: $calls kill points ($killed runs killed), ${windows% *} in the log rotation, ${windows#* } in the table rotation and rename"
    total=$((total + calls))
}

scenario "delete (-d B)" -d B
scenario "change (-c A disk-a)" -c A disk-a
scenario "add (-a /dev/sdb)" -a /dev/sdb
echo "kill points tried: $total, failures: $failures"
[ "$failures" -eq 0 ]
