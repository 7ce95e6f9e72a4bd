#!/bin/bash
# The installed systemd unit passes `systemd-analyze verify` without a word,
# and the check itself is shown to catch broken units; the udev rule gives
# the device the systemd tag and wants the unit, and only for /dev/slotag.
# Arguments: BUILD-DIR. Runs itself again in a private mount namespace.
set -u
if [ -z "${SLOTAG_UNITS_NS:-}" ]; then
    SLOTAG_UNITS_NS=1 exec bash "$(dirname "$0")/../private-ns.sh" bash "$0" "$@"
fi
build=$1
work=$(mktemp -d /tmp/slotag-units.XXXXXX)
trap 'umount -R /opt /etc/udev/rules.d 2>/dev/null; rm -rf "$work"' EXIT
dest=$work/dest
fail=0
bad() { echo "FAIL: $*"; fail=1; }
DESTDIR=$dest cmake --install "$build" >/dev/null || exit 1
unit=$dest/lib/systemd/system/slotag-register.service

# The unit names /opt/KVTPslotag/bin/slotag and man:slotag(8): show
# systemd-analyze the installed ones, without touching the host.
mount -t tmpfs tmpfs /opt && mkdir /opt/KVTPslotag &&
    mount --bind "$dest/opt/KVTPslotag" /opt/KVTPslotag || exit 1
export MANPATH=$dest/usr/share/man

# verify FILE: succeeds when systemd-analyze accepts FILE and says nothing
verify() {
    local out rc
    out=$(systemd-analyze verify "$1" 2>&1); rc=$?
    [ $rc -eq 0 ] && [ -z "$out" ] && return 0
    printf '%s\n' "$out" >"$work/verify.out"
    return 1
}
verify "$unit" || bad "systemd-analyze verify: $(cat "$work/verify.out")"

# broken NAME SED-EXPRESSION: a damaged copy of the unit must be refused
broken() {
    sed "$2" "$unit" >"$work/$1.service"
    cmp -s "$unit" "$work/$1.service" && { bad "$1: the damage did not apply"; return; }
    verify "$work/$1.service" && bad "$1: a broken unit passed the check"
}
broken bad-type 's/^Type=oneshot/Type=oneshut/'
broken bad-key 's/^TimeoutStartSec=/TimeoutStartSecs=/'
broken missing-program 's|^ExecStart=/opt/KVTPslotag/bin/slotag|ExecStart=/opt/KVTPslotag/bin/slotagx|'
broken second-command 's/^Type=oneshot/Type=simple\nExecStart=\/bin\/true/'
broken missing-page 's/^Documentation=man:slotag(8)/Documentation=man:slotag(7)/'

# The rule, read by udev's own parser: for the null device it does nothing;
# a copy that matches that device instead shows what /dev/slotag gets.
rules=$dest/lib/udev/rules.d/60-slotag.rules
grep -q '^KERNEL=="slotag",' "$rules" || bad "the rule does not match the device slotag"
mount -t tmpfs tmpfs /etc/udev/rules.d || exit 1
cp "$rules" /etc/udev/rules.d/
udevadm test --action=add /devices/virtual/mem/null >"$work/plain.out" 2>&1
grep -q 'SYSTEMD_WANTS=slotag-register' "$work/plain.out" && bad "the rule wants the unit for another device"
sed 's/^KERNEL=="slotag",/KERNEL=="null",/' "$rules" >/etc/udev/rules.d/60-slotag.rules
udevadm test --action=add /devices/virtual/mem/null >"$work/match.out" 2>&1
grep -q '^SYSTEMD_WANTS=slotag-register.service$' "$work/match.out" || bad "the rule does not want slotag-register.service"
grep -q '^TAGS=.*:systemd:' "$work/match.out" || bad "the rule does not tag the device for systemd"
grep -i -E 'invalid|error' "$work/match.out" && bad "udev complains about the rule"

[ $fail -eq 0 ] && echo "unit and rule: ok"
exit $fail
