# Helpers for the slotag-show scenarios, sourced after tests/ts/functions.sh.
# slotag-show is built next to slotag.
SLOTAG_SHOW=${SLOTAG_SHOW:-$(dirname "$SLOTAG")/slotag-show}

# show_sim_run [SIM-OPTIONS] -- ARGS: slotag-show in the simulated server.
show_sim_run() { SLOTAG=$SLOTAG_SHOW sim_run "$@"; }

# slotag_show [--user U] [--hold-lock S] ARGS: runs it and prints its
# output, status, and whether it left the log, the label table and the
# driver alone.
slotag_show() {
    local simopts=()
    while [[ $# -gt 1 && ( "$1" == --user || "$1" == --hold-lock ) ]]; do
        simopts+=("$1" "$2"); shift 2
    done
    local log=$TS_ROOT/var/log/user.log
    local log_before table_before
    log_before=$(cat "$log" 2>/dev/null | md5sum)
    table_before=$(md5sum <"$TS_ROOT/etc/hba_addr.conf")
    show_sim_run "${simopts[@]}" -- "$@" >"$TS_ROOT.stdout" 2>"$TS_ROOT.stderr"
    local rc=$?
    # The lock holder's PID as the simulator recorded it, so a wrong one shows.
    [ -f "$TS_ROOT/state/lock-holder" ] && sed -i "s/process $(cat "$TS_ROOT/state/lock-holder") /process HOLDER /" "$TS_ROOT.stderr"
    printf '$ slotag-show'; [ ${#simopts[@]} -gt 0 ] && printf ' %s' "${simopts[@]}"; [ $# -gt 0 ] && printf ' %q' "$@"; echo
    echo "-- stdout"; cat "$TS_ROOT.stdout"
    echo "-- stderr"; cat "$TS_ROOT.stderr"
    echo "-- status $rc"
    [ "$(cat "$log" 2>/dev/null | md5sum)" = "$log_before" ] || echo "-- the log changed"
    [ "$(md5sum <"$TS_ROOT/etc/hba_addr.conf")" = "$table_before" ] || echo "-- the table changed"
    "$SLOTAG_SIM" dump "$TS_ROOT" | grep -qx 'no driver requests' || echo "-- the driver was called"
    echo
}
