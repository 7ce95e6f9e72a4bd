#!/bin/bash
# Crash consistency: the tool is killed (SIGKILL, by strace's fault
# injection) on entry to each system call of a delete, a change and an add
# in turn, every system call of a reference run being one kill point. The
# calls of the simulator's preloaded library are the tool process's own
# calls too and are counted like the others: a kill there is a kill between
# two of the tool's own calls. After each kill:
# - the table holds the old or the new text at its name; or, only between
#   the rotation and the rename, no file has the name, the old table is in
#   .1 and the new one in the temporary file beside it;
# - no generation of the table or of the operation log is lost (the log is
#   prefilled past its limit, so every run starts with a log rotation): each
#   file that existed, but the oldest, is still there under some name.
# Environment as for the scenario tests (SLOTAG, SLOTAG_SIM, SLOTAG_PRELOAD,
# TS_TOP, TS_OUTDIR).
set -euo pipefail
work=$TS_OUTDIR/reliability/crash
rm -rf "$work"
mkdir -p "$work"
export TS_ROOT=$work/root
. "$TS_TOP/ts/functions.sh"

sim_build <<'TOPOLOGY'
adapter 0000:05:00.0
pm
adapter 0000:06:00.0
pm
host 3 0000:05:00.0
disk sdb host=3
TOPOLOGY
etc=$TS_ROOT/etc
log=$TS_ROOT/var/log/user.log
printf '# rack 4\nA,/dev/sdb 0000:05:00.0 #first\nB,/dev/sdc 0000:06:00.0\n' >"$etc/hba_addr.conf"
for k in $(seq 1 10); do printf '# table generation %d\n' "$k" >"$etc/hba_addr.conf.$k"; done
{ echo "# log generation 0"; head -c 1048576 /dev/zero | tr '\0' 'x'; echo; } >"$log"
for k in 1 2 3 4; do echo "# log generation $k" >"$log.$k"; done
pristine=$work/pristine
mkdir "$pristine"
cp -a "$TS_ROOT/etc" "$TS_ROOT/var" "$TS_ROOT/state" "$pristine/"
old=$(cat "$etc/hba_addr.conf")

restore() {
    rm -rf "$TS_ROOT/etc" "$TS_ROOT/var" "$TS_ROOT/state"
    cp -a "$pristine/etc" "$pristine/var" "$pristine/state" "$TS_ROOT/"
}

# traced TRACE-FILE STRACE-OPTIONS ARGS: the tool under strace inside the
# simulated server; strace itself runs without the preloaded library.
traced() {
    local trace=$1 options=$2; shift 2
    "$SLOTAG_SIM" run "$TS_ROOT" --preload "$SLOTAG_PRELOAD" -- \
        env -u LD_PRELOAD strace -o "$trace" -E LD_PRELOAD="$SLOTAG_PRELOAD" $options \
        "$SLOTAG" "$@" >/dev/null 2>&1
}

# first_lines NAME: the first line of each of the name's generations and
# temporary files, each line framed by newlines (and a dot after the last
# newline, which a command substitution would cut).
first_lines() {
    local files=("$1" "$1".[0-9]* "$1"??????) existing=() f
    for f in "${files[@]}"; do
        if [ -f "$f" ]; then existing+=("$f"); fi
    done
    printf '\n%s\n.' "$(head -q -n 1 "${existing[@]}")"
}

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# check WHAT K NEW: the table and the generations after a kill.
check() {
    local what=$1 k=$2 new=$3 table
    local temps=("$etc"/hba_addr.conf??????)
    if [ -f "$etc/hba_addr.conf" ]; then
        table=$(<"$etc/hba_addr.conf")
        [ "$table" = "$old" ] || [ "$table" = "$new" ] ||
            fail "$what, kill $k: the table is neither the old nor the new one"
    else
        [ -f "$etc/hba_addr.conf.1" ] && [ "$(<"$etc/hba_addr.conf.1")" = "$old" ] ||
            fail "$what, kill $k: no table, and .1 is not the old one"
        [ ${#temps[@]} -eq 1 ] && [ -f "${temps[0]}" ] && [ "$(<"${temps[0]}")" = "$new" ] ||
            fail "$what, kill $k: no table, and no temporary file with the new one"
    fi
    local lines g
    lines=$(first_lines "$etc/hba_addr.conf")
    for g in 1 2 3 4 5 6 7 8 9; do
        [[ $lines == *$'\n'"# table generation $g"$'\n'* ]] || fail "$what, kill $k: table generation $g lost"
    done
    lines=$(first_lines "$log")
    for g in 0 1 2 3; do
        [[ $lines == *$'\n'"# log generation $g"$'\n'* ]] || fail "$what, kill $k: log generation $g lost"
    done
}

total=0
# scenario WHAT ARGS: a reference run, then one kill at each of its calls.
scenario() {
    local what=$1; shift
    # A few calls vary from run to run: mkstemp draws getrandom again when
    # its random bits fall short (about one run in twenty). The shortest of
    # three reference runs is taken, so every kill point is one a run meets.
    local trace=$work/trace try
    for try in 1 2 3; do
        restore
        traced "$trace.$try" "" "$@" || { echo "reference run of $what failed"; exit 1; }
    done
    cp "$(wc -l "$trace".[123] | sort -n | head -n 1 | awk '{ print $2 }')" "$trace"
    local new; new=$(cat "$etc/hba_addr.conf")
    [ "$new" != "$old" ] || { echo "the reference run of $what did not change the table"; exit 1; }
    # strace counts the calls of each system call apart: the K-th call of
    # the run is the N-th call of its name. The first call, the execve by
    # which strace starts the tool, cannot be stopped and is no kill point.
    local points; points=$(sed -n '2,$s/^\([a-z_0-9]*\)(.*/\1/p' "$trace" |
                           awk '{ print $1 ":" ++seen[$1] }')
    local calls; calls=$(wc -l <<<"$points")
    # The kill points inside the two rotations: the log's (the first
    # record finds the log past its limit) and the table's up to the rename.
    local windows; windows=$(grep '^[a-z_0-9]*(' "$trace" | tail -n +2 | awk '
        /^unlink\(".*\/user\.log\.4"/ { log_on = 1 }
        log_on { log_n++ } /^unlink\(".*\/user\.log"\)/ { log_on = 0 }
        /^unlink\(".*\/hba_addr\.conf\.10"/ { table_on = 1 }
        table_on { table_n++ } /^rename\(/ { table_on = 0 }
        END { print log_n + 0, table_n + 0 }')
    local killed=0 k=0 point status
    # A point that a run does not reach (see above) is tried again.
    local attempt
    for point in $points; do
        k=$((k + 1))
        for attempt in 1 2 3 4 5; do
            restore
            status=0
            traced /dev/null "--inject=${point%%:*}:signal=KILL:when=${point##*:}" "$@" || status=$?
            check "$what" "$k" "$new"
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
