# Shared by the sweeps that break a run at each of its system calls (kills,
# injected I/O errors): a simulated server whose table has ten generations
# and whose log is past its size limit (so every run starts with a log
# rotation), a pristine copy to restore before each run, the tool traced
# inside the simulated server, and the checks of what must survive.
# Sourced with work, TS_TOP and the scenario environment set; TABLE holds the
# table's text to start from.
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
printf '%s' "$TABLE" >"$etc/hba_addr.conf"
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
# simulated server; strace itself runs without the preloaded library. The
# tool's output goes to $work/stdout and $work/stderr; a run that does not
# end within a minute is stopped (status 124).
traced() {
    local trace=$1 options=$2; shift 2
    timeout 60 "$SLOTAG_SIM" run "$TS_ROOT" --preload "$SLOTAG_PRELOAD" -- \
        env -u LD_PRELOAD strace -o "$trace" -E LD_PRELOAD="$SLOTAG_PRELOAD" $options \
        "$SLOTAG" "$@" >"$work/stdout" 2>"$work/stderr"
}

# reference TRACE ARGS: a run without faults, traced into TRACE; its table is
# left in $new. A few calls vary from run to run: mkstemp draws getrandom
# again when its random bits fall short (about one run in twenty). The
# shortest of three runs is taken, so every point is one a run meets.
reference() {
    local trace=$1 try; shift
    for try in 1 2 3; do
        restore
        traced "$trace.$try" "" "$@" || { echo "reference run of $* failed"; exit 1; }
    done
    cp "$(wc -l "$trace".[123] | sort -n | head -n 1 | awk '{ print $2 }')" "$trace"
    new=$(cat "$etc/hba_addr.conf")
}

# points TRACE: the system calls of a traced run as NAME:N, the N-th call of
# that name (strace counts each name apart). The first call, the execve by
# which strace starts the tool, is left out.
points() { sed -n '2,$s/^\([a-z_0-9]*\)(.*/\1/p' "$1" | awk '{ print $1 ":" ++seen[$1] }'; }

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

# check WHAT [ENDED [LOG-ROTATION]]: the table holds the old or the new text at its
# name; or, only between the rotation and the rename, no file has the name,
# the old table is in .1 and the new one in the temporary file beside it. No
# generation of the table (but the oldest) or of the log is lost. For a run
# that ENDED by itself (a killed one may leave a temporary file), a
# temporary file is left only by a failed rename, holding the new table
# beside the old one put back. The log's generations are not checked after
# a failure in the log's own rotation (LOG-ROTATION not empty): the next
# record tries the rotation again, dropping the oldest once more.
check() {
    local what=$1 ended=${2:-} log_rotation=${3:-} table
    local temps=("$etc"/hba_addr.conf??????)
    if [ -f "$etc/hba_addr.conf" ]; then
        table=$(<"$etc/hba_addr.conf")
        [ "$table" = "$old" ] || [ "$table" = "$new" ] ||
            fail "$what: the table is neither the old nor the new one"
        if [ -n "$ended" ] && [ -e "${temps[0]}" ]; then
            [ ${#temps[@]} -eq 1 ] && [ "$(<"${temps[0]}")" = "$new" ] && [ "$table" = "$old" ] &&
                grep -q ':f6a)\.$' "$work/stderr" || fail "$what: a temporary file is left: ${temps[*]}"
        fi
    else
        [ -f "$etc/hba_addr.conf.1" ] && [ "$(<"$etc/hba_addr.conf.1")" = "$old" ] ||
            fail "$what: no table, and .1 is not the old one"
        [ ${#temps[@]} -eq 1 ] && [ -f "${temps[0]}" ] && [ "$(<"${temps[0]}")" = "$new" ] ||
            fail "$what: no table, and no temporary file with the new one"
    fi
    local lines g
    lines=$(first_lines "$etc/hba_addr.conf")
    for g in 1 2 3 4 5 6 7 8 9; do
        [[ $lines == *$'\n'"# table generation $g"$'\n'* ]] || fail "$what: table generation $g lost"
    done
    [ -z "$log_rotation" ] || return 0
    lines=$(first_lines "$log")
    for g in 0 1 2 3; do
        [[ $lines == *$'\n'"# log generation $g"$'\n'* ]] || fail "$what: log generation $g lost"
    done
}
