#!/bin/bash
# Fails every allocation of a list, register, delete, change and add run in
# turn (the add through the volume manager's query command) and checks how
# each run ends. A run either comes out as the reference run did (the
# failure was absorbed: a log record lost, a stream left unbuffered; its log
# is then a beginning of the reference log), or it fails the way its mode
# fails: an "ERROR: " message (or, where the design has none, an ERR line in
# the log), a status of its mode, the end line of that status and the table
# files untouched. Never a signal, a sanitizer report
# or std::terminate. The sites the failed runs name, on standard error and
# in the log's callee lines, must be those of expected/inject/sweep-sites: a
# failure path that names another site, or none, shows there. Prints the
# number of injected failures tried.
#
# Environment: SLOTAG, SLOTAG_SIM, SLOTAG_PRELOAD, SLOTAG_INJECT (as the
# scenario tests have them) and WORK, a scratch directory.
set -u
. "$(dirname "$0")/../ts/functions.sh"   # normalize_log

work=${WORK:?}
rm -rf "$work"
mkdir -p "$work"
TS_ROOT=$work/root
root=$TS_ROOT

sim_build <<'TOPOLOGY'
bridge 0000:00:1e.0 secondary=0x05
pm
shpc speed=pcix133 slots=4 first=1
adapter 0000:05:01.0
pm
adapter 0000:06:00.0 rev=3
pm
host 3 0000:05:01.0
host 4 0000:06:00.0
disk sdb host=3
disk sdc host=4
vds
volume class1/vol1
vdsstat -D -c class1 -o vol1
stdout TYPE  NAME        CLASS   STATUS  SIZE      DEVICE
stdout disk  class1-d01  class1  enabled 35566480  sdb
stdout disk  class1-d02  class1  enabled 35566480  sdc
TOPOLOGY
write_conf <<'TABLE'
# adapters of rack 4
a,/dev/sdb 0000:05:01.0   # slot 1

b,/dev/sdc 0000:06:00.0
TABLE
printf '1077:2532:03 # this revision needs the alternative\n' | write_conf alterpm.conf
cp -a "$root/etc" "$work/etc.pristine"

# The files of the table's directory, for comparing.
etc_state() { (cd "$root/etc" && for f in *; do echo "== $f"; cat -A "$f"; done); }

# attempt N ARGS...: one run with the Nth allocation failing (0: none);
# leaves out, err, rc, log and etc (the directory after the run) in $work.
attempt() {
    local n=$1; shift
    rm -rf "$root/etc"; cp -a "$work/etc.pristine" "$root/etc"
    : >"$root/var/log/user.log"
    rm -f "$work/report"
    SLOTAG_INJECT_FAIL=$n SLOTAG_INJECT_REPORT=$work/report \
        "$SLOTAG_SIM" run "$root" --preload "$SLOTAG_PRELOAD:$SLOTAG_INJECT" -- "$SLOTAG" "$@" \
        >"$work/out" 2>"$work/err"
    rc=$?
    normalize_log <"$root/var/log/user.log" >"$work/log"
    etc_state >"$work/etc"
}

# The end line of each status a mode can fail with.
declare -A ends=([list:30]=1002 [add:6]=1012 [add:7]=1018 [add:31]=101e
                 [change:8]=102c [change:20]=1035 [change:32]=103b
                 [delete:12]=1058 [delete:20]=105e [delete:32]=1064 [register:9]=1072)
for mode in list add change delete register; do
    ends[$mode:3]=fda; ends[$mode:4]=ff5; ends[$mode:10]=fce; ends[$mode:11]=fd3
done

problems=0
total=0
problem() {
    echo "FAIL $mode N=$n: $1 ($(tail -n 1 "$work/report" 2>/dev/null))"
    sed 's/^/  stderr: /' "$work/err"; sed 's/^/  log: /' "$work/log"
    problems=$((problems + 1))
}

# The sites named by the messages of a failed run: "1f3", "ff4/200001"
# (with the reader's status word), "f42/errno-c", "log-open-409".
sites() {
    sed -nE -e 's/.*lack of resources\([0-9a-f]+:([0-9a-f]+)\).*/\1/p' \
            -e 's/.*failed to access file\(([0-9a-f]+):([0-9a-f]+)\).*/\2\/\1/p' \
            -e 's/.*an input\/output error has occurred\(([0-9a-f]+):([0-9a-f]+)\).*/\2\/errno-\1/p' \
            -e 's/.*initialization failed\(([0-9a-f]+)\).*/log-open-\1/p' \
            -e 's/.*there was a fatal error\(([0-9a-f]+)\).*/\1/p' "$work/err"
    sed -nE 's/^ERR: callee ([a-z_]+)\(([0-9]+)\)\.$/\1:\2/p' "$work/log"
}

sweep() {
    mode=$1; shift
    attempt 0 "$@"
    local count; count=$(sed -n 's/^allocations //p' "$work/report")
    if [ "$rc" != 0 ] || [ -z "$count" ]; then
        echo "FAIL $mode: the reference run ended with $rc"; cat "$work/err"
        problems=$((problems + 1)); return
    fi
    cp "$work/out" "$work/ref.out"; cp "$work/err" "$work/ref.err"
    cp "$work/log" "$work/ref.log"; cp "$work/etc" "$work/ref.etc"
    local absorbed=0 reported=0 silent=0 site_list=""
    declare -A statuses=()
    for n in $(seq 1 "$count"); do
        attempt "$n" "$@"
        total=$((total + 1))
        if ! grep -q "^failed $n " "$work/report" 2>/dev/null; then
            problem "allocation $n was not reached"; continue
        fi
        if [ "$rc" -ge 125 ] || grep -qE 'AddressSanitizer|LeakSanitizer|runtime error|terminate called' "$work/err"; then
            problem "crashed with status $rc"; continue
        fi
        if [ "$rc" = 0 ] && cmp -s "$work/out" "$work/ref.out" && cmp -s "$work/err" "$work/ref.err"; then
            cmp -s "$work/etc" "$work/ref.etc" || { problem "table files differ from the reference run"; continue; }
            local lines; lines=$(wc -l <"$work/log")
            head -n "$lines" "$work/ref.log" | cmp -s - "$work/log" ||
                { problem "log is not a beginning of the reference log"; continue; }
            absorbed=$((absorbed + 1)); continue
        fi
        cmp -s "$work/etc" <(cd "$work/etc.pristine" && for f in *; do echo "== $f"; cat -A "$f"; done) ||
            { problem "table files changed by a failed run"; continue; }
        grep -qv '^ERROR: ' "$work/err" && { problem "a line without ERROR: on standard error"; continue; }
        # A few failures have no message of their own on standard error, by
        # design (a path buffer of the add command): the log names them.
        if [ ! -s "$work/err" ]; then
            grep -q '^ERR: ' "$work/log" || { problem "failed with status $rc and no message"; continue; }
            silent=$((silent + 1))
        fi
        if [ "$rc" = 2 ]; then
            grep -q '^ERROR: initialization failed(' "$work/err" || { problem "status 2 without its message"; continue; }
        else
            local end=${ends[$mode:$rc]:-}
            [ -n "$end" ] || { problem "status $rc is not one of this mode's"; continue; }
            [ "$(tail -n 1 "$work/log")" = "INFO: end($end)." ] || { problem "no end($end) for status $rc"; continue; }
        fi
        reported=$((reported + 1))
        statuses[$rc]=$(( ${statuses[$rc]:-0} + 1 ))
        site_list+=" $(sites | tr '\n' ' ')"
    done
    local by_status=""
    for s in $(printf '%s\n' "${!statuses[@]}" | sort -n); do by_status+=" $s:${statuses[$s]}"; done
    echo "$mode ($*): $count allocations, each failed in turn: $absorbed absorbed," \
         "$reported reported (status:runs$by_status; $silent named in the log only)"
    echo "$mode: $(printf '%s\n' $site_list | sort -u | tr '\n' ' ')" | tee -a "$work/sites"
}

sweep list -l
sweep register -r
sweep delete -d b
sweep change -c a z
sweep add -a /dev/vdsdev/class1/dsk/vol1
echo "injected failures tried: $total"
diff -u "$(dirname "$0")/../expected/inject/sweep-sites" "$work/sites" ||
    { echo "the sites named differ from the expected ones"; problems=$((problems + 1)); }
[ "$problems" = 0 ] || { echo "$problems problems"; exit 1; }
