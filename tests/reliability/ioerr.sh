#!/bin/bash
# I/O errors: each call of a run that opens, reads, writes, syncs, closes,
# links, unlinks or renames fails in turn (strace's fault injection), with
# an errno that a full, failing or read-only file system gives, cycling
# through them from one call of a name to the next. Runs: a delete, a change
# and an add on a table larger than every buffer (105 KB), and a list into a
# file. After each:
# - the run ended by itself. With status 0 the failure was one the tool may
#   pass over: the new table is in place (for the list, all of it was
#   written) and .1 holds the old one unless the log says the rotation
#   failed. Otherwise standard error has an ERROR line, and a reported
#   input/output error names the injected errno;
# - the table and its generations are as after a kill (functions.sh), and
#   no temporary file is left outside the window between rotation and rename.
# Environment as for the scenario tests.
set -euo pipefail
work=$TS_OUTDIR/reliability/ioerr
rm -rf "$work"
mkdir -p "$work"
. "$TS_TOP/ts/functions.sh"
TABLE=$(printf '# rack 4\nA,/dev/sdb 0000:05:00.0 #first\nB,/dev/sdc 0000:06:00.0\n'
        entries 3500 'x%06d,/dev/sdc 0000:06:00.0'; printf .)
TABLE=${TABLE%.}
. "$(dirname "$0")/functions.sh"

declare -A errnos=([read]="EIO" [write]="ENOSPC EIO" [fsync]="EIO" [close]="EIO"
                   [openat]="EACCES EROFS ENOSPC" [link]="EACCES EROFS ENOSPC"
                   [unlink]="EACCES EROFS ENOSPC" [rename]="EACCES EROFS ENOSPC")
declare -A number=([EIO]=5 [ENOSPC]=28 [EACCES]=13 [EROFS]=30)

total=0
# scenario WHAT ARGS: a reference run, then one failure at each of its calls.
scenario() {
    local what=$1; shift
    local trace=$work/trace
    reference "$trace" "$@"
    local list=; [ "$1" = -l ] && list=$(<"$work/stdout")
    # The calls from the first one after the dynamic loader's work (which
    # ends at set_robust_list), as NAME:N:L, the N-th call of that name, L
    # being 1 for a link or unlink of the log's rotation. The simulator's
    # calls on its own state files stand for hardware, not for the tool's
    # files, and are left out.
    local todo; todo=$(awk 'NR > 1 && match($0, /^[a-z_0-9]+\(/) {
        name = substr($0, 1, RLENGTH - 1); n = ++seen[name]; fd = -1
        if (match($0, /^[a-z0-9]+\([0-9]+[,)]/)) {
            fd = substr($0, 1, RLENGTH - 1); sub(/^[a-z0-9]+\(/, "", fd); fd += 0
        }
        sim = fd in state
        if (name == "close") delete state[fd]
        if (name == "openat" && index($0, "/state/")) {
            sim = 1
            if (match($0, /= [0-9]+$/)) state[substr($0, RSTART + 2)] = 1
        }
        if (started && !sim) print name ":" n ":" ($0 ~ /^(link|unlink)\(".*\/user\.log/)
        if (name == "set_robust_list") started = 1 }' "$trace")
    local point name k err choices status injected=0 message
    for point in $todo; do
        name=${point%%:*} k=${point#*:} k=${k%:*}
        choices=(${errnos[$name]:-})
        [ ${#choices[@]} -gt 0 ] || continue
        err=${choices[(k - 1) % ${#choices[@]}]}
        restore
        status=0
        traced /dev/null "--inject=$name:error=$err:when=$k" "$@" || status=$?
        injected=$((injected + 1))
        local at="$what, $err at $name:$k"
        if [ "$status" -eq 124 ] || [ "$status" -gt 128 ]; then
            fail "$at: the run did not end by itself (status $status)"
        elif [ "$status" -eq 0 ]; then
            if [ -n "$list" ]; then
                [ "$(<"$work/stdout")" = "$list" ] || fail "$at: status 0, but the list is not whole"
            else
                [ "$(<"$etc/hba_addr.conf")" = "$new" ] || fail "$at: status 0, but the new table is not in place"
                grep -qs "can not rotate the file" "$log" || [ "$(<"$etc/hba_addr.conf.1")" = "$old" ] ||
                    fail "$at: status 0, but .1 is not the old table"
            fi
        elif ! grep -q '^ERROR: ' "$work/stderr"; then
            fail "$at: status $status without an ERROR line"
        else
            message=$(sed -n 's/.*an input\/output error has occurred(\([0-9a-f]*\):.*/\1/p' "$work/stderr" | head -n 1)
            [ -z "$message" ] || [ "$message" = "$(printf %x "${number[$err]}")" ] ||
                fail "$at: the input/output error names errno 0x$message"
        fi
        local in_log=; [ "${point##*:}" = 1 ] && in_log=yes
        check "$at" ended "$in_log"
    done
    echo "$what: $injected I/O errors injected"
    total=$((total + injected))
}

scenario "delete (-d B)" -d B
scenario "change (-c A disk-a)" -c A disk-a
scenario "add (-a /dev/sdb)" -a /dev/sdb
scenario "list (-l)" -l
echo "I/O errors injected: $total, failures: $failures"
[ "$failures" -eq 0 ]
