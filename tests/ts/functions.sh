# Helpers sourced by every scenario script. A script builds a simulated
# server, adjusts its files, runs the tool and prints what is to be compared.
# Environment (set by CTest): SLOTAG, SLOTAG_SIM, SLOTAG_PRELOAD, TS_ROOT,
# TS_TOP, SLOTAG_EMULATOR (empty, or a program that runs the tool) and
# SLOTAG_INJECT (the allocation-failure injector of tests/inject).

# sim_build [TOPOLOGY-TEXT]: builds $TS_ROOT from the topology on stdin or
# from the argument.
sim_build() {
    local topo=$TS_ROOT.topology
    if [ $# -gt 0 ]; then printf '%s\n' "$1" >"$topo"; else cat >"$topo"; fi
    "$SLOTAG_SIM" build "$TS_ROOT" "$topo" || { echo "sim build failed"; exit 1; }
}

# write_conf NAME: the label table (or another file of /etc/opt/KVTPslotag)
# from stdin, byte for byte.
write_conf() { cat >"$TS_ROOT/etc/${1:-hba_addr.conf}"; }

# slotag [--user U] [--hold-lock S] [--] ARGS: runs the tool in the simulated server and
# prints its standard output, standard error and status, and the log lines
# the run added (time, host and process ID cut away).
slotag() {
    local simopts=()
    while [[ $# -gt 1 && ( "$1" == --user || "$1" == --hold-lock ) ]]; do
        simopts+=("$1" "$2"); shift 2
    done
    [ ${#simopts[@]} -gt 0 ] && [ "$1" = "--" ] && shift
    local log=$TS_ROOT/var/log/user.log
    local before=0
    [ -f "$log" ] && before=$(wc -c <"$log")
    sim_run "${simopts[@]}" -- "$@" >"$TS_ROOT.stdout" 2>"$TS_ROOT.stderr"
    local rc=$?
    printf '$ slotag'; printf ' %q' "$@"; echo
    echo "-- stdout"; cat -A "$TS_ROOT.stdout"
    echo "-- stderr"; cat "$TS_ROOT.stderr"
    echo "-- status $rc"
    echo "-- log"
    if [ -f "$log" ]; then
        local now; now=$(wc -c <"$log")
        # a rotation makes the file shorter: show it whole
        [ "$now" -lt "$before" ] && before=0
        tail -c +"$((before + 1))" "$log" | normalize_log
    fi
    echo
}

# sim_run [SIM-OPTIONS] -- ARGS: the tool in the simulated server, output
# left as it is.
sim_run() {
    local simopts=()
    while [ "$1" != "--" ]; do simopts+=("$1"); shift; done
    shift
    local tool=$SLOTAG preload=$SLOTAG_PRELOAD readable=""
    # Another user cannot reach into a private checkout (/root is 0700):
    # what that user's process loads by path is run from a readable copy.
    if [[ " ${simopts[*]} " == *" --user "* ]]; then
        readable=$(mktemp -d /tmp/slotag-ts.XXXXXX) && chmod 0755 "$readable" &&
            cp "$SLOTAG" "$SLOTAG_PRELOAD" "$readable/" || return 125
        tool=$readable/${SLOTAG##*/} preload=$readable/${SLOTAG_PRELOAD##*/}
    fi
    local run=("$tool")
    [ -n "${SLOTAG_EMULATOR:-}" ] && run=("$SLOTAG_EMULATOR" "$tool")
    "$SLOTAG_SIM" run "$TS_ROOT" --preload "$preload" "${simopts[@]}" -- "${run[@]}" "$@"
    local rc=$?
    [ -z "$readable" ] || rm -rf "$readable"
    return $rc
}

# Cuts the variable part of each record: "Nov 16 20:01:25 simhost
# slotag[812]: INFO: <6559f3a5.4d2>start." becomes "INFO: start.". A
# record that follows one without a line end ("bus_id_len 20") is cut too.
normalize_log() {
    sed -E 's/[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} simhost slotag\[[0-9]+\]: ([A-Z]+): <[0-9a-f]+\.[0-9a-f]+>/\1: /g'
}

# show FILE: prints a file of the simulated root with visible line ends.
show() {
    echo "-- $1"; cat -A "$TS_ROOT/$1"
    [ -n "$(tail -c 1 "$TS_ROOT/$1")" ] && printf "\n(no newline at the end)\n"
    return 0
}

# driver: the requests the simulated driver received, decoded.
driver() { echo "-- driver"; "$SLOTAG_SIM" dump "$TS_ROOT"; }

# --- Hostile inputs: generated files, and runs too large to show whole.
# garbage SEED BYTES: the same pseudo-random bytes on every machine.
garbage() {
    python3 -c 'import random, sys
r = random.Random(int(sys.argv[1]))
sys.stdout.buffer.write(bytes(r.getrandbits(8) for _ in range(int(sys.argv[2]))))' "$1" "$2"
}

# entries N [FORMAT]: N table lines, numbered from 0.
entries() {
    python3 -c 'import sys
fmt = sys.argv[2] if len(sys.argv) > 2 else "l%06d,/dev/sdb 0000:05:00.0"
sys.stdout.write("".join(fmt % i + "\n" for i in range(int(sys.argv[1]))))' "$@"
}

# summarize ARGS: runs the tool and shows its status, standard error, the
# size of its standard output and a count of its log records by message
# (numbers inside the records cut away), instead of all of them.
summarize() {
    local log=$TS_ROOT/var/log/user.log
    rm -f "$log" "$log".[1-4]
    sim_run -- "$@" >"$TS_ROOT.stdout" 2>"$TS_ROOT.stderr"
    local rc=$?
    local shown; shown=$(printf ' %q' "$@")
    echo "\$ slotag${shown:0:70}"
    echo "-- stdout: $(wc -l <"$TS_ROOT.stdout") lines, $(wc -c <"$TS_ROOT.stdout") bytes"
    echo "-- stderr"; cut -c1-120 "$TS_ROOT.stderr"
    echo "-- status $rc"
    echo "-- log records, by message"
    cat "$log".[4321] "$log" 2>/dev/null | normalize_log |
        sed -E "s/\([0-9]+:[0-9]+\)/(L:C)/" | LC_ALL=C sort | LC_ALL=C uniq -c | sed -E "s/^ +//"
    echo
}

# requests: what the tool handed the driver since the last call (printed),
# forget_requests: the same, dropped; calls: the volume manager's queries.
requests() { echo "-- driver"; "$SLOTAG_SIM" dump "$TS_ROOT" --clear; }
forget_requests() { "$SLOTAG_SIM" dump "$TS_ROOT" --clear >/dev/null; }
calls() { echo "-- vdsstat calls"; cat "$TS_ROOT/state/vdsstat-calls"; : >"$TS_ROOT/state/vdsstat-calls"; }
# unchanged (table_unchanged when a script adds to it): says so when the
# table is as the script saved it in $TS_ROOT/original.
table_unchanged() { cmp -s "$TS_ROOT/original" "$TS_ROOT/etc/hba_addr.conf" && echo "table file unchanged"; }
unchanged() { table_unchanged; }
